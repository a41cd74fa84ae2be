// What every store does, whatever it is made of.
#include "agent/store/store.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <random>

#include "agent/store/memory_store.h"
#include "agent/store/sqlite_store.h"
#include "support/program.h"
#include "support/store_model.h"

namespace Agent::StoreTest {
namespace {

using testing::ElementsAre;

/// A state that stays while its stores come and go.
class Place {
 public:
  Place() = default;
  Place(Place const&) = delete;
  Place& operator=(Place const&) = delete;
  virtual ~Place() = default;

  virtual std::unique_ptr<Store> reopen() = 0;
  /// A store that takes turns.
  std::unique_ptr<Store> open() {
    auto store = reopen();
    store->prepare();
    return store;
  }
  virtual void isFullIs(bool isFull) = 0;
};

class MemoryPlace final : public Place {
 public:
  std::unique_ptr<Store> reopen() override { return std::make_unique<MemoryStore>(memory_); }
  void isFullIs(bool isFull) override { memory_->isFullIs(isFull); }

 private:
  std::shared_ptr<Memory> memory_ = std::make_shared<Memory>();
};

/// A file that, when full, does not grow any more, as it is on a full disk.
class FilePlace final : public Place {
 public:
  FilePlace() { ::getrlimit(RLIMIT_FSIZE, &before_); }
  FilePlace(FilePlace const&) = delete;
  FilePlace& operator=(FilePlace const&) = delete;
  ~FilePlace() override { isFullIs(false); }

  std::unique_ptr<Store> reopen() override { return std::make_unique<SqliteStore>(folder_ / "state"); }

  void isFullIs(bool isFull) override {
    std::signal(SIGXFSZ, isFull ? SIG_IGN : SIG_DFL);
    rlimit limit = before_;
    // Some of what is written still has room, but not all.
    if (isFull) limit.rlim_cur = std::filesystem::file_size(folder_ / "state-wal") + 6000;
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }

 private:
  Folder folder_;
  rlimit before_{};
};

struct Kind {
  char const* name;
  std::function<std::unique_ptr<Place>()> make;
};

/// Names the kind in test messages.
void PrintTo(Kind const& kind, std::ostream* out) { *out << kind.name; }

class StoreTest : public testing::TestWithParam<Kind> {
 protected:
  std::unique_ptr<Place> place_ = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(Of, StoreTest,
                         testing::Values(Kind{"Memory", [] { return std::make_unique<MemoryPlace>(); }},
                                         Kind{"Sqlite", [] { return std::make_unique<FilePlace>(); }}),
                         [](auto const& kind) { return kind.param.name; });

TEST_P(StoreTest, IsEmptyAtFirst) {
  EXPECT_EQ(contents(*place_->open()), StoreModel());
  EXPECT_EQ(contents(*place_->open()), StoreModel()) << "opened again";
}

TEST_P(StoreTest, GivesWhatWasCommitted) {
  StoreModel const expected{{{"b", {"2", 2, -1}}, {"c", {R"({"x":"\u0000"})", 3, -1}}}, 4};
  {
    auto const store = place_->open();
    commitOne(*store, turnOf(1, {"a", "b"}, "1"));
    commitOne(*store, turnOf(2, {"b"}, "2"));
    std::vector<CommittedTurn> const turns{{3, {remove("a", 3), put("c", R"({"x":"\u0000"})", 3)}},
                                           {4, {remove("never there", 4)}}};
    store->commit(turns);
    EXPECT_EQ(contents(*store), expected);
    store->commit({});
    EXPECT_EQ(contents(*store), expected);
  }
  EXPECT_EQ(contents(*place_->open()), expected);
}

TEST_P(StoreTest, KeepsTimesToLiveBesideTheText) {
  using std::chrono::milliseconds;
  auto const store = place_->open();
  auto const text = std::make_shared<std::string const>("{}");
  std::vector<std::optional<milliseconds>> const times{
      milliseconds(30'000), milliseconds(0), milliseconds::max(), std::nullopt, milliseconds(1)};
  for (std::size_t n = 0; n < times.size(); ++n) {
    commitOne(*store, {n + 1, {{"heartbeat/a", text, 1, times[n]}}});
    StoreModel const expected{{{"heartbeat/a", {"{}", 1, times[n] ? times[n]->count() : -1}}}, n + 1};
    EXPECT_EQ(contents(*store), expected) << "the revision of the document is that of its text";
  }
}

TEST_P(StoreTest, GivesDocumentsInByteOrderOfTheirPaths) {
  using namespace std::string_literals;
  std::vector<std::string> const ordered{
      ""s, "\0"s, "\0a"s, "A", "a", "a\0b"s, "a-b", "a/b", "aa", "\x7f", "\xc3\xa9", "\xff"};
  std::vector<std::string> shuffled = ordered;
  std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
  auto const store = place_->open();
  for (std::size_t n = 0; n < shuffled.size(); ++n) commitOne(*store, turnOf(n + 1, {shuffled[n]}, shuffled[n]));
  std::vector<std::string> order;
  for (auto const& [path, document] : contents(*store, &order).documents) EXPECT_EQ(std::get<0>(document), path);
  EXPECT_EQ(order, ordered);
}

TEST_P(StoreTest, KeepsTheGreatestRevisionAndBigTexts) {
  constexpr Revision kGreatest = ~Revision(0) >> 1;  // files count with a sign
  std::string big(5'000'000, 'x');
  for (std::size_t n = 0; n < big.size(); n += 997) big[n] = static_cast<char>(n);
  commitOne(*place_->open(), turnOf(kGreatest, {"a"}, big));
  EXPECT_TRUE(contents(*place_->open()) == (StoreModel{{{"a", {big, kGreatest, -1}}}, kGreatest}));
}

TEST_P(StoreTest, AnErrorOfTheVisitorEndsTheVisit) {
  auto const store = place_->open();
  commitOne(*store, turnOf(1, {"a", "b"}, "1"));
  EXPECT_THROW(store->load([](DocumentChange const&) { throw std::length_error("enough"); }), std::length_error);
  commitOne(*store, turnOf(2, {"a"}, "2"));
  EXPECT_EQ(contents(*store), (StoreModel{{{"a", {"2", 2, -1}}, {"b", {"1", 1, -1}}}, 2}));
}

TEST_P(StoreTest, AskingForRoomChangesNothing) {
  StoreModel const expected{{{"a", {"1", 1, -1}}}, 1};
  auto const store = place_->open();
  commitOne(*store, turnOf(1, {"a"}, "1"));
  for (int n = 0; n < 3; ++n) store->prepare();
  EXPECT_EQ(contents(*store), expected);
}

TEST_P(StoreTest, WithoutRoomKeepsAllOfTheTurnsOrNone) {
  auto store = place_->open();
  StoreModel model;
  Revision next = 1;
  auto const commit = [&](std::vector<CommittedTurn> const& turns) {
    store->commit(turns);
    model.commit(turns);
    next += turns.size();
  };
  commit({turnOf(1, {"a", "b", "c"}, "first")});
  for (int round = 0; round < 3; ++round) {
    place_->isFullIs(true);
    EXPECT_THROW(store->prepare(), StoreFull);
    // So much that some is written before the end of the turns, and some before the end of the room.
    std::vector<CommittedTurn> lost;
    for (Revision n = 0; n < 20; ++n)
      lost.push_back(turnOf(next + n, {"a", "lost/" + std::to_string(n)}, std::string(150'000, 'l')));
    lost.push_back({next + 20, {remove("b", next + 20)}});
    EXPECT_THROW(store->commit(lost), StoreFull);
    EXPECT_THROW(store->commit(lost), StoreFull) << "it stays so";
    EXPECT_EQ(contents(*store), model);
    EXPECT_THROW(store->prepare(), StoreFull);

    place_->isFullIs(false);
    store->prepare();
    if (round == 1) {
      store.reset();
      store = place_->open();
    }
    EXPECT_EQ(contents(*store), model);
    commit({turnOf(next, {"c"}, "then"), turnOf(next + 1, {"d"}, "there is room")});
    EXPECT_EQ(contents(*store), model);
  }
  store.reset();
  EXPECT_EQ(contents(*place_->open()), model);
}

TEST_P(StoreTest, HoldsWhatAModelHolds) {
  std::mt19937 random(7);
  auto const below = [&random](unsigned limit) {
    return std::uniform_int_distribution<unsigned>(0, limit - 1)(random);
  };
  auto store = place_->open();
  StoreModel model;
  for (int step = 0; step < 400; ++step) {
    std::vector<CommittedTurn> turns(below(4));
    for (std::size_t t = 0; t < turns.size(); ++t) {
      turns[t].revision = model.revision + t + 1;
      for (unsigned changes = below(5); changes > 0; --changes) {
        std::string path = "registration/" + std::to_string(below(40));
        if (below(3) == 0) {
          turns[t].changes.push_back(remove(std::move(path), turns[t].revision));
          continue;
        }
        std::size_t const size = below(10) == 0 ? 20'000 : 20;
        DocumentChange change =
            put(std::move(path), std::string(size, static_cast<char>('a' + below(26))), turns[t].revision);
        if (below(2) == 0) change.timeToLive.emplace(below(100'000));
        turns[t].changes.push_back(std::move(change));
      }
    }
    bool const isFull = below(10) == 0;
    if (isFull) place_->isFullIs(true);
    try {
      store->commit(turns);
      model.commit(turns);
    } catch (StoreFull const&) {
      EXPECT_TRUE(isFull);
    }
    if (isFull) place_->isFullIs(false);
    if (below(20) == 0) {
      store.reset();
      store = place_->open();
    }
    ASSERT_EQ(contents(*store), model) << "step " << step;
  }
  EXPECT_EQ(contents(*store), model);
  EXPECT_GT(model.revision, 200U);
}

TEST(MemoryStore, TellsTheOtherUsersWhatItCommits) {
  auto const memory = std::make_shared<Memory>();
  MemoryStore one(memory);
  MemoryStore silent(memory);
  auto two = std::make_unique<MemoryStore>(memory);
  std::vector<std::string> heard;
  StoreModel const expected{{{"a", {"1", 1, -1}}}, 1};
  one.foreignTurnsIs([&] { heard.emplace_back("one"); });
  two->foreignTurnsIs([&] {
    heard.emplace_back("two");
    EXPECT_EQ(contents(*two), expected) << "it is there already";
  });
  commitOne(one, turnOf(1, {"a"}, "1"));
  EXPECT_THAT(heard, ElementsAre("two")) << "nobody hears of what he did himself";
  one.prepare();
  one.commit({});
  memory->isFullIs(true);
  EXPECT_THROW(commitOne(one, turnOf(2, {"a"}, "2")), StoreFull);
  memory->isFullIs(false);
  EXPECT_THAT(heard, ElementsAre("two")) << "nothing was committed";
  heard.clear();
  commitOne(*two, turnOf(2, {"a"}, "2"));
  EXPECT_THAT(heard, ElementsAre("one"));
  two.reset();
  heard.clear();
  commitOne(one, turnOf(3, {"a"}, "3"));
  EXPECT_THAT(heard, ElementsAre()) << "who has gone hears nothing";
}

}  // namespace
}  // namespace Agent::StoreTest
