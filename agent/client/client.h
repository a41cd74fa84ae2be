// What the client commands share: the way to the server, where they print, and how requests and refusals are written.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "agent/client/client_options.h"
#include "agent/client/exit_code.h"
#include "agent/document/json_reader.h"
#include "agent/net/http.h"

namespace Agent {

/// One connection to the server: the two ways of asking that an HttpClient has.
struct Connection {
  std::function<HttpResponse(HttpRequest const& request)> request;
  std::function<bool(HttpRequest const& request, std::function<bool(HttpResponse const& head)> const& begun,
                     std::function<bool(std::string_view piece)> const& piece)>
      stream;
};

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

/// The server's refusal, or an answer that cannot be understood: the command ends with `code()`, and what() is the line
/// that says why.
class ClientFailure : public std::runtime_error {
 public:
  ClientFailure(ExitCode code, std::string const& line) : std::runtime_error(line), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

/// The path of a document in a request: each segment percent-encoded.
std::string documentTarget(std::string_view path);
/// A query's value, percent-encoded.
std::string queryValue(std::string_view text);
/// A request with the field If-Match if a revision is given.
HttpRequest makeRequest(std::string method, std::string target, IfMatch const& ifMatch = std::nullopt);

/// What a response with an error says.
struct Refusal {
  int status = 0;
  std::string path;
  std::string field;
  std::string reason;
  /// Of the operations that were sent: the line that was refused, and how many were applied.
  std::optional<std::uint64_t> line;
  std::optional<std::uint64_t> applied;
};

Refusal readRefusal(HttpResponse const& response);
/// "PATH: FIELD: reason"; parts that do not exist are left out.
std::string refusalText(Refusal const& refusal);
/// With what the refusal of a command leaves.
ExitCode exitCode(Refusal const& refusal);
/// Throws a ClientFailure if the response is an error.
void requireSuccess(HttpResponse const& response);

/// The value of the field Enrolix-Revision. Throws a ClientFailure without it.
std::uint64_t revisionOf(HttpResponse const& response);
/// A number from 0 written in digits alone; nothing for any other text.
std::optional<std::uint64_t> readNumber(std::string_view text);

/// Calls `understand`, which reads what the server sent; throws a ClientFailure where it cannot be read.
void understanding(std::function<void()> const& understand);

}  // namespace Agent
