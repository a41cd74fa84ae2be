#include "tests/attack/responses.h"

#include <stdexcept>
#include <string_view>

#include "agent/document/number.h"

namespace Attack {

bool takeResponse(std::string& bytes, Response& response) {
  constexpr std::string_view kBegin = "HTTP/1.1 ";
  constexpr std::string_view kLength = "\r\nContent-Length: ";
  std::size_t const end = bytes.find("\r\n\r\n");
  if (end == std::string::npos) return false;
  std::string_view const head = std::string_view(bytes).substr(0, end);
  std::size_t const length = head.find(kLength);
  std::size_t size = 0;
  bool isResponse = head.starts_with(kBegin) && Agent::readNumber(head.substr(kBegin.size(), 3), response.status);
  if (isResponse && length != std::string_view::npos) {
    std::string_view const digits = head.substr(length + kLength.size());
    isResponse = Agent::readNumber(digits.substr(0, digits.find('\r')), size);
  }
  if (!isResponse) throw std::runtime_error("no response: " + bytes.substr(0, end));
  if (bytes.size() < end + 4 + size) return false;
  response.body.assign(bytes, end + 4, size);
  bytes.erase(0, end + 4 + size);
  return true;
}

std::string head(std::string const& method, std::string const& target, std::size_t bodyBytes) {
  return method + " " + target + " HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(bodyBytes) +
         "\r\n\r\n";
}

std::string request(std::string const& method, std::string const& target, std::string const& body) {
  return head(method, target, body.size()) + body;
}

std::string putRequest(std::string const& path, std::string const& document) {
  return request("PUT", "/v1/tree/" + path, document);
}

}  // namespace Attack
