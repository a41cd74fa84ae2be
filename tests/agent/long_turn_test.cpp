// What is answered in the middle of a turn that takes long.
#include <gmock/gmock.h>

#include <chrono>
#include <thread>

#include "support/gated_store.h"

namespace Agent::LongTurnTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string lines(int count) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += R"({"put": "registration/a/)" + std::to_string(i) + R"(", "value": )" + std::to_string(i) + "}\n";
  return text;
}

class LongTurn : public GatedWorld {
 protected:
  void ask(std::string const& name, char const* method, std::string const& target, std::string body = {}) {
    api.handle({method, target, {}, std::move(body)}, [this, name](HttpResponse const& response) {
      answers.push_back(name + " " + std::to_string(response.status) + (service.isApplying() ? " meanwhile" : ""));
    });
  }
  /// Does `work` once, in the middle of the next turn that breathes, when its operations have been read.
  void meanwhile(std::function<void()> work) {
    loop.post([this, work = std::move(work)] {
      if (service.isApplying() && Nox::writeObserver_ != nullptr) return work();
      if (++looks < 100'000) meanwhile(work);
    });
  }
  void await(std::size_t count) {
    runUntil([&] { return answers.size() >= count; });
    ASSERT_EQ(answers.size(), count);
  }

  std::vector<std::string> answers;
  int looks = 0;
};

TEST_F(LongTurn, HoldsUpNoReaderAndNoHeartbeatThatSaysWhatItSaid) {
  ask("first", "PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01", "{}");
  await(1);
  answers.clear();
  meanwhile([this] {
    ask("new", "PUT", "/v1/tree/heartbeat/02:00:00:aa:00:02", "{}");
    ask("bulk", "POST", "/v1/tree", lines(3));
    ask("operator", "PUT", "/v1/tree/controller/config", R"({"enabled": true})");
    ask("read", "GET", "/v1/tree/registration/a/7");
    ask("same", "PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01", "{}");
    ask("health", "GET", "/healthz");
  });
  ask("turn", "POST", "/v1/tree?atomic=1", lines(1000));
  await(7);
  // Nothing of the turn is seen before it is kept.
  EXPECT_THAT(answers,
              ElementsAre("health 200 meanwhile",
                          "same 200 meanwhile",
                          "read 404 meanwhile",
                          "turn 200",
                          "new 200",
                          "operator 200",
                          "bulk 200"));
}

// A commit ends in the middle of the turn, so that the next one is due there and has to wait; and reads are answered in
// every breath behind it.
TEST_F(LongTurn, LeavesNoCommitUndoneThatWasDueInTheMiddleOfIt) {
  store.isOpenIs(false);
  ask("first", "PUT", "/v1/tree/mount/ready/x", "true");
  awaitCommit();
  ask("second", "PUT", "/v1/tree/mount/ready/y", "true");
  loop.run();
  bool hasEnded = false;
  std::function<void()> const read = [&] {
    api.handle({"GET", "/healthz", {}, {}}, [](HttpResponse const& /*response*/) {});
    hasEnded = hasEnded || (service.isApplying() && store.commits() > 0);
    if (service.isApplying() || (!hasEnded && ++looks < 1000)) loop.post(read);
  };
  meanwhile([&] {
    store.isOpenIs(true);
    for (int i = 0; i < 1000 && store.commits() == 0; ++i) std::this_thread::sleep_for(1ms);
    for (int chain = 0; chain < 3; ++chain) loop.post(read);
  });
  ask("turn", "POST", "/v1/tree?atomic=1", lines(1000));
  await(3);
  EXPECT_TRUE(hasEnded);
  EXPECT_THAT(answers, testing::UnorderedElementsAre("first 200 meanwhile", "second 200", "turn 200"));
}

// One document, from the first byte of its text on: nothing of the registry has begun then.
TEST_F(LongTurn, OfOneDocumentHoldsUpNobodyWhileItIsRead) {
  std::string services;
  for (int i = 0; i < 300; ++i) services += R"(, "s)" + std::to_string(i) + R"(": {"enabled": true})";
  ask("document",
      "PUT",
      "/v1/tree/registration/a/config",
      R"({"systemId": "02:00:00:aa:00:01", "serviceConfig": {"s": {})" + services + "}}");
  // The request runs first, and this in the middle of it.
  bool isRead = true;
  loop.post([&] {
    isRead = !service.isApplying() || Nox::writeObserver_ != nullptr;
    ask("write", "PUT", "/v1/tree/registration/a/note", "7");
    ask("read", "GET", "/v1/tree/registration/a/config");
    ask("health", "GET", "/healthz");
  });
  await(4);
  EXPECT_FALSE(isRead);
  EXPECT_THAT(answers, ElementsAre("health 200 meanwhile", "read 404 meanwhile", "document 200", "write 200"));
}

TEST_F(LongTurn, FollowsAnotherWhateverBecomesOfThat) {
  ask("one", "POST", "/v1/tree?atomic=1", lines(600));
  ask("two", "POST", "/v1/tree?atomic=1", lines(600) + "no line\n");
  ask("three", "POST", "/v1/tree?atomic=1", "");
  ask("four", "POST", "/v1/tree?atomic=1", lines(600));
  await(4);
  EXPECT_THAT(answers, ElementsAre("one 200", "two 400", "three 200", "four 200"));
}

TEST_F(LongTurn, IsTakenBackIfACommitFailsMeanwhile) {
  ask("first", "PUT", "/v1/tree/mount/ready/x", "true");
  await(1);
  answers.clear();
  store.isOpenIs(false);
  ask("before", "PUT", "/v1/tree/mount/ready/x", "false");
  awaitCommit();
  bool hasFailed = false;
  meanwhile([&] {
    memory->isFullIs(true);
    store.isOpenIs(true);
    // The thread has told the loop by then.
    while (store.isReached()) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(20ms);
    hasFailed = true;
  });
  ask("turn", "POST", "/v1/tree?atomic=1", lines(1000));
  ask("behind", "GET", "/v1/tree/registration/a/7");
  await(3);
  EXPECT_TRUE(hasFailed);
  EXPECT_THAT(answers, ::testing::UnorderedElementsAre("behind 404", "before 507", "turn 507"));
  EXPECT_EQ(service.latest().revision, service.kept().revision);
  EXPECT_EQ(service.latest().documents.size(), service.kept().documents.size());
  EXPECT_EQ(*service.latest().documents.at("mount/ready/x").text, "true");
}

TEST_F(LongTurn, LetsAnotherCommitEndAndTheTickWait) {
  store.isOpenIs(false);
  ask("before", "PUT", "/v1/tree/mount/ready/x", "true");
  awaitCommit();
  meanwhile([this] {
    EXPECT_THAT(answers, IsEmpty());
    store.isOpenIs(true);
    for (int i = 0; i < 1000 && store.isReached(); ++i) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(20ms);
    loop.isBusy(1s);
  });
  ask("turn", "POST", "/v1/tree?atomic=1", lines(1000));
  await(2);
  EXPECT_THAT(answers, ElementsAre("before 200 meanwhile", "turn 200"));
  EXPECT_EQ(*service.kept().documents.at("registration/a/7").text, "7");
  loop.pass(5s);
  EXPECT_EQ(service.storeProblem(), std::nullopt);
}

// The registry starts anew on what is kept.
TEST_F(LongTurn, IsTheStartBehindAFailureToo) {
  ask("many", "POST", "/v1/tree?atomic=1", lines(1000));
  await(1);
  memory->isFullIs(true);
  ask("full", "PUT", "/v1/tree/mount/ready/x", "true");
  await(2);
  memory->isFullIs(false);
  answers.clear();
  loop.inBreath = [this] {
    loop.inBreath = nullptr;
    ask("write", "PUT", "/v1/tree/mount/ready/x", "true");
    ask("health", "GET", "/healthz");
    ask("read", "GET", "/v1/tree/registration/a/7");
  };
  for (int i = 0; i < 60'000 && answers.size() < 3; ++i) {
    loop.pass(1ms);
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_THAT(answers, ElementsAre("health 200 meanwhile", "read 200 meanwhile", "write 200"));
}

// What the store has come to is no ground for a write whose conditions have been judged before.
TEST_F(LongTurn, IsNotBegunAnewInTheMiddleOfARequest) {
  memory->isFullIs(true);
  ask("full", "PUT", "/v1/tree/mount/ready/x", "true");
  await(1);
  answers.clear();
  memory->isFullIs(false);
  store.isOpenIs(false);
  loop.pass(2s);
  int breaths = 0;
  loop.inBreath = [&] {
    EXPECT_TRUE(service.storeProblem());
    if (++breaths > 1) return;
    store.isOpenIs(true);
    // The thread has told the loop by then.
    std::this_thread::sleep_for(20ms);
  };
  ask("write", "PUT", "/v1/tree/registration/a/note", '"' + std::string(100'000, 'x') + '"');
  await(1);
  EXPECT_GT(breaths, 1);
  EXPECT_THAT(answers, ElementsAre("write 507"));
  EXPECT_EQ(service.storeProblem(), std::nullopt);
}

}  // namespace
}  // namespace Agent::LongTurnTest
