// Turns that have been committed come to readers turn by turn and piece by piece, with others in between.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/service_world.h"
#include "support/store_model.h"

namespace Agent::TellingTurnsTest {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::Le;

/// So many documents are changed by one turn, which takes many pieces.
constexpr int kDocuments = 1000;

std::string pathOf(int document) { return "registration/a/" + std::to_string(10'000 + document); }

class TellingTurns : public ::testing::Test {
 protected:
  /// Puts the value into all documents, in one turn.
  void putAll(int value) const {
    std::vector<Operation> operations;
    for (int i = 0; i < kDocuments; ++i) operations.push_back({parsePath(pathOf(i)), Json(value)});
    world.service->apply(operations);
  }
  /// The value that all documents have, and their number; nothing if they differ.
  std::optional<std::pair<std::string, int>> found() const {
    auto const [begin, end] = withPrefix(world.service->kept().documents, "registration/a/");
    std::set<std::string> values;
    for (auto at = begin; at != end; ++at) values.insert(*at->second.text);
    if (values.empty()) return std::pair(std::string(), 0);
    if (values.size() > 1) return std::nullopt;
    return std::pair(*values.begin(), static_cast<int>(std::distance(begin, end)));
  }
  void whenKept(std::string const& name) {
    world.service->whenKept([this, name](StoreError const* problem) {
      told.push_back(name + (problem == nullptr ? " " : " not ") + "kept, all have " + found().value().first);
    });
  }
  /// Whether the store holds the documents, whatever readers see.
  bool isKept() const { return world.stored().find(pathOf(0) + " ") != std::string::npos; }
  /// Runs the loop, and `look` between each two tasks that the service puts there; returns how often.
  int betweenAll(std::function<void()> const& look) {
    int looks = 0;
    int quiet = 0;
    std::function<void()> const again = [&] {
      look();
      ++looks;
      std::string const now = std::to_string(world.service->kept().revision) + " " + std::to_string(told.size());
      quiet = now == std::exchange(before, now) ? quiet + 1 : 0;
      if (quiet < 60) world.loop.post(again);
    };
    world.loop.post(again);
    world.loop.run();
    return looks - quiet;
  }

  ServiceWorld world;
  std::vector<std::string> told;
  std::string before;
};

TEST_F(TellingTurns, ShowsEachAsAWholeAndInOrderWithOthersInBetween) {
  putAll(1);
  putAll(2);
  whenKept("writer");
  std::set<std::string> values;
  int const looks = betweenAll([&] {
    ASSERT_TRUE(found()) << "half of a turn is shown";
    EXPECT_THAT(found()->second, AnyOf(0, kDocuments));
    values.insert(found()->first);
    EXPECT_EQ(world.service->kept().revision, world.service->watches().revision());
  });
  EXPECT_GE(looks, 2 * kDocuments / 256);
  EXPECT_THAT(values, ElementsAre("", "1", "2"));
  EXPECT_THAT(told, ElementsAre("writer kept, all have 2"));
}

/// A reader that waits, and what it has been told: how often each document, at which revision.
struct ToldReader {
  ToldReader(ServiceWorld& world, std::string const& of)
      : prefix(of), from(world.service->watches().revision()), source(world.service->watches().watch(prefix, from)) {
    read();
  }
  void read() {
    isAwake = false;
    while (auto const piece = source->next()) {
      if (piece->empty()) break;
      text += *piece;
    }
    source->wakeIs([this] { isAwake = true; });
  }
  std::map<std::string, int> told() const {
    std::map<std::string, int> count;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
      if (line.find("\"path\"") != std::string::npos) ++count[line.substr(0, line.find(",\"value\""))];
    return count;
  }

  std::string prefix;
  Revision from;
  std::unique_ptr<BodySource> source;
  std::string text;
  bool isAwake = false;
};

// Wherever a reader begins, and whatever wakes it meanwhile.
TEST_F(TellingTurns, TellsEachReaderEachTurnOnceAndWakesAFewAtATime) {
  std::vector<std::unique_ptr<ToldReader>> readers;
  auto const begin = [&](std::string const& prefix) { readers.push_back(std::make_unique<ToldReader>(world, prefix)); };
  for (int i = 0; i < 600; ++i) begin(pathOf(i));
  begin("");
  long most = 0;
  auto const now = world.loop.now();
  for (int round = 1; round <= 3; ++round) {
    putAll(round);
    long awake = 0;
    betweenAll([&] {
      long const known = std::exchange(
          awake, std::count_if(readers.begin(), readers.end(), [](auto const& reader) { return reader->isAwake; }));
      most = std::max(most, awake - known);
      if (readers.size() < 700) begin(readers.size() % 20 == 0 ? "" : "registration/a/10999");
      // A sign of life wakes whatever waits, also a reader of what has not been looked at.
      if (round == 2 && readers.size() % 2 == 0) world.service->watches().keepAlive(now + 20s);
      if (round == 2) readers[readers.size() % 600]->read();
    });
    for (auto const& reader : readers) reader->read();
  }
  EXPECT_THAT(most, AllOf(Gt(0), Le(512)));
  Revision const last = world.service->kept().revision;
  for (auto const& reader : readers) {
    std::map<std::string, int> expected;
    for (Revision revision = std::max(reader->from + 1, last - 2); revision <= last; ++revision)
      for (int i = 0; i < kDocuments; ++i)
        if (std::string const path = pathOf(i); path.starts_with(reader->prefix))
          ++expected["data: {\"revision\":" + std::to_string(revision) + ",\"path\":\"" + path + '"'];
    EXPECT_EQ(reader->told(), expected) << reader->prefix << " from " << reader->from;
  }
}

TEST_F(TellingTurns, AreAllToldWhenTheServiceStops) {
  ToldReader reader(world, "");
  putAll(1);
  putAll(2);
  whenKept("writer");
  bool isStopped = false;
  betweenAll([&] {
    if (found()->first == "1" && !std::exchange(isStopped, true)) world.service->stop();
  });
  reader.read();
  EXPECT_THAT(told, ElementsAre("writer kept, all have 2"));
  EXPECT_EQ(reader.told().size(), 2u * kDocuments);
  EXPECT_THAT(reader.text, HasSubstr("event: shutdown"));
}

TEST_F(TellingTurns, GiveABackupThatBeginsMeanwhileTheStateOfOneTurn) {
  std::vector<std::unique_ptr<BodySource>> backups;
  putAll(1);
  putAll(2);
  betweenAll([&] { backups.push_back(world.service->backup()); });
  std::set<std::string> states;
  for (auto const& backup : backups) {
    std::string text;
    while (auto const piece = backup->next()) text += *piece;
    std::array<std::ptrdiff_t, 2> count{};
    for (int value : {1, 2}) {
      std::string const end = "\"value\":" + std::to_string(value) + "}";
      for (auto at = text.find(end); at != std::string::npos; at = text.find(end, at + 1)) ++count[value - 1];
    }
    states.insert(std::to_string(count[0]) + " " + std::to_string(count[1]));
  }
  std::string const all = std::to_string(kDocuments);
  EXPECT_THAT(states, ElementsAre("0 0", "0 " + all, all + " 0"));
}

TEST_F(TellingTurns, AreToldWhateverBecomesOfTheNextOnes) {
  putAll(1);
  bool isFull = false;
  betweenAll([&] {
    if (found()->first != "1" || std::exchange(isFull, true)) return;
    // The turn has been shown, and is being told.
    world.memory->isFullIs(true);
    putAll(2);
    whenKept("next");
  });
  EXPECT_TRUE(isFull);
  EXPECT_THAT(told, ElementsAre("next not kept, all have 1"));
  EXPECT_EQ(world.service->latest().revision, world.service->kept().revision);
  EXPECT_EQ(*world.service->latest().documents.at(pathOf(7)).text, "1");
}

TEST_F(TellingTurns, OfOthersComeBehindThem) {
  ToldReader reader(world, "");
  MemoryStore other(world.memory);
  other.prepare();
  putAll(1);
  bool isWritten = false;
  betweenAll([&] {
    Revision const revision = world.service->kept().revision;
    if (!world.service->storeProblem() && found()->first.empty() && isKept() && !std::exchange(isWritten, true))
      commitOne(other, {revision + 2, {::Agent::put("mount/ready/other", "true", revision + 2)}});
  });
  EXPECT_TRUE(isWritten);
  EXPECT_EQ(found(), (std::pair<std::string, int>("1", kDocuments)));
  EXPECT_EQ(world.read("mount/ready/other"), "true");
  EXPECT_EQ(world.service->watches().revision(), world.service->kept().revision);
}

}  // namespace
}  // namespace Agent::TellingTurnsTest
