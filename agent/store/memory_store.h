// A store that ends with the program.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/store/store.h"

namespace Agent {

class MemoryStore;

/// A state in memory, empty at first. All its stores are used by one thread.
class Memory {
 public:
  /// `revision` is that of the last turn before the first: where revisions are remembered elsewhere, one that has not
  /// been given out before.
  explicit Memory(Revision revision = 0) : revision_(revision) {}

  /// As long as it is full, all commits to it throw a StoreFull.
  void isFullIs(bool isFull) noexcept { isFull_ = isFull; }
  /// The next commit ends with an OutcomeUnknown, and is kept or not.
  enum class Doubt { kNone, kKept, kLost };
  void doubtIs(Doubt doubt) noexcept { doubt_ = doubt; }

 private:
  friend MemoryStore;

  struct Document {
    DocumentText text;
    Revision revision = 0;
    std::optional<std::chrono::milliseconds> timeToLive;
  };

  std::map<std::string, Document> documents_;
  Revision revision_;
  HistoryId history_ = newHistoryId();
  bool isFull_ = false;
  Doubt doubt_ = Doubt::kNone;
  std::vector<MemoryStore*> users_;
};

/// One user of a state in memory. What it commits the other users hear of before its `commit()` returns.
class MemoryStore final : public Store {
 public:
  explicit MemoryStore(std::shared_ptr<Memory> memory);
  ~MemoryStore() override;

  HistoryId history() const override { return memory_->history_; }
  void prepare() override;
  Revision load(std::function<void(DocumentChange const& document)> const& visit) override;
  void commit(std::span<CommittedTurn const> turns) override;
  /// Heartbeats have a full time to live at every start: what is in memory ends with the program.
  void awakeIs(std::chrono::milliseconds /*time*/) override {}
  void foreignTurnsIs(std::function<void()> heard) override { heard_ = std::move(heard); }

 private:
  std::shared_ptr<Memory> memory_;
  std::function<void()> heard_;
};

}  // namespace Agent
