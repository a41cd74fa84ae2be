// Entities: parents, names, printing.
#include "framework/core/entity.h"

#include <limits>
#include <ostream>
#include <vector>

#include "framework/memory/assertion.h"

namespace Nox {

WriteObserver* writeObserver_ = nullptr;

static Ptr<Entity> newEntity(Name const& name) { return make<Entity>(name); }

constinit NoxType Entity::noxType{"Nox::Entity", &ptrInterfaceType, &newEntity};

void Entity::isNondestructingIs(bool on) {
  if (on == isNondestructing()) return;
  PtrInterface::isNondestructingIs(on);
  announce<&NotifieeConst::onIsNondestructing>();
}

void Entity::parentIs(Ptr<Entity> const& parent) {
  if (parent.get() == parent_) return;
  parent_ = parent.get();
  handleParent(parent);
  announce<&NotifieeConst::onParent>();
}

void Entity::parentAttrIdIs(AttributeId id) {
  NOX_ASSERT(id <= std::numeric_limits<std::uint16_t>::max(), "attribute id out of range");
  parentAttrId_ = static_cast<std::uint16_t>(id);
}

String8 Entity::parentAttr() const { return parent_ != nullptr ? parent_->attributeString(parentAttrId()) : String8(); }

String8 Entity::uriPath() const { return String8("/") + fullName(); }

String8 Entity::fullName() const {
  std::vector<Entity const*> path;
  for (Entity const* e = this; e != nullptr; e = e->parent_) path.push_back(e);
  String8 text(path.back()->name());
  for (std::size_t i = path.size() - 1; i-- > 0;) text = text + "/" + String8(path[i]->name());
  return text;
}

String8 Entity::attributeString(AttributeId id) const { return String8(fwkType().attributeName(id)); }
void Entity::noxNotifieeAdapterIs(Ptr<Entity const> const& /*adapter*/) {}
void Entity::handleParent(Ptr<Entity> const& /*parent*/) {}

std::ostream& operator<<(std::ostream& out, Entity const* entity) {
  if (entity == nullptr) return out << "null";
  return out << entity->fullName();
}

}  // namespace Nox
