// Which requests are let in, by the name that they came by and by the page that sends them.
#pragma once

#include <string>
#include <vector>

#include "agent/net/http.h"

namespace Agent {

/// Keeps out what web pages of other sites make a browser send. A page can point a name of its own at the agent's
/// address, so that the browser takes the agent for the page's own server: the field Host then has that name.
class Door {
 public:
  /// `names` are those under which the agent is reached beside its addresses and `localhost`; a port is of no account.
  explicit Door(std::vector<std::string> const& names = {});

  /// Throws an HttpProblem for a request that is not let in. `path` is that of its target.
  void require(HttpRequest const& request, std::string_view path) const;

 private:
  void requireHost(std::string_view host) const;

  std::vector<std::string> names_;
};

/// Whether `address`, of IPv4 or IPv6, is reached from its own machine alone.
bool isLoopback(std::string const& address);

}  // namespace Agent
