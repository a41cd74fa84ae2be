// Directories: what their mutators change and announce.
#include "framework/core/dir.h"

#include "framework/memory/assertion.h"

namespace Nox {

static Ptr<Entity> newDir(Name const& name) { return make<Dir>(name); }

constinit NoxType Dir::noxType{"Nox::Dir", &Entity::noxType, &newDir};
static TypeRegistration const registration(Dir::noxType);

Dir::~Dir() {
  for (Entry& e : entries_)
    if (e.entity_ && e.entity_->parent().get() == this) e.entity_->parentIs(nullptr);
}

Ptr<Dir::Entry> Dir::entry(Name const& name) const { return entries_.member(name); }

Ptr<Entity> Dir::entityRef(Name const& name) const {
  Entry const* e = entries_.find(name);
  return e != nullptr ? e->entity_ : nullptr;
}

Ptr<Entity> Dir::entityPtr(Name const& name) const {
  NoxEntityPtr const* p = entityPtrs_.find(name);
  return p != nullptr ? p->value() : nullptr;
}

Dir::EntryIterator Dir::entryIterator() const { return EntryIterator(entries_); }
Dir::EntityPtrIteratorConst Dir::entityPtrIteratorConst() const { return EntityPtrIteratorConst(entityPtrs_); }

void Dir::entryIs(Name const& name) {
  bool const isNew = !entries_.has(name);
  observeWrite<keyed(&NotifieeConst::onEntry)>(*this, isNew, name, std::string_view("{}"));
  if (!isNew) return;
  Turn turn;
  entries_.newMember(make<Entry>(name));
  announce<keyed(&NotifieeConst::onEntryState)>(name);
  announce<keyed(&NotifieeConst::onEntry)>(name);
}

void Dir::entityRefIs(Name const& name, ValidPtr<Entity> const& entity) {
  Entry* e = entries_.find(name);
  NOX_ASSERT(e != nullptr, "an entry is made before it refers to an entity");
  observeWrite<keyed(&NotifieeConst::onEntityRef)>(*this, e->entity_ != entity, name, entity);
  if (e->entity_ == entity) return;
  Ptr<Entity> const old = std::exchange(e->entity_, entity);
  if (old && old->parent().get() == this) old->parentIs(nullptr);
  if (!entity->parent()) entity->parentIs(Ptr<Entity>(this));
  announce<keyed(&NotifieeConst::onEntityRef)>(name);
}

void Dir::entityPtrIs(Name const& name, Ptr<Entity> const& entity) {
  NoxEntityPtr* p = entityPtrs_.find(name);
  bool const changed = p == nullptr || p->value() != entity;
  observeWrite<keyed(&NotifieeConst::onEntityPtr)>(*this, changed, name, entity);
  if (!changed) return;
  Ptr<Entity> const old = p != nullptr ? p->value() : nullptr;  // the name may be its own
  if (p != nullptr)
    p->valueIs(entity);
  else
    entityPtrs_.newMember(make<NoxEntityPtr>(name, entity));
  announce<keyed(&NotifieeConst::onEntityPtr)>(name);
}

ValidPtr<Entity> Dir::newEntity(Name const& name, std::string_view typeName) {
  NoxType const* const type = typeNamed(typeName);
  if (type == nullptr || type->newEntity == nullptr)
    throwRangeException(
        format("%.*s is not a type that can be made by name", static_cast<int>(typeName.size()), typeName.data()));
  if (Ptr<Entity> const present = entityRef(name)) {
    if (!entityPtr(name)) entityPtrIs(name, present);
    return present;
  }
  ValidPtr<Entity> child = type->newEntity(name);
  entityIs(name, child);
  return child;
}

void Dir::entityIs(Name const& name, ValidPtr<Entity> const& entity) {
  Turn turn;
  Ptr<Entity> const old = entityRef(name);  // the name may be its own
  entryIs(name);
  entityRefIs(name, entity);
  entityPtrIs(name, entity);
}

void Dir::entityPtrDel(Name const& name) {
  Ptr<NoxEntityPtr> const removed = entityPtrs_.memberDel(name);
  observeRemoval<keyed(&NotifieeConst::onEntityPtr)>(*this, static_cast<bool>(removed), name);
  if (removed) announce<keyed(&NotifieeConst::onEntityPtr)>(name);
}

void Dir::entityRefDel(Name const& name) {
  Entry* e = entries_.find(name);
  bool const changed = e != nullptr && e->entity_;
  observeRemoval<keyed(&NotifieeConst::onEntityRef)>(*this, changed, name);
  if (!changed) return;
  Turn turn;
  Ptr<Entity> const old = std::exchange(e->entity_, nullptr);
  if (old->parent().get() == this) old->parentIs(nullptr);
  announce<keyed(&NotifieeConst::onEntityRef)>(name);
}

void Dir::entryDel(Name const& name) {
  Turn turn;
  Ptr<Entity> const old = entityRef(name);  // the name may be its own
  entityRefDel(name);
  Ptr<Entry> const removed = entries_.deleteMember(EntryStateIterator(*this, name));
  observeRemoval<keyed(&NotifieeConst::onEntry)>(*this, static_cast<bool>(removed), name);
  if (removed) announce<keyed(&NotifieeConst::onEntry)>(name);
}

void Dir::entityDel(Name const& name) {
  Turn turn;
  Ptr<NoxEntityPtr> const first = entityPtrs_.member(name);  // the name may be its own, or its entity's
  entityPtrDel(name);
  entryDel(name);
}

void Dir::EntryStateIterator::deleteNotify(Ptr<Dir::Entry> const& entry) const {
  dir_.announce<keyed(&NotifieeConst::onEntryState)>(entry->name());
}

}  // namespace Nox
