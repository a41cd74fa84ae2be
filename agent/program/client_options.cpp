// Describes the options of the commands that ask a server.
#include "agent/program/client_options.h"

#include <algorithm>
#include <cmath>

namespace Agent {
namespace {

// Seconds with up to three decimals, as the server takes them: what is passed on as it is must be so.
std::string secondsProblem(std::string const& text) {
  std::size_t const point = std::min(text.find('.'), text.size());
  std::string const whole = text.substr(0, point);
  std::string const part = point < text.size() ? text.substr(point + 1) : "0";
  auto const isDigits = [](std::string const& digits, std::size_t most) {
    return !digits.empty() && digits.size() <= most && digits.find_first_not_of("0123456789") == std::string::npos;
  };
  if (isDigits(whole, 9) && isDigits(part, 3)) return {};
  return "expected seconds like 30 or 0.5, found " + inQuotes(text);
}

std::string someSecondsProblem(std::string const& text) {
  std::string const problem = secondsProblem(text);
  bool const isNone = problem.empty() && text.find_first_of("123456789") == std::string::npos;
  return isNone ? "expected more than no time" : problem;
}

std::string eventIdProblem(std::string const& text) {
  std::size_t const at = std::min(text.find('@'), text.size());
  auto const isOf = [](std::string const& part, char const* letters) {
    return !part.empty() && part.find_first_not_of(letters) == std::string::npos;
  };
  bool const isId =
      isOf(text.substr(0, at), "0123456789") && (at == text.size() || isOf(text.substr(at + 1), "0123456789abcdef"));
  return isId ? std::string()
              : "expected a revision, or an event's id like 812@1f0e5c77a9b3d246, found " + inQuotes(text);
}

std::string pathProblem(std::string const& text) { return text.empty() ? "empty path" : ""; }

std::string nameProblem(std::string const& text) { return text.empty() ? "empty name" : ""; }

std::string serverProblem(std::string const& text) { return text.empty() ? "empty server" : ""; }

/// An option for a time.
template <class Time>
void describeTime(CommandLine& line, std::string const& name, std::string const& description, Time& to) {
  auto const take = [&to](std::string const& text) {
    to = std::chrono::milliseconds(std::llround(std::stod(text) * 1000));
  };
  line.option(name + " SECONDS", take, description, someSecondsProblem);
}

void describeTimeToLive(CommandLine& line, std::optional<std::string>& timeToLive) {
  std::string const description = "Heartbeats live so long without being put again; 0 is for ever";
  line.option("--ttl SECONDS", &timeToLive, description, secondsProblem);
}

void describePath(CommandLine& line, std::string& path) {
  line.require(line.option("PATH", &path, "A path of the state tree", pathProblem));
}

void describePrefix(CommandLine& line, std::string& prefix) {
  line.option("PREFIX", &prefix, "Only paths that start with this");
}

void describeIfMatch(CommandLine& line, IfMatch& ifMatch, std::string const& ofWhat = "the document, 0 for none") {
  line.option("--if-match REVISION", &ifMatch, "Only if this is the revision of " + ofWhat, numberProblem);
}

}  // namespace

void describe(CommandLine& line, ClientCommonOptions& common) {
  std::string const server = "The server to ask, " + common.server + " by default";
  line.variable(line.option("--server URL", &common.server, server, serverProblem), "ENROLIX_SERVER");
  line.choice<OutputFormat>("-o,--output-format",
                            common.format,
                            {{"table", OutputFormat::kTable}, {"json", OutputFormat::kJson}},
                            "table for people, json for programs");
  line.choice<ColourChoice>(
      "--color",
      common.colour,
      {{"auto", ColourChoice::kAuto}, {"always", ColourChoice::kAlways}, {"never", ColourChoice::kNever}},
      "Colours; auto: on a terminal, unless NO_COLOR is set");
  describeTime(line, "--timeout", "How long the server may be silent, 30 by default", common.patience);
}

void describe(CommandLine& line, GetOptions& options) {
  describePath(line, options.path);
  describeIfMatch(line, options.ifMatch);
}

void describe(CommandLine& line, PutOptions& options) {
  describePath(line, options.path);
  std::string const description = "The file with the document, - or nothing for standard input";
  auto* const file = line.option("FILE", &options.file, description, fileProblem);
  line.exclude(line.option("--value JSON", &options.value, "The document itself"), file);
  describeTimeToLive(line, options.timeToLive);
  describeIfMatch(line, options.ifMatch);
}

void describe(CommandLine& line, DeleteOptions& options) {
  describePath(line, options.path);
  describeIfMatch(line, options.ifMatch);
  line.flag("--if-exists", options.isIfExists, "Leave with 0 also if nothing stands there");
}

void describe(CommandLine& line, WatchOptions& options) {
  describePrefix(line, options.prefix);
  std::string const after = "Begin behind this revision or event id, 0 for all that is there; now by default";
  line.option("--after ID", &options.after, after, eventIdProblem);
  line.flag("--once", options.isOnce, "Print what is there and end");
}

void describe(CommandLine& line, ApplyOptions& options) {
  line.files("FILE", options.files, "Scenario files, or trees; - for standard input");
  line.flag("--tree", options.isTree, "The files are trees, as dump prints them; of these the inputs are sent");
  line.flag("--atomic", options.isAtomic, "All operations in one turn, or none");
  describeTimeToLive(line, options.timeToLive);
  describeIfMatch(line, options.ifMatch, "the tree; no other client may change it meanwhile");
}

void describe(CommandLine& line, DumpOptions& options) { describePrefix(line, options.prefix); }

void describe(CommandLine& line, BackupOptions& options) {
  line.require(line.option("FILE", &options.file, "The file, which appears when the copy is whole", fileProblem));
}

void describe(CommandLine& line, SwitchesOptions& options) {
  line.flag("--watch", options.isWatched, "Print it anew when something has changed");
}

void describe(CommandLine& line, ExplainOptions& options) {
  line.require(line.option("SWITCH", &options.name, "The name of its registration", nameProblem));
  line.option("SERVICE", &options.service, "Only the conditions of this service");
}

void describe(CommandLine& line, FleetOptions& options) {
  line.count("--switches N", options.switches, 1'000'000, "How many switches, 8 by default");
  line.option("--prefix NAME", &options.prefix, "What their names start with, " + options.prefix + " by default");
  describeTime(line, "--interval", "From one heartbeat of a switch to the next, 5 by default", options.interval);
  describeTime(line, "--duration", "How long to play", options.duration);
  line.flag("--once", options.isOnce, "End when all have become ready");
  line.flag("--leave", options.isLeaving, "Delete all that the switches wrote at the end");
  line.option("--seed NUMBER", &options.seed, "Which fleet of all: the same seed plays the same", numberProblem);
}

}  // namespace Agent
