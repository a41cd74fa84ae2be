// What every state machine is made of: the reactors that call it, the slots that hold its inputs, the list of those
// inputs, the base class, and what its owner does with it.
#pragma once

#include <array>
#include <tuple>

#include "framework/core/collections.h"
#include "framework/core/entity.h"
#include "framework/core/type_name.h"

namespace Nox {

template <class R>
class Input;

/// A reactor nested in a state machine: watches one input of type `In` (const where the machine only reads it) and
/// calls the machine. A concrete reactor lists only the operations that its machine handles, each as `if (auto sm =
/// live()) sm->handleX();`.
template <class Sm, class In>
class Reactor : public In::NotifieeConst {
 public:
  using InputType = In;
  using Base = typename In::NotifieeConst;

  Reactor(Ptr<In> const& input, Sm* sm) : sm_(sm) {
    Base::notifierIs(input);
    this->isRegisteredNotifieeIs(true);
  }

  Ptr<In> input() const { return Ptr<In>(rawInput()); }
  /// The same, not counted.
  In* rawInput() const noexcept { return static_cast<In*>(const_cast<PtrInterface*>(this->notifier().get())); }

  /// Points the reactor at another input and, unless there is none, runs the machine's pass over it.
  void notifierIs(Ptr<PtrInterface const> const& notifier) override {
    Turn turn;
    Held<Reactor> const keep(this);  // the pass may let go of the machine, and that of its reactors
    Ptr<In const> const next = ptrCast<In const>(notifier);
    if (next == this->notifier()) return;
    Base::notifierIs(next);
    if (next)
      if (auto sm = live()) handleNotifier(*sm);
    this->isRegisteredNotifieeIs(true);
  }

  /// Makes the reactor a zombie, which nothing reaches any more, or brings it back.
  virtual void noxDoZombieReactors(bool zombie) {
    if (zombie == this->noxMarkedForDeletion()) return;
    if (this->notifier()) this->hasNotificationActiveIs(!zombie);
    if (Held<Sm> const sm(sm_); sm) handleZombie(*sm);
    this->noxMarkedForDeletionIs(zombie);
  }

 protected:
  /// The machine to call, held while its handler runs: null for a zombie and for a reactor whose machine has let go of
  /// it.
  Held<Sm> live() const noexcept { return Held<Sm>(this->noxMarkedForDeletion() ? nullptr : sm_); }
  Sm* sm() const noexcept { return sm_; }
  /// The body of the mutator that is named after the machine.
  void smIs(Sm* sm) noexcept { sm_ = sm; }

  /// Tells the machine that the zombie state is about to change.
  virtual void handleZombie(Sm& /*sm*/) {}
  /// The machine's pass over a new input; none unless the reactor says so.
  virtual void handleNotifier(Sm& /*sm*/) {}

 private:
  template <class Self>
  friend class StateMachine;
  template <class R>
  friend class Nox::Input;

  Sm* sm_;  // the machine owns the reactor, and clears this before it goes
};

/// A machine's slot for one input, which is held through its reactor `R`. A machine's mutators follow one of two
/// policies for another input: `replace` or `repoint`.
template <class R>
class Input {
 public:
  using In = typename R::InputType;

  Ptr<In> get() const { return Ptr<In>(raw()); }
  /// The input, kept alive without counting for as long as a handler reads it.
  Held<In> held() const noexcept { return Held<In>(raw()); }
  In* raw() const noexcept { return reactor_ ? reactor_->rawInput() : nullptr; }
  Ptr<R> const& reactor() const noexcept { return reactor_; }

  /// Sets the first reactor, at construction; none for a null input.
  template <class Sm>
  void start(Sm& sm, Ptr<In> const& input) {
    if (input) reactor_ = sm.template newReactor<R>(input);
  }
  /// Retires the reactor of another input and makes a fresh one, which runs no pass.
  template <class Sm>
  void replace(Sm& sm, Ptr<In> const& input) {
    if (get() == input) return;
    Turn turn;
    retire();
    start(sm, input);
  }
  /// Points the present reactor at the other input, which runs its pass; makes one if there is none.
  template <class Sm>
  void repoint(Sm& sm, Ptr<In> const& input) {
    Turn turn;
    if (reactor_)
      reactor_->notifierIs(input);
    else
      start(sm, input);
  }
  /// Makes the reactor a zombie that knows no machine, and releases it.
  void retire() {
    if (!reactor_) return;
    reactor_->noxDoZombieReactors(true);
    reactor_->smIs(nullptr);
    reactor_ = nullptr;
  }

 private:
  Ptr<R> reactor_;
};

namespace detail {

// A slot is an `Input`, or a field of the input's own type where the input is held and not watched.

template <class T>
T const& inputOf(T const& held) {
  return held;
}
template <class R>
Ptr<typename R::InputType> inputOf(Input<R> const& watched) {
  return watched.get();
}
template <auto Slot>
struct SlotInput;
template <class Sm, class T, T Sm::*Slot>
struct SlotInput<Slot> {
  using Type = std::remove_cvref_t<decltype(inputOf(std::declval<T const&>()))>;
};
template <auto Slot>
using InputOf = typename SlotInput<Slot>::Type;

template <class Sm, class T>
void startSlot(Sm& /*sm*/, T& held, T const& input) {
  held = input;
}
template <class Sm, class R>
void startSlot(Sm& sm, Input<R>& watched, Ptr<typename R::InputType> const& input) {
  watched.start(sm, input);
}

template <class T>
std::tuple<> ifWatched(T& /*held*/) {
  return {};
}
template <class R>
std::tuple<Input<R>&> ifWatched(Input<R>& watched) {
  return watched;
}

}  // namespace detail

/// The one list of what a machine is built from: its slots in the order of the constructor's arguments. A slot `x_`
/// holds the argument `x`. Construction, comparison, and the arguments by name read this list.
template <auto... Slot>
class Inputs {
 public:
  /// A function that takes every input and then `Last`.
  template <class Result, class... Last>
  using Function = Result(detail::InputOf<Slot> const&..., Last...);

  static constexpr std::array<std::string_view, sizeof...(Slot)> names{detail::spelledMember<Slot>()...};

  /// Fills the slots of a machine that is being constructed.
  template <class Sm>
  static void start(Sm& sm, detail::InputOf<Slot> const&... inputs) {
    (detail::startSlot(sm, sm.*Slot, inputs), ...);
  }
  /// What the slots hold now.
  template <class Sm>
  static std::tuple<detail::InputOf<Slot>...> values(Sm const& sm) {
    return {detail::inputOf(sm.*Slot)...};
  }
  /// The slots that have a reactor.
  template <class Sm>
  static auto watched(Sm& sm) {
    return std::tuple_cat(detail::ifWatched(sm.*Slot)...);
  }
};

// What a slot holds, one object at a time, each kept alive while `f` runs; `f` may remove any of them.
template <class R, class F>
void forEach(Input<R> const& slot, F f) {
  if (Ptr<R> const keep(slot.reactor().get()); keep) f(*keep);
}
template <class T, class F>
void forEach(Ptr<T> const& slot, F f) {
  if (Ptr<T> const keep(slot.get()); keep) f(*keep);
}
template <class V, class K, class F>
void forEach(HashMap<V, K> const& slot, F f) {
  for (typename HashMap<V, K>::IteratorConst at(slot); at; ++at) {
    Ptr<V> const keep = at.member();
    f(*keep);
  }
}

/// Base of a state machine. `Self` names its parts once, each in its order:
///   Inputs            what it is built from
///   auto reactors()   the slots that are switched on and off, made zombies, and orphaned at the end, if they are more
///                     than the watched inputs
///   auto childSms()   the machines that are switched on and off with it, if there are any
/// A machine starts switched off, with its reactors on.
template <class Self>
class StateMachine : public PtrInterface {
 public:
  static NoxType const& _fwkType() { return Self::noxType; }
  NoxType const& fwkType() const override { return Self::noxType; }

  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

  /// The activity under which the agent runs the machine's handlers; null where it has set none.
  Ptr<ActivityConfig> const& noxFwkActivity() const noexcept { return activity_; }
  void noxFwkActivityIs(Ptr<ActivityConfig> const& activity) { activity_ = activity; }

  void hasNotificationActiveIs(bool on) override {
    if (on == hasNotificationActive()) return;
    PtrInterface::hasNotificationActiveIs(on);
    forAll(self().reactors(), [on](auto& reactor) { reactor.hasNotificationActiveIs(on); });
    forAll(self().childSms(), [on](auto& sm) { sm.hasNotificationActiveIs(on); });
  }
  /// Makes the reactors zombies, or brings them back. Does not reach child machines.
  virtual void noxDoZombieReactors(bool zombie) {
    if (zombie == noxMarkedForDeletion()) return;
    forAll(self().reactors(), [zombie](auto& reactor) { reactor.noxDoZombieReactors(zombie); });
    noxMarkedForDeletionIs(zombie);
  }

  /// The inputs as they are now, which an owner compares before it keeps the machine.
  auto constructorArgs() const { return Self::Inputs::values(static_cast<Self const&>(*this)); }

 protected:
  auto reactors() { return Self::Inputs::watched(self()); }
  auto childSms() { return std::tuple<>(); }

  /// Makes a reactor on an input; it shares the machine's zombie state.
  template <class R>
  ValidPtr<R> newReactor(Ptr<typename R::InputType> const& input) {
    ValidPtr<R> reactor = make<R>(input, &self());
    reactor->noxDoZombieReactors(noxMarkedForDeletion());
    return reactor;
  }
  /// Clears every reactor's way back; part of each destructor.
  void orphanReactors() {
    forAll(self().reactors(), [](auto& reactor) { reactor.smIs(nullptr); });
  }

 private:
  template <class R>
  friend class Nox::Input;

  Self& self() noexcept { return static_cast<Self&>(*this); }
  template <class Slots, class F>
  static void forAll(Slots slots, F f) {
    std::apply([&](auto&... slot) { (forEach(slot, f), ...); }, slots);
  }

  Ptr<ActivityConfig> activity_;
  bool initialized_ = false;
};

/// The body of an instantiating mutator of a single state machine: keeps the one that holds these very arguments;
/// otherwise puts a new one in its place, and only releases the old one. Says whether the machine is new.
template <class Owner, class C, class... A>
bool instantiateSm(Owner& owner, Ptr<C>& field, ValidPtr<C> (Owner::*newSm)(A const&...), A const&... args) {
  if (field && field->constructorArgs() == std::tie(args...)) return false;
  field = (owner.*newSm)(args...);
  return true;
}

/// The same, for a machine that its owner switches on once it is in place.
template <class Owner, class C, class... A>
ValidPtr<C> instantiateSwitchedOn(Owner& owner, Ptr<C>& field, ValidPtr<C> (Owner::*newSm)(A const&...),
                                  A const&... args) {
  Turn turn;
  if (instantiateSm(owner, field, newSm, args...)) field->hasNotificationActiveIs(true);
  return field;
}

/// The body of the matching removal: takes the machine out and switches it off. Null if there was none.
template <class C>
Ptr<C> switchedOff(Ptr<C>& field) {
  Turn turn;
  Ptr<C> old = std::exchange(field, nullptr);
  if (old) old->hasNotificationActiveIs(false);
  return old;
}

/// The position through which an owner removes members of one of its collections; `Notify` is the owner's operation
/// that hears of each.
template <class Map, auto Notify>
class OwnedIterator;
template <class Map, class Owner, class K, class V, void (Owner::*Notify)(K, Ptr<V> const&)>
class OwnedIterator<Map, Notify> final : public Map::Iterator {
 public:
  OwnedIterator(Owner& owner, Map const& map) : Map::Iterator(map), owner_(owner) {}
  template <class Key>
  OwnedIterator(Owner& owner, Map const& map, Key const& key) : Map::Iterator(map, key), owner_(owner) {}
  void deleteNotify(Ptr<V> const& member) const override { (owner_.*Notify)(member->fwkKey(), member); }

 private:
  Owner& owner_;
};

/// Throws the name-in-use exception at the first constructor argument (pointers all) that differs from what the member
/// holds.
template <class... A>
void checkConstructorArgs(std::tuple<A...> const& held, std::tuple<A const&...> const& given,
                          std::array<std::string_view, sizeof...(A)> const& names) {
  auto check = [](auto const& was, auto const& is, std::string_view name) {
    if (was == is) return;
    throwNameInUseException(String8("Reinstantiating the pointer interface where constructor parameter attribute _") +
                            String8(name) + " has a different value of " + valueToStrepOfRawPtr(is.get()) +
                            " than the current value of " + valueToStrepOfRawPtr(was.get()) + " not allowed");
  };
  [&]<std::size_t... I>(std::index_sequence<I...>) { (check(std::get<I>(held), std::get<I>(given), names[I]), ...); }
  (std::index_sequence_for<A...>());
}

}  // namespace Nox
