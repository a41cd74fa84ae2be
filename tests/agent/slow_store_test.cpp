// A store that does not answer: what is told meanwhile, and what waits for it.
#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

#include "support/gated_store.h"

namespace Agent::SlowStoreTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class SlowStore : public GatedWorld {
 protected:
  /// Sends a request; its status comes into `statuses` when it is answered.
  void ask(char const* method, std::string const& target, std::string const& body = "") {
    api.handle({method, target, {}, body}, [this](HttpResponse const& response) {
      statuses.push_back(response.status);
      last = response.body;
    });
    loop.run();
  }
  /// Runs the loop until so many requests have been answered.
  void await(std::size_t answers) {
    runUntil([&] { return statuses.size() >= answers; });
    ASSERT_EQ(statuses.size(), answers);
  }
  /// Puts a document and stops its commit at the gate.
  void beginCommit(std::string const& path, std::string const& document) {
    store.isOpenIs(false);
    ask("PUT", "/v1/tree/" + path, document);
    awaitCommit();
  }

  std::vector<int> statuses;
  std::string last;
};

TEST_F(SlowStore, HoldsUpNoReaderAndNoHeartbeatThatSaysWhatItSaid) {
  ask("PUT", "/v1/tree/mount/ready/x", "true");
  ask("PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01", "{}");
  await(2);
  beginCommit("mount/ready/x", "false");
  auto const watch = service.watches().watch("mount/", service.kept().revision);
  EXPECT_EQ(watch->next(), "");
  statuses.clear();
  for (char const* target : {"/v1/tree/mount/ready/x", "/v1/tree?prefix=mount/", "/v1/backup", "/healthz", "/readyz"}) {
    ask("GET", target);
    EXPECT_EQ(statuses.size(), 1u) << target;
    statuses.clear();
  }
  ask("GET", "/v1/tree/mount/ready/x");
  EXPECT_EQ(last, "true\n");
  ask("PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01", "{}");
  EXPECT_THAT(statuses, ElementsAre(200, 200));
  EXPECT_EQ(watch->next(), "");
  store.isOpenIs(true);
  await(3);
  EXPECT_THAT(*watch->next(), HasSubstr(R"("mount/ready/x","value":false)"));
}

TEST_F(SlowStore, GetsWhatCameMeanwhileInOneCommit) {
  beginCommit("mount/ready/x", "true");
  int const before = store.commits();
  for (int i = 0; i < 100; ++i) ask("PUT", "/v1/tree/mount/ready/" + std::to_string(i), "true");
  // A condition is about what was written last, and is told when that is kept.
  api.handle({"PUT", "/v1/tree/mount/ready/7", {{"If-None-Match", "*"}}, "true"},
             [this](HttpResponse const& response) { statuses.push_back(response.status); });
  loop.run();
  EXPECT_THAT(statuses, IsEmpty());
  store.isOpenIs(true);
  await(102);
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 200), 101);
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 412), 1);
  EXPECT_EQ(store.commits(), before + 2);
}

TEST_F(SlowStore, TakesBackAllThatFollowsACommitThatFails) {
  ask("PUT", "/v1/tree/mount/ready/x", "true");
  await(1);
  Revision const kept = service.kept().revision;
  beginCommit("mount/ready/x", "false");
  ask("PUT", "/v1/tree/mount/ready/y", "true");
  ask("DELETE", "/v1/tree/mount/ready/x");
  memory->isFullIs(true);
  store.isOpenIs(true);
  statuses.clear();
  await(3);
  EXPECT_THAT(statuses, ElementsAre(507, 507, 507));
  EXPECT_EQ(service.latest().revision, kept);
  EXPECT_EQ(*service.latest().documents.at("mount/ready/x").text, "true");
  EXPECT_FALSE(service.latest().documents.contains("mount/ready/y"));
  memory->isFullIs(false);
  loop.pass(2s);
  statuses.clear();
  for (int i = 0; i < 60'000 && service.storeProblem(); ++i) {
    std::this_thread::sleep_for(1ms);
    loop.pass(1ms);
  }
  ask("PUT", "/v1/tree/mount/ready/y", "true");
  await(1);
  EXPECT_THAT(statuses, ElementsAre(200));
  EXPECT_EQ(service.switches(), 0u);
}

TEST_F(SlowStore, IsWaitedForAtTheEnd) {
  beginCommit("mount/ready/x", "true");
  ask("PUT", "/v1/tree/mount/ready/y", "true");
  std::thread opens([this] {
    std::this_thread::sleep_for(20ms);
    store.isOpenIs(true);
  });
  service.stop();
  opens.join();
  EXPECT_THAT(statuses, ElementsAre(200, 200));
}

}  // namespace
}  // namespace Agent::SlowStoreTest
