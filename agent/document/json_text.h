// JSON as text, in one line.
#pragma once

#include <string>
#include <string_view>

#include "agent/document/json.h"

namespace Agent {

/// What `value.dump()` gives; a long one is interrupted (`Breath`).
std::string jsonText(Json const& value);

/// Appends the text as a JSON string.
void appendQuoted(std::string& to, std::string_view text);

}  // namespace Agent
