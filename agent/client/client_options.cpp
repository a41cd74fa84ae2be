// Describes the commands that ask a server to the parser, and takes the results out of it.
#include "agent/client/client_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <map>

#include "agent/document/input_error.h"

namespace Agent {
namespace {

using Milliseconds = std::chrono::milliseconds;

CLI::Validator notEmpty(std::string const& what) {
  return {[what](std::string& text) { return text.empty() ? "empty " + what : std::string(); }, ""};
}

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

CLI::Validator isSeconds() { return {secondsProblem, ""}; }

CLI::Validator isSomeSeconds() {
  return {[](std::string& text) {
            std::string problem = secondsProblem(text);
            if (!problem.empty() || text.find_first_of("123456789") != std::string::npos) return problem;
            return std::string("expected more than no time");
          },
          ""};
}

// The parser would take -1 for the largest number.
CLI::Validator isNumber() {
  return {[](std::string& text) {
            bool const isDigits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
            return isDigits ? std::string() : "expected a number, found " + inQuotes(text);
          },
          ""};
}

CLI::Validator isEventId() {
  return {[](std::string& text) {
            std::size_t const at = std::min(text.find('@'), text.size());
            auto const isOf = [](std::string const& part, char const* letters) {
              return !part.empty() && part.find_first_not_of(letters) == std::string::npos;
            };
            bool const isId = isOf(text.substr(0, at), "0123456789") &&
                              (at == text.size() || isOf(text.substr(at + 1), "0123456789abcdef"));
            return isId ? std::string()
                        : "expected a revision, or an event's id like 812@1f0e5c77a9b3d246, found " + inQuotes(text);
          },
          ""};
}

/// An option for a time, which takes `store` milliseconds.
template <class Store>
void addSeconds(CLI::App& command, std::string const& name, std::string const& description, Store store) {
  command
      .add_option_function<std::string>(
          name,
          [store](std::string const& text) { store(Milliseconds(std::llround(std::stod(text) * 1000))); },
          description)
      ->type_name("SECONDS")
      ->check(isSomeSeconds());
}

void addTimeToLive(CLI::App& command, std::optional<std::string>& timeToLive) {
  command.add_option("--ttl", timeToLive, "Heartbeats live so long without being put again; 0 is for ever")
      ->type_name("SECONDS")
      ->check(isSeconds());
}

void addPath(CLI::App& command, std::string& path) {
  command.add_option("PATH", path, "A path of the state tree")->type_name("")->required()->check(notEmpty("path"));
}

void addPrefix(CLI::App& command, std::string& prefix) {
  command.add_option("PREFIX", prefix, "Only paths that start with this")->type_name("");
}

void addIfMatch(CLI::App& command, IfMatch& ifMatch, std::string const& ofWhat) {
  command.add_option("--if-match", ifMatch, "Only if this is the revision of " + ofWhat)
      ->type_name("REVISION")
      ->check(isNumber());
}

constexpr char kDocument[] = "the document, 0 for none";

}  // namespace

ClientCommands::ClientCommands(CLI::App& app) {
  describeDocuments(app);
  describeTree(app);
  describeFleet(app);
}

template <class Command>
CLI::App& ClientCommands::add(CLI::App& app, std::string const& name, std::string const& description,
                              Command& options) {
  CLI::App& command = *app.add_subcommand(name, description);
  ClientCommonOptions& common = options.common;
  command.add_option("--server", common.server, "The server to ask, " + common.server + " by default")
      ->type_name("URL")
      ->envname("ENROLIX_SERVER")
      ->check(notEmpty("server"));
  std::map<std::string, OutputFormat> const formats = {{"table", OutputFormat::kTable}, {"json", OutputFormat::kJson}};
  command.add_option("-o,--output-format", common.format, "table for people, json for programs")
      ->type_name("table|json")
      ->transform(CLI::CheckedTransformer(formats).description(""));
  std::map<std::string, ColourChoice> const choices = {
      {"auto", ColourChoice::kAuto}, {"always", ColourChoice::kAlways}, {"never", ColourChoice::kNever}};
  command.add_option("--color", common.colour, "Colours; auto: on a terminal, unless NO_COLOR is set")
      ->type_name("auto|always|never")
      ->transform(CLI::CheckedTransformer(choices).description(""));
  addSeconds(command, "--timeout", "How long the server may be silent, 30 by default", [&common](Milliseconds time) {
    common.patience = time;
  });
  commands_.emplace_back(&command, [&options] { return options; });
  return command;
}

void ClientCommands::describeDocuments(CLI::App& app) {
  CLI::App& get = add(app, "get", "Print one document", get_);
  addPath(get, get_.path);
  addIfMatch(get, get_.ifMatch, kDocument);

  CLI::App& put = add(app, "put", "Put one document", put_);
  addPath(put, put_.path);
  auto* const file = put.add_option("FILE", putFile_, "The file with the document, - or nothing for standard input");
  file->type_name("")->check(notEmpty("file name"));
  put.add_option("--value", put_.value, "The document itself")->type_name("JSON")->excludes(file);
  addTimeToLive(put, put_.timeToLive);
  addIfMatch(put, put_.ifMatch, kDocument);

  CLI::App& remove = add(app, "delete", "Delete what stands at a path", delete_);
  addPath(remove, delete_.path);
  addIfMatch(remove, delete_.ifMatch, kDocument);
}

void ClientCommands::describeTree(CLI::App& app) {
  CLI::App& watch = add(app, "watch", "Print changes as they happen", watch_);
  addPrefix(watch, watch_.prefix);
  watch
      .add_option(
          "--after", watch_.after, "Begin behind this revision or event id, 0 for all that is there; now by default")
      ->type_name("ID")
      ->check(isEventId());
  watch.add_flag("--once", watch_.isOnce, "Print what is there and end");

  CLI::App& apply = add(app, "apply", "Send scenario files, or trees", apply_);
  apply.add_option("FILE", apply_.files, "Scenario files, or trees; - for standard input")
      ->type_name("")
      ->required()
      ->check(notEmpty("file name"));
  apply.add_flag("--tree", apply_.isTree, "The files are trees, as dump prints them; of these the inputs are sent");
  apply.add_flag("--atomic", apply_.isAtomic, "All operations in one turn, or none");
  addTimeToLive(apply, apply_.timeToLive);
  addIfMatch(apply, apply_.ifMatch, "the tree; nobody else may change it meanwhile");

  CLI::App& dump = add(app, "dump", "Print the tree as replay does", dump_);
  addPrefix(dump, dump_.prefix);

  CLI::App& backup = add(app, "backup", "Copy the whole state to a file, from which restore makes a state", backup_);
  backup.add_option("FILE", backup_.file, "The file, which appears when the copy is whole")
      ->type_name("")
      ->required()
      ->check(notEmpty("file name"));

  CLI::App& switches = add(app, "switches", "Print the table of switches", switches_);
  switches.add_flag("--watch", switches_.isWatched, "Print it anew when something has changed");
}

void ClientCommands::describeFleet(CLI::App& app) {
  CLI::App& fleet = add(app, "fleet", "Play switches that enrol, stay alive, and go and come", fleet_);
  fleet.add_option("--switches", fleet_.switches, "How many switches, 8 by default")
      ->type_name("N")
      ->check(CLI::Range(1, 1'000'000).description(""));
  fleet.add_option("--prefix", fleet_.prefix, "What their names start with, " + fleet_.prefix + " by default")
      ->type_name("NAME");
  addSeconds(
      fleet, "--interval", "From one heartbeat of a switch to the next, 5 by default", [this](Milliseconds time) {
        fleet_.interval = time;
      });
  addSeconds(fleet, "--duration", "How long to play", [this](Milliseconds time) { fleet_.duration = time; });
  fleet.add_flag("--once", fleet_.isOnce, "End when all have become ready");
  fleet.add_flag("--leave", fleet_.isLeaving, "Delete all that the switches wrote at the end");
  fleet.add_option("--seed", fleet_.seed, "Which fleet of all: the same seed plays the same")
      ->type_name("NUMBER")
      ->check(isNumber());
}

std::optional<ClientOptions> ClientCommands::chosen() const {
  auto const found =
      std::find_if(commands_.begin(), commands_.end(), [](auto const& command) { return command.first->parsed(); });
  if (found == commands_.end()) return std::nullopt;
  ClientOptions options = found->second();
  if (auto* const put = std::get_if<PutOptions>(&options); put && putFile_) put->file = *putFile_;
  if (auto* const watch = std::get_if<WatchOptions>(&options); watch && watch->isOnce && !watch->after)
    watch->after = "0";
  if (auto const* const apply = std::get_if<ApplyOptions>(&options))
    if (std::count(apply->files.begin(), apply->files.end(), "-") > 1)
      throw CLI::ValidationError("FILE", "standard input can be read only once");
  return options;
}

}  // namespace Agent
