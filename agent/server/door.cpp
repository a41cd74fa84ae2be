// Reads the fields by which a browser says where a request comes from.
#include "agent/server/door.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "agent/server/api_call.h"

namespace Agent {
namespace {

/// A host with its port taken off, and without the brackets of an IPv6 address.
std::string hostName(std::string_view host) {
  std::size_t const colon = host.rfind(':');
  bool const hasPort = colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos &&
                       host.find_first_not_of("0123456789", colon + 1) == std::string_view::npos;
  if (hasPort) host = host.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  // A name that ends with a dot is the same name.
  if (host.ends_with('.')) host.remove_suffix(1);
  return std::string(host);
}

bool isAddress(std::string const& name) {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  return inet_pton(AF_INET, name.c_str(), bytes.data()) == 1 || inet_pton(AF_INET6, name.c_str(), bytes.data()) == 1;
}

bool isLocalName(std::string_view name) {
  constexpr std::string_view kLocal = "localhost";
  auto const isOfName = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '.'; };
  bool const isBelow = name.size() > kLocal.size() && name[name.size() - kLocal.size() - 1] == '.' &&
                       std::all_of(name.begin(), name.end(), isOfName);
  return sameWithoutCase(name, kLocal) ||
         (isBelow && sameWithoutCase(name.substr(name.size() - kLocal.size()), kLocal));
}

/// Whether a page whose origin this is was sent by the agent itself.
bool isOwn(std::string_view origin, std::string_view host) {
  for (std::string_view const scheme : {"http://", "https://"})
    if (origin.starts_with(scheme)) return !host.empty() && sameWithoutCase(origin.substr(scheme.size()), host);
  return false;
}

[[noreturn]] void refusePage() { throw HttpProblem(403, "pages of other sites may ask for nothing here"); }

}  // namespace

Door::Door(std::vector<std::string> const& names) {
  for (std::string const& name : names) names_.push_back(hostName(name));
}

void Door::requireHost(std::string_view host) const {
  std::string const name = hostName(host);
  auto const isName = [&](std::string const& allowed) { return sameWithoutCase(allowed, name); };
  if (isAddress(name) || isLocalName(name) || std::any_of(names_.begin(), names_.end(), isName)) return;
  throw HttpProblem(421,
                    "the host " + inQuotes(name) +
                        " is none of this agent: expected an address, localhost, or a name that it was started with "
                        "(--allow-host NAME)");
}

void Door::require(HttpRequest const& request, std::string_view path) const {
  auto const host = findField(request.fields, "Host");
  // HTTP/1.0 has no such field, and no browser speaks it.
  if (host) requireHost(*host);
  // Where a page is not encrypted browsers leave Sec-Fetch-Site out, and say no more than the origin.
  auto const origin = findField(request.fields, "Origin");
  if (origin && !isOwn(*origin, host.value_or(""))) refusePage();
  bool const isOtherSite = std::any_of(request.fields.begin(), request.fields.end(), [](auto const& field) {
    return sameWithoutCase(field.first, "Sec-Fetch-Site") && !sameWithoutCase(field.second, "none") &&
           !sameWithoutCase(field.second, "same-origin");
  });
  bool const isRead = request.method == "GET" || request.method == "HEAD";
  bool const isVisit =
      isRead && path == "/" && sameWithoutCase(findField(request.fields, "Sec-Fetch-Mode").value_or(""), "navigate");
  if (isOtherSite && !isVisit) refusePage();
}

bool isLoopback(std::string const& address) {
  in_addr four{};
  if (inet_pton(AF_INET, address.c_str(), &four) == 1) return (ntohl(four.s_addr) >> 24) == 127;
  in6_addr six{};
  if (inet_pton(AF_INET6, address.c_str(), &six) != 1) return false;
  return IN6_IS_ADDR_LOOPBACK(&six) || (IN6_IS_ADDR_V4MAPPED(&six) && six.s6_addr[12] == 127);
}

}  // namespace Agent
