// The program `enrolix`: command line in, exit status out.
#include <fcntl.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <sstream>

#include "agent/document/input_error.h"
#include "agent/program/client_commands.h"
#include "agent/program/options.h"
#include "agent/program/replay.h"
#include "agent/program/serve.h"
#include "agent/program/system_surroundings.h"
#include "agent/program/types_command.h"
#include "agent/store/output_file.h"
#include "framework/trace/swiftlog_reader.h"

namespace {

void print(std::string_view text) {
  Agent::OutputFile output(std::nullopt);
  output.write(text);
  output.finish();
}

int run(Agent::Answer const& answer) {
  if (answer.exitStatus != 0)
    std::cerr << answer.text;
  else
    print(answer.text);
  return answer.exitStatus;
}

int run(Agent::ServeOptions const& options) { return Agent::serve(options, std::cout, std::cerr); }

int run(Agent::ReplayOptions const& options) { return Agent::replay(options, std::cerr); }

int run(Agent::TypesOptions const& options) {
  print(Agent::describeTypes(options));
  return 0;
}

int run(Agent::RingOptions const& options) {
  std::ostringstream text;
  try {
    Swiftlog::printRingFile(options.file, text);
  } catch (std::system_error const& error) {
    throw Agent::FileError(options.file, error.code().message());
  }
  print(text.view());
  return 0;
}

int run(Agent::CheckOptions const& options) { return Agent::checkStateFile(options, std::cout); }

int run(Agent::RestoreOptions const& options) { return Agent::restoreState(options, std::cout); }

int run(Agent::ClientOptions const& options) {
  if (std::holds_alternative<Agent::FleetOptions>(options)) Agent::keepInterruptsForSleep();
  return Agent::runClient(options, Agent::systemSurroundings());
}

/// Fills the place of a standard stream that came closed with one that fails, so that no file that is opened gets it.
void reserveStandardStreams() {
  for (int const descriptor : {0, 1, 2})
    if (::fcntl(descriptor, F_GETFD) < 0) ::open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY);
}

}  // namespace

int main(int argc, char** argv) {
  reserveStandardStreams();
  // A reader that has gone and a file that may not grow are errors of a write like any other.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    auto const options = Agent::parseOptions({argv + 1, argv + argc}, ENROLIX_VERSION);
    return std::visit([](auto const& chosen) { return run(chosen); }, options);
  } catch (std::exception const& error) {
    std::string const reason = error.what();
    std::cerr << Agent::printable(reason, reason.size()) << '\n';
    return 1;
  }
}
