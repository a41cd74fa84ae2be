// The HTTP server and the event loop under it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "agent/event_loop.h"
#include "agent/http.h"

namespace Agent {

/// What is too much. Who goes beyond is told so where HTTP has words for it, and the connection is closed.
struct HttpLimits {
  std::size_t bodyBytes = 16 * 1024 * 1024;
  std::size_t headerBytes = 16 * 1024;
  std::size_t connections = 4096;
  /// How long a connection may stand without a byte moving while somebody waits for it to: between requests, within
  /// one, and while a response is being taken. Waiting for the program's own answer does not count.
  std::chrono::milliseconds idle = std::chrono::seconds(60);
};

/// Serves HTTP/1.1 on one address, all of it on the thread that calls `run()`.
class HttpServer final : public EventLoop {
 public:
  /// Listens; `port` 0 takes any free one. Throws a std::runtime_error whose what() is one line.
  HttpServer(std::string const& address, std::uint16_t port, HttpLimits const& limits);
  ~HttpServer() override;

  /// The port that it listens on.
  std::uint16_t port() const;

  /// Who answers; set before `run()`. `problem` makes the response to what is refused before it becomes a request: a
  /// status from 400 up and a reason.
  void handlerIs(HttpHandler handler, std::function<HttpResponse(int status, std::string const& reason)> problem);

  /// Open connections.
  std::size_t connections() const;

  Clock::time_point now() const override;
  void post(std::function<void()> task) override;
  void at(Clock::time_point time, std::function<void()> task) override;

  /// Calls `stopping` on SIGTERM and SIGINT instead of ending the program.
  void onStopSignal(std::function<void(int signal)> stopping);

  /// Runs until it has stopped.
  void run();
  /// Takes no more connections and requests, lets responses in progress finish (sources are asked until their end or
  /// their being empty), at the latest after `grace`; then `run()` returns.
  void stop(std::chrono::milliseconds grace);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Agent
