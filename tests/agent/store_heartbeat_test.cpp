// What is left of heartbeats at a start, after any end of the agent before it.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "support/rounds.h"
#include "support/store_disk.h"

namespace Agent::StoreHeartbeatTest {
namespace {

using std::chrono::milliseconds;
using Test::CallKind;
using Test::FaultyDisk;
using Test::FileRole;
using Test::firstSeed;
using Test::repeats;
using Test::rounds;

/// A heartbeat as a start finds it, and what has happened to it since.
struct Heartbeat {
  milliseconds all{0};
  milliseconds left{0};
  bool isPut = false;
};

/// Agents one after the other that put heartbeats, are awake, and end in every way.
class Beats {
 public:
  explicit Beats(std::uint32_t seed) : random_(seed) {}

  int kills = 0, cuts = 0, closes = 0, silences = 0, shortened = 0, prolonged = 0;

  void live() {
    told_ = tried_ = milliseconds(0);
    bool isChecked = false;
    bool isReady = false;
    isCut_ = random_() % 3 == 0;
    // At any call, or between two calls at the end.
    if (random_() % 3 == 0) disk_.plan(end(random_() % 300));
    try {
      auto const store = openState(disk_);
      check(*store);
      isChecked = true;
      store->prepare();
      isReady = true;
      work(*store);
      if (random_() % 4 != 0) disk_.plan(end(0));
    } catch (StoreError const& error) {
      EXPECT_TRUE(disk_.isDown()) << error.what();
    }
    ++(!disk_.isDown() ? closes : isCut_ ? cuts : kills);
    bool const isExact = !isSilent_ && !(disk_.isDown() && isCut_);
    isSilent_ = false;
    if (isChecked) {
      isExact_ = true;
      toldBefore_ = triedBefore_ = milliseconds(0);
    }
    isExact_ = isExact_ && isExact;
    toldBefore_ += told_;
    triedBefore_ += tried_;
    isNoted_ = isReady || (isNoted_ && !isChecked);
    disk_.clearFaults();
    disk_.restart();
  }

 private:
  Test::Fault end(std::size_t after) {
    return {.effect = isCut_ ? Test::Effect::powerCut : Test::Effect::kill,
            .after = after,
            .seed = static_cast<std::uint32_t>(random_())};
  }

  /// What a start finds, which may be the turn of which no answer came.
  void check(Store& store) {
    std::map<std::string, Heartbeat> found;
    Revision const revision = store.load([&](DocumentChange const& document) {
      EXPECT_EQ(document.left.has_value(), document.timeToLive.has_value()) << document.path;
      if (document.left) found[document.path] = {*document.timeToLive, *document.left, false};
    });
    if (perhaps_ && revision == perhaps_->revision) apply(*perhaps_);
    perhaps_.reset();
    EXPECT_EQ(revision, revision_);
    EXPECT_EQ(found.size(), known_.size());
    for (auto& [path, now] : found) {
      Heartbeat const& before = known_[path];
      EXPECT_EQ(now.all, before.all) << path;
      milliseconds const due = before.isPut ? before.all : std::max(before.left - triedBefore_, milliseconds(0));
      milliseconds most = before.isPut || !isNoted_ ? before.all : before.left;
      if (!before.isPut && isExact_) most = std::max(before.left - toldBefore_, milliseconds(0));
      EXPECT_GE(now.left, due) << path;
      EXPECT_LE(now.left, most) << path;
      if (now.left < now.all) ++shortened;
      if (now.left > due) ++prolonged;
    }
    known_ = found;
  }

  void work(Store& store) {
    bool const isIdle = random_() % 4 == 0;
    if (isIdle && random_() % 2 == 0) {
      // The witness hears nothing of how long the agent is awake.
      disk_.plan({.error = EIO, .call = CallKind::write, .role = FileRole::witness, .persists = true});
      isSilent_ = true;
      ++silences;
    }
    for (std::size_t n = random_() % 12; n > 0; --n) {
      tried_ += milliseconds(random_() % 800);
      store.awakeIs(tried_);
      if (disk_.isDown()) return;
      told_ = tried_;
      if (isIdle || random_() % 2 == 0) continue;
      Revision const revision = revision_ + 1;
      CommittedTurn turn{revision, {}};
      std::string const path = "heartbeat/" + std::to_string(random_() % 12);
      if (random_() % 6 == 0) {
        turn.changes.push_back(remove(path, revision));
      } else {
        turn.changes.push_back(put(path, "{}", revision));
        // Some never expire.
        if (random_() % 8 != 0) turn.changes.back().timeToLive.emplace(1 + random_() % 10'000);
      }
      perhaps_ = turn;
      commitOne(store, turn);
      apply(turn);
      perhaps_.reset();
    }
  }

  void apply(CommittedTurn const& turn) {
    revision_ = turn.revision;
    for (DocumentChange const& change : turn.changes) {
      known_.erase(change.path);
      if (change.timeToLive) known_[change.path] = {*change.timeToLive, *change.timeToLive, true};
    }
  }

  std::mt19937 random_;
  FaultyDisk disk_;
  Revision revision_ = 0;
  std::map<std::string, Heartbeat> known_;
  std::optional<CommittedTurn> perhaps_;
  /// For how long this agent has been awake, and for how long as the store has heard; and those since the last start
  /// that was checked.
  milliseconds tried_{0}, told_{0}, triedBefore_{0}, toldBefore_{0};
  bool isCut_ = false;
  bool isSilent_ = false;
  /// No end since that start has taken anything of what the store had heard.
  bool isExact_ = true;
  /// What that start found has been noted for good.
  bool isNoted_ = false;
};

TEST(StoreHeartbeat, HasNeverLessThanWhatIsDueAndNeverMoreThanItHad) {
  int kills = 0, cuts = 0, closes = 0, silences = 0, shortened = 0, prolonged = 0;
  for (std::uint32_t seed = firstSeed(); seed < firstSeed() + rounds(40) && !HasFailure(); ++seed) {
    SCOPED_TRACE(repeats(seed));
    Beats beats(seed);
    for (int n = 0; n < 12 && !HasFailure(); ++n) beats.live();
    kills += beats.kills;
    cuts += beats.cuts;
    closes += beats.closes;
    silences += beats.silences;
    shortened += beats.shortened;
    prolonged += beats.prolonged;
  }
  int const many = static_cast<int>(rounds(40));
  EXPECT_GT(std::min({kills, cuts, closes, silences, shortened, prolonged}), many / 2)
      << kills << " kills, " << cuts << " cuts, " << closes << " closes, " << silences << " silences, " << shortened
      << " shortened, " << prolonged << " prolonged";
}

}  // namespace
}  // namespace Agent::StoreHeartbeatTest
