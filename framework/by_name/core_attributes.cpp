// The attributes of the core's own classes, which themselves know nothing of access by name.
#include "framework/by_name/attr_table.h"
#include "framework/core/entity.h"

namespace Nox {

/// The attributes of every entity: their numbers lie below those of a class's own.
static constexpr auto kEntityAttrs = attrTable(
    1, plain<&Entity::name>("name"), plain<&Entity::isNondestructing, &Entity::isNondestructingIs>("isNondestructing"),
    plain<static_cast<Ptr<Entity const> (Entity::*)() const>(&Entity::parent)>("parent"),
    plain<&Entity::parentAttr>("parentAttr"), plain<&Entity::parentAttrId>("parentAttrId"),
    plain<&Entity::uriPath>("uriPath"), plain<&Entity::fullName>("fullName"));
/// What every reactor answers by name: enough to walk a collection of reactors.
static constexpr auto kNotifieeAttrs = attrTable(1, plain<&PtrInterface::NotifieeConst::name>("name"),
                                                 plain<&PtrInterface::NotifieeConst::notifier>("notifier"));

/// Entered when the framework is loaded, before any object is reached by name.
[[maybe_unused]] static bool const areCoreAttributesEntered = [] {
  Entity::noxType.rowsIs(kEntityAttrs.view());
  PtrInterface::NotifieeConst::noxType.rowsIs(kNotifieeAttrs.view());
  return true;
}();

}  // namespace Nox
