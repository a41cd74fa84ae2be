// Why a switch is ready or not, as a text for people.
#pragma once

#include <optional>
#include <string>

#include "agent/document/json.h"

namespace Agent {

/// What `GET /v1/switches/<switch>` answers, in sentences: first whether the switch is ready and why, then every other
/// condition that is not true with what clears it, then all conditions. Of one service alone if it is given; nothing if
/// the switch has no such service. Throws a Json::exception for an answer of another form.
std::optional<std::string> explanationText(Json const& view, std::optional<std::string> const& service,
                                           bool isColoured);

}  // namespace Agent
