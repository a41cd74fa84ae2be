// Reactors: registration with a notifier, withdrawal from it, and the end of a reactor.
#include "framework/core/notifiee.h"

#include "framework/core/entity.h"

namespace Nox {

constinit NoxType PtrInterface::NotifieeConst::noxType{"Nox::PtrInterface::NotifieeConst", &ptrInterfaceType};

ActivityConfig::~ActivityConfig() = default;

PtrInterface::NotifieeConst::NotifieeConst(bool /*flag*/) noexcept : PtrInterface(Active()), state_(kRegistered) {}

PtrInterface::NotifieeConst::~NotifieeConst() {
  if (NotifieeList::isLinked(*this)) list()->noxNotifiees().remove(*this);
  if (stateHas(kIsNamed) && detail::turnState.queueInUse) detail::forgetReactor(*this);
  if (detail::turnState.changesByKeyWait != 0) detail::KeyedDelivery::ofThread().forgetStays(*this);
}

void PtrInterface::NotifieeConst::statesKey() noexcept {
  bool const linked = NotifieeList::isLinked(*this);
  if (linked) list()->noxNotifiees().remove(*this);
  stateBitIs(kStatesKey, true);
  if (linked) list()->noxNotifiees().append(*this);
}

void PtrInterface::NotifieeConst::hasNotificationActiveIs(bool on) {
  if (on == hasNotificationActive()) return;
  PtrInterface::hasNotificationActiveIs(on);
  if (on) {
    if (stateHas(kWasRegistered)) isRegisteredNotifieeIs(true);
  } else {
    stateBitIs(kWasRegistered, stateHas(kRegistered));
    isRegisteredNotifieeIs(false);
  }
}

void PtrInterface::NotifieeConst::zeroReferencesIs(bool zero) {
  if (zero && NotifieeList::isLinked(*this)) list()->noxNotifiees().remove(*this);
  if (zero && stateHas(kIsNamed) && detail::turnState.queueInUse) return detail::endWhileNamed(*this);
  PtrInterface::zeroReferencesIs(zero);
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) const {
  stateBitIs(kRegistered, registered);
  bool const linked = NotifieeList::isLinked(*this);
  if (registered && !linked && stateHas(kWatchesEntity)) list()->noxNotifiees().append(*this);
  if (!registered && linked) list()->noxNotifiees().remove(*this);
}

void PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  if (NotifieeList::isLinked(*this)) list()->noxNotifiees().remove(*this);
  Ptr<PtrInterface const> const old =
      std::exchange(notifier_, notifier);  // released last: it may take its own reactors along
  stateBitIs(kWatchesEntity, notifier && notifier->fwkType().isA(Entity::noxType));
  if (stateHas(kRegistered) && stateHas(kWatchesEntity)) list()->noxNotifiees().append(*this);
}

static constinit std::uint64_t registrationClock = 0;

std::uint64_t NotifieeList::clock() noexcept { return registrationClock; }

void NotifieeList::append(PtrInterface::NotifieeConst const& n) noexcept {
  auto* const reactor = const_cast<PtrInterface::NotifieeConst*>(&n);
  reactor->orderIs(++registrationClock);
  auto* const keyed = firstKeyed();
  bool const isKeyed = statesKey(n);
  if (isKeyed)
    reactor->next_ = keyed != nullptr ? keyed : reactor;
  else
    reactor->next_ = keyed;
  if (first_ == nullptr) {
    first_ = reactor->previous_ = reactor;
    return;
  }
  bool const isBeforeKeyed = keyed != nullptr && !isKeyed;
  auto& before = isBeforeKeyed ? keyed->previous_ : first_->previous_;
  reactor->previous_ = std::exchange(before, reactor);
  if (isBeforeKeyed && keyed == first_)
    first_ = reactor;
  else
    reactor->previous_->next_ = reactor;
}

void NotifieeList::remove(PtrInterface::NotifieeConst const& n) noexcept {
  ++registrationClock;
  if (detail::turnState.changesByKeyWait != 0) detail::KeyedDelivery::ofThread().noteStay(n);
  auto* const last = first_->previous_;
  auto* const after = next(n);
  if (statesKey(n) && last->next_ == &n) last->next_ = n.next_;  // the first that states a key goes
  if (after != nullptr)
    after->previous_ = n.previous_;
  else
    first_->previous_ = n.previous_;  // the last one goes: the first remembers the one before it
  if (first_ == &n)
    first_ = after;
  else if (statesKey(*n.previous_) == statesKey(n))
    n.previous_->next_ = n.next_;
  else
    n.previous_->next_ = after;
  n.next_ = n.previous_ = nullptr;
}

}  // namespace Nox
