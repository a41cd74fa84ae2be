// Turns: what is written during a turn is delivered when it closes, in the order written.
#pragma once

#include <cstdint>
#include <exception>
#include <string_view>

#include "framework/core/fwd.h"
#include "framework/core/ptr_interface.h"
#include "framework/memory/export.h"

namespace Nox {

/// A key that waits in the queue, as its bytes: every key type fits into one word and may be moved by copying them.
struct KeySlot {
  alignas(8) unsigned char bytes[8];
};

/// What a change of one attribute calls: one operation of one notifiee interface. One constant per operation.
struct Notification {
  NoxType const* notifier;  ///< The class that declares the attribute.
  void (*call)(PtrInterface::NotifieeConst& reactor, void const* key);
  void (*dropKey)(void* key) noexcept;  ///< Destroys a key that has waited; null where there is nothing to destroy.
  std::uint64_t (*keyWord)(void const* key);  ///< The key as one word, null where reactors may not choose by it.
  std::string_view name;                      ///< The attribute's name, "enabled".
};

namespace detail {

/// What a thread's turns and its queue keep at hand.
struct TurnState {
  unsigned open = 0;        ///< How many turns are open.
  bool queueInUse = false;  ///< Whether the queue has anything to deliver or to report: an empty turn never touches it.
  /// How many changes wait for those that state their key. While there are any, a registration that ends is noted: its
  /// reactor may register again before they are delivered.
  unsigned changesByKeyWait = 0;
};
/// Named to the compiler as memory that is reached without a call, here and in the libraries above. So a host that
/// loads the libraries late needs room for it in what the loader keeps for such data, a few hundred bytes.
[[gnu::tls_model("initial-exec")]] extern NOX_EXPORT constinit thread_local TurnState turnState;
/// Closes the outermost turn, whose queue is in use.
NOX_EXPORT void closeOutermostTurn(bool reportsNow);

}  // namespace detail

/// A stretch of work. Every outside call opens one; turns nest, and when the outermost closes, also by an exception,
/// the waiting notifications are delivered, oldest first, until none is left. A handler that throws ends its own
/// delivery alone; the first exception is thrown on when the turn closes. What waits keeps its notifier and its key,
/// but no reactor: one whose last reference goes is destroyed there and then, and not called any more. One queue per
/// thread; all entity work belongs to one thread.
class NOX_EXPORT Turn {
 public:
  /// Whether a handler's exception leaves with this turn, or waits for the next turn that may throw: a turn that closes
  /// inside a destructor must not.
  enum class Reports { kNow, kLater };

  explicit Turn(Reports reports = Reports::kNow) noexcept
      : reports_(reports),
        uncaught_(detail::turnState.open++ == 0 && reports == Reports::kNow ? std::uncaught_exceptions() : 0) {}
  ~Turn() noexcept(false) {
    if (detail::turnState.open == 1 && detail::turnState.queueInUse)
      detail::closeOutermostTurn(reports_ == Reports::kNow && std::uncaught_exceptions() <= uncaught_);
    else
      --detail::turnState.open;
  }
  Turn(Turn const&) = delete;
  Turn& operator=(Turn const&) = delete;

  /// Whether a turn is open on this thread.
  static bool isOpen() noexcept { return detail::turnState.open != 0; }

 private:
  Reports reports_;
  int uncaught_;
};

/// Queues a change of `notifier` for the reactors that are registered with it now, in their order, and takes the key
/// over. Delivers at once, in a turn of its own, if none is open. A change whose key reactors may choose by is for
/// those alone, of the ones that state a key, that state this one when their turn comes.
NOX_EXPORT void queueNotification(Entity const& notifier, Notification const& what, KeySlot key);

namespace detail {

/// Destroys a reactor, which has lost its last reference while changes may wait for it.
void endWhileNamed(PtrInterface::NotifieeConst& reactor) noexcept;
/// Takes a reactor that is destroyed by other means off what waits.
void forgetReactor(PtrInterface::NotifieeConst const& reactor) noexcept;

}  // namespace detail

}  // namespace Nox
