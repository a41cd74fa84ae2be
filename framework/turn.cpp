// The queue of waiting notifications, and its delivery when the outermost turn closes.
#include "framework/turn.h"

#include <algorithm>
#include <exception>
#include <unordered_map>
#include <vector>

#include "framework/entity.h"
#include "framework/notifiee.h"

namespace Nox {

constinit thread_local unsigned detail::changesByKeyWait = 0;

/// The changes that wait on one thread. Each names the reactors that were registered when it was written, except those
/// that state a key if it has one: they are looked up when it is delivered, as they may state another one by then.
class TurnQueue {
 public:
  using Reactor = PtrInterface::NotifieeConst;

  void push(Entity const& notifier, Notification const& what, KeySlot key) {
    std::size_t const from = reactors_.size();
    NotifieeList const& list = notifier.noxNotifiees();
    Reactor* const firstKeyed = list.firstKeyed();
    bool const byKey = firstKeyed != nullptr && what.keyWord != nullptr;
    Reactor* ordinary = list.first();
    Reactor* keyed = byKey ? nullptr : firstKeyed;
    while (ordinary != firstKeyed || keyed != nullptr) {
      bool const isOrdinary = keyed == nullptr || (ordinary != firstKeyed && ordinary->order_ < keyed->order_);
      Reactor*& next = isOrdinary ? ordinary : keyed;
      if (understands(*next, what)) {
        next->hold();
        reactors_.push_back(next);
      }
      next = NotifieeList::next(*next);
    }
    if (reactors_.size() == from && !byKey) {
      if (what.dropKey != nullptr) what.dropKey(&key);
      return;
    }
    if (byKey) ++detail::changesByKeyWait;
    notifier.hold();
    changes_.push_back({&notifier, &what, key, reactors_.size(), byKey ? NotifieeList::clock() : kForNamed});
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
        if (--detail::changesByKeyWait == 0 && !stays_.empty()) stays_.clear();
      }
      if (change.what->dropKey != nullptr) change.what->dropKey(&change.key);
      change.notifier->unhold();
      compact();
    }
  }

  std::exception_ptr takeException() noexcept { return std::exchange(firstException_, nullptr); }

  void noteStay(Reactor const& reactor, std::uint64_t from) {
    stays_[&reactor].push_back({reactor.list_, from, NotifieeList::clock()});
  }
  void forgetStays(Reactor const& reactor) noexcept { stays_.erase(&reactor); }

 private:
  struct Change {
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
  /// A held reactor that is to be called, and its place in the order.
  struct Due {
    std::uint64_t place;
    Reactor* reactor;
    friend bool operator<(Due const& a, Due const& b) noexcept { return a.place < b.place; }
  };

  /// Whether the reactor's interface has the operation.
  static bool understands(Reactor const& r, Notification const& what) noexcept {
    return r.noxNotifierType() != nullptr && r.noxNotifierType()->isA(*what.notifier);
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
      r.hold();
      due_.push_back(due);
    };
    if (goesToAll_) {
      for (Reactor* r = change.notifier->noxNotifiees().firstKeyed(); r != nullptr; r = NotifieeList::next(*r)) add(*r);
      for (auto const& [r, stays] : stays_)  // they may register again before their turn comes
        if (r->statesKey_ != 0 && !(r->list_ == change.notifier && NotifieeList::isLinked(*r)))
          add(const_cast<Reactor&>(*r));
    } else {
      KeyInterest::forEach(change.what->keyWord(&change.key), add);
    }
    if (due_.size() != sorted) std::sort(due_.begin() + static_cast<std::ptrdiff_t>(served), due_.end());
  }
  /// The reactor's place among those that were registered when the change was written; 0 if it was not, or has left for
  /// good.
  std::uint64_t placeOf(Reactor const& r, Change const& change) const noexcept {
    if (r.list_ == change.notifier && NotifieeList::isLinked(r) && r.order_ <= change.writtenAt) return r.order_;
    if (stays_.empty()) return 0;
    auto const at = stays_.find(&r);
    if (at != stays_.end())
      for (Stay const& stay : at->second)
        if (stay.notifier == change.notifier && stay.from <= change.writtenAt && change.writtenAt < stay.until)
          return stay.from;
    return 0;
  }

  void deliver(Change const& change, Reactor& reactor) noexcept {
    if (reactor.hears(change.notifier)) {
      try {
        change.what->call(reactor, &change.key);
      } catch (...) {
        if (!firstException_) firstException_ = std::current_exception();
        tell(reactor);
      }
    }
    reactor.unhold();
  }
  void tell(Reactor& reactor) noexcept {
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
    } else if (nextChange_ > kCompactAt && nextChange_ > changes_.size() / 2) {
      changes_.erase(changes_.begin(), changes_.begin() + static_cast<std::ptrdiff_t>(nextChange_));
      reactors_.erase(reactors_.begin(), reactors_.begin() + static_cast<std::ptrdiff_t>(nextReactor_));
      for (Change& c : changes_) c.reactorsEnd -= nextReactor_;
      nextChange_ = nextReactor_ = 0;
    }
  }

  static constexpr std::size_t kCompactAt = 1024;

  std::vector<Change> changes_;
  std::vector<Reactor*> reactors_;  // held
  std::size_t nextChange_ = 0;
  std::size_t nextReactor_ = 0;
  std::vector<Due> due_;                                         // of the change that is being delivered by key
  std::uint64_t generation_ = 0;                                 // of the interests when `due_` was filled
  bool goesToAll_ = false;                                       // what was answered then
  std::unordered_map<Reactor const*, std::vector<Stay>> stays_;  // while changes by key wait
  std::exception_ptr firstException_;
};

constinit thread_local unsigned detail::openTurns = 0;
using detail::openTurns;

static TurnQueue& queue() {
  static thread_local TurnQueue q;
  return q;
}
/// Set while this thread's queue has anything to deliver or to report, so that an empty turn never touches it.
static constinit thread_local bool queueInUse = false;

Turn::Turn(Reports reports) noexcept
    : reports_(reports), uncaught_(openTurns == 0 && reports == Reports::kNow ? std::uncaught_exceptions() : 0) {
  ++openTurns;
}

Turn::~Turn() noexcept(false) {
  if (openTurns > 1 || !queueInUse) {
    --openTurns;
    return;
  }
  TurnQueue& waiting = queue();
  waiting.drain();
  --openTurns;
  if (reports_ == Reports::kLater || std::uncaught_exceptions() > uncaught_) return;
  queueInUse = false;
  if (std::exception_ptr const first = waiting.takeException()) std::rethrow_exception(first);
}

bool Turn::isOpen() noexcept { return openTurns != 0; }

void detail::noteStay(PtrInterface::NotifieeConst const& reactor, std::uint64_t registeredAt) noexcept {
  queue().noteStay(reactor, registeredAt);
}

void detail::forgetStays(PtrInterface::NotifieeConst const& reactor) noexcept { queue().forgetStays(reactor); }

void queueNotification(Entity const& notifier, Notification const& what, KeySlot key) {
  Turn turn;
  queueInUse = true;
  queue().push(notifier, what, key);
}

}  // namespace Nox
