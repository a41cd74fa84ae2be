// Connects over HTTP.
#include "agent/client/connection.h"

#include <memory>

#include "agent/net/http_client.h"

namespace Agent {

Connection connectTo(std::string const& server, std::chrono::milliseconds patience) {
  auto const client = std::make_shared<HttpClient>(server, patience);
  Connection connection;
  connection.request = [client](HttpRequest const& request) { return client->request(request); };
  connection.stream = [client](auto const& request, auto const& begun, auto const& piece) {
    return client->stream(request, begun, piece);
  };
  return connection;
}

}  // namespace Agent
