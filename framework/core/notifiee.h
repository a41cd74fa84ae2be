// Reactors: objects that watch one notifier and are called when its attributes change.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>
#include <type_traits>

#include "framework/core/key_interest.h"
#include "framework/core/ptr.h"
#include "framework/core/turn.h"
#include "framework/core/type.h"
#include "framework/text/name.h"

namespace Nox {

/// The activity under which an agent runs handlers: the agent derives its own, the framework only hands it on.
class NOX_EXPORT ActivityConfig : public PtrInterface {
 public:
  ~ActivityConfig() override;
};
/// Bits that a framework may keep at a reactor; they mean nothing here, and are not kept.
using Nox_BitSet = std::uint32_t;

/// Base of every reactor. Born active and registered; watches nothing until `notifierIs`. Only entities notify: another
/// notifier is held, and never calls.
class NOX_EXPORT PtrInterface::NotifieeConst : public PtrInterface {
 public:
  static NoxType noxType;

  explicit NotifieeConst(bool flag = false) noexcept;
  ~NotifieeConst() override;

  Ptr<PtrInterface const> const& notifier() const noexcept { return notifier_; }
  bool isRegisteredNotifiee() const noexcept { return stateHas(kRegistered); }
  /// The class whose changes this reactor's interface has operations for; null for the bare base.
  NoxType const* noxNotifierType() const noexcept { return notifierType_; }

  /// Switching off withdraws and remembers whether it was registered; switching on registers again if it was.
  void hasNotificationActiveIs(bool on) override;
  /// Withdraws before the destructors run: what they write must not wait for a reactor that is going. What waits for it
  /// is dropped; the queue keeps its memory meanwhile, and nothing else of it.
  void zeroReferencesIs(bool zero) override;

  NoxType const& fwkType() const override { return noxType; }

  // The virtual operations of a reactor, in slot order.

  virtual PtrInterface const* noxReactor() const { return this; }
  virtual PtrInterface const* noxRawReactor() const { return this; }
  virtual bool isStreamAdapter() const { return false; }
  /// Registers with the notifier, behind those already there, or withdraws. Without a notifier the flag alone changes.
  virtual void isRegisteredNotifieeIs(bool registered) const;
  virtual void nox_bitSetIs(Nox_BitSet /*bits*/) {}
  virtual Name name() const { return {}; }
  /// Points the reactor at another notifier, or at none. The registered flag stays.
  virtual void notifierIs(Ptr<PtrInterface const> const& notifier);
  virtual void handleNotification(ActivityConfig* /*activity*/) {}
  virtual void handleDefault(ActivityConfig* /*activity*/, AttributeId /*id*/, bool /*immediate*/) {}
  virtual void onAttribute(AttributeId /*id*/) {}
  virtual void onNotification() {}
  virtual void onCollectionNotification(String8 /*key*/) {}
  /// Called when a handler of this reactor has thrown.
  virtual void onNotificationException() {}
  virtual void onNotificationException(AttributeId /*id*/) {}
  virtual void handleNotificationException(AttributeId /*id*/) {}
  virtual void handleNotificationException() {}
  virtual void onZeroReferences() {}
  virtual ActivityConfig* activityPtr() const { return nullptr; }
  virtual ActivityConfig* noxFwkActivity() { return nullptr; }
  virtual ActivityConfig const* noxFwkActivity() const { return nullptr; }
  virtual PtrInterface* actsm() { return nullptr; }

 protected:
  /// Called by each interface's constructor: the last one, of the most derived interface, stands.
  void noxNotifierTypeIs(NoxType const& type) noexcept { notifierType_ = &type; }

 private:
  friend class KeyInterest;
  friend class detail::KeyedDelivery;
  friend class NotifieeList;
  friend class TurnQueue;

  /// Stands in for a reactor that has gone.
  explicit NotifieeConst(Dead tag) noexcept : PtrInterface(tag), state_(0) {}

  /// Makes it a reactor that is called for the changes under its key alone.
  void statesKey() noexcept;

  /// Whether its interface has the operation that the change calls.
  bool understands(Notification const& what) const noexcept {
    return notifierType_ != nullptr && notifierType_->isA(*what.notifier);
  }
  /// Whether it lets itself be called at all.
  bool isListening() const noexcept {
    return (noxWord() & (kNotificationActive | kMarkedForDeletion)) == kNotificationActive;
  }
  /// Whether a change of `entity` that waited for this reactor may still be delivered.
  bool hears(Entity const* entity) const noexcept;
  /// The notifier, if it is an entity: where this reactor registers.
  Entity const* list() const noexcept;

  // Bits of `state_`, below the place in the order of registrations, which rises from one to the next.
  static constexpr std::uint64_t kRegistered = 1;
  static constexpr std::uint64_t kStatesKey = 2;
  static constexpr std::uint64_t kWatchesEntity = 4;
  static constexpr std::uint64_t kWasRegistered = 8;  // when notification was switched off
  static constexpr std::uint64_t kIsNamed = 16;       // in the queue, since that was last empty; stays set behind it
  static constexpr unsigned kOrderShift = 5;

  bool stateHas(std::uint64_t bit) const noexcept { return (state_ & bit) != 0; }
  void stateBitIs(std::uint64_t bit, bool on) const noexcept { state_ = on ? state_ | bit : state_ & ~bit; }
  std::uint64_t order() const noexcept { return state_ >> kOrderShift; }
  void orderIs(std::uint64_t order) const noexcept {
    state_ = order << kOrderShift | (state_ & ((1U << kOrderShift) - 1));
  }

  // What deliveries and lists use comes first. The order and the bits are one word that is written as a whole: after a
  // write to a part of it, the processor would wait before it reads the whole.
  mutable NotifieeConst* next_ = nullptr;      // the last one's, if it states a key, is the first that does
  mutable NotifieeConst* previous_ = nullptr;  // the first one's is the last one
  mutable std::uint64_t state_;
  NoxType const* notifierType_ = nullptr;
  Ptr<PtrInterface const> notifier_;
};

/// A reactor that may change what it watches.
class NOX_EXPORT PtrInterface::Notifiee : public PtrInterface::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  Ptr<PtrInterface> notifier() const {
    return Ptr<PtrInterface>(const_cast<PtrInterface*>(NotifieeConst::notifier().get()));
  }
};

/// The reactors registered with one entity: intrusive, so that coming and going cost the same whatever their number.
/// First those that are called for every change, then those that state a key; each part in the order of registration.
class NOX_EXPORT NotifieeList {
 public:
  bool empty() const noexcept { return first_ == nullptr; }
  PtrInterface::NotifieeConst* first() const noexcept { return first_; }
  /// The first of those that state a key, or null.
  PtrInterface::NotifieeConst* firstKeyed() const noexcept {
    return first_ != nullptr && statesKey(*first_->previous_) ? first_->previous_->next_ : nullptr;
  }
  static PtrInterface::NotifieeConst* next(PtrInterface::NotifieeConst const& n) noexcept {
    return statesKey(n) && n.next_->order() <= n.order() ? nullptr : n.next_;
  }
  /// Calls `f(reactor)` for the reactors in the order of their registrations: for all, or for those that state no key.
  template <class F>
  void forEach(bool forAll, F const& f) const;
  static bool isLinked(PtrInterface::NotifieeConst const& n) noexcept { return n.previous_ != nullptr; }
  /// Rises with every registration and withdrawal.
  static std::uint64_t clock() noexcept;
  void append(PtrInterface::NotifieeConst const& n) noexcept;
  void remove(PtrInterface::NotifieeConst const& n) noexcept;

 private:
  static bool statesKey(PtrInterface::NotifieeConst const& n) noexcept {
    return n.stateHas(PtrInterface::NotifieeConst::kStatesKey);
  }

  PtrInterface::NotifieeConst* first_ = nullptr;
};

template <class F>
void NotifieeList::forEach(bool forAll, F const& f) const {
  PtrInterface::NotifieeConst* const firstWithKey = firstKeyed();
  PtrInterface::NotifieeConst* ordinary = first_;
  for (auto* keyed = forAll ? firstWithKey : nullptr; keyed != nullptr; keyed = next(*keyed)) {
    for (; ordinary != firstWithKey && ordinary->order() < keyed->order(); ordinary = ordinary->next_) f(*ordinary);
    f(*keyed);
  }
  for (; ordinary != firstWithKey; ordinary = ordinary->next_) f(*ordinary);
}

/// Base of the notifiee interface of class T: `Base` is the class that T derives from.
template <class T, class Base>
class NOX_EXPORT NotifieeOf : public Base::NotifieeConst {
 public:
  using Notifier = T;
  NotifieeOf() noexcept { this->noxNotifierTypeIs(T::noxType); }
};

namespace detail {

/// What stands behind "on" in the name of an operation: "Enabled" of onEnabled, cut out of this function's signature.
template <auto On>
constexpr std::string_view operationName() {
  std::string_view const signature = __PRETTY_FUNCTION__;
  std::size_t const from = signature.rfind("::on") + 4;
  return signature.substr(from, signature.find_first_of(";])", from) - from);
}
/// The attribute of which an operation tells: "enabled". A name that begins with capitals keeps them.
template <auto On>
inline constexpr auto attributeText = [] {
  constexpr std::string_view kName = operationName<On>();
  std::array<char, kName.size()> text{};
  std::ranges::copy(kName, text.begin());
  auto const isUpper = [](char c) { return 'A' <= c && c <= 'Z'; };
  if (isUpper(text[0]) && !(text.size() > 1 && isUpper(text[1]))) text[0] = static_cast<char>(text[0] - 'A' + 'a');
  return text;
}();

template <auto On>
struct Operation;
/// An operation without a key.
template <class N, void (N::*On)()>
struct Operation<On> {
  static constexpr NoxType const* notifier = &N::Notifier::noxType;
  static constexpr void (*dropKey)(void*) noexcept = nullptr;
  static constexpr std::uint64_t (*keyWord)(void const*) = nullptr;
  static void call(PtrInterface::NotifieeConst& reactor, void const* /*key*/) { (static_cast<N&>(reactor).*On)(); }
};
/// An operation with a key.
template <class N, class K, void (N::*On)(K)>
struct Operation<On> {
  using Key = std::remove_cvref_t<K>;
  static_assert(sizeof(Key) <= sizeof(KeySlot));
  static constexpr NoxType const* notifier = &N::Notifier::noxType;
  static void call(PtrInterface::NotifieeConst& reactor, void const* key) {
    (static_cast<N&>(reactor).*On)(*static_cast<Key const*>(key));
  }
  static void destroy(void* key) noexcept { static_cast<Key*>(key)->~Key(); }
  static constexpr void (*dropKey)(void*) noexcept = std::is_trivially_destructible_v<Key> ? nullptr : &destroy;
  static constexpr auto keyWord = [] {
    std::uint64_t (*read)(void const*) = nullptr;
    if constexpr (ChoosableKey<Key>) read = [](void const* key) { return static_cast<Key const*>(key)->keyWord(); };
    return read;
  }();
};

/// An operation that is told which member changed.
template <auto On>
concept KeyedOperation = requires {
  typename Operation<On>::Key;
};

}  // namespace detail

/// The constant that describes an operation of a notifiee interface.
template <auto On>
inline constexpr Notification notification{detail::Operation<On>::notifier,
                                           &detail::Operation<On>::call,
                                           detail::Operation<On>::dropKey,
                                           detail::Operation<On>::keyWord,
                                           {detail::attributeText<On>.data(), detail::attributeText<On>.size()}};

/// Chooses the keyed form among an operation's overloads: `keyed(&NotifieeConst::onService)` is onService(Nox::Name).
template <class N, class K>
consteval auto keyed(void (N::*on)(K)) {
  return on;
}
/// Chooses the form without a key.
template <class N>
consteval auto unkeyed(void (N::*on)()) {
  return on;
}

}  // namespace Nox
