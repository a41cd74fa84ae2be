// The text of HTTP messages: what stands before a body and around its pieces.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "agent/net/http.h"

namespace Agent {

/// What stands before the body of a message, up to the empty line. An end of a line that the fields hold is a space.
std::string messageHead(std::string_view firstLine, HttpFields const& fields);

/// Appends a piece of a body that is sent in chunks; the empty one ends the body.
void appendChunk(std::string& to, std::string_view piece);

/// A time as fields tell it: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string httpDate(std::time_t time);

}  // namespace Agent
