// Encodes targets and reads the fields of responses.
#include "agent/client/requests.h"

#include <utility>

#include "agent/client/failure.h"
#include "agent/document/number.h"

namespace Agent {
namespace {

void appendEncoded(std::string& to, std::string_view text, std::string_view kept) {
  constexpr std::string_view kUnreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (char const byte : text) {
    if (kUnreserved.find(byte) != std::string_view::npos || kept.find(byte) != std::string_view::npos) {
      to += byte;
      continue;
    }
    auto const code = static_cast<unsigned char>(byte);
    to.append({'%', kDigits[code >> 4u], kDigits[code & 15u]});
  }
}

}  // namespace

std::string documentTarget(std::string_view path) {
  std::string target = "/v1/tree/";
  appendEncoded(target, path, "/:");
  // A segment of dots would be taken for a way up by a proxy.
  for (std::string_view const dots : {"/..", "/."}) {
    for (std::size_t at = target.find(dots); at != std::string::npos; at = target.find(dots, at + 1)) {
      std::size_t const end = at + dots.size();
      if (end != target.size() && target[end] != '/') continue;
      target.replace(at + 1, dots.size() - 1, dots.size() == 3 ? "%2E%2E" : "%2E");
    }
  }
  return target;
}

std::string queryValue(std::string_view text) {
  std::string value;
  appendEncoded(value, text, "/:");
  return value;
}

HttpRequest makeRequest(std::string method, std::string target, IfMatch const& ifMatch) {
  HttpRequest request;
  request.method = std::move(method);
  request.target = std::move(target);
  if (ifMatch) request.fields.emplace_back("If-Match", "\"" + std::to_string(*ifMatch) + "\"");
  return request;
}

std::uint64_t revisionOf(HttpResponse const& response) {
  auto const field = findField(response.fields, "Enrolix-Revision");
  std::uint64_t revision = 0;
  if (!field || !readNumber(*field, revision))
    throw ClientFailure(FailureKind::kNoAnswer, "the server's answer has no revision: is it a registry?");
  return revision;
}

}  // namespace Agent
