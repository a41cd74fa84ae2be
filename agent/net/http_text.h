// The text of HTTP messages: what stands before a body and around its pieces.
#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "agent/net/http.h"

namespace Agent {

/// How the reader of a message finds the end of its body.
enum class Framing {
  Length,      // by the field Content-Length
  Chunked,     // by the last chunk
  Connection,  // by the end of the connection
  Bodiless     // by the status: there is none
};

/// What stands before the body of `response`, up to the empty line. `connection` is the value of that field, left out
/// if empty.
std::string responseHead(HttpResponse const& response, std::string_view phrase, Framing framing,
                         std::string_view connection, std::time_t now);

/// The same of a request, whose body is framed by its length. `host` is the value of that field.
std::string requestHead(HttpRequest const& request, std::string_view host);

/// What stands before a chunk of that many bytes, more than none; kChunkEnd stands behind it.
std::string chunkHead(std::size_t bytes);
inline constexpr std::string_view kChunkEnd = "\r\n";
inline constexpr std::string_view kLastChunk = "0\r\n\r\n";

/// A time as fields tell it: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string httpDate(std::time_t time);

}  // namespace Agent
