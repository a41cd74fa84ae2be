// The queue of waiting notifications, and its delivery when the outermost turn closes.
#include "framework/core/turn.h"

#include <algorithm>
#include <exception>
#include <unordered_map>
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

/// The changes that wait on one thread. Each names the reactors that were registered when it was written, except those
/// that state a key if it has one: they are looked up when it is delivered, as they may state another one by then. A
/// reactor that goes is not looked for among those that are named: it leaves a dead one behind, which hears nothing.
class TurnQueue {
 public:
  using Reactor = PtrInterface::NotifieeConst;

  void push(Entity const& notifier, Notification const& what, KeySlot key) {
    std::size_t const from = reactors_.size();
    NotifieeList const& list = notifier.noxNotifiees();
    Reactor* const firstKeyed = list.firstKeyed();
    bool const byKey = firstKeyed != nullptr && what.keyWord != nullptr;
    if (byKey || firstKeyed == nullptr) {
      for (Reactor* r = list.first(); r != firstKeyed; r = r->next_) name(*r, what);
    } else {
      nameBothParts(list.first(), firstKeyed, what);
    }
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
        // A reactor that goes takes its stays along only while such changes wait.
        if (--turnState.changesByKeyWait == 0 && !stays_.empty()) stays_.clear();
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

  void noteStay(Reactor const& reactor, std::uint64_t from) {
    stays_[&reactor].push_back({reactor.list(), from, NotifieeList::clock()});
  }
  void forgetStays(Reactor const& reactor) noexcept { stays_.erase(&reactor); }

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
    for (Due& due : due_)
      if (due.reactor == &reactor) due.reactor = &dead;
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
  /// A registration that has ended: from its place in the order to the time of its end.
  struct Stay {
    Entity const* notifier;
    std::uint64_t from;
    std::uint64_t until;
  };
  /// A reactor that is to be called, and its place in the order.
  struct Due {
    std::uint64_t place;
    Reactor* reactor;
    friend bool operator<(Due const& a, Due const& b) noexcept { return a.place < b.place; }
  };

  /// The memory of a reactor that has gone, and the dead one in it.
  struct Grave {
    Reactor* dead;
    void* memory;
    std::size_t size;
  };

  static void drop(Notification const& what, KeySlot& key) noexcept {
    if (what.dropKey != nullptr) what.dropKey(&key);
  }
  /// Names the reactor as one that the change is for, if it is.
  void name(Reactor& reactor, Notification const& what) {
    if (!understands(reactor, what)) return;
    reactor.stateBitIs(Reactor::kIsNamed, true);
    reactors_.push_back(&reactor);
  }
  static bool understands(Reactor const& r, Notification const& what) noexcept {
    return r.noxNotifierType() != nullptr && r.noxNotifierType()->isA(*what.notifier);
  }

  /// Names those of a list's two parts, in the order of their registrations.
  void nameBothParts(Reactor* ordinary, Reactor* const firstKeyed, Notification const& what) {
    for (Reactor* keyed = firstKeyed; keyed != nullptr; keyed = NotifieeList::next(*keyed)) {
      for (; ordinary != firstKeyed && ordinary->order() < keyed->order(); ordinary = ordinary->next_)
        name(*ordinary, what);
      name(*keyed, what);
    }
    for (; ordinary != firstKeyed; ordinary = ordinary->next_) name(*ordinary, what);
  }

  /// Calls the named reactors and those that state the key, in the order of their registrations.
  void deliverByKey(Change const& change) noexcept {
    due_.clear();
    for (; nextReactor_ < change.reactorsEnd; ++nextReactor_)
      due_.push_back({placeOf(*reactors_[nextReactor_], change), reactors_[nextReactor_]});
    for (std::size_t i = 0;; ++i) {
      bool const goesToAll = IgnoredChangesShow::ofNotifier(change.notifier->fwkType());
      if (i == 0 || KeyInterest::generation() != generation_ || goesToAll != goesToAll_) {
        goesToAll_ = goesToAll;
        addInterested(change, i);
      }
      if (i == due_.size()) break;
      deliver(change, *due_[i].reactor);
    }
  }
  /// Adds those that state the change's key now and come behind the first `served` of `due_`.
  void addInterested(Change const& change, std::size_t served) {
    generation_ = KeyInterest::generation();
    std::size_t const sorted = due_.size();
    auto const add = [&](Reactor& r) {
      if (!understands(r, *change.what)) return;
      Due const due{placeOf(r, change), &r};
      if (due.place == 0 || (served != 0 && !(due_[served - 1] < due))) return;
      auto const middle = due_.begin() + static_cast<std::ptrdiff_t>(sorted);
      if (std::binary_search(due_.begin() + static_cast<std::ptrdiff_t>(served), middle, due)) return;
      r.stateBitIs(Reactor::kIsNamed, true);
      due_.push_back(due);
    };
    if (goesToAll_) {
      for (Reactor* r = change.notifier->noxNotifiees().firstKeyed(); r != nullptr; r = NotifieeList::next(*r)) add(*r);
      for (auto const& [r, stays] : stays_)  // they may register again before their turn comes
        if (r->stateHas(Reactor::kStatesKey) && !(r->list() == change.notifier && NotifieeList::isLinked(*r)))
          add(const_cast<Reactor&>(*r));
    } else {
      KeyInterest::forEach(change.what->keyWord(&change.key), add);
    }
    if (due_.size() != sorted) std::sort(due_.begin() + static_cast<std::ptrdiff_t>(served), due_.end());
  }
  /// The reactor's place among those that were registered when the change was written; 0 if it was not, or has left for
  /// good.
  std::uint64_t placeOf(Reactor const& r, Change const& change) const noexcept {
    if (r.list() == change.notifier && NotifieeList::isLinked(r) && r.order() <= change.writtenAt) return r.order();
    if (stays_.empty()) return 0;
    auto const at = stays_.find(&r);
    if (at != stays_.end())
      for (Stay const& stay : at->second)
        if (stay.notifier == change.notifier && stay.from <= change.writtenAt && change.writtenAt < stay.until)
          return stay.from;
    return 0;
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
      due_.clear();
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
  std::vector<Due> due_;                                         // of the change that is being delivered by key
  std::uint64_t generation_ = 0;                                 // of the interests when `due_` was filled
  bool goesToAll_ = false;                                       // what was answered then
  std::unordered_map<Reactor const*, std::vector<Stay>> stays_;  // while changes by key wait
  std::vector<Grave> graves_;                                    // until nothing waits
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

void detail::noteStay(PtrInterface::NotifieeConst const& reactor, std::uint64_t registeredAt) noexcept {
  queue().noteStay(reactor, registeredAt);
}

void detail::forgetStays(PtrInterface::NotifieeConst const& reactor) noexcept { queue().forgetStays(reactor); }

void detail::endWhileNamed(PtrInterface::NotifieeConst& reactor) noexcept { queue().endNamed(reactor); }

void detail::forgetReactor(PtrInterface::NotifieeConst const& reactor) noexcept { queue().forget(reactor); }

void queueNotification(Entity const& notifier, Notification const& what, KeySlot key) {
  Turn turn;
  turnState.queueInUse = true;
  queue().push(notifier, what, key);
}

}  // namespace Nox
