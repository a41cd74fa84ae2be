// How requests to the server are written, and what its responses say beside their bodies.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "agent/net/http.h"

namespace Agent {

/// The revision that a document must have, as the server gave it; absent for any.
using IfMatch = std::optional<std::uint64_t>;

/// The target of a document: its path, each segment percent-encoded, below "/v1/tree/".
std::string documentTarget(std::string_view path);
/// A query's value, percent-encoded.
std::string queryValue(std::string_view text);
/// A request with the field If-Match if a revision is given.
HttpRequest makeRequest(std::string method, std::string target, IfMatch const& ifMatch = std::nullopt);

/// The value of the field Enrolix-Revision. Throws a ClientFailure without it.
std::uint64_t revisionOf(HttpResponse const& response);
/// A number from 0 written in digits alone; nothing for any other text.
std::optional<std::uint64_t> readNumber(std::string_view text);

}  // namespace Agent
