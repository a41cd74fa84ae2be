#include "tests/attack/payloads.h"

#include <algorithm>
#include <array>

#include "bench/serve_network.h"

namespace Attack {
namespace {

/// With as many digits as the largest has, so that texts have the same length.
std::string digits(std::size_t number, std::size_t width) {
  std::string text = std::to_string(number);
  return std::string(width - std::min(width, text.size()), '0') + text;
}

/// `part(i)` for each i below `count`, with commas between them.
template <class Part>
std::string list(std::size_t count, Part part) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) text += ',';
    text += part(i);
  }
  return text;
}

}  // namespace

std::string flatNumbers(std::size_t values, std::size_t round) {
  return '[' + list(values - 1, [round](std::size_t i) { return '1' + digits(round * 100'000 + i, 14); }) + ']';
}

std::string nestedObjects(std::size_t values, std::size_t round) {
  constexpr std::size_t kDepth = 62;
  std::string open;
  for (std::size_t i = 0; i < kDepth; ++i) open += R"({"nested-obj":)";
  auto const chain = [&](std::size_t i) { return open + std::to_string((round + i) % 10) + std::string(kDepth, '}'); };
  return '[' + list((values - 1) / (kDepth + 1), chain) + ']';
}

std::string longText(std::size_t bytes, std::size_t round) {
  std::string text = '"' + digits(round, 14);
  while (text.size() + 7 <= bytes) text += R"(\u0001)";
  return text + '"';
}

std::string configOf(std::size_t services, std::size_t index, std::size_t round) {
  // A small one says how the rest of it is written.
  std::string const one = ServeLoad::config(static_cast<unsigned>(round), index);
  std::string const id = one.substr(one.find(R"("systemId":)"), 31);
  auto const service = [](std::size_t i) {
    return "\"s" + digits(i, 5) + R"(":{"enabled":true,"versionConfig":{"version":{"1":""}}})";
  };
  return R"({"enabled":true,"registrationGenId":)" + std::to_string(round) + ',' + id + R"("serviceConfig":{)" +
         list(services, service) + "}}";
}

std::string offerOf(std::size_t mounts, std::size_t round) {
  std::string const begin = round % 2 == 0 ? "\"/a/" : "\"/b/";
  auto const mount = [&](std::size_t i) { return begin + digits(i, 5) + R"(":{"service":"alerts"})"; };
  return R"({"publishedMount":{)" + list(mounts, mount) + "}}";
}

std::string notesBatch(std::size_t client, std::size_t documents, std::size_t bytes, std::size_t paths,
                       std::size_t round) {
  std::string lines;
  std::string const value = '"' + std::string(bytes, static_cast<char>('a' + round % 26)) + '"';
  for (std::size_t i = 0; i < documents; ++i)
    lines += ServeLoad::putLine("registration/spine-" + std::to_string(client) + "/n" + digits(i % paths, 5),
                                i / paths % 2 == 0 ? value : '[' + value + ']');
  return lines;
}

std::string leavingLines(std::size_t begin, std::size_t count) {
  std::string lines;
  for (std::size_t i = begin; i < begin + count; ++i)
    lines += R"({"delete": "registration/)" + ServeLoad::switchName(i) + "\"}\n";
  return lines;
}

std::string enrolmentLines(std::size_t begin, std::size_t count) {
  std::string lines;
  for (std::size_t i = begin; i < begin + count; ++i) lines += ServeLoad::enrolmentLines(i);
  return lines;
}

std::string serviceLines(std::size_t count, bool isEnabled) {
  constexpr std::array kOfSwitches{"telemetry", "topology", "vlan-control", "alerts"};
  std::string const document = std::string(R"({"enabled":)") + (isEnabled ? "true" : "false") +
                               R"(,"versionConfig":{"version":{"2":"","3":"","4":""}}})";
  std::string lines;
  for (std::size_t i = 0; i < count; ++i)
    lines += ServeLoad::putLine(
        "service/config/" + (i < kOfSwitches.size() ? std::string(kOfSwitches[i]) : "service-" + std::to_string(i)),
        document);
  return lines;
}

std::string manyFields() {
  constexpr std::size_t kMost = 16'000;
  std::string text = "GET /healthz HTTP/1.1\r\nHost: localhost\r\n";
  while (text.size() < kMost) text += "a:b\r\n";
  return text + "\r\n";
}

}  // namespace Attack
