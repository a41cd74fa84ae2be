// An HTTP server that runs in a thread of the test.
#pragma once

#include <future>
#include <thread>
#include <utility>

#include "agent/net/http_server.h"

namespace Test {

class RunningServer {
 public:
  explicit RunningServer(Agent::HttpHandler handler, Agent::HttpLimits const& limits = {},
                         std::string const& address = "127.0.0.1")
      : server_(address, 0, limits) {
    auto const problem = [](int status, std::string const& reason) {
      Agent::HttpResponse response;
      response.status = status;
      response.body = reason;
      return response;
    };
    server_.handlerIs(
        std::move(handler),
        problem,
        [](Agent::HttpRequest const& request) { return request.target == "/vital"; },
        [](Agent::HttpRequest const& request) { return request.target == "/reads"; });
    thread_ = std::thread([this] { server_.run(); });
  }
  ~RunningServer() {
    stop(std::chrono::milliseconds(0));
    join();
  }
  RunningServer(RunningServer const&) = delete;
  RunningServer& operator=(RunningServer const&) = delete;

  std::uint16_t port() const { return server_.port(); }
  Agent::HttpServer& server() { return server_; }

  /// What `task` returns, run by the server's thread.
  template <class Task>
  auto call(Task task) {
    std::promise<decltype(task())> result;
    server_.post([&] { result.set_value(task()); });
    return result.get_future().get();
  }

  /// Waits until `condition`, asked in the server's thread, holds.
  template <class Condition>
  void await(Condition condition) {
    while (!call(condition)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  void stop(std::chrono::milliseconds grace) {
    server_.post([this, grace] { server_.stop(grace); });
  }
  /// Waits until the server has stopped.
  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  Agent::HttpServer server_;
  std::thread thread_;
};

}  // namespace Test
