// The table of commands: what each is called, how its options are described, and how it runs.
#include "agent/program/commands.h"

#include <iostream>

#include "agent/program/client_commands.h"
#include "agent/program/replay.h"
#include "agent/program/ring_command.h"
#include "agent/program/serve.h"
#include "agent/program/state_commands.h"
#include "agent/program/system_surroundings.h"
#include "agent/program/types_command.h"
#include "agent/store/output_file.h"

namespace Agent {
namespace {

int print(std::string_view text) {
  OutputFile output(std::nullopt);
  output.write(text);
  output.finish();
  return 0;
}

/// A row: `describe(CommandLine&, Options&)` describes the options, and `Run` runs with them.
template <class Options, class Run>
constexpr Command command(std::string_view name, std::string_view description, Run /*run*/) {
  return {name,
          description,
          [](CommandLine& line, std::any& options) {
            Options& described = options.emplace<Options>();
            if constexpr (requires { described.common; }) describe(line, described.common);
            describe(line, described);
          },
          [](std::any const& options) { return Run()(std::any_cast<Options const&>(options)); }};
}

/// A row of a command that asks a server.
template <class Options>
constexpr Command asking(std::string_view name, std::string_view description) {
  return command<Options>(
      name, description, [](Options const& options) { return runClient(options, systemSurroundings()); });
}

constexpr Command kCommands[] = {
    command<ServeOptions>("serve", "Run the registry as a service, with its state in a file and an HTTP interface",
                          [](auto const& options) { return serve(options, std::cout, std::cerr); }),
    command<ReplayOptions>("replay",
                           "Apply scenario files in order to a fresh registry and print the whole tree that results",
                           [](auto const& options) { return replay(options, std::cerr); }),
    command<TypesOptions>("types", "Print the registry's classes with their attributes, arguments and ids",
                          [](auto const& options) { return print(describeTypes(options)); }),
    command<RingOptions>("ring", "Print the messages of a ring-buffer trace",
                         [](auto const& options) { return print(ringText(options)); }),
    command<CheckOptions>("check", "Examine a state file that no agent has in use, and change nothing",
                          [](auto const& options) { return checkStateFile(options, std::cout); }),
    command<RestoreOptions>("restore", "Make a state file of a backup",
                            [](auto const& options) { return restoreState(options, std::cout); }),
    asking<GetOptions>("get", "Print one document"),
    asking<PutOptions>("put", "Put one document"),
    asking<DeleteOptions>("delete", "Delete what stands at a path"),
    asking<WatchOptions>("watch", "Print changes as they happen"),
    asking<ApplyOptions>("apply", "Send scenario files, or trees"),
    asking<DumpOptions>("dump", "Print the tree as replay does"),
    asking<BackupOptions>("backup", "Copy the whole state to a file, from which restore makes a state"),
    asking<SwitchesOptions>("switches", "Print the table of switches"),
    asking<ExplainOptions>("explain", "Say why a switch is ready or not, since when, and what clears it"),
    command<FleetOptions>("fleet", "Play switches that enrol, stay alive, and go and come",
                          [](auto const& options) {
                            keepInterruptsForSleep();
                            return runClient(options, systemSurroundings());
                          }),
};

}  // namespace

std::span<Command const> commands() { return kCommands; }

int runCommandLine(std::vector<std::string> arguments, std::string const& version) {
  auto const parsed = parseCommandLine(commands(), std::move(arguments), version);
  if (auto const* chosen = std::get_if<ChosenCommand>(&parsed)) return chosen->command->run(chosen->options);
  auto const& answer = std::get<Answer>(parsed);
  if (answer.exitStatus == 0) return print(answer.text);
  std::cerr << answer.text;
  return answer.exitStatus;
}

}  // namespace Agent
