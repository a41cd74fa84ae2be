// The world around a client's command: the way to the server, and where it prints.
#pragma once

#include <chrono>
#include <functional>
#include <string_view>

#include "agent/client/connection.h"
#include "agent/program/client_options.h"

namespace Agent {

/// The world around a command.
struct ClientSurroundings {
  using Clock = std::chrono::steady_clock;

  /// Makes a connection. Throws a std::invalid_argument, in one line, for a server that is none.
  std::function<Connection(ClientCommonOptions const& options)> connect;
  /// Takes results; they have reached the reader when it returns. Throws a FileError. Used by one thread at a time.
  std::function<void(std::string_view text)> print;
  /// Takes one line for people, without line break.
  std::function<void(std::string_view line)> note;
  /// Waits so long; returns false if it was interrupted.
  std::function<bool(std::chrono::milliseconds time)> sleep;
  std::function<Clock::time_point()> now;
  /// Whether the results go to a terminal, and whether the person there wants colours.
  bool isTerminal = false;
  bool areColoursWelcome = false;
};

/// Whether to print in colours.
bool isColoured(ClientCommonOptions const& options, ClientSurroundings const& surroundings);

}  // namespace Agent
