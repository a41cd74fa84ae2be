// A store that ends with the program.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/store.h"

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

 private:
  friend MemoryStore;

  struct Document {
    DocumentText text;
    Revision revision = 0;
    std::optional<std::chrono::milliseconds> timeToLive;
  };

  std::map<std::string, Document> documents_;
  Revision revision_;
  bool isFull_ = false;
  std::vector<MemoryStore*> users_;
};

/// One user of a state in memory. What it commits the other users hear of before its `commit()` returns.
class MemoryStore final : public Store {
 public:
  explicit MemoryStore(std::shared_ptr<Memory> memory);
  ~MemoryStore() override;

  Revision load(std::function<void(DocumentChange const& document)> const& visit) override;
  void commit(std::span<CommittedTurn const> turns) override;
  void checkRoom() override;
  void foreignTurnsIs(std::function<void()> heard) override { heard_ = std::move(heard); }

 private:
  std::shared_ptr<Memory> memory_;
  std::function<void()> heard_;
};

}  // namespace Agent
