// The program `enrolix`: command line in, exit status out.
#include <fcntl.h>

#include <csignal>
#include <exception>
#include <iostream>

#include "agent/document/input_error.h"
#include "agent/program/commands.h"

namespace {

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
    return Agent::runCommandLine({argv + 1, argv + argc}, ENROLIX_VERSION);
  } catch (std::exception const& error) {
    std::string const reason = error.what();
    std::cerr << Agent::printable(reason) << '\n';
    return 1;
  }
}
