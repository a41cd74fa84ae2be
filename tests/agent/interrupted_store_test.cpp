// What ends of the process and of the disk's room do to a state file.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <thread>

#include "support/program.h"
#include "support/state_files.h"
#include "support/store_model.h"

namespace Agent::InterruptedStoreTest {
namespace {

using Test::allBytes;
using Test::Child;
using Test::opened;
using Test::refusal;
using Test::turnNumber;

TEST(InterruptedStore, HoldsEveryAnsweredTurnAfterAKill) {
  Folder folder;
  std::string const file = folder / "state";
  StoreModel model;
  Revision answered = 0;
  for (int round = 0; round < 12; ++round) {
    Child child([&](Child::Send const& send) {
      SqliteStore store(file);
      store.prepare();
      for (Revision revision = contents(store).revision + 1;;) {
        // One by one, and several together.
        std::vector<CommittedTurn> turns;
        for (Revision n = 0; n < 1 + revision % 4; ++n) turns.push_back(turnNumber(revision + n));
        store.commit(turns);
        revision += turns.size();
        send(revision - 1);
      }
    });
    for (int n = 0; n < 1 + round * round; ++n) {
      std::optional<Revision> const number = child.receive();
      ASSERT_TRUE(number);
      answered = *number;
    }
    child.kill();
    while (std::optional<Revision> const number = child.receive()) answered = *number;

    SqliteStore store(file);
    StoreModel const found = contents(store);
    EXPECT_GE(found.revision, answered);
    while (model.revision < found.revision) {
      CommittedTurn const turn = turnNumber(model.revision + 1);
      model.commit(std::span(&turn, 1));
    }
    ASSERT_EQ(found, model) << "round " << round;
  }
}

TEST(InterruptedStore, IsMadeAgainIfItsMakingWasInterrupted) {
  std::mt19937 random(5);
  for (int round = 0; round < 40; ++round) {
    Folder folder;
    std::string const file = folder / "state";
    Child child([&](Child::Send const& send) {
      send(0);
      SqliteStore const store(file);
    });
    ASSERT_TRUE(child.receive());
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
    child.kill();
    ASSERT_EQ(refusal(file), "") << testing::PrintToString(allBytes(folder));
    SqliteStore store(file);
    store.prepare();
    commitOne(store, turnOf(1, {"a"}, "1"));
    EXPECT_EQ(contents(store), (StoreModel{{{"a", {"1", 1, -1}}}, 1}));
  }
}

TEST(InterruptedStore, LivesThroughADiskThatIsReallyFull) {
  Folder folder;
  std::string const volume = folder / "volume";
  std::filesystem::create_directory(volume);
  constexpr int kNoVolume = 77;
  // The volume is seen by the other process alone and ends with it.
  Child child([&](Child::Send const&) {
    if (::unshare(CLONE_NEWNS) != 0) ::_exit(kNoVolume);
    ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    if (::mount("none", volume.c_str(), "tmpfs", 0, "size=1m") != 0) ::_exit(kNoVolume);
    StoreModel model;
    auto store = opened(volume + "/state");
    auto const check = [&](bool holds, int status) {
      if (!holds || contents(*store) != model) ::_exit(status);
    };
    for (int round = 0; round < 3; ++round) {
      std::ofstream(volume + "/ballast") << std::string(500'000, 'x') << std::flush;
      bool isFull = false;
      while (!isFull) {
        std::vector<CommittedTurn> turns;
        for (Revision n = 1; n <= 3; ++n)
          turns.push_back(turnOf(model.revision + n, {std::to_string(n)}, std::string(7'000, 'y')));
        try {
          store->commit(turns);
          model.commit(turns);
        } catch (StoreFull const&) {
          isFull = true;
        }
        check(true, 10);
      }
      try {
        store->prepare();
        check(false, 11);
      } catch (StoreFull const&) {
        check(true, 12);
      }
      std::filesystem::remove(volume + "/ballast");
      store->prepare();
      CommittedTurn const turn = turnOf(model.revision + 1, {"a"}, "b");
      commitOne(*store, turn);
      model.commit(std::span(&turn, 1));
      check(true, 13);
      store.reset();
      store = opened(volume + "/state");
      check(true, 14);
    }
    // A file that cannot be made at all.
    std::ofstream(volume + "/ballast") << std::string(2'000'000, 'x') << std::flush;
    try {
      SqliteStore const other(volume + "/other");
      ::_exit(15);
    } catch (StoreFull const&) {
    }
  });
  int const status = child.wait();
  if (status == kNoVolume) GTEST_SKIP() << "this process may not make a volume";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace Agent::InterruptedStoreTest
