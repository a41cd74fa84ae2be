// The queue of waiting notifications, and its delivery when the outermost turn closes.
#include "framework/core/turn.h"

#include <algorithm>
#include <exception>
#include <vector>

#include "framework/core/entity.h"
#include "framework/core/notifiee.h"

namespace Nox {

constinit thread_local detail::TurnState detail::turnState;
using detail::turnState;

inline bool PtrInterface::NotifieeConst::hears(Entity const* entity) const noexcept {
  std::uint64_t const both = kWatchesEntity | kRegistered;
  return notifier_.get() == entity && (state_ & both) == both && isListening();
}

/// The changes that wait on one thread. Each names the reactors that were registered when it was written; of those that
/// state a key, KeyedDelivery finds the ones that a change with a choosable key is for. A reactor that goes is not
/// looked for among those that are named: it leaves a dead one behind, which hears nothing.
class TurnQueue {
 public:
  using Reactor = PtrInterface::NotifieeConst;

  void push(Entity const& notifier, Notification const& what, KeySlot key) {
    std::size_t const from = reactors_.size();
    NotifieeList const& list = notifier.noxNotifiees();
    bool const byKey = what.keyWord != nullptr && list.firstKeyed() != nullptr;
    list.forEach(!byKey, [&](Reactor& reactor) {
      if (!reactor.understands(what)) return;
      reactor.stateBitIs(Reactor::kIsNamed, true);
      reactors_.push_back(&reactor);
    });
    if (reactors_.size() == from && !byKey) return drop(what, key);
    if (byKey) ++turnState.changesByKeyWait;
    notifier.hold();
    changes_.emplace_back(notifier, what, key, reactors_.size(), byKey ? NotifieeList::clock() : kForNamed);
  }

  /// Delivers until nothing waits. A handler may write, which appends here.
  void drain() noexcept {
    while (nextChange_ < changes_.size()) {
      Change change = changes_[nextChange_++];
      if (change.writtenAt == kForNamed) {
        while (nextReactor_ < change.reactorsEnd) deliver(change, *reactors_[nextReactor_++]);
      } else {
        deliverByKey(change);
      }
      drop(*change.what, change.key);
      change.notifier->unhold();
      compact();
    }
  }

  /// Throws the first exception that a handler has thrown, if there was one. Nothing waits any more.
  void report() {
    turnState.queueInUse = false;
    if (firstException_) std::rethrow_exception(std::exchange(firstException_, nullptr));
  }

  detail::KeyedDelivery& byKey() noexcept { return byKey_; }

  /// Destroys a reactor that may be named. Its memory stays until nothing waits, with a dead reactor in it: so nothing
  /// need be looked for here, and no other reactor can come to stand where this one was named.
  void endNamed(Reactor& reactor) {
    void* const memory = dynamic_cast<void*>(&reactor);
    std::size_t const size = changes_.empty() ? 0 : VFPtrInterface::sizeOfLive(memory);
    if (size == 0) {
      reactor.PtrInterface::zeroReferencesIs(true);
      return;
    }
    reactor.startDying();
    reactor.stateBitIs(Reactor::kIsNamed, false);
    reactor.~Reactor();
    graves_.push_back({::new (static_cast<void*>(&reactor)) Reactor(Reactor::Dead()), memory, size});
  }
  /// For a reactor whose memory is not ours to keep: a dead one takes its places.
  void forget(Reactor const& reactor) noexcept {
    static Reactor dead{Reactor::Dead()};
    std::replace(reactors_.begin(), reactors_.end(), const_cast<Reactor*>(&reactor), &dead);
    byKey_.replace(reactor, dead);
  }

 private:
  struct Change {
    Change(Entity const& n, Notification const& w, KeySlot k, std::size_t end, std::uint64_t at) noexcept
        : notifier(&n), what(&w), key(k), reactorsEnd(end), writtenAt(at) {}
    Entity const* notifier;  // held
    Notification const* what;
    KeySlot key;
    std::size_t reactorsEnd;  // where its part of `reactors_` ends; it starts where the previous change's ends
    std::uint64_t writtenAt;  // for a change by key: the registration clock at that time
  };
  static constexpr std::uint64_t kForNamed = ~std::uint64_t{0};
  /// The memory of a reactor that has gone, and the dead one in it.
  struct Grave {
    Reactor* dead;
    void* memory;
    std::size_t size;
  };

  static void drop(Notification const& what, KeySlot& key) noexcept {
    if (what.dropKey != nullptr) what.dropKey(&key);
  }
  /// Calls the named reactors and those that state the key, in the order of their registrations.
  void deliverByKey(Change const& change) noexcept {
    byKey_.begin(*change.notifier, *change.what, change.key, change.writtenAt);
    for (; nextReactor_ < change.reactorsEnd; ++nextReactor_) byKey_.add(*reactors_[nextReactor_]);
    while (Reactor* const reactor = byKey_.next()) deliver(change, *reactor);
    byKey_.end();
  }
  void deliver(Change const& change, Reactor& reactor) noexcept {
    if (!reactor.hears(change.notifier)) return;
    reactor.hold();  // for as long as its own handler runs
    try {
      change.what->call(reactor, &change.key);
    } catch (...) {
      keepException(reactor);
    }
    reactor.unhold();
    if (writeObserver_ != nullptr) writeObserver_->delivered();
  }
  /// Takes note of the exception that is being handled, and tells the reactor that has thrown it.
  void keepException(Reactor& reactor) noexcept {
    turnState.queueInUse = true;
    if (!firstException_) firstException_ = std::current_exception();
    try {
      reactor.onNotificationException();
    } catch (...) {  // the first exception is the one that is reported
    }
  }
  /// Forgets what has been delivered: all of it when nothing waits, or the first half of a queue that keeps growing.
  void compact() noexcept {
    if (nextChange_ == changes_.size()) {
      changes_.clear();
      reactors_.clear();
      nextChange_ = nextReactor_ = 0;
      if (!graves_.empty()) clearGraves();
    } else if (nextChange_ > kCompactAt && nextChange_ > changes_.size() / 2) {
      changes_.erase(changes_.begin(), changes_.begin() + static_cast<std::ptrdiff_t>(nextChange_));
      reactors_.erase(reactors_.begin(), reactors_.begin() + static_cast<std::ptrdiff_t>(nextReactor_));
      for (Change& c : changes_) c.reactorsEnd -= nextReactor_;
      nextChange_ = nextReactor_ = 0;
    }
  }

  void clearGraves() noexcept {
    for (Grave const& grave : graves_) {
      grave.dead->~Reactor();
      VFPtrInterface::operator delete(grave.memory, grave.size);
    }
    graves_.clear();
  }

  static constexpr std::size_t kCompactAt = 1024;

  std::vector<Change> changes_;
  std::vector<Reactor*> reactors_;  // alive, or dead in memory that is kept
  std::size_t nextChange_ = 0;
  std::size_t nextReactor_ = 0;
  detail::KeyedDelivery byKey_;
  std::vector<Grave> graves_;  // until nothing waits
  std::exception_ptr firstException_;
};

static TurnQueue& queue() {
  static thread_local TurnQueue q;
  return q;
}

void detail::closeOutermostTurn(bool reportsNow) {
  TurnQueue& waiting = queue();
  waiting.drain();
  --turnState.open;
  if (reportsNow) waiting.report();
}

detail::KeyedDelivery& detail::KeyedDelivery::ofThread() noexcept { return queue().byKey(); }

void detail::endWhileNamed(PtrInterface::NotifieeConst& reactor) noexcept { queue().endNamed(reactor); }

void detail::forgetReactor(PtrInterface::NotifieeConst const& reactor) noexcept { queue().forget(reactor); }

void queueNotification(Entity const& notifier, Notification const& what, KeySlot key) {
  Turn turn;
  turnState.queueInUse = true;
  queue().push(notifier, what, key);
}

}  // namespace Nox
