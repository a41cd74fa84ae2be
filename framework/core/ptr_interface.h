// The base of every framework object: a counted word, two flags, and the operations that all of them share.
#pragma once

#include "framework/core/fwd.h"
#include "framework/memory/counted_word.h"
#include "framework/memory/export.h"
#include "framework/memory/pool.h"

namespace Nox {

/// Base of entities, state machines, reactors and collection members. Counted: `Ptr` holds it, the last release
/// destroys it. A new object has one reference, which is its maker's; `make` hands that one to the pointer it returns.
class NOX_EXPORT PtrInterface : public VFPtrInterface {
 public:
  class NotifieeConst;
  class Notifiee;

  /// The description of this class: the base of every class's type that has no other. Not called as a class's own is,
  /// so that a class that forgets its own does not compile.
  static NoxType ptrInterfaceType;

  /// Bits of the word beside the count.
  static constexpr std::uint32_t kMarkedForDeletion = 0x80000000;
  static constexpr std::uint32_t kNotificationActive = 0x20000000;
  /// What is left of the word when the flags are taken out: zero of this decides destruction.
  static constexpr std::uint32_t kCountMask = 0x5FFFFFFF;
  static_assert(kCountMask == ~(kMarkedForDeletion | kNotificationActive));

  PtrInterface() noexcept = default;
  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  // The virtual operations, in slot order.

  /// Switches the notification-active flag.
  virtual void hasNotificationActiveIs(bool on);
  virtual void noxAuditErrors(unsigned level) const;
  virtual void auditErrors(unsigned level) const;
  virtual void isNondestructingIs(bool on);
  /// Called with true when the last reference has gone: destroys the object.
  virtual void zeroReferencesIs(bool zero);
  /// The description of the object's class.
  virtual NoxType const& fwkType() const;
  virtual ~PtrInterface();

  bool hasNotificationActive() const noexcept { return word_.has(kNotificationActive); }
  bool isNondestructing() const noexcept { return isNondestructing_; }
  /// Whether the object is a zombie: one that ignores notifications.
  bool noxMarkedForDeletion() const noexcept { return word_.has(kMarkedForDeletion); }
  void noxMarkedForDeletionIs(bool marked) const noexcept { word_.flagIs(kMarkedForDeletion, marked); }

  void reference() const noexcept { word_.reference(); }
  void release() const noexcept {
    if (word_.release(kCountMask)) handleZeroRef();
  }
  /// Called when the count reaches zero. Opens a turn, so that the destructors may still write.
  void handleZeroRef() const noexcept;

  /// Keeps the object from being destroyed without counting, while one of its handlers runs or a change of it waits.
  /// The event thread alone holds; `unhold` destroys what has lost its last reference meanwhile.
  void hold() const noexcept { ++held_; }
  void unhold() const noexcept {
    if (--held_ == 0 && (word_.value() & kCountMask) == 0) handleZeroRef();
  }

  /// Whether the object is being destroyed: no reference to it may be taken any more.
  bool isDying() const noexcept { return !word_.isStatic() && (word_.value() & kDying) != 0; }

  /// The whole word, for diagnosis.
  std::uint32_t noxWord() const noexcept { return word_.value(); }

 protected:
  struct Active {};
  /// An object that is born with the notification-active flag.
  explicit PtrInterface(Active /*tag*/) noexcept : word_(1 | kNotificationActive) {}
  struct Dead {};
  /// Stands in the memory of an object that has gone: no reference to it may be taken.
  explicit PtrInterface(Dead /*tag*/) noexcept : word_(kDying) {}
  /// From now on no reference may be taken: the object is about to be destroyed.
  void startDying() const noexcept { word_.reference(kDying); }
  struct Static {};
  /// An object that is never counted and never destroyed through its count.
  explicit PtrInterface(Static /*tag*/) noexcept : word_(CountedWord::kStatic) {}

 private:
  /// Added to the count of an object that is being destroyed: what its destructor counts cannot reach zero a second
  /// time.
  static constexpr std::uint32_t kDying = 0x08000000;

  mutable CountedWord word_;
  mutable std::uint32_t held_ : 31 = 0;
  std::uint32_t isNondestructing_ : 1 = 0;
};

/// Keeps an object alive for as long as a handler runs on it, without counting. Null holds nothing.
template <class T>
class Held {
 public:
  explicit Held(T* t) noexcept : t_(t) {
    if (t_ != nullptr) t_->hold();
  }
  Held(Held const&) = delete;
  Held& operator=(Held const&) = delete;
  ~Held() {
    if (t_ != nullptr) t_->unhold();
  }
  T* operator->() const noexcept { return t_; }
  T& operator*() const noexcept { return *t_; }
  T* get() const noexcept { return t_; }
  explicit operator bool() const noexcept { return t_ != nullptr; }

 private:
  T* t_;
};

}  // namespace Nox
