// JSON documents in memory.
#pragma once

#include <nlohmann/json.hpp>

namespace Agent {

/// A document in memory. Members keep the order in which they were written, so look-up by key takes time in proportion
/// to their number: walk large objects instead.
using Json = nlohmann::ordered_json;

}  // namespace Agent
