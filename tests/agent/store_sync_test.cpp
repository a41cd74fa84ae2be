// The state file on a disk whose syncs fail, and forget.
#include <gtest/gtest.h>

#include "support/moments.h"

namespace Agent::StoreSyncTest {
namespace {

using Test::CallKind;
using Test::FaultyDisk;
using Test::FileRole;
using Test::rounds;

// A start that fails is tried again; one that succeeds keeps all that is answered, like any other.
TEST(StoreSync, KeepsWhatIsAnsweredAfterAStartWhoseSyncsFailed) {
  FaultyDisk disk;
  Trials trials(disk);
  std::size_t nth = 0;
  for (bool hasFired = true; hasFired && !HasFailure(); ++nth) {
    SCOPED_TRACE(nth);
    disk.restoreTo({});
    disk.plan({.error = EIO, .call = CallKind::sync, .after = nth});
    Kept kept;
    std::unique_ptr<SqliteStore> store;
    for (int tries = 0; !store && tries < 2; ++tries) {
      try {
        store = openState(disk);
        store->prepare();
      } catch (StoreError const&) {
        store.reset();
      }
    }
    hasFired = disk.fired() > 0;
    disk.clearFaults();
    ASSERT_TRUE(store);
    std::vector<Moment> const moments = momentsOf(disk, kept, 1, [&] {
      for (Revision revision = 1; revision <= 2; ++revision) commit(*store, kept, {turnOf(revision, {"a"}, "small")});
    });
    disk.kill();
    store.reset();
    trials.tryAll(moments, rounds(1), 0);
  }
  EXPECT_GT(nth, 8U);
}

// A sync that fails forgets what it did not write, and the next one that succeeds does not write it either.
TEST(StoreSync, KeepsWhatItHoldsAfterASyncThatFailed) {
  FaultyDisk disk;
  Trials trials(disk);
  std::size_t fired = 0;
  for (FileRole const role : {FileRole::log, FileRole::main, FileRole::witness}) {
    for (std::size_t nth = 0; nth < 2; ++nth) {
      disk.restoreTo({});
      Kept kept;
      auto store = openState(disk);
      store->prepare();
      // The sync of the second commit, and one of those that follow.
      disk.plan({.error = EIO, .call = CallKind::sync, .role = FileRole::log, .after = 1});
      disk.plan(
          {.error = ENOSPC, .call = CallKind::sync, .role = role, .after = role == FileRole::log ? 1 + nth : nth});
      std::vector<Moment> const moments = momentsOf(disk, kept, 1, [&] {
        for (Revision revision = 1; revision <= 3; ++revision) {
          try {
            commit(*store, kept, {turnOf(revision, {"a", std::to_string(revision)}, std::string(6000, 'x'))});
          } catch (OutcomeUnknown const&) {
            ++fired;
            for (bool isReady = false; !isReady;) {
              try {
                store->prepare();
                isReady = true;
              } catch (StoreError const&) {
                ++fired;
              }
            }
            StoreModel found = contents(*store);
            EXPECT_TRUE(kept.allows(found));
            kept.settle(std::move(found));
          }
        }
      });
      disk.kill();
      store.reset();
      trials.tryAll(moments, rounds(1), 0);
    }
  }
  EXPECT_GE(fired, 10U);
}

}  // namespace
}  // namespace Agent::StoreSyncTest
