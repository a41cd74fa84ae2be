// The service: turns that are kept before they are answered, what a restart finds, heartbeats that expire.
#include <gmock/gmock.h>

#include "support/random_history.h"
#include "support/service_world.h"

namespace Agent::ServiceTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char kRouting[] = R"({"enabled": true, "versionConfig": {"version": {"1": "one"}}})";

std::vector<std::string> pathsOf(CommittedTurn const& turn) {
  std::vector<std::string> paths;
  for (DocumentChange const& change : turn.changes) paths.push_back(change.path);
  return paths;
}

void enrol(ServiceWorld& world, std::string const& name, std::string const& systemId) {
  for (std::string const& line : enrolment(name, systemId)) world.apply(line);
}

TEST(Service, ATurnTellsEveryDocumentThatItChangedUnderOneRevision) {
  ServiceWorld world;
  Revision const before = world.service->kept().revision;
  EXPECT_EQ(before, 1u);
  EXPECT_THAT(pathsOf(world.put("controller/config", R"({"enabled": true})").turn),
              ElementsAre("controller/config", "controller/status"));
  world.put("service/config/routing", kRouting);
  for (std::size_t i = 0; i < 2; ++i) world.apply(enrolment("a", "02:00:00:aa:00:01")[i]);
  TurnResult const heard = world.put("heartbeat/02:00:00:aa:00:01", "{}");
  EXPECT_EQ(heard.turn.revision, before + 5);
  EXPECT_THAT(pathsOf(heard.turn),
              ElementsAre("controller/switch/02:00:00:aa:00:01",
                          "heartbeat/02:00:00:aa:00:01",
                          "registration/a/status",
                          "service/status/a/routing"));
  for (DocumentChange const& change : heard.turn.changes) EXPECT_EQ(change.revision, heard.turn.revision);
}

TEST(Service, ATurnThatChangesNothingHasNoRevision) {
  ServiceWorld world;
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  Revision const before = world.service->kept().revision;
  TurnResult const again = world.put("heartbeat/02:00:00:aa:00:01", "{}");
  EXPECT_EQ(again.turn.revision, before);
  EXPECT_TRUE(again.turn.changes.empty());
}

TEST(Service, TheDocumentsAreWhatTheTreeHoldsAndWhatIsKept) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  world.put("service/config/routing", kRouting);
  enrol(world, "a", "02:00:00:aa:00:01");
  world.put("registration/a/note", "[1]");
  world.remove("registration/a");
  enrol(world, "b", "02:00:00:aa:00:02");
  EXPECT_EQ(world.text(), world.stored());
  EXPECT_THAT(world.text(), HasSubstr("service/status/b/routing"));
  EXPECT_THAT(world.text(), ::testing::Not(HasSubstr("/a/")));
}

TEST(Service, ManyTurnsThatWaitShareOneCommitAndAreAnsweredAfterIt) {
  ServiceWorld world;
  std::vector<int> answered;
  for (int i = 0; i < 3; ++i) {
    std::string const path = "mount/ready/service-" + std::to_string(i);
    Operation const operation = parseOperation(R"({"put": ")" + path + R"(", "value": true})");
    world.service->apply({&operation, 1});
    world.service->whenKept([&answered, &world, i](StoreError const* problem) {
      EXPECT_EQ(problem, nullptr);
      EXPECT_THAT(world.stored(), HasSubstr("mount/ready/service-2"));
      answered.push_back(i);
    });
  }
  EXPECT_THAT(answered, ElementsAre());
  world.loop.run();
  EXPECT_THAT(answered, ElementsAre(0, 1, 2));
}

TEST(Service, AFullStoreTurnsWritesAwayAndTheTreeIsThatOfTheStore) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  enrol(world, "a", "02:00:00:aa:00:01");
  std::string const kept = world.text();
  world.memory->isFullIs(true);
  Operation const operation = parseOperation(R"({"put": "mount/ready/x", "value": true})");
  world.service->apply({&operation, 1});
  bool isRefused = false;
  world.service->whenKept(
      [&](StoreError const* problem) { isRefused = dynamic_cast<StoreFull const*>(problem) != nullptr; });
  world.loop.run();
  EXPECT_TRUE(isRefused);
  EXPECT_EQ(world.text(), kept);
  EXPECT_EQ(world.stored(), kept);
  // From now on writes are refused before they do anything, but a switch that is alive may say so.
  EXPECT_THROW(world.put("mount/ready/x", "true"), StoreFull);
  EXPECT_THROW(world.put("heartbeat/02:00:00:aa:00:09", "{}"), StoreFull);
  for (int i = 0; i < 10; ++i) {
    world.loop.pass(10s);
    EXPECT_NO_THROW(world.put("heartbeat/02:00:00:aa:00:01", "{}"));
  }
  EXPECT_EQ(world.text(), kept);
  bool isAnswered = false;
  world.service->whenKept([&](StoreError const* problem) { isAnswered = problem == nullptr; });
  EXPECT_TRUE(isAnswered);
  world.memory->isFullIs(false);
  world.loop.pass(2s);
  EXPECT_NO_THROW(world.put("mount/ready/x", "true"));
  EXPECT_EQ(world.text(), world.stored());
  EXPECT_EQ(world.read("mount/ready/x"), "true");
}

TEST(Service, WhoIsTurnedAwayWhileTheStoreIsFullIsNotHeldDead) {
  ServiceWorld world;
  world.put("heartbeat/02:00:00:aa:00:01", "1");
  world.memory->isFullIs(true);
  Operation const operation = parseOperation(R"({"put": "mount/ready/x", "value": true})");
  world.service->apply({&operation, 1});
  world.loop.run();
  for (int i = 2; i < 20; ++i) {
    world.loop.pass(10s);
    EXPECT_THROW(world.put("heartbeat/02:00:00:aa:00:01", std::to_string(i)), StoreFull);
  }
  world.memory->isFullIs(false);
  world.loop.pass(20s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "1");
  world.loop.pass(20s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "nothing");
}

TEST(Service, AHeartbeatThatGoesInItsOwnBatchHasNeverBeen) {
  ServiceWorld world;
  std::vector<Operation> const batch{parseOperation(R"({"put": "heartbeat/02:00:00:aa:00:01", "value": 1})"),
                                     parseOperation(R"({"delete": "heartbeat/02:00:00:aa:00:01"})")};
  Revision const before = world.service->kept().revision;
  EXPECT_TRUE(world.service->apply(batch).turn.changes.empty());
  EXPECT_EQ(world.service->kept().revision, before);
}

TEST(Service, AHeartbeatExpiresUnlessItIsPutAgain) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  enrol(world, "a", "02:00:00:aa:00:01");
  for (int i = 0; i < 5; ++i) {
    world.loop.pass(20s);
    world.put("heartbeat/02:00:00:aa:00:01", "{}");
  }
  world.loop.pass(29s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "{}");
  EXPECT_THAT(world.read("registration/a/status"), HasSubstr(R"("clientShutdownAck":false)"));
  world.loop.pass(2s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "nothing");
  EXPECT_THAT(world.read("registration/a/status"), HasSubstr(R"("clientShutdownAck":true)"));
  EXPECT_EQ(world.text(), world.stored());
}

TEST(Service, ATimeToLiveIsTheLastOnePut) {
  ServiceWorld world;
  auto const isAlive = [&](int n) { return world.read("heartbeat/02:00:00:aa:00:0" + std::to_string(n)) == "{}"; };
  world.put("heartbeat/02:00:00:aa:00:01", "{}", Service::TimeToLive{2s});
  world.put("heartbeat/02:00:00:aa:00:02", "{}", Service::TimeToLive{std::nullopt});
  world.put("heartbeat/02:00:00:aa:00:03", "{}", Service::TimeToLive{2s});
  TurnResult const longer = world.put("heartbeat/02:00:00:aa:00:03", "{}", Service::TimeToLive{100s});
  EXPECT_EQ(longer.turn.changes.size(), 1u);
  EXPECT_EQ(longer.turn.revision, world.service->kept().revision);
  world.loop.pass(3s);
  EXPECT_FALSE(isAlive(1));
  world.loop.pass(90s);
  EXPECT_TRUE(isAlive(2));
  EXPECT_TRUE(isAlive(3));
  world.restart();
  world.loop.pass(90s);
  EXPECT_TRUE(isAlive(3));
  world.loop.pass(20s);
  EXPECT_FALSE(isAlive(3));
  EXPECT_TRUE(isAlive(2));
}

TEST(Service, ARestartGivesEveryHeartbeatOneFullTimeToLive) {
  ServiceWorld world;
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  world.loop.pass(29s);
  world.restart();
  world.loop.pass(29s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "{}");
  world.loop.pass(2s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "nothing");
}

TEST(Service, TimeInWhichTheAgentStoodStillKillsNobody) {
  ServiceWorld world;
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  world.loop.standStill(1h);
  world.loop.pass(25s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "{}");
  world.loop.pass(6s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "nothing");
}

TEST(Service, UnderLoadTheDeadGoInTime) {
  ServiceWorld world;
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  auto const begun = world.loop.now();
  while (world.read("heartbeat/02:00:00:aa:00:01") != "nothing") {
    ASSERT_LT(world.loop.now() - begun, 40s);
    world.loop.isBusy(700ms);
    world.loop.pass(1ms);
  }
  EXPECT_GE(world.loop.now() - begun, 30s);
  EXPECT_LE(world.loop.now() - begun, 32s) << "of which two times 0.7 s are the load itself";
}

TEST(Service, ARenewalBehindALongTurnHasItsWholeTime) {
  ServiceWorld world;
  world.loop.pass(1s);
  world.loop.isBusy(20s);
  // Read before the tick that is due, as sockets are before timers.
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  world.loop.pass(29s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "{}");
  world.loop.pass(2s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "nothing");
}

TEST(Service, NothingExpiresWhileRenewalsBehindALateTickAreRead) {
  ServiceWorld world;
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  world.loop.isBusy(1min);
  world.loop.pass(300ms);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "{}") << "two more ticks have come";
  world.loop.pass(300ms);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "nothing");
}

TEST(Service, RenewalsThatWaitBehindALongTurnAreReadBeforeAnythingExpires) {
  ServiceWorld world;
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  world.put("heartbeat/02:00:00:aa:00:02", "{}");
  world.loop.isBusy(1min);
  world.loop.pass(0s);
  world.put("heartbeat/02:00:00:aa:00:01", "{}");
  world.loop.pass(29s);
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:01"), "{}");
  EXPECT_EQ(world.read("heartbeat/02:00:00:aa:00:02"), "nothing");
}

TEST(Service, ABatchIsOneTurnOrNothing) {
  ServiceWorld world;
  std::vector<Operation> batch;
  for (char const* line :
       {R"({"put": "controller/config", "value": {"enabled": true}})", R"({"put": "mount/ready/x", "value": true})"})
    batch.push_back(parseOperation(line));
  Revision const before = world.service->kept().revision;
  EXPECT_EQ(world.service->apply(batch).turn.revision, before + 1);
  world.loop.run();
  batch.push_back(parseOperation(R"({"put": "mount/ready/y", "value": true})"));
  batch.push_back(parseOperation(R"({"put": "controller/config", "value": {"enabled": 3}})"));
  std::size_t refused = 0;
  EXPECT_THROW(world.service->apply(batch, std::nullopt, &refused), InputError);
  EXPECT_EQ(refused, 3u);
  EXPECT_EQ(world.read("mount/ready/y"), "nothing");
  EXPECT_EQ(world.service->kept().revision, before + 1);
}

TEST(Service, NothingOfARegistrationMayGoAndComeBackInOneTurn) {
  struct Case {
    std::vector<std::string> lines;
    bool isTaken;
  };
  std::string const dropAll = R"({"delete": "registration/a"})";
  std::string const dropConfig = R"({"delete": "registration/a/config"})";
  std::string const dropStatus = R"({"delete": "registration/a/status"})";
  std::string const dropNote = R"({"delete": "registration/a/note"})";
  std::string const putConfig = R"({"put": "registration/a/config", "value": {"systemId": "02:00:00:aa:00:01"}})";
  std::string const putStatus = R"({"put": "registration/a/status", "value": {}})";
  std::string const putNote = R"({"put": "registration/a/note", "value": 1})";
  std::vector<Case> const cases{
      {{dropAll, putConfig}, false},
      {{dropAll, putNote}, false},
      {{dropConfig, putConfig}, false},
      {{dropConfig, putNote}, true},
      {{putNote, dropNote, putNote}, true},
      {{dropConfig, dropStatus, putNote}, false},
      {{putNote, dropConfig, dropStatus}, true},
      {{R"({"delete": "registration/b"})", R"({"put": "registration/b/status", "value": {}})"}, true},
      {{dropStatus, putStatus}, false},
      {{putConfig, dropAll}, true}};
  for (Case const& c : cases) {
    ServiceWorld world;
    world.put("controller/config", R"({"enabled": true})");
    enrol(world, "a", "02:00:00:aa:00:01");
    std::vector<Operation> batch;
    for (std::string const& line : c.lines) batch.push_back(parseOperation(line));
    if (c.isTaken)
      EXPECT_NO_THROW(world.service->apply(batch)) << c.lines.front();
    else
      EXPECT_THROW(world.service->apply(batch), InputError) << c.lines.front();
    world.loop.run();
    EXPECT_EQ(world.text(), world.stored());
  }
}

TEST(Service, WhatOthersWriteIsTakenOver) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  ServiceWorld other;
  other.memory = world.memory;
  other.restart();
  enrol(other, "a", "02:00:00:aa:00:01");
  world.loop.run();
  EXPECT_EQ(world.text(), other.text());
  EXPECT_THAT(world.read("registration/a/status"), HasSubstr(R"("registrationGenId":1)"));
}

// The tree of a fresh registry that finds the stored documents.
std::string loaded(ServiceWorld& world) {
  std::optional<StateTree> tree;
  Host const host(world.library, [&](Controllerdb::AgentTables& tables) {
    tree.emplace(tables);
    // The table of switches is the registry's to write: it finds none.
    MemoryStore(world.memory).load([&](DocumentChange const& document) {
      tree->restore(parsePath(document.path), readJson(*document.text));
    });
  });
  std::string all;
  tree->forEach([&](std::string const& path, Json const& document) { all += path + " " + document.dump() + "\n"; });
  return all;
}

TEST(Service, ARestartFindsWhatAFreshRegistryMakesOfTheStoredDocuments) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    ServiceWorld world;
    RandomHistory history(seed);
    for (int i = 0; i < 80; ++i) world.apply(history.next());
    ASSERT_EQ(world.stored(), world.text()) << "seed " << seed;
    std::string const expected = loaded(world);
    world.restart();
    ASSERT_EQ(world.text(), expected) << "seed " << seed;
    ASSERT_EQ(world.stored(), expected) << "seed " << seed;
    // What has come back once stays.
    Revision const revision = world.service->kept().revision;
    world.restart();
    ASSERT_EQ(world.text(), expected) << "seed " << seed;
    ASSERT_EQ(world.service->kept().revision, revision) << "seed " << seed;
  }
}

TEST(Service, ARestartOfASettledNetworkChangesNothing) {
  ServiceWorld world;
  world.put("controller/status", R"({"controllerUUID": "u"})");
  world.put("controller/config", R"({"enabled": true})");
  world.put("service/config/routing", kRouting);
  world.put("service/override/mirror", kRouting);
  world.put("mount/ready/routing", "true");
  for (char const name : std::string("abcdefgh")) {
    std::string const id = std::string("02:00:00:aa:00:0") + name;
    enrol(world, std::string(1, name), name < 'g' ? id : "02:00:00:aa:00:ff");
    world.put("mount/offer/" + (name < 'g' ? id : "02:00:00:aa:00:ff"),
              R"({"publishedMount": {"/m": {"remotePath": "/r", "service": "routing"}}})");
    world.put(std::string("registration/") + name + "/note", R"({"port": 4})");
  }
  // One that has never been ready.
  world.put("registration/z/config", R"({"systemId": "02:00:00:aa:00:99"})");
  world.put("registration/z/status", "{}");
  std::string const before = world.text();
  Revision const revision = world.service->kept().revision;
  world.restart();
  EXPECT_EQ(world.text(), before);
  EXPECT_EQ(world.service->kept().revision, revision);
}

}  // namespace
}  // namespace Agent::ServiceTest
