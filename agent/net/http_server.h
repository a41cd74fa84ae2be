// The HTTP server and the event loop under it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "agent/net/event_loop.h"
#include "agent/net/http.h"

namespace Agent {

/// No body of a request may be longer, in bytes. A document that came in one may be kept as a text that is longer (1e14
/// becomes 100000000000000.0), at most four times: SQLite keeps 10^9 bytes.
inline constexpr std::size_t kLongestBody = std::size_t{128} * 1024 * 1024;

/// Connections for which there is no place of any kind are told so, as long as they are not too many themselves.
inline constexpr std::size_t kMostTurnedAway = 64;
/// How long a connection may hold a spare place without a request, and a client may take to end when it is told to.
inline constexpr std::chrono::seconds kLongestSpare{2};
/// So many descriptors are no connection's: the program opens files while it runs.
inline constexpr std::size_t kOwnDescriptors = 16;

/// What is too much. A client that goes beyond is told so where HTTP has words for it, and the connection is closed.
struct HttpLimits {
  std::size_t bodyBytes = 16 * 1024 * 1024;
  /// All bodies of requests that are on their way, together. One address has the same part of them as of the
  /// connections, and no less than it has of these if nothing is said.
  std::size_t allBodiesBytes = 256 * 1024 * 1024;
  std::size_t headerBytes = 16 * 1024;
  std::size_t connections = 65'536;
  /// Of these, from one address; 0 for three quarters, and not all. An address of IPv6 counts as its network of 64
  /// bits.
  std::size_t connectionsOfOne = 0;
  /// How long a connection may stand without a byte moving while one side waits for it to: between requests, within
  /// one, and while a response is being taken. Waiting for the program's own answer does not count. A header may take
  /// twice as long in all, and so may a body, but for the time that its bytes take at `bytesPerSecond`. A reader of
  /// responses may be behind that rate by as much.
  std::chrono::milliseconds idle = std::chrono::seconds(60);
  std::size_t bytesPerSecond = 16 * 1024;

  /// How long so many bytes may take.
  std::chrono::milliseconds timeOf(std::uint64_t bytes) const {
    return std::chrono::milliseconds(1000 * bytes / bytesPerSecond);
  }
};

/// Serves HTTP/1.1 on one address, all of it on the thread that calls `run()`. Every connection holds what it has not
/// been able to write, at most one response or one piece of a source, and asks for no more before that is taken.
class HttpServer final : public EventLoop {
 public:
  /// Listens; `address` is one of IPv4 or IPv6, and `port` 0 takes any free one. Throws a std::runtime_error whose
  /// what() is one line.
  HttpServer(std::string const& address, std::uint16_t port, HttpLimits const& limits);
  ~HttpServer() override;

  /// The port that it listens on.
  std::uint16_t port() const;

  /// The handler that answers; set before `run()`. `problem` makes the response to what is refused before it becomes a
  /// request: a status from 400 up and a reason. A connection for which there is no place has one of a few more for a
  /// short time and one request, which is handled if `isVital` says so and refused otherwise. A request whose body is
  /// still to come is handled with a reader of it if `isReadAsItComes` says so, and with all of it otherwise.
  using IsKind = std::function<bool(HttpRequest const& request)>;
  void handlerIs(HttpHandler handler, std::function<HttpResponse(int status, std::string const& reason)> problem,
                 IsKind isVital = nullptr, IsKind isReadAsItComes = nullptr);

  /// Open connections, but for those that have no place.
  std::size_t connections() const;

  Clock::time_point now() const override;
  Clock::duration stoodStill() override;
  /// Unlike all else, it may be called on any thread.
  void post(std::function<void()> task) override;
  void breathe() override;
  void at(Clock::time_point time, std::function<void()> task) override;

  /// Calls `heard` on every signal of that number, instead of what the system does with it otherwise.
  void onSignal(int number, std::function<void()> heard);

  /// Calls `told` when no more connections can be taken, with the reason in one line, and with null when they have been
  /// taken again for a while. Clients that connect meanwhile wait. Some descriptors stay free for the program itself.
  void onPause(std::function<void(std::string const* reason)> told);

  /// Calls `told` now and then with how many connections have been turned away since, if any were, and why the last
  /// one was.
  void onTurnedAway(std::function<void(std::size_t count, std::string const& reason)> told);

  /// Runs until it has stopped. Lets through what a task throws.
  void run();
  /// Takes no more connections and requests, lets responses in progress finish, at the latest after `grace`; then
  /// `run()` returns. Sources are asked, those too that wait, until their end or their being empty; if there is no end
  /// the body is broken off, so that no client takes it for the whole.
  void stop(std::chrono::milliseconds grace);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Agent
