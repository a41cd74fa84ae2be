// The way to a server.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "agent/document/export.h"
#include "agent/net/http.h"

namespace Agent {

/// One connection to the server: the two ways of asking that an HttpClient has. Copies share the connection. One thread
/// at a time uses it; calls block, and throw an HttpError where no answer comes.
struct Connection {
  std::function<HttpResponse(HttpRequest const& request)> request;
  std::function<bool(HttpRequest const& request, std::function<bool(HttpResponse const& head)> const& begun,
                     std::function<bool(std::string_view piece)> const& piece)>
      stream;
};

/// A connection to `server`, "http://HOST[:PORT]", which is made when it is first needed. `patience` is how long the
/// server may be silent while it owes an answer. Throws a std::invalid_argument, in one line, for a server that is
/// none.
ENROLIX_EXPORT Connection connectTo(std::string const& server,
                                    std::chrono::milliseconds patience = std::chrono::seconds(30));

}  // namespace Agent
