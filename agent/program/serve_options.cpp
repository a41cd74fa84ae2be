// Describes the options of the service.
#include "agent/program/serve_options.h"

#include <cmath>
#include <cstdlib>

#include "agent/document/number.h"

namespace Agent {
namespace {

std::chrono::milliseconds parseSeconds(std::string const& text, bool mayBeNone) {
  char* end = nullptr;
  double const seconds = std::strtod(text.c_str(), &end);
  bool const isNumber = !text.empty() && *end == '\0';
  bool const isInRange = seconds >= (mayBeNone ? 0 : 0.001) && seconds <= static_cast<double>(kLongestSeconds);
  if (!isNumber || !isInRange) {
    std::string const least = mayBeNone ? "0" : "0.001";
    throw WrongValue("expected seconds from " + least + " to " + std::to_string(kLongestSeconds) + ", found " +
                     inQuotes(text));
  }
  return std::chrono::milliseconds(std::llround(std::ceil(seconds * 1000)));
}

std::string hostProblem(std::string const& text) {
  bool const isName = !text.empty() && text.find_first_of("*/ :") == std::string::npos;
  return isName ? "" : "expected a name like controller.example, without a port, found " + inQuotes(text);
}

void describeCount(CommandLine& line, std::string const& form, std::size_t& to, std::string const& what,
                   std::uint64_t most = std::uint64_t{1} << 40) {
  line.count(form, to, most, what + " (" + std::to_string(to) + ")");
}

// "ADDRESS:PORT", of which an IPv6 address stands in brackets.
void parseListen(std::string const& text, ServeOptions& to) {
  std::size_t const colon = text.rfind(':');
  std::string address = text.substr(0, colon);
  std::string_view const port =
      colon == std::string::npos ? std::string_view() : std::string_view(text).substr(colon + 1);
  bool const isBracketed = address.size() > 2 && address.front() == '[' && address.back() == ']';
  if (isBracketed) address = address.substr(1, address.size() - 2);
  bool const isAddress = !address.empty() && (isBracketed || address.find(':') == std::string::npos);
  if (!isAddress || !readNumber(port, to.port))
    throw WrongValue("expected ADDRESS:PORT like 127.0.0.1:7400, found " + inQuotes(text));
  to.address = address;
}

}  // namespace

void describe(CommandLine& line, ServeOptions& options) {
  line.option(
      "--listen ADDRESS:PORT",
      [&options](std::string const& text) { parseListen(text, options); },
      "Where to listen (127.0.0.1:7400); port 0 takes any that is free");
  line.list("--allow-host NAME",
            options.hosts,
            "A name under which clients reach it; may be given more than once",
            hostProblem);
  std::string const where = "The file that keeps the state (enrolix/state.db, among the user's)";
  auto* const state = line.option("--state FILE", &options.state, where, fileProblem);
  line.exclude(line.flag("--memory", options.isMemory, "Keep nothing"), state);
  std::string const loss = "Go on with a state that lacks what was answered, if it holds this revision";
  line.option("--accept-loss REVISION", &options.acceptedLoss, loss, numberProblem);
  line.option("--library FILE", &options.library, "Load the registry from this file", fileProblem);
  line.choice<LogFormat>("--log-format",
                         options.logFormat,
                         {{"text", LogFormat::kText}, {"json", LogFormat::kJson}},
                         "How events are logged to standard error: text or json (text)");
  line.option(
      "--heartbeat-ttl SECONDS",
      [&options](std::string const& text) {
        auto const ttl = parseSeconds(text, true);
        options.service.heartbeatTtl = ttl.count() > 0 ? std::optional(ttl) : std::nullopt;
      },
      "How long a heartbeat lives whose put does not say; 0 for ever (30)");
  line.option(
      "--idle-timeout SECONDS",
      [&options](std::string const& text) { options.http.idle = parseSeconds(text, false); },
      "When a connection is closed on which nothing moves (60)");
  describeCount(line, "--min-rate BYTES", options.http.bytesPerSecond, "Bytes of a request's body in a second");
  describeCount(line, "--max-connections COUNT", options.http.connections, "Connections at a time");
  line.count("--max-per-address COUNT",
             options.http.connectionsOfOne,
             std::uint64_t{1} << 40,
             "Connections of one address at a time (three quarters of all)");
  describeCount(line, "--max-header BYTES", options.http.headerBytes, "The header of a request");
  describeCount(line, "--max-body BYTES", options.http.bodyBytes, "The body of a request", kLongestBody);
  describeCount(line, "--max-bodies BYTES", options.http.allBodiesBytes, "All bodies of requests at a time");
  describeCount(
      line, "--max-document BYTES", options.api.documentBytes, "The text of one document that is put", kLongestBody);
  describeCount(line,
                "--max-depth COUNT",
                options.api.document.depth,
                "Objects and arrays in one another in a document",
                kMaximumNesting);
  describeCount(line, "--max-values COUNT", options.api.document.values, "Values in a document, of any kind");
  describeCount(line, "--max-batch COUNT", options.api.batch, "Documents in one batch");
  describeCount(line, "--max-atomic COUNT", options.api.atomicBatch, "Documents in one atomic batch");
  describeCount(line, "--max-watches COUNT", options.api.watches, "Watches at a time");
  describeCount(line, "--max-backups COUNT", options.api.backups, "Copies of the whole state at a time");
  describeCount(line, "--max-documents COUNT", options.service.stored.documents, "Documents that are kept");
  describeCount(line, "--max-stored BYTES", options.service.stored.bytes, "The paths and texts of all of them");
  describeCount(line, "--max-pairs COUNT", options.service.stored.pairs, "Services of the controller times switches");
  describeCount(line, "--history COUNT", options.service.history.changes, "Changes kept for watches that resume");
  describeCount(line, "--history-bytes BYTES", options.service.history.bytes, "The room for these changes");
}

}  // namespace Agent
