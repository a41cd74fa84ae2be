// The queue of waiting notifications, and its delivery when the outermost turn closes.
#include "framework/turn.h"

#include <exception>
#include <vector>

#include "framework/entity.h"
#include "framework/notifiee.h"

namespace Nox {

/// The changes that wait on one thread: each names the reactors that were registered when it was written.
class TurnQueue {
 public:
  void push(Entity const& notifier, Notification const& what, KeySlot key) {
    std::size_t const from = reactors_.size();
    for (auto* r = notifier.noxNotifiees().first(); r != nullptr; r = NotifieeList::next(*r)) {
      if (r->noxNotifierType() == nullptr || !r->noxNotifierType()->isA(*what.notifier)) continue;
      r->hold();
      reactors_.push_back(r);
    }
    if (reactors_.size() == from) {
      if (what.dropKey != nullptr) what.dropKey(&key);
      return;
    }
    notifier.hold();
    changes_.push_back({&notifier, &what, key, reactors_.size()});
  }

  /// Delivers until nothing waits. A handler may write, which appends here.
  void drain() noexcept {
    while (nextChange_ < changes_.size()) {
      Change change = changes_[nextChange_++];
      while (nextReactor_ < change.reactorsEnd) deliver(change, *reactors_[nextReactor_++]);
      if (change.what->dropKey != nullptr) change.what->dropKey(&change.key);
      change.notifier->unhold();
      compact();
    }
  }

  std::exception_ptr takeException() noexcept { return std::exchange(firstException_, nullptr); }

 private:
  struct Change {
    Entity const* notifier;  // held
    Notification const* what;
    KeySlot key;
    std::size_t reactorsEnd;  // where its part of `reactors_` ends; it starts where the previous change's ends
  };

  void deliver(Change const& change, PtrInterface::NotifieeConst& reactor) noexcept {
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
  void tell(PtrInterface::NotifieeConst& reactor) noexcept {
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
  std::vector<PtrInterface::NotifieeConst*> reactors_;  // held
  std::size_t nextChange_ = 0;
  std::size_t nextReactor_ = 0;
  std::exception_ptr firstException_;
};

static constinit thread_local unsigned openTurns = 0;

static TurnQueue& queue() {
  static thread_local TurnQueue q;
  return q;
}
/// Set while this thread's queue has anything to deliver or to report, so that an empty turn never touches it.
static constinit thread_local bool queueInUse = false;

Turn::Turn(Reports reports) noexcept
    : reports_(reports), uncaught_(reports == Reports::kNow ? std::uncaught_exceptions() : 0) {
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

void queueNotification(Entity const& notifier, Notification const& what, KeySlot key) {
  Turn turn;
  queueInUse = true;
  queue().push(notifier, what, key);
}

}  // namespace Nox
