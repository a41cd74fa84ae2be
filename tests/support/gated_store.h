// A store that does not answer as long as a test wants it.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "agent/store/memory_store.h"

namespace Agent {

/// A store in memory whose commits stop at a gate.
class GatedStore final : public Store {
 public:
  explicit GatedStore(std::shared_ptr<Memory> memory) : store_(std::move(memory)) {}

  HistoryId history() const override { return store_.history(); }
  void prepare() override { store_.prepare(); }
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

}  // namespace Agent
