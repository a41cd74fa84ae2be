// Targets of requests and paths of the tree: what is read is written as it was meant, and bad input gets one line.
#include "agent/net/url.h"

#include "agent/client/requests.h"
#include "agent/document/path.h"
#include "fuzz/fuzz.h"

namespace {

using Agent::parsePath;
using Agent::parseTarget;

void readPath(std::string_view text) {
  try {
    Agent::Path const path = parsePath(text);
    std::string const written = toText(path);
    Fuzz::require(parsePath(written) == path, "a path reads as it was written", written);
    Fuzz::require(
        path.place.hasSystemId() || written == text, "a path without an id is written as it was read", written);
    Fuzz::requireEqual(parseTarget(Agent::documentTarget(written)).path,
                       "/v1/tree/" + written,
                       "the target of a document has its path");
  } catch (Agent::InputError const& error) {
    Fuzz::requireOneLine(error.reason());
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text = Fuzz::textOf(data, size);
  readPath(text);
  std::string const value(text);
  Fuzz::requireEqual(parseTarget("/?value=" + Agent::queryValue(text)).query.at("value"), value, "a value is kept");
  try {
    Agent::Target const target = parseTarget(text);
    readPath(target.path);
    std::string again = Agent::queryValue(target.path);
    char mark = '?';
    for (auto const& [name, part] : target.query) {
      again.append(1, mark).append(Agent::queryValue(name)).append("=").append(Agent::queryValue(part));
      mark = '&';
    }
    Agent::Target const second = parseTarget(again);
    Fuzz::requireEqual(second.path, target.path, "a path is kept");
    Fuzz::require(second.query == target.query, "a query is kept", again);
  } catch (Agent::InputError const& error) {
    Fuzz::requireOneLine(error.reason());
  }
  return 0;
}
