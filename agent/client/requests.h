// How requests to the server are written, and what its responses say beside their bodies.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "agent/document/export.h"
#include "agent/net/http.h"

namespace Agent {

/// The revision that a document must have, as the server gave it; absent for any.
using IfMatch = std::optional<std::uint64_t>;

/// The target of a document: its path, each segment percent-encoded, below "/v1/tree/".
ENROLIX_EXPORT std::string documentTarget(std::string_view path);
/// A query's value, percent-encoded.
ENROLIX_EXPORT std::string queryValue(std::string_view text);
/// A request with the field If-Match if a revision is given.
ENROLIX_EXPORT HttpRequest makeRequest(std::string method, std::string target, IfMatch const& ifMatch = std::nullopt);

/// The value of the field Enrolix-Revision. Throws a ClientFailure without it.
ENROLIX_EXPORT std::uint64_t revisionOf(HttpResponse const& response);

}  // namespace Agent
