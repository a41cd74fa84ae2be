// The base of every framework object: flags, and what happens when the last reference goes.
#include "framework/core/ptr_interface.h"

#include "framework/core/ptr.h"
#include "framework/core/turn.h"
#include "framework/core/type.h"
#include "framework/memory/assertion.h"

namespace Nox {

constinit NoxType PtrInterface::ptrInterfaceType{"Nox::PtrInterface", nullptr};

void PtrInterface::hasNotificationActiveIs(bool on) { word_.flagIs(kNotificationActive, on); }
void PtrInterface::noxAuditErrors(unsigned /*level*/) const {}
void PtrInterface::auditErrors(unsigned /*level*/) const {}
void PtrInterface::isNondestructingIs(bool on) { isNondestructing_ = on ? 1 : 0; }
NoxType const& PtrInterface::fwkType() const { return ptrInterfaceType; }

void PtrInterface::zeroReferencesIs(bool zero) {
  if (!zero) return;
  startDying();
  delete this;
}

void PtrInterface::handleZeroRef() const noexcept {
  if (held_ != 0) return;
  Turn turn(Turn::Reports::kLater);
  const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
}

PtrInterface::~PtrInterface() {
  [[maybe_unused]] std::uint32_t const left = word_.value() & kCountMask;
  NOX_ASSERT(left == kDying || left == 1 || word_.isStatic(), "destroyed while still referenced");
  NOX_ASSERT(held_ == 0, "destroyed while still held");
}

String8 valueToStrepOfRawPtr(void const* p) { return p != nullptr ? format("%p", p) : String8("0x0"); }

void throwNullValidPtr() { throwRangeException("null ValidPtr"); }

}  // namespace Nox
