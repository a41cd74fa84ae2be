// Describes the command line to the parser and takes the results out of it.
#include "agent/program/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <string_view>

#include "agent/document/input_error.h"

namespace Agent {
namespace {

constexpr int kWrongCommandLine = 2;

// A level from 1 to 9; 0 for any other text.
std::size_t parseLevel(std::string_view text) {
  bool const isLevel = text.size() == 1 && text[0] >= '1' && text[0] <= '9';
  return isLevel ? static_cast<std::size_t>(text[0] - '0') : 0;
}

// "all", or levels and ranges joined by commas: "1,3-5".
TraceLevels parseLevels(std::string const& text) {
  TraceLevels levels;
  if (text == "all") return levels.set().reset(0);
  std::string_view rest = text;
  while (true) {
    std::size_t const comma = rest.find(',');
    std::string_view const range = rest.substr(0, comma);
    std::size_t const dash = range.find('-');
    std::size_t const first = parseLevel(range.substr(0, dash));
    std::size_t const last = dash == std::string_view::npos ? first : parseLevel(range.substr(dash + 1));
    if (first == 0 || last < first) {
      throw CLI::ValidationError("--trace", "expected levels from 1 to 9 like 1,3-5, or all, found " + inQuotes(text));
    }
    for (std::size_t level = first; level <= last; ++level) levels.set(level);
    if (comma == std::string_view::npos) return levels;
    rest.remove_prefix(comma + 1);
  }
}

// The parser prints to the streams; the texts are wanted.
Answer toAnswer(CLI::App const& app, CLI::Error const& error) {
  std::ostringstream out;
  std::ostringstream problem;
  if (app.exit(error, out, problem) == 0) return {out.str(), 0};
  return {"enrolix: " + problem.str(), kWrongCommandLine};
}

}  // namespace

Options parseOptions(std::vector<std::string> arguments, std::string const& version) {
  CLI::App app("The switch registry of a network controller", "enrolix");
  app.set_version_flag("--version", "enrolix " + version, "Print the version and leave");
  app.set_help_flag("-h,--help", "Print this help and leave");
  app.require_subcommand(0, 1);
  CLI::Validator const isFile([](std::string& name) { return std::string(name.empty() ? "empty file name" : ""); }, "");

  ServeOptions serve;
  CLI::App* const serveCommand =
      app.add_subcommand("serve", "Run the registry as a service, with its state in a file and an HTTP interface");
  addServeOptions(*serveCommand, serve);

  ReplayOptions replay;
  std::string levels;
  CLI::App* const replayCommand = app.add_subcommand(
      "replay", "Apply scenario files in order to a fresh registry and print the whole tree that results");
  auto* const trace =
      replayCommand->add_option("--trace", levels, "Print trace messages of these levels (1,3-5 or all)");
  trace->type_name("LEVELS");
  replayCommand->add_option("--ring", replay.ring, "Keep the ring-buffer trace in this file")
      ->type_name("FILE")
      ->check(isFile);
  replayCommand->add_option("--output", replay.output, "Print to this file instead of standard output")
      ->type_name("FILE")
      ->check(isFile);
  replayCommand->add_flag("--keep-going", replay.isKeptGoing, "Skip operations that are refused");
  replayCommand->add_flag("--table", replay.isTable, "Print a table of the switches instead of the tree");
  replayCommand->add_flag(
      "--stats",
      replay.isStats,
      "Print a table of the memory used per switch, the time and the peak of memory; instead of the tree");
  replayCommand->add_option("SCENARIO", replay.scenarios, "Scenario files, - for standard input")
      ->type_name("")
      ->required()
      ->check(isFile);

  TypesOptions types;
  CLI::App* const typesCommand =
      app.add_subcommand("types", "Print the registry's classes with their attributes, arguments and ids");
  typesCommand->add_flag("--json", types.isJson, "Print them as JSON instead of a table");
  typesCommand->add_option("TYPE", types.type, "One type alone, Controllerdb::Root for instance")->type_name("");
  for (auto const& [command, library] :
       {std::pair(replayCommand, &replay.library), std::pair(typesCommand, &types.library)})
    command->add_option("--library", *library, "Load the registry from this file")->type_name("FILE")->check(isFile);

  RingOptions ring;
  CLI::App* const ringCommand = app.add_subcommand("ring", "Print the messages of a ring-buffer trace");
  ringCommand->add_option("FILE", ring.file, "The file that replay --ring kept")
      ->type_name("")
      ->required()
      ->check(isFile);

  CheckOptions check;
  CLI::App* const checkCommand =
      app.add_subcommand("check", "Examine a state file that no agent has in use, and change nothing");
  checkCommand->add_option("FILE", check.file, "The state file")->type_name("")->required()->check(isFile);

  RestoreOptions restore;
  CLI::App* const restoreCommand = app.add_subcommand("restore", "Make a state file of a backup");
  restoreCommand->add_option("FILE", restore.backup, "The backup")->type_name("")->required()->check(isFile);
  restoreCommand->add_option("--state", restore.state, "The state file to make; none may be there")
      ->type_name("FILE")
      ->required()
      ->check(isFile);

  ClientCommands const clientCommands(app);

  try {
    // The parser takes its arguments from the back.
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
    if (serveCommand->parsed()) return serve;
    if (ringCommand->parsed()) return ring;
    if (checkCommand->parsed()) return check;
    if (restoreCommand->parsed()) return restore;
    if (typesCommand->parsed()) return types;
    if (auto chosen = clientCommands.chosen()) return *std::move(chosen);
    if (!replayCommand->parsed()) throw CLI::RequiredError("A command, serve or watch for instance,");
    if (trace->count() > 0) replay.trace = parseLevels(levels);
    if (std::count(replay.scenarios.begin(), replay.scenarios.end(), "-") > 1) {
      throw CLI::ValidationError("SCENARIO", "standard input can be read only once");
    }
    return replay;
  } catch (CLI::Error const& error) {
    return toAnswer(app, error);
  }
}

}  // namespace Agent
