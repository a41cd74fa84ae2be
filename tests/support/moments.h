// All moments at which a process can end: what was on the disk before each of its calls, and what had been answered.
#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/rounds.h"
#include "support/store_disk.h"

namespace Agent {

/// A disk as an end of the process leaves it before one call.
struct Moment {
  Test::FaultyDisk::Snapshot files;
  Kept kept;
  /// The number of the call, and what it would have been.
  std::size_t number = 0;
  Test::Call call;
};

/// Runs a process on the disk, which says in `kept` what was answered, and gives the moment before each of its calls.
/// Of many reads and writes in a row only every `stride`th is taken.
inline std::vector<Moment> momentsOf(Test::FaultyDisk& disk, Kept const& kept, std::size_t stride,
                                     std::function<void()> const& process) {
  std::vector<Moment> moments;
  std::size_t number = 0;
  std::size_t moved = 0;
  auto const take = [&] {
    Test::Call const call = disk.calls().back();
    bool const isMove = call.kind == Test::CallKind::read || call.kind == Test::CallKind::write;
    moved = isMove ? moved + 1 : 0;
    if (moved % stride == 0) moments.push_back({disk.snapshot(), kept, number, call});
    ++number;
  };
  disk.plan({.effect = Test::Effect::slow, .persists = true, .run = take});
  process();
  disk.clearFaults();
  return moments;
}

inline void commit(Store& store, Kept& kept, std::vector<CommittedTurn> turns) {
  kept.perhaps = std::move(turns);
  store.commit(kept.perhaps);
  kept.sure.commit(kept.perhaps);
  kept.perhaps.clear();
}

/// Some commits, each with something that the one before had not.
inline void commitSome(Store& store, Kept& kept, Revision first) {
  std::string const large(9000, 'l');
  CommittedTurn removal{first + 2, {remove("b", first + 2), put("d", "d", first + 2)}};
  removal.changes.back().timeToLive.emplace(7000);
  commit(store, kept, {turnOf(first, {"a", "b"}, "small")});
  commit(store, kept, {turnOf(first + 1, {"c"}, large), removal});
  commit(store, kept, {turnOf(first + 3, {"a"}, large)});
}

/// A process that does all that an agent does, and closes the state.
inline void wholeLife(Test::FaultyDisk const& disk, Kept& kept) {
  auto const store = openState(disk);
  store->prepare();
  commitSome(*store, kept, kept.sure.revision + 1);
  store->awakeIs(std::chrono::seconds(3));
}

/// Tries what a state becomes when a process ends at a moment, or the power is lost there.
class Trials {
 public:
  explicit Trials(Test::FaultyDisk& disk) : disk_(disk) {}

  /// All starts so far that followed such an end.
  std::size_t starts() const { return starts_; }

  /// Each of the moments, with a kill and with so many power cuts. `second` of a hundred of them are followed by a
  /// start that ends in the same way, at some of its calls.
  void tryAll(std::vector<Moment> const& moments, std::size_t cuts, std::size_t second) {
    for (Moment const& moment : moments) {
      bool const isTwice = moment.number * 37 % 100 < second;
      for (std::size_t cut = 0; cut <= cuts && !testing::Test::HasFailure(); ++cut)
        end(moment, cut == 0 ? 0 : Test::firstSeed() + static_cast<std::uint32_t>(moment.number * 16 + cut), isTwice);
    }
  }

 private:
  /// A process that starts, must find what was answered, and be ready for more.
  void start(Kept& kept) {
    try {
      auto const store = openState(disk_);
      EXPECT_TRUE(kept.allows(contents(*store))) << contents(*store) << "\nnot\n" << kept.sure;
      store->prepare();
      StoreModel found = contents(*store);
      EXPECT_TRUE(kept.allows(found)) << found << "\nnot\n" << kept.sure;
      kept.settle(std::move(found));
      commit(*store, kept, {turnOf(kept.sure.revision + 1, {"of the start"}, "")});
    } catch (StoreError const& error) {
      ADD_FAILURE() << error.what();
    }
  }

  /// Ends the process, by a kill if `cut` is 0 and otherwise by a power cut with that seed, and starts another.
  void end(Moment const& moment, std::uint32_t cut, bool isTwice) {
    std::ostringstream text;
    text << (cut != 0 ? "power lost (seed " + std::to_string(cut) + ")" : "killed") << " before call " << moment.number
         << ", a " << moment.call;
    SCOPED_TRACE(text.str());
    disk_.restoreTo(moment.files);
    if (cut != 0) disk_.powerCut(cut);
    disk_.restart();
    ++starts_;
    Kept kept = moment.kept;
    if (!isTwice) return start(kept);
    std::vector<Moment> const moments = momentsOf(disk_, kept, 1, [&] { start(kept); });
    // Others for each first moment.
    for (std::size_t n = moment.number % 12; n < moments.size() && !testing::Test::HasFailure(); n += 12)
      end(moments[n], (moment.number + n) % 3 == 0 ? 0 : cut * 7 + static_cast<std::uint32_t>(n) + 1, false);
  }

  Test::FaultyDisk& disk_;
  std::size_t starts_ = 0;
};

}  // namespace Agent
