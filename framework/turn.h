// Turns: what is written during a turn is delivered when it closes, in the order written.
#pragma once

#include <cstdint>
#include <string_view>

#include "framework/fwd.h"
#include "framework/ptr_interface.h"

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
  std::string_view name;                      ///< The operation's name, "onEnabled".
};

/// A stretch of work. Every outside call opens one; turns nest, and when the outermost closes, also by an exception,
/// the waiting notifications are delivered, oldest first, until none is left. A handler that throws ends its own
/// delivery alone; the first exception is thrown on when the turn closes. One queue per thread; all entity work belongs
/// to one thread.
class NOX_EXPORT Turn {
 public:
  /// Whether a handler's exception leaves with this turn, or waits for the next turn that may throw: a turn that closes
  /// inside a destructor must not.
  enum class Reports { kNow, kLater };

  explicit Turn(Reports reports = Reports::kNow) noexcept;
  ~Turn() noexcept(false);
  Turn(Turn const&) = delete;
  Turn& operator=(Turn const&) = delete;

  /// Whether a turn is open on this thread.
  static bool isOpen() noexcept;

 private:
  Reports reports_;
  int uncaught_;
};

/// Queues a change of `notifier` for the reactors that are registered with it now, in their order, and takes the key
/// over. Delivers at once, in a turn of its own, if none is open. A change whose key reactors may choose by is for
/// those alone, of the ones that state a key, that state this one when their turn comes.
NOX_EXPORT void queueNotification(Entity const& notifier, Notification const& what, KeySlot key);

namespace detail {

/// How many turns are open on this thread.
extern NOX_EXPORT constinit thread_local unsigned openTurns;

/// How many changes wait on this thread for those that state their key. While there are any, a registration that ends
/// is noted: its reactor may register again before they are delivered.
extern NOX_EXPORT constinit thread_local unsigned changesByKeyWait;
NOX_EXPORT void noteStay(PtrInterface::NotifieeConst const& reactor, std::uint64_t registeredAt) noexcept;
NOX_EXPORT void forgetStays(PtrInterface::NotifieeConst const& reactor) noexcept;

}  // namespace detail

}  // namespace Nox
