// Requests of HTTP: which ones some bytes hold does not depend on the pieces that they come in.
#include "fuzz/fuzz.h"

#include "agent/net/http_request_parser.h"

namespace {

using Agent::HttpRequestParser;
using State = HttpRequestParser::State;

/// What the requests are, and whether one is refused, when so many bytes come at a time. One that is cut short is
/// refused too. The status is left out: where several things are wrong the pieces decide which is found first.
std::string requestsOf(std::string_view text, std::size_t step) {
  Agent::HttpLimits limits;
  limits.headerBytes = 512;
  limits.bodyBytes = 256;
  std::string told;
  std::string bytes;
  for (;;) {
    HttpRequestParser parser(limits);
    // What stands behind a request is the beginning of the next one.
    State state = bytes.empty() ? State::WantsMore : State::HeaderIn;
    do {
      if (state == State::WantsMore) {
        if (text.empty()) return told + (parser.got_some() ? "refused" : "");
        bytes += text.substr(0, step);
        text.remove_prefix(std::min(step, text.size()));
      }
      std::size_t const before = bytes.size();
      state = parser.feed(bytes);
      Fuzz::require(bytes.size() <= before, "bytes are taken");
      Fuzz::require(bytes.size() <= limits.headerBytes || state != State::WantsMore, "what is kept is bounded", told);
    } while (state == State::WantsMore || state == State::HeaderIn);
    if (state == State::Refused) {
      Fuzz::require(parser.status() >= 400 && parser.status() < 600, "a refusal has a status");
      Fuzz::require(!parser.reason().empty(), "a refusal has a reason");
      return told + "refused";
    }
    Fuzz::require(parser.bodyBytes() <= 2 * limits.bodyBytes + 64, "a body is bounded");
    Agent::HttpRequest const request = parser.takeRequest();
    told += request.method + " " + request.target + (parser.keep_alive() ? " keep\n" : " close\n");
    for (auto const& [name, value] : request.fields) told += name + ": " + value + "\n";
    told += request.body + "\n";
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text = Fuzz::textOf(data, size);
  std::string const whole = requestsOf(text, size + 1);
  Fuzz::requireEqual(requestsOf(text, 1), whole, "bytes hold the same requests one by one");
  Fuzz::requireEqual(requestsOf(text, 7), whole, "bytes hold the same requests in pieces");
  return 0;
}
