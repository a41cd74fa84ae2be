// A small client: writes two documents to the service whose address it is given, follows what has changed, and shows
// how a refusal and a missing server are told.
#include <chrono>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

#include "agent/client/connection.h"
#include "agent/client/failure.h"
#include "agent/client/follow_changes.h"
#include "agent/client/requests.h"

namespace {

void put(Agent::Connection const& connection, std::string const& path, std::string const& document) {
  Agent::HttpRequest request = Agent::makeRequest("PUT", Agent::documentTarget(path));
  request.fields.emplace_back("Content-Type", "application/json");
  request.body = document;
  Agent::requireSuccess(connection.request(request));
}

// Prints what stands, and all that comes, until everything is told that had happened when this began.
void follow(Agent::Connection const& connection, std::string const& prefix) {
  Agent::FollowRequest request;
  request.prefix = prefix;
  request.after = "0";
  request.sleep = [](std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
    return true;
  };
  request.note = [](std::string_view line) { std::cerr << line << '\n'; };
  Agent::followChanges(connection, request, [](Agent::FollowedEvent const& event) {
    if (event.kind == Agent::FollowedEvent::Kind::kChange) std::cout << event.path << ": " << event.value << '\n';
    return event.kind != Agent::FollowedEvent::Kind::kCaughtUp;
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: client http://HOST:PORT\n";
    return 2;
  }
  try {
    Agent::Connection const connection = Agent::connectTo(argv[1]);
    put(connection, "mount/ready/Bgp", "true");
    put(connection, "mount/ready/Stp", "false");
    follow(connection, "mount/");
    try {
      put(connection, "mount/ready/Bgp", "\"perhaps\"");
    } catch (Agent::ClientFailure const& refusal) {
      std::cout << "refused: " << refusal.what() << '\n';
    }
    return 0;
  } catch (std::exception const& error) {
    // No answer (an HttpError), a refusal or an answer that cannot be understood (a ClientFailure), or an argument that
    // is no address.
    std::cerr << "client: " << error.what() << '\n';
    return 1;
  }
}
