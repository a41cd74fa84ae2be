// Describes the options of the service to the parser.
#include "agent/program/serve_options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>

#include "agent/document/input_error.h"

namespace Agent {
namespace {

/// An option of a time in seconds, which are at least `least`; what it takes goes to `take`.
template <class Take>
CLI::Option* addSeconds(CLI::App& command, std::string const& name, double least, std::string const& what, Take take) {
  return command
      .add_option_function<double>(
          name,
          [take, name](double seconds) {
            // A range does not keep out what is no number.
            if (std::isnan(seconds)) throw CLI::ValidationError(name, "expected seconds, found nan");
            take(std::chrono::milliseconds(std::llround(std::ceil(seconds * 1000))));
          },
          what)
      ->type_name("SECONDS")
      ->check(CLI::Range(least, static_cast<double>(kLongestSeconds)));
}

CLI::Option* addCount(CLI::App& command, std::string const& name, std::size_t& to, std::string const& what,
                      char const* unit, std::size_t most = std::size_t{1} << 40) {
  return command.add_option(name, to, what + " (" + std::to_string(to) + ")")
      ->type_name(unit)
      ->check(CLI::Range(std::size_t{1}, most));
}

// "ADDRESS:PORT", of which an IPv6 address stands in brackets.
void parseListen(std::string const& text, ServeOptions& to) {
  std::size_t const colon = text.rfind(':');
  std::string address = text.substr(0, colon);
  std::string_view const port =
      colon == std::string::npos ? std::string_view() : std::string_view(text).substr(colon + 1);
  bool const isBracketed = address.size() > 2 && address.front() == '[' && address.back() == ']';
  if (isBracketed) address = address.substr(1, address.size() - 2);
  auto const [end, error] = std::from_chars(port.data(), port.data() + port.size(), to.port);
  bool const isAddress = !address.empty() && (isBracketed || address.find(':') == std::string::npos);
  if (!isAddress || error != std::errc() || end != port.data() + port.size())
    throw CLI::ValidationError("--listen", "expected ADDRESS:PORT like 127.0.0.1:7400, found " + inQuotes(text));
  to.address = address;
}

}  // namespace

void addServeOptions(CLI::App& command, ServeOptions& options) {
  command
      .add_option_function<std::string>(
          "--listen",
          [&options](std::string const& text) { parseListen(text, options); },
          "Where to listen (127.0.0.1:7400); port 0 takes any that is free")
      ->type_name("ADDRESS:PORT");
  CLI::Validator const isFile([](std::string& name) { return std::string(name.empty() ? "empty file name" : ""); }, "");
  auto* const state =
      command
          .add_option("--state", options.state, "The file that keeps the state (enrolix/state.db, among the user's)")
          ->type_name("FILE")
          ->check(isFile);
  command.add_flag("--memory", options.isMemory, "Keep nothing")->excludes(state);
  command
      .add_option("--accept-loss",
                  options.acceptedLoss,
                  "Go on with a state that lacks what was answered, if it holds this revision")
      ->type_name("REVISION")
      ->check(CLI::NonNegativeNumber.description(""));
  command.add_option("--library", options.library, "Load the registry from this file")
      ->type_name("FILE")
      ->check(isFile);
  command
      .add_option_function<std::string>(
          "--log-format",
          [&options](std::string const& name) {
            options.logFormat = name == "json" ? LogFormat::kJson : LogFormat::kText;
          },
          "How events are logged to standard error: text or json (text)")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"text", "json"}));
  addSeconds(command,
             "--heartbeat-ttl",
             0,
             "How long a heartbeat lives whose put does not say; 0 for ever (30)",
             [&options](std::chrono::milliseconds ttl) {
               options.service.heartbeatTtl = ttl.count() > 0 ? std::optional(ttl) : std::nullopt;
             });
  addSeconds(command,
             "--idle-timeout",
             0.001,
             "When a connection is closed on which nothing moves (60)",
             [&options](std::chrono::milliseconds idle) { options.http.idle = idle; });
  addCount(command, "--max-connections", options.http.connections, "Connections at a time", "COUNT");
  addCount(command, "--max-header", options.http.headerBytes, "The header of a request", "BYTES");
  addCount(command, "--max-body", options.http.bodyBytes, "The body of a request", "BYTES", kLongestBody);
  addCount(command, "--max-batch", options.api.batch, "Documents in one batch", "COUNT");
  addCount(command, "--max-watches", options.api.watches, "Watches at a time", "COUNT");
  addCount(command, "--max-backups", options.api.backups, "Copies of the whole state at a time", "COUNT");
  addCount(command, "--history", options.service.history.changes, "Changes kept for watches that resume", "COUNT");
  addCount(command, "--history-bytes", options.service.history.bytes, "The room for these changes", "BYTES");
}

}  // namespace Agent
