// The state file through an end of the process or the machine at every call, twice in a row.
#include <gtest/gtest.h>

#include "support/moments.h"

namespace Agent::StoreKillTest {
namespace {

using Test::FaultyDisk;
using Test::rounds;

TEST(StoreKill, KeepsWhatWasAnsweredFromTheFirstStartOn) {
  FaultyDisk disk;
  Trials trials(disk);
  Kept kept;
  std::vector<Moment> const moments = momentsOf(disk, kept, 1, [&] { wholeLife(disk, kept); });
  EXPECT_GT(moments.size(), 100U);
  trials.tryAll(moments, rounds(1), rounds(6));
  EXPECT_GT(trials.starts(), 400U);
}

TEST(StoreKill, KeepsWhatWasAnsweredWhenTheLogIsMovedIntoTheFile) {
  FaultyDisk disk;
  Trials trials(disk);
  Kept kept;
  wholeLife(disk, kept);
  CommittedTurn large{kept.sure.revision + 4, {}};
  for (int n = 0; n < 150; ++n)
    large.changes.push_back(put("large/" + std::to_string(n), std::string(30'000, 'x'), large.revision));
  std::size_t before = 0;
  // An end in the middle of a life in which the log was moved, and began again.
  std::vector<Moment> const moments = momentsOf(disk, kept, 1500, [&] {
    auto const store = openState(disk);
    store->prepare();
    commitSome(*store, kept, kept.sure.revision + 1);
    before = disk.bytes(kState).size();
    commit(*store, kept, {large});
    EXPECT_GT(disk.bytes(kState).size(), before + 4'000'000) << "the log has been moved";
    commit(*store, kept, {turnOf(kept.sure.revision + 1, {"large/7"}, "small now")});
  });
  trials.tryAll(moments, rounds(1), 0);
  EXPECT_GT(trials.starts(), 50U);
}

}  // namespace
}  // namespace Agent::StoreKillTest
