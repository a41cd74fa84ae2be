// Connects the client commands with the system.
#include "agent/program/system_surroundings.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "agent/store/output_file.h"

namespace Agent {
namespace {

sigset_t interrupts() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

bool sleep(std::chrono::milliseconds time) {
  auto const end = std::chrono::steady_clock::now() + time;
  sigset_t const set = interrupts();
  while (true) {
    auto const rest = std::chrono::duration_cast<std::chrono::nanoseconds>(end - std::chrono::steady_clock::now());
    if (rest.count() <= 0) return true;
    timespec const wait{static_cast<time_t>(rest.count() / 1'000'000'000), rest.count() % 1'000'000'000};
    if (sigtimedwait(&set, nullptr, &wait) > 0) {
      // A person that asks again does not want to wait for a clean end.
      pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
      return false;
    }
    if (errno == EAGAIN) return true;
  }
}

}  // namespace

ClientSurroundings systemSurroundings() {
  ClientSurroundings surroundings;
  surroundings.connect = [](ClientCommonOptions const& options) { return connectTo(options.server, options.patience); };
  surroundings.print = [](std::string_view text) {
    OutputFile output(std::nullopt);
    output.write(text);
    output.finish();
  };
  surroundings.note = [](std::string_view line) { std::cerr << std::string(line) + "\n"; };
  surroundings.sleep = sleep;
  surroundings.now = [] { return ClientSurroundings::Clock::now(); };
  surroundings.isTerminal = isatty(STDOUT_FILENO) == 1;
  char const* const noColour = std::getenv("NO_COLOR");
  surroundings.areColoursWelcome = noColour == nullptr || *noColour == '\0';
  return surroundings;
}

void keepInterruptsForSleep() {
  sigset_t const set = interrupts();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace Agent
