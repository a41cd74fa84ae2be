// How a reactor comes to its notifier and leaves it.
#include "framework/notifiee.h"

#include "framework/attr_table.h"
#include "framework/entity.h"

namespace Nox {

/// What every reactor answers by name: enough to walk a collection of reactors.
static constexpr auto kAttrs = attrTable(1, plain<&PtrInterface::NotifieeConst::name>("name"),
                                         plain<&PtrInterface::NotifieeConst::notifier>("notifier"));

constinit NoxType PtrInterface::NotifieeConst::noxType{
    "Nox::PtrInterface::NotifieeConst", nullptr, nullptr, kAttrs.view()};

ActivityConfig::~ActivityConfig() = default;

PtrInterface::NotifieeConst::NotifieeConst(bool flag) noexcept : flag_(flag) {
  PtrInterface::hasNotificationActiveIs(true);
}

PtrInterface::NotifieeConst::~NotifieeConst() {
  if (NotifieeList::isLinked(*this)) list_->noxNotifiees().remove(*this);
}

void PtrInterface::NotifieeConst::hasNotificationActiveIs(bool on) {
  if (on == hasNotificationActive()) return;
  PtrInterface::hasNotificationActiveIs(on);
  if (on) {
    if ((flags_ & kWasRegistered) != 0) isRegisteredNotifieeIs(true);
  } else {
    flags_ = isRegistered_ ? flags_ | kWasRegistered : flags_ & ~kWasRegistered;
    isRegisteredNotifieeIs(false);
  }
}

void PtrInterface::NotifieeConst::zeroReferencesIs(bool zero) {
  if (zero && NotifieeList::isLinked(*this)) list_->noxNotifiees().remove(*this);
  PtrInterface::zeroReferencesIs(zero);
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) const {
  isRegistered_ = registered;
  bool const linked = NotifieeList::isLinked(*this);
  if (registered && !linked && list_ != nullptr) list_->noxNotifiees().append(*this);
  if (!registered && linked) list_->noxNotifiees().remove(*this);
}

void PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  if (NotifieeList::isLinked(*this)) list_->noxNotifiees().remove(*this);
  Ptr<PtrInterface const> const old =
      std::exchange(notifier_, notifier);  // released last: it may take its own reactors along
  list_ = notifier && notifier->fwkType().isA(Entity::noxType) ? static_cast<Entity const*>(notifier.get()) : nullptr;
  if (isRegistered_ && list_ != nullptr) list_->noxNotifiees().append(*this);
}

bool PtrInterface::NotifieeConst::hears(Entity const* entity) const noexcept {
  return list_ == entity && isRegistered_ && hasNotificationActive() && !noxMarkedForDeletion();
}

void NotifieeList::append(PtrInterface::NotifieeConst const& n) noexcept {
  auto* const reactor = const_cast<PtrInterface::NotifieeConst*>(&n);
  if (first_ == nullptr) {
    first_ = reactor;
  } else {
    n.previous_ = first_->previous_;
    first_->previous_->next_ = reactor;
  }
  first_->previous_ = reactor;
  n.next_ = nullptr;
}

void NotifieeList::remove(PtrInterface::NotifieeConst const& n) noexcept {
  if (n.next_ != nullptr)
    n.next_->previous_ = n.previous_;
  else
    first_->previous_ = n.previous_;  // the last one goes: the first remembers the one before it
  if (first_ == &n)
    first_ = n.next_;
  else
    n.previous_->next_ = n.next_;
  n.next_ = n.previous_ = nullptr;
}

}  // namespace Nox
