// The HTTP client of the program's own commands.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "agent/net/http.h"

namespace Agent {

/// One connection to one server, made when it is first needed and kept for the next request. Calls block. One thread
/// uses it.
class HttpClient {
 public:
  /// `server` is "http://HOST[:PORT]"; throws a std::invalid_argument, in one line, for anything else. `patience` is
  /// how long nothing may happen.
  explicit HttpClient(std::string const& server, std::chrono::milliseconds patience = std::chrono::seconds(30));
  ~HttpClient();
  HttpClient(HttpClient const&) = delete;
  HttpClient& operator=(HttpClient const&) = delete;

  /// Sends and waits for the whole response. A connection that the server closed since the last request is made anew,
  /// also if it closed it when this request was on its way and gave no byte of an answer. Throws an HttpError.
  HttpResponse request(HttpRequest const& request);

  /// Sends, and gives the response without its body to `begun` and then every piece of the body to `piece`, as it
  /// arrives, until the end or until one of them returns false. Returns whether the body came to its end. For streams
  /// that pause, `patience` does not count. Throws an HttpError.
  bool stream(HttpRequest const& request, std::function<bool(HttpResponse const& head)> const& begun,
              std::function<bool(std::string_view piece)> const& piece);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Agent
