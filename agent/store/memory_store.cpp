// Keeps documents in an ordered map that its users share.
#include "agent/store/memory_store.h"

#include <algorithm>
#include <utility>

namespace Agent {
namespace {

[[noreturn]] void failInDoubt() { throw OutcomeUnknown("memory: whether the turns are kept is unknown"); }

}  // namespace

MemoryStore::MemoryStore(std::shared_ptr<Memory> memory) : memory_(std::move(memory)) {
  memory_->users_.push_back(this);
}

MemoryStore::~MemoryStore() { std::erase(memory_->users_, this); }

Revision MemoryStore::load(std::function<void(DocumentChange const& document)> const& visit) {
  for (auto const& [path, document] : memory_->documents_)
    visit({path, document.text, document.revision, document.timeToLive, false, document.timeToLive});
  return memory_->revision_;
}

void MemoryStore::commit(std::span<CommittedTurn const> turns) {
  if (turns.empty()) return;
  prepare();
  Memory::Doubt const doubt = std::exchange(memory_->doubt_, Memory::Doubt::kNone);
  if (doubt == Memory::Doubt::kLost) failInDoubt();
  for (CommittedTurn const& turn : turns) {
    for (DocumentChange const& change : turn.changes) {
      if (change.text)
        memory_->documents_[change.path] = {change.text, change.revision, change.timeToLive};
      else
        memory_->documents_.erase(change.path);
    }
  }
  memory_->revision_ = turns.back().revision;
  for (MemoryStore const* user : memory_->users_) {
    if (user != this && user->heard_) user->heard_();
  }
  if (doubt == Memory::Doubt::kKept) failInDoubt();
}

void MemoryStore::prepare() {
  if (memory_->isFull_) throw StoreFull("memory: there is no room");
}

}  // namespace Agent
