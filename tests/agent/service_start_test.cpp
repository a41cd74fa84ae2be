// What a start does: the table of switches, a store that is full, and what heartbeats have left to live.
#include <gmock/gmock.h>

#include "agent/store/sqlite_store.h"
#include "support/program.h"
#include "support/service_world.h"

namespace Agent::ServiceStartTest {
namespace {

using namespace std::chrono_literals;

constexpr char kA[] = "02:00:00:aa:00:01";
constexpr char kB[] = "02:00:00:aa:00:02";

std::string row(std::string const& systemId) { return "controller/switch/" + systemId; }

void enrol(ServiceWorld& world, std::string const& name, std::string const& systemId) {
  for (std::string const& line : enrolment(name, systemId)) world.apply(line);
}

/// How a row comes to stand in the table that no switch of a started registry has, and whether it was there before.
struct Leftover {
  char const* name;
  void (*make)(ServiceWorld& world);
};

Leftover const kLeftovers[] = {
    {"a switch that enrolled while the agent was disabled", [](ServiceWorld& world) { enrol(world, "a", kA); }},
    {"a switch whose system id was changed in place",
     [](ServiceWorld& world) {
       world.put("controller/config", R"({"enabled": true})");
       enrol(world, "a", kA);
       world.put("registration/a/config", std::string(R"({"enabled": true, "systemId": ")") + kB + "\"}");
     }},
    {"a switch whose system id was changed and that has left",
     [](ServiceWorld& world) {
       world.put("controller/config", R"({"enabled": true})");
       enrol(world, "a", kA);
       world.put("registration/a/config", std::string(R"({"enabled": true, "systemId": ")") + kB + "\"}");
       world.remove("registration/a");
     }},
};

TEST(ServiceStart, RowsOfNoReadySwitchGoInTheFirstTurn) {
  for (auto const& [name, make] : kLeftovers) {
    ServiceWorld world;
    make(world);
    ASSERT_NE(world.read(row(kA)), "nothing") << name;
    Revision const before = world.service->kept().revision;
    world.restart();
    EXPECT_EQ(world.read(row(kA)), "nothing") << name;
    EXPECT_EQ(world.service->kept().revision, before + 1) << name;
    EXPECT_EQ(world.text(), world.stored()) << name;
  }
}

TEST(ServiceStart, ASwitchThatLeavesAfterAStartLeavesNoRow) {
  ServiceWorld world;
  enrol(world, "a", kA);
  world.restart();
  world.put("controller/config", R"({"enabled": true})");
  EXPECT_NE(world.read(row(kA)), "nothing");
  world.remove(std::string("heartbeat/") + kA);
  world.remove("registration/a");
  EXPECT_EQ(world.read(row(kA)), "nothing");
}

TEST(ServiceStart, RowsOfReadySwitchesStandAsTheyStood) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  enrol(world, "a", kA);
  enrol(world, "b", kB);
  world.remove(std::string("heartbeat/") + kB);
  std::string const before = world.text();
  world.restart();
  EXPECT_EQ(world.text(), before);
  EXPECT_NE(world.read(row(kA)), "nothing");
  EXPECT_EQ(world.read(row(kB)), "nothing");
}

TEST(ServiceStart, StartingAnewAfterAFailedCommitCountsAsAStart) {
  ServiceWorld world;
  enrol(world, "a", kA);
  ASSERT_NE(world.read(row(kA)), "nothing");
  world.memory->isFullIs(true);
  Operation const operation = parseOperation(R"({"put": "mount/ready/x", "value": true})");
  world.service->apply({&operation, 1});
  world.loop.run();
  EXPECT_NE(world.read(row(kA)), "nothing") << "as it is kept";
  world.memory->isFullIs(false);
  world.loop.pass(2s);
  EXPECT_EQ(world.read(row(kA)), "nothing");
  EXPECT_EQ(world.text(), world.stored());
}

TEST(ServiceStart, AStoreThatIsFullFromTheStartIsShownAndTakesNoWrites) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  enrol(world, "a", kA);
  std::string const before = world.text();
  world.memory->isFullIs(true);
  world.restart();
  EXPECT_TRUE(world.service->storeProblem()) << "before the first write";
  EXPECT_EQ(world.text(), before);
  EXPECT_THROW(world.put("mount/ready/x", "true"), StoreFull);
  for (int n = 0; n < 10; ++n) {
    world.loop.pass(10s);
    EXPECT_NO_THROW(world.put(std::string("heartbeat/") + kA, "{}"));
  }
  world.memory->isFullIs(false);
  world.loop.pass(2s);
  EXPECT_FALSE(world.service->storeProblem());
  EXPECT_EQ(world.text(), before);
  world.put("mount/ready/x", "true");
  EXPECT_EQ(world.text(), world.stored());
}

/// A service on a state file that is started, and killed, again and again.
class Killed {
 public:
  Killed() { start(); }

  /// The files as they are at this instant are all that the next start finds.
  void killAndStart() {
    Folder next;
    for (char const* file : {"state", "state-wal", "state-witness"})
      if (std::filesystem::exists(*folder_ / file)) std::filesystem::copy_file(*folder_ / file, next / file);
    stop();
    for (char const* file : {"state", "state-wal", "state-witness"}) {
      std::filesystem::remove(*folder_ / file);
      if (std::filesystem::exists(next / file)) std::filesystem::copy_file(next / file, *folder_ / file);
    }
    start();
  }
  void stopAndStart() {
    stop();
    start();
  }
  void put(std::string const& path, std::string const& document) {
    Operation const operation = parseOperation(R"({"put": ")" + path + R"(", "value": )" + document + "}");
    service_->apply({&operation, 1});
    loop_.run();
  }
  bool has(std::string const& path) const { return service_->kept().documents.contains(path); }
  void pass(std::chrono::milliseconds time) { loop_.pass(time); }
  /// A killed process runs nothing any more.
  Service& service() { return *service_; }

 private:
  void start() {
    store_ = std::make_unique<SqliteStore>(*folder_ / "state");
    service_ = std::make_unique<Service>(loop_, library_, *store_, ServiceOptions(), log_);
    loop_.run();
  }
  void stop() {
    service_.reset();
    store_.reset();
  }

  std::unique_ptr<Folder> folder_ = std::make_unique<Folder>();
  FakeLoop loop_;
  EventLog log_;
  Nox::Library library_{libraryPath(std::nullopt)};
  std::unique_ptr<SqliteStore> store_;
  std::unique_ptr<Service> service_;
};

constexpr char kHeard[] = "heartbeat/02:00:00:aa:00:01";
constexpr char kAlive[] = "heartbeat/02:00:00:aa:00:02";

TEST(ServiceStart, AHeartbeatThatIsNotPutBetweenTwoStartsGetsNoThirdTime) {
  for (bool const isKilled : {true, false}) {
    Killed agent;
    auto const restart = [&] { isKilled ? agent.killAndStart() : agent.stopAndStart(); };
    agent.put(kHeard, "{}");
    agent.put(kAlive, "{}");
    agent.pass(29s);
    restart();
    int starts = 0;
    // The dead one has 30 s from the first start on; the living one is put now and then.
    for (; starts < 20 && agent.has(kHeard); ++starts) {
      // What was put is noted within a tick.
      if (starts % 4 == 0) agent.put(kAlive, "{}");
      agent.pass(2s);
      restart();
    }
    EXPECT_GE(starts, 13) << "it has a full time after the first start";
    EXPECT_LE(starts, 17) << "and no more than that";
    EXPECT_TRUE(agent.has(kAlive));
  }
}

TEST(ServiceStart, AHeartbeatThatIsPutBetweenTwoStartsHasAFullTime) {
  Killed agent;
  agent.put(kHeard, "{}");
  for (int n = 0; n < 5; ++n) {
    agent.killAndStart();
    agent.pass(28s);
    EXPECT_TRUE(agent.has(kHeard));
    agent.put(kHeard, "{}");
    agent.pass(1s);
  }
  agent.killAndStart();
  agent.pass(29s);
  EXPECT_TRUE(agent.has(kHeard));
  agent.pass(2s);
  EXPECT_FALSE(agent.has(kHeard));
}

TEST(ServiceStart, TimeBetweenAnEndAndAStartDoesNotCount) {
  Killed agent;
  agent.put(kHeard, "{}");
  agent.killAndStart();
  agent.pass(20s);
  agent.killAndStart();
  agent.pass(9s);
  EXPECT_TRUE(agent.has(kHeard));
  agent.pass(2s);
  EXPECT_FALSE(agent.has(kHeard));
}

}  // namespace
}  // namespace Agent::ServiceStartTest
