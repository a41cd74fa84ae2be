// Commits that fail: what is answered, what is undone, and what readers are told.
#include <gmock/gmock.h>

#include "agent/server/api_call.h"
#include "support/mirror.h"
#include "support/service_world.h"
#include "support/store_model.h"

namespace Agent::ServiceFailureTest {
namespace {

using namespace std::chrono_literals;
using Test::Mirror;

/// What a write was answered.
enum class Answered { kNothing, kKept, kNotKept, kUnknown };

/// Writes, lets the commit happen, and tells how it was answered.
Answered write(ServiceWorld& world, std::string const& path, std::string const& document) {
  auto answered = std::make_shared<Answered>(Answered::kNothing);
  Operation const operation = parseOperation(R"({"put": ")" + path + R"(", "value": )" + document + "}");
  world.service->apply({&operation, 1});
  world.service->whenKept([answered](StoreError const* problem) {
    bool const isUnknown = dynamic_cast<OutcomeUnknown const*>(problem) != nullptr;
    *answered = problem == nullptr ? Answered::kKept : isUnknown ? Answered::kUnknown : Answered::kNotKept;
  });
  world.loop.run();
  return *answered;
}

/// A reader that follows all documents.
class Follower {
 public:
  explicit Follower(ServiceWorld& world) : world_(world), mirror_("", 0) {
    source_ = world.service->watches().watch("", 0);
    read();
  }
  void read() {
    while (auto const piece = source_->next()) {
      if (piece->empty()) break;
      mirror_.take(*piece);
    }
  }
  void expectSame() {
    read();
    std::map<std::string, std::string> expected;
    for (auto const& [path, document] : world_.service->kept().documents) expected[path] = *document.text;
    EXPECT_EQ(mirror_.documents(), expected);
  }
  int resyncs() const { return mirror_.resyncs(); }

 private:
  ServiceWorld& world_;
  Mirror mirror_;
  std::unique_ptr<BodySource> source_;
};

TEST(ServiceFailure, AFailureThatLeavesTheOutcomeOpenIsAnsweredSo) {
  for (Memory::Doubt const doubt : {Memory::Doubt::kKept, Memory::Doubt::kLost}) {
    ServiceWorld world;
    world.put("controller/config", R"({"enabled": true})");
    Follower follower(world);
    std::string const before = world.text();
    world.memory->doubtIs(doubt);
    EXPECT_EQ(write(world, "mount/ready/x", "true"), Answered::kUnknown);
    EXPECT_EQ(world.text(), before) << "nothing is shown that is not known to be kept";
    EXPECT_TRUE(world.service->storeProblem());
    EXPECT_THROW(world.put("mount/ready/y", "true"), StoreError);
    follower.expectSame();
    world.loop.pass(2s);
    EXPECT_FALSE(world.service->storeProblem());
    EXPECT_EQ(world.read("mount/ready/x"), doubt == Memory::Doubt::kKept ? "true" : "nothing");
    EXPECT_EQ(world.text(), world.stored());
    follower.expectSame();
    EXPECT_EQ(write(world, "mount/ready/z", "true"), Answered::kKept);
    follower.expectSame();
    EXPECT_EQ(follower.resyncs(), 0) << "nothing that was told was undone";
  }
}

TEST(ServiceFailure, ReadersAreNotDisturbedByWhatWasNeverTold) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  Follower follower(world);
  for (int n = 0; n < 3; ++n) {
    world.memory->isFullIs(true);
    EXPECT_EQ(write(world, "mount/ready/x", "true"), Answered::kNotKept);
    follower.expectSame();
    world.memory->isFullIs(false);
    world.loop.pass(2s);
    EXPECT_EQ(write(world, "mount/ready/y" + std::to_string(n), "true"), Answered::kKept);
    follower.expectSame();
  }
  EXPECT_EQ(follower.resyncs(), 0);
}

// The whole prefix leaves a document that has just changed to the turn that changed it; if that is taken back, nothing
// else would tell the document.
TEST(ServiceFailure, AReaderInTheMiddleOfThePrefixMissesNothingThatIsTakenBack) {
  ServiceWorld world;
  std::string const text = '"' + std::string(30'000, 'x') + '"';
  for (int i = 0; i < 10; ++i) world.put("registration/a/" + std::to_string(i), text);
  world.restart();
  for (bool const isRead : {false, true}) {
    auto const source = world.service->watches().watch("registration/", 0);
    Mirror mirror("registration/", 0);
    mirror.take(*source->next());
    world.memory->isFullIs(true);
    Operation const operation = parseOperation(R"({"put": "registration/a/9", "value": 1})");
    world.service->apply({&operation, 1});
    for (int n = 0; n < 20 && isRead; ++n) mirror.take(*source->next());
    world.loop.run();
    for (int n = 0; n < 20; ++n) mirror.take(*source->next());
    EXPECT_EQ(mirror.documents().at("registration/a/9"), text) << isRead;
    EXPECT_TRUE(mirror.isWhole());
    world.memory->isFullIs(false);
    world.loop.pass(2s);
  }
}

TEST(ServiceFailure, AStateThatOthersReplacedIsToldAnew) {
  ServiceWorld world;
  Follower follower(world);
  world.memory->doubtIs(Memory::Doubt::kLost);
  EXPECT_EQ(write(world, "mount/ready/x", "true"), Answered::kUnknown);
  MemoryStore other(world.memory);
  other.prepare();
  Revision const revision = world.service->kept().revision;
  commitOne(other, {revision + 1, {put("mount/ready/other", "true", revision + 1)}});
  world.loop.pass(2s);
  EXPECT_EQ(world.read("mount/ready/other"), "true");
  follower.expectSame();
  EXPECT_EQ(follower.resyncs(), 1);
}

TEST(ServiceFailure, AnEventOfAnotherHistoryIsAnsweredWithAResync) {
  ServiceWorld world;
  world.put("mount/ready/x", "true");
  std::string const revision = std::to_string(world.service->kept().revision);
  HistoryId const present = world.service->watches().history();
  struct {
    std::string id;
    int resyncs;
  } const cases[] = {{revision, 0}, {revision + "@" + present, 0}, {revision + "@0123456789abcdef", 1}};
  for (auto const& [id, resyncs] : cases) {
    auto const source = world.service->watches().watch("", parseEventId(id, present, "after"));
    Mirror mirror("", 0);
    mirror.take(*source->next());
    EXPECT_EQ(mirror.resyncs(), resyncs) << id;
  }
  for (std::string const id : {"", "@", "1@", "1@0123", "@0123456789abcdef", "1@0123456789abcdeG", "-1", "1 "})
    EXPECT_THROW(parseEventId(id, present, "after"), HttpProblem) << id;
}

}  // namespace
}  // namespace Agent::ServiceFailureTest
