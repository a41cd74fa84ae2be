// HTTP responses among the bytes that a connection has brought.
#pragma once

#include <cstddef>
#include <string>

namespace Attack {

struct Response {
  int status = 0;
  std::string body;
};

/// Takes the first response off the front of `bytes`; false if it is not whole yet. It has a length, as all have that
/// are no streams. Throws a std::runtime_error for what is no response.
bool takeResponse(std::string& bytes, Response& response);

std::string head(std::string const& method, std::string const& target, std::size_t bodyBytes);
/// A request with a body, or without one.
std::string request(std::string const& method, std::string const& target, std::string const& body = {});
std::string putRequest(std::string const& path, std::string const& document);

}  // namespace Attack
