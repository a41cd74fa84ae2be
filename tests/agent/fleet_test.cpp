// A fleet that is played: what its switches write, and how it gets on with a registry.
#include "agent/program/fleet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

#include "agent/net/http_client.h"
#include "agent/program/client_commands.h"
#include "support/tree_world.h"

namespace Agent::FleetTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

void applyAll(TreeWorld& world, std::vector<std::string> const& texts) {
  for (std::string const& text : texts) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) world.apply(line);
  }
}

bool isReady(TreeWorld const& world, Fleet const& fleet, std::size_t index) {
  auto const row = world.tree.read(parsePath("controller/switch/" + fleet.systemId(index)));
  return row && row->at("switchStatus") == fleet.name(index);
}

TEST(Fleet, EverySwitchBecomesReadyAndLeavesNothingBehind) {
  TreeWorld world{R"({"put": "controller/config", "value": {"enabled": true}})"};
  auto const before = world.paths();
  Fleet fleet({20, "leaf-", 5, 4});
  applyAll(world, fleet.everything());
  for (std::size_t i = 0; i < fleet.size(); ++i) EXPECT_TRUE(isReady(world, fleet, i)) << fleet.name(i);
  applyAll(world, fleet.farewell());
  EXPECT_EQ(world.paths(), before);
}

TEST(Fleet, SystemIdsDifferWithinAFleetAndBetweenFleets) {
  std::set<std::string> ids;
  for (char const* prefix : {"leaf-", "spine-", ""}) {
    Fleet const fleet({300, prefix, 1, 1});
    for (std::size_t i = 0; i < fleet.size(); ++i) EXPECT_TRUE(ids.insert(fleet.systemId(i)).second);
  }
}

TEST(Fleet, EverySwitchGivesOneSignOfLifeARound) {
  for (std::size_t const steps : {1u, 3u, 10u}) {
    Fleet fleet({7, "s", 1, steps});
    fleet.everything();
    for (int round = 0; round < 3; ++round) {
      std::multiset<std::string> beats;
      for (std::size_t step = 0; step < steps; ++step)
        for (std::string const& text : fleet.step(false)) beats.insert(text);
      EXPECT_EQ(beats.size(), fleet.size());
      for (std::size_t i = 0; i < fleet.size(); ++i)
        EXPECT_EQ(beats.count("{\"put\":\"heartbeat/" + fleet.systemId(i) + "\",\"value\":{}}\n"), 1u);
    }
  }
}

TEST(Fleet, TheRegistryFollowsWhoGoesAndComes) {
  TreeWorld world{R"({"put": "controller/config", "value": {"enabled": true}})"};
  Fleet fleet({6, "leaf-", 11, 4});
  applyAll(world, fleet.everything());
  std::size_t departures = 0;
  std::size_t returns = 0;
  std::vector<bool> wasThere(fleet.size(), true);
  for (int step = 0; step < 600; ++step) {
    applyAll(world, fleet.step(true));
    for (std::size_t i = 0; i < fleet.size(); ++i) {
      EXPECT_EQ(isReady(world, fleet, i), fleet.isThere(i)) << fleet.name(i) << " at step " << step;
      departures += wasThere[i] && !fleet.isThere(i) ? 1 : 0;
      returns += !wasThere[i] && fleet.isThere(i) ? 1 : 0;
      wasThere[i] = fleet.isThere(i);
    }
  }
  EXPECT_GT(departures, 20u);
  EXPECT_LE(departures - returns, fleet.size());
}

TEST(Fleet, TheSameSeedPlaysTheSame) {
  auto const played = [](std::uint64_t seed) {
    Fleet fleet({5, "leaf-", seed, 3});
    std::vector<std::string> texts = fleet.everything();
    for (int step = 0; step < 100; ++step)
      for (std::string const& text : fleet.step(true)) texts.push_back(text);
    return texts;
  };
  EXPECT_EQ(played(4), played(4));
  EXPECT_NE(played(4), played(5));
}

TEST(Fleet, WritesEverythingAnewAfterALoss) {
  Fleet fleet({4, "leaf-", 1, 2});
  auto const everything = fleet.everything();
  fleet.startAnew();
  auto anew = fleet.step(false);
  for (std::string const& text : fleet.step(false)) anew.push_back(text);
  EXPECT_THAT(anew, testing::UnorderedElementsAreArray(everything));
}

/// A registry that is served to a fleet in this process, in the time of a clock that only waiting moves.
class Server {
 public:
  ClientSurroundings surroundings() {
    ClientSurroundings result;
    result.connect = [this](ClientCommonOptions const&) {
      Connection connection;
      connection.request = [this](HttpRequest const& request) { return answer(request); };
      connection.stream = [this](auto const& request, auto const& begun, auto const& piece) {
        return watch(request, begun, piece);
      };
      return connection;
    };
    result.print = [this](std::string_view text) { printed += text; };
    result.note = [this](std::string_view line) { notes.emplace_back(line); };
    result.sleep = [this](std::chrono::milliseconds time) {
      now += time;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return --sleeps > 0;
    };
    result.now = [this] { return now; };
    return result;
  }

  std::string text() const {
    std::scoped_lock const lock(mutex);
    return world.text();
  }

  TreeWorld world{R"({"put": "controller/config", "value": {"enabled": true}})"};
  /// Whether a watch is told nothing.
  bool isMute = false;
  mutable std::mutex mutex;
  std::vector<HttpRequest> requests;
  /// Answered with a broken connection from this request on, as many times.
  std::size_t breaksAt = ~std::size_t(0);
  std::size_t breaks = 0;
  std::string printed;
  std::vector<std::string> notes;
  int sleeps = 100'000;
  ClientSurroundings::Clock::time_point now;

 private:
  HttpResponse answer(HttpRequest const& request) {
    std::scoped_lock const lock(mutex);
    requests.push_back(request);
    if (requests.size() > breaksAt && breaks > 0) {
      --breaks;
      throw HttpError("server:1: broken");
    }
    HttpResponse response;
    try {
      applyAll(world, {request.body});
      response.body = R"({"applied": 1, "revision": 1})";
    } catch (InputError const& error) {
      response.status = 422;
      response.body = Json{{"error", {{"reason", error.reason()}}}}.dump();
    }
    return response;
  }

  bool watch(HttpRequest const& /*request*/, std::function<bool(HttpResponse const&)> const& begun,
             std::function<bool(std::string_view)> const& piece) {
    HttpResponse head;
    head.fields.emplace_back("Enrolix-Revision", "1");
    std::map<std::string, Json> known;
    bool goesOn = begun(head);
    while (goesOn) {
      std::map<std::string, Json> rows;
      {
        std::scoped_lock const lock(mutex);
        world.tree.forEach([&](std::string const& path, Json const& document) {
          if (!isMute && path.starts_with("controller/switch/")) rows.emplace(path, document);
        });
      }
      std::string events = ": alive\n";
      auto const tell = [&](std::string const& path, Json const& value) {
        events += "event: change\ndata: " + Json{{"revision", 2}, {"path", path}, {"value", value}}.dump() + "\n\n";
      };
      for (auto const& [path, row] : known)
        if (!rows.contains(path)) tell(path, nullptr);
      for (auto const& [path, row] : rows)
        if (!known.contains(path) || known[path] != row) tell(path, row);
      known = std::move(rows);
      goesOn = piece(events);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }
};

FleetOptions fleetOf(std::size_t switches) {
  FleetOptions options;
  options.switches = switches;
  options.interval = std::chrono::seconds(1);
  return options;
}

TEST(FleetCommand, TellsWhoIsReadyAndEndsOnceAllAre) {
  Server server;
  FleetOptions options = fleetOf(3);
  options.isOnce = true;
  EXPECT_EQ(runClient(options, server.surroundings()), 0);
  EXPECT_THAT(server.printed, HasSubstr(" ready (1 of 3)\n"));
  EXPECT_THAT(server.printed, HasSubstr(" ready (3 of 3)\n"));
  EXPECT_THAT(server.notes, testing::IsEmpty());
  EXPECT_EQ(server.requests.at(0).target, "/v1/tree?ttl=3.000");
  EXPECT_THAT(server.text(), HasSubstr("registration/leaf-3/status"));
}

TEST(FleetCommand, LeavesNothingBehindIfToldTo) {
  Server server;
  std::string const before = server.text();
  FleetOptions options = fleetOf(5);
  options.isOnce = true;
  options.isLeaving = true;
  options.common.format = OutputFormat::kJson;
  EXPECT_EQ(runClient(options, server.surroundings()), 0);
  EXPECT_EQ(server.text(), before);
  EXPECT_THAT(server.printed, StartsWith("{\"switch\":\"leaf-"));
  EXPECT_THAT(server.printed, HasSubstr("\"ready\":true,\"count\":5,\"of\":5}\n"));
}

TEST(FleetCommand, GivesEverySignOfLifeInItsTime) {
  Server server;
  FleetOptions options = fleetOf(4);
  options.duration = std::chrono::seconds(3);
  EXPECT_EQ(runClient(options, server.surroundings()), 0);
  std::map<std::string, int> beats;
  for (HttpRequest const& request : server.requests) {
    std::istringstream lines(request.body);
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with("{\"put\":\"heartbeat/")) ++beats[line];
  }
  // One at the start and one for each round, unless the switch was away.
  EXPECT_EQ(beats.size(), 4u);
  for (auto const& [line, count] : beats) EXPECT_LE(count, 5) << line;
  EXPECT_GE(server.requests.size(), 1u + 4 * 2);
}

TEST(FleetCommand, SaysHowManyHaveNotBecomeReadyInTime) {
  Server server;
  server.isMute = true;
  FleetOptions options = fleetOf(2);
  options.isOnce = true;
  options.duration = std::chrono::seconds(1);
  EXPECT_EQ(runClient(options, server.surroundings()), 1);
  EXPECT_THAT(server.notes, ElementsAre("0 of 2 are ready"));
}

TEST(FleetCommand, EndsWhenItIsInterrupted) {
  Server server;
  server.sleeps = 5;
  EXPECT_EQ(runClient(fleetOf(2), server.surroundings()), 0);
}

TEST(FleetCommand, WritesEverythingAnewWhenTheServerComesBack) {
  Server server;
  server.breaksAt = 4;
  server.breaks = 3;
  FleetOptions options = fleetOf(12);
  options.duration = std::chrono::seconds(4);
  EXPECT_EQ(runClient(options, server.surroundings()), 0);
  EXPECT_THAT(server.notes, ElementsAre("server:1: broken; trying again"));
  std::string after;
  for (std::size_t i = server.breaksAt + 3; i < server.requests.size(); ++i) after += server.requests[i].body;
  // Most are there to do so; a few may be away.
  int enrolments = 0;
  for (int i = 1; i <= 12; ++i)
    enrolments += after.find("registration/leaf-" + std::to_string(i) + "/config") != std::string::npos ? 1 : 0;
  EXPECT_GE(enrolments, 9);
}

TEST(FleetCommand, EndsWithWhatIsRefused) {
  Server server;
  FleetOptions options = fleetOf(2);
  options.prefix = "no/name";
  EXPECT_EQ(runClient(options, server.surroundings()), 1);
  ASSERT_EQ(server.notes.size(), 1u);
}

}  // namespace
}  // namespace Agent::FleetTest
