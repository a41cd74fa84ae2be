// The state file under a load at random, on a disk that fails, and through ends of the process and the machine.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>

#include "support/rounds.h"
#include "support/store_disk.h"

namespace Agent::StoreFaultTest {
namespace {

using Test::CallKind;
using Test::Effect;
using Test::Fault;
using Test::FaultyDisk;
using Test::FileRole;
using Test::firstSeed;
using Test::repeats;
using Test::rounds;

/// A way in which a disk fails. What is asked for often is let pass more often.
struct Kind {
  char const* name;
  Fault fault;
  unsigned often;
};

std::vector<Kind> const& kinds() {
  static std::vector<Kind> const kinds{
      {"no room", {.error = ENOSPC}, 600},
      {"no quota", {.error = EDQUOT, .call = CallKind::write}, 600},
      {"failed write", {.error = EIO, .call = CallKind::write}, 600},
      {"short write", {.effect = Effect::shorten, .error = EIO}, 600},
      {"short write, no room", {.effect = Effect::shorten, .error = ENOSPC}, 600},
      {"failed sync", {.error = EIO, .call = CallKind::sync}, 20},
      {"sync without room", {.error = ENOSPC, .call = CallKind::sync}, 20},
      {"failed truncation", {.error = EIO, .call = CallKind::truncate}, 2},
      {"failed read", {.error = EIO, .call = CallKind::read}, 60},
      {"forbidden read", {.error = EACCES, .call = CallKind::read}, 60},
      {"failed opening", {.error = EIO, .call = CallKind::open}, 3},
      {"failed creation", {.error = EIO, .call = CallKind::create}, 2},
      {"failed removal", {.error = EIO, .call = CallKind::remove}, 2},
      {"unknown size", {.error = EIO, .call = CallKind::size}, 10},
      {"failed look", {.error = EIO, .call = CallKind::access}, 8},
      {"slow call", {.effect = Effect::slow}, 1000},
  };
  return kinds;
}

/// What happened over all rounds.
struct Tally {
  std::map<std::string, int> fired;
  int kills = 0, cuts = 0, starts = 0, commits = 0, unknown = 0, refusedCommits = 0, checkpoints = 0;
  /// Starts that were refused after a power cut took what a failed sync had not written: see `isForgotten_`.
  int forgotten = 0;
};

/// Agents one after the other on one disk, each until its end.
class History {
 public:
  History(std::uint32_t seed, Tally& tally) : random_(seed), tally_(tally) {}

  /// One agent, from its start to its end. False if it cannot go on.
  bool live() {
    kind_ = random_() % 4 != 0 ? &kinds()[random_() % kinds().size()] : nullptr;
    plan();
    if (auto const store = start()) work(*store);
    note();
    bool const isCut = isCut_ && disk_.isDown();
    if (disk_.isDown()) ++(isCut ? tally_.cuts : tally_.kills);
    // What a sync that failed has forgotten can be read until the power is lost.
    isForgotten_ = isForgotten_ || hasSyncFailed_;
    hasSyncFailed_ = false;
    disk_.clearFaults();
    disk_.restart();
    checkSlow();
    if (testing::Test::HasFailure()) return false;
    if (!isForgotten_ || !isCut) return true;
    try {
      FaultyDisk other;
      other.restoreTo(disk_.snapshot());
      EXPECT_TRUE(kept_.allows(contents(*openState(other)))) << "something else is served";
      return true;
    } catch (StoreError const&) {
      ++tally_.forgotten;
      return false;
    }
  }

 private:
  std::size_t below(std::size_t bound) { return random_() % bound; }

  void plan() {
    if (kind_) {
      Fault fault = kind_->fault;
      fault.after = below(below(3) == 0 ? kind_->often : kind_->often / 8 + 1);
      fault.persists = fault.effect != Effect::slow && below(3) == 0;
      if (below(2) == 0 && (!fault.call || *fault.call <= CallKind::sync))
        fault.role = std::array{FileRole::main, FileRole::log, FileRole::witness}[below(3)];
      if (fault.effect == Effect::slow) fault.run = [this] { slow_.emplace_back(disk_.snapshot(), kept_); };
      disk_.plan(fault);
    }
    isCut_ = below(2) == 0;
    if (below(8) == 0) return;
    std::size_t const after = below(below(3) == 0 ? 3000 : below(2) == 0 ? 600 : 120);
    if (isCut_)
      disk_.powerCut(random_(), after);
    else
      disk_.kill(after);
  }

  /// Whether the fault has harmed a call.
  bool hasFired() const { return kind_ && disk_.fired() > (disk_.isDown() ? 1U : 0U); }
  void note() {
    if (!hasFired()) return;
    ++tally_.fired[kind_->name];
    hasSyncFailed_ = hasSyncFailed_ || kind_->fault.call == CallKind::sync;
  }
  /// The disk works again; the end comes another time.
  void mend() {
    note();
    disk_.clearFaults();
    kind_ = nullptr;
    plan();
    // A disk that has forgotten something keeps its power until all is written anew.
    if (hasSyncFailed_ && isCut_) {
      isCut_ = false;
      disk_.clearFaults();
      disk_.kill(below(600));
    }
  }
  /// After a failure: it came from the disk, which works again some time.
  void blame(StoreError const& error) {
    expectOneLine(error.what());
    if (disk_.isDown()) return;
    EXPECT_TRUE(hasFired()) << error.what();
    if (!hasFired() || below(3) == 0) mend();
  }

  /// An agent that is ready for turns; null if it has ended before.
  std::unique_ptr<SqliteStore> start() {
    while (!disk_.isDown() && !testing::Test::HasFailure()) {
      try {
        ++tally_.starts;
        auto store = openState(disk_);
        EXPECT_TRUE(kept_.allows(contents(*store))) << "after a start";
        settle(*store);
        isForgotten_ = false;
        hasSyncFailed_ = false;
        return store;
      } catch (StoreError const& error) {
        blame(error);
      }
    }
    return nullptr;
  }

  /// Makes the store ready, whatever it takes, and finds out what it holds; or the process ends.
  void settle(SqliteStore& store) {
    for (;;) {
      try {
        store.prepare();
        StoreModel found = contents(store);
        EXPECT_TRUE(kept_.allows(found)) << "after it was made ready\n" << found << "\nnot\n" << kept_.sure;
        kept_.settle(std::move(found));
        return;
      } catch (StoreError const& error) {
        blame(error);
        if (disk_.isDown() || testing::Test::HasFailure()) throw;
      }
    }
  }

  void work(SqliteStore& store) {
    TurnMaker maker(random_);
    std::size_t const calls = disk_.calls().size();
    for (std::size_t left = 1 + below(120); left > 0 && !testing::Test::HasFailure(); --left) {
      try {
        store.awakeIs(std::chrono::milliseconds(1000 / left));
        kept_.perhaps = maker.next(kept_.sure.revision);
        if (commit(store)) continue;
        if (disk_.isDown()) break;
        settle(store);
        hasSyncFailed_ = false;
      } catch (StoreError const&) {
        break;
      }
    }
    tally_.checkpoints += static_cast<int>(std::count(disk_.calls().begin() + static_cast<std::ptrdiff_t>(calls),
                                                      disk_.calls().end(),
                                                      Test::Call{CallKind::sync, FileRole::main}));
  }

  bool commit(SqliteStore& store) {
    try {
      store.commit(kept_.perhaps);
      kept_.sure.commit(kept_.perhaps);
      kept_.perhaps.clear();
      ++tally_.commits;
      return true;
    } catch (OutcomeUnknown const& error) {
      ++tally_.unknown;
      blame(error);
    } catch (StoreError const& error) {
      // Nothing of it is kept, if there is a process that says so.
      ++tally_.refusedCommits;
      if (!disk_.isDown()) kept_.perhaps.clear();
      blame(error);
    }
    return false;
  }

  /// What a process would find that began when a call took long, had its predecessor ended there.
  void checkSlow() {
    for (auto const& [files, kept] : slow_) {
      FaultyDisk other;
      other.restoreTo(files);
      EXPECT_TRUE(kept.allows(contents(*openState(other)))) << "had it ended in the slow call";
    }
    slow_.clear();
  }

  std::mt19937 random_;
  Tally& tally_;
  FaultyDisk disk_;
  Kept kept_;
  /// The way in which the disk fails in this life, if it does.
  Kind const* kind_ = nullptr;
  bool isCut_ = false;
  /// A sync has failed since the store was last ready.
  bool hasSyncFailed_ = false;
  /// The process ended when a sync had failed, and no store has been ready since. What that sync should have written
  /// can be read and is not on the disk, and nothing tells a later process: a loss of power now may make the state one
  /// that is refused.
  bool isForgotten_ = false;
  std::vector<std::pair<FaultyDisk::Snapshot, Kept>> slow_;
};

TEST(StoreFault, KeepsItsPromisesUnderFaultsAndEnds) {
  Tally tally;
  std::uint32_t const first = firstSeed();
  for (std::uint32_t seed = first; seed < first + rounds(32) && !HasFailure(); ++seed) {
    SCOPED_TRACE(repeats(seed));
    History history(seed, tally);
    for (int lives = 0; lives < 12 && history.live();) ++lives;
  }
  for (Kind const& kind : kinds()) {
    RecordProperty(kind.name, tally.fired[kind.name]);
    EXPECT_GE(tally.fired[kind.name], static_cast<int>(rounds(2))) << kind.name;
  }
  std::ostringstream text;
  text << tally.starts << " starts, " << tally.kills << " kills, " << tally.cuts << " cuts, " << tally.commits
       << " commits, " << tally.unknown << " unknown, " << tally.refusedCommits << " refused, " << tally.checkpoints
       << " synchronised into the file, " << tally.forgotten << " forgotten";
  RecordProperty("load", text.str());
  int const many = static_cast<int>(rounds(6));
  EXPECT_GT(std::min({tally.starts / 40, tally.kills / 12, tally.cuts / 12, tally.commits / 500}), many) << text.str();
  EXPECT_GT(std::min({tally.unknown / 8, tally.refusedCommits, tally.checkpoints}), many) << text.str();
}

}  // namespace
}  // namespace Agent::StoreFaultTest
