// A store that does not answer as long as a test wants it, and a service on it.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "agent/server/tree_api.h"
#include "support/service_world.h"

namespace Agent {

/// A store in memory whose work stops at a gate.
class GatedStore final : public Store {
 public:
  explicit GatedStore(std::shared_ptr<Memory> memory) : store_(std::move(memory)) {}

  HistoryId history() const override { return store_.history(); }
  void prepare() override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isOpen_; });
    store_.prepare();
  }
  Revision load(std::function<void(DocumentChange const&)> const& visit) override { return store_.load(visit); }
  void commit(std::span<CommittedTurn const> turns) override {
    std::unique_lock lock(mutex_);
    isReached_ = true;
    changed_.wait(lock, [this] { return isOpen_; });
    isReached_ = false;
    ++commits_;
    store_.commit(turns);
  }
  void awakeIs(std::chrono::milliseconds) override {}
  void foreignTurnsIs(std::function<void()>) override {}

  void isOpenIs(bool isOpen) {
    std::scoped_lock const lock(mutex_);
    isOpen_ = isOpen;
    changed_.notify_all();
  }
  bool isReached() {
    std::scoped_lock const lock(mutex_);
    return isReached_;
  }
  int commits() {
    std::scoped_lock const lock(mutex_);
    return commits_;
  }

 private:
  MemoryStore store_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOpen_ = true;
  bool isReached_ = false;
  int commits_ = 0;
};

/// A service whose store has a thread of its own, and stops commits as long as it is told to.
class GatedWorld : public ::testing::Test {
 protected:
  ~GatedWorld() override { store.isOpenIs(true); }

  /// Runs the loop until `isDone`, which the store's thread may bring about; for a minute at most.
  template <class IsDone>
  void runUntil(IsDone const& isDone) {
    for (int i = 0; i < 60'000 && !isDone(); ++i) {
      loop.run();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  /// Runs the loop until a commit has been stopped.
  void awaitCommit() {
    runUntil([this] { return store.isReached(); });
    ASSERT_TRUE(store.isReached()) << "nothing was committed";
  }

  std::shared_ptr<Memory> memory = std::make_shared<Memory>();
  GatedStore store{memory};
  FakeLoop loop;
  EventLog log;
  Nox::Library library{libraryPath(std::nullopt)};
  Service service{loop, library, store, {.hasStoreThread = true}, log};
  TreeApi api{loop, service, {}};
};

}  // namespace Agent
