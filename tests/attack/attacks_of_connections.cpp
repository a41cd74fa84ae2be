// Attackers that use connections as no client should.
#include <list>
#include <string>

#include "bench/serve_network.h"
#include "tests/attack/attacks.h"
#include "tests/attack/responses.h"

namespace Attack {
namespace {

constexpr int kSmallBuffer = 4096;
constexpr std::size_t kBody = std::size_t{16} * 1024 * 1024;

std::string question(std::string const& target) { return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n"; }

std::string hundred(std::string const& one) {
  std::string many;
  for (int i = 0; i < 100; ++i) many += one;
  return many;
}

/// Holds so many connections, each of which begins with these bytes, and gives each as many of `more` every `period`.
/// One that the server ends is opened again.
struct Hold {
  std::size_t count;
  std::string begin{};
  std::string more{};
  double period = 0.1;
  int receiveBuffer = 0;
  std::size_t addresses = 1;
  bool reads = false;
};

void hold(Assault& assault, Hold const& how) {
  std::list<Wire> wires;
  while (!assault.isOver) {
    std::erase_if(wires, [](Wire const& wire) { return !wire.isOpen(); });
    for (std::size_t opened = 0; wires.size() < how.count && opened < 100 && !assault.isOver; ++opened) {
      Wire& wire = wires.emplace_back(assault, wires.size() % how.addresses, how.receiveBuffer);
      if (!how.begin.empty()) wire.send(how.begin);
    }
    assault.sleep(wires.size() == how.count ? how.period : 0.005);
    for (Wire& wire : wires) {
      if (!how.more.empty()) wire.sendOn(how.more);
      // Without reading it is not seen that the server has ended a connection.
      if (how.reads) wire.drain();
    }
  }
}

void sendBodies(Assault& assault, double rate) {
  constexpr double kPeriod = 0.1;
  hold(assault,
       {.count = assault.sized<std::size_t>(200, 20),
        .begin = head("PUT", "/v1/tree/registration/spine-0/note", kBody),
        .more = std::string(static_cast<std::size_t>(rate * kPeriod), ' '),
        .period = kPeriod,
        .reads = true});
}

void leaveUnread(Assault& assault, std::size_t count, std::string const& target) {
  hold(assault, {.count = count, .begin = question(target), .receiveBuffer = kSmallBuffer});
}

/// Sends these requests one behind the other on so many connections, and reads what is answered.
void pipeline(Assault& assault, std::size_t count, std::string const& requests) {
  hold(assault, {.count = count, .more = requests, .period = 0, .reads = true});
}

void flood(Assault& assault, std::size_t addresses) {
  hold(assault, {.count = 2'500, .addresses = addresses, .reads = true});
}

}  // namespace

void sendSlowHeaders(Assault& assault, std::size_t /*client*/) {
  hold(assault,
       {.count = assault.sized<std::size_t>(1'000, 50),
        .begin = "GET /healthz HTTP/1.1\r\nHost: localhost\r\nX-Slow: ",
        .more = "x",
        .period = assault.sized(2.0, 0.05),
        .reads = true});
}

void sendBodiesBelowRate(Assault& assault, std::size_t /*client*/) { sendBodies(assault, 8'192); }
void sendBodiesAboveRate(Assault& assault, std::size_t /*client*/) { sendBodies(assault, 18'000); }

// Small bodies take what large ones leave.
void holdBodies(Assault& assault, std::size_t /*client*/) {
  constexpr std::size_t kMost = 400;
  constexpr std::size_t kRefusals = 3;
  std::list<Wire> wires;
  auto const look = [&] {
    assault.sleep(0.001);
    for (Wire& wire : wires) wire.drain();
    std::erase_if(wires, [](Wire const& wire) { return !wire.isOpen(); });
  };
  while (!assault.isOver) {
    for (std::size_t const size : {1'000'000, 60'000, 4'000, 300}) {
      std::size_t const enough = assault.refused + kRefusals;
      while (!assault.isOver && assault.refused < enough && wires.size() < kMost) {
        wires.emplace_back(assault).send(head("PUT", "/v1/tree/registration/spine-0/note", size) +
                                         std::string(size - 1, ' '));
        look();
      }
    }
    look();
  }
}

void leaveTreesUnread(Assault& assault, std::size_t /*client*/) {
  leaveUnread(assault, assault.sized<std::size_t>(300, 20), "/v1/tree");
}
void leaveWatchesUnread(Assault& assault, std::size_t /*client*/) {
  leaveUnread(assault, assault.sized<std::size_t>(2'000, 50), "/v1/watch?after=0");
}
void leaveBackupsUnread(Assault& assault, std::size_t /*client*/) { leaveUnread(assault, 50, "/v1/backup"); }

void abandonTrees(Assault& assault, std::size_t /*client*/) {
  while (!assault.isOver) Wire(assault, 0, kSmallBuffer).send(question("/v1/tree"));
}

void floodConnections(Assault& assault, std::size_t /*client*/) { flood(assault, 1); }
void floodFromMany(Assault& assault, std::size_t /*client*/) { flood(assault, 100); }

void comeAndGo(Assault& assault, std::size_t /*client*/) {
  for (std::size_t i = 0; !assault.isOver; ++i) {
    // A system has so many ports for an address, and keeps those of what has gone for a while.
    Wire wire(assault, i % 100);
    wire.send(question("/healthz"));
  }
}

void pipelineUnread(Assault& assault, std::size_t /*client*/) {
  std::string const questions = hundred(question("/v1/tree/controller/config"));
  hold(assault, {.count = 8, .more = questions, .period = 0.001, .receiveBuffer = kSmallBuffer});
}

void pipelineRead(Assault& assault, std::size_t /*client*/) { pipeline(assault, 8, hundred(question("/healthz"))); }
void pipelineFromMany(Assault& assault, std::size_t /*client*/) {
  pipeline(assault, assault.sized<std::size_t>(300, 50), question("/healthz"));
}

// Each is a turn, of the most urgent kind.
void pipelineHeartbeats(Assault& assault, std::size_t /*client*/) {
  constexpr std::size_t kFirst = 2'000'000;
  std::string requests;
  for (std::size_t i = kFirst; i < kFirst + 50; ++i) {
    std::string const path = ServeLoad::heartbeatPath(i);
    requests += putRequest(path, ServeLoad::kEmpty) + request("DELETE", "/v1/tree/" + path);
  }
  pipeline(assault, 8, requests);
}

void watchEverything(Assault& assault, std::size_t client) {
  if (client == 0) return putNotes(assault, client);
  hold(assault,
       {.count = assault.sized<std::size_t>(1'000, 50), .begin = question("/v1/watch"), .period = 0, .reads = true});
}

}  // namespace Attack
