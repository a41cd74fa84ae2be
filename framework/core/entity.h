// Entities: named objects with a parent, whose attributes notify.
#pragma once

#include <iosfwd>
#include <new>
#include <string>

#include "framework/core/notifiee.h"
#include "framework/core/ptr.h"
#include "framework/core/turn.h"
#include "framework/core/type.h"
#include "framework/core/write_observer.h"
#include "framework/text/name.h"

namespace Nox {

/// A named framework object. Its parent is a plain link, not a reference: a parent that is destroyed clears it in the
/// children that live on.
class NOX_EXPORT Entity : public PtrInterface {
 public:
  class NotifieeConst;
  static NoxType noxType;
  static NoxType const& _fwkType() { return noxType; }
  NoxType const& fwkType() const override { return noxType; }

  explicit Entity(Name name = {}) noexcept : name_(std::move(name)) {}

  void isNondestructingIs(bool on) override;

  // The virtual operations of an entity, in slot order.

  virtual Name name() const { return name_; }
  virtual Ptr<Entity const> parent() const { return Ptr<Entity const>(parent_); }
  virtual Ptr<Entity> parent() { return Ptr<Entity>(parent_); }
  /// Sets the link to the parent, which is not counted, and announces it. The collections (ChildMap, Child, Dir) clear
  /// it in a child that is removed or stays behind; outside them, the code that has set it clears it before the parent
  /// goes.
  virtual void parentIs(Ptr<Entity> const& parent);
  /// The name of the attribute under which the parent holds this entity; empty without a parent.
  virtual String8 parentAttr() const;
  virtual AttributeId parentAttrId() const { return parentAttrId_; }
  virtual void parentAttrIdIs(AttributeId id);
  /// The full name behind a slash.
  virtual String8 uriPath() const;
  /// The names from the topmost parent down to this entity, joined by slashes.
  virtual String8 fullName() const;
  /// The name of an attribute by its id, of the class or of one that it derives from; empty for any other id.
  virtual String8 attributeString(AttributeId id) const;
  virtual void noxNotifieeAdapterIs(Ptr<Entity const> const& adapter);
  /// Called when the parent has changed.
  virtual void handleParent(Ptr<Entity> const& parent);
  // Attribute-log streaming: no host of this registry streams. These functions keep the slots and do nothing.
  virtual void* noxNboAttrLogSa() const { return nullptr; }
  virtual void* noxNboAttrLogSa() { return nullptr; }
  virtual bool noxHasAttrLogInterface() const { return false; }
  virtual void* noxNboAttrLogSaForMsgChannel(unsigned /*channel*/) { return nullptr; }
  virtual void noxNboAttrLogSaIs(void* /*stream*/) {}
  virtual void noxNboAttrLogSaDel() {}

  /// The name it was made with, not copied.
  Name const& rawName() const noexcept { return name_; }

  /// The reactors that watch this entity.
  NotifieeList& noxNotifiees() const noexcept { return notifiees_; }

  /// Announces a change to the reactors: `announce<unkeyed(&NotifieeConst::onServicenoxImmediate)>()`. Mutators
  /// announce their own changes; a host announces what concerns a whole collection at once.
  template <auto On>
    requires(!detail::KeyedOperation<On>)
  void announce() const {
    if (!notifiees_.empty()) queueNotification(*this, notification<On>, KeySlot{});
  }
  template <auto On>
  void announce(typename detail::Operation<On>::Key const& key) const {
    if (notifiees_.empty()) return;
    KeySlot slot;
    ::new (static_cast<void*>(slot.bytes)) typename detail::Operation<On>::Key(key);
    queueNotification(*this, notification<On>, slot);
  }

 protected:
  /// The body of every scalar mutator: stores and announces, but only a change.
  template <auto On, class T>
  void assign(T& field, std::type_identity_t<T> const& value) {
    bool const changed = !(field == value);
    observeWrite<On>(*this, changed, value);
    if (!changed) return;
    field = value;
    announce<On>();
  }

  /// The body of every keyed value mutator: `map` says whether anything changed.
  template <auto On, class Map, class Key, class Value>
  void assign(Map& map, Key const& key, Value const& value) {
    bool const changed = map.valueIs(key, value);
    observeWrite<On>(*this, changed, key, value);
    if (changed) announce<On>(key);
  }
  /// The body of every keyed removal. An absent key is no change.
  template <auto On, class Map, class Key>
  auto remove(Map& map, Key const& key) {
    auto removed = map.memberDel(key);
    observeRemoval<On>(*this, static_cast<bool>(removed), key);
    if (removed) announce<On>(key);
    return removed;
  }
  /// The body of every delete-all: member by member, in the collection's order, in one turn.
  template <auto On, class Map>
  void removeAll(Map& map) {
    Turn turn;
    for (typename Map::Iterator at(map); at; ++at) {
      auto const key = at->fwkKey();
      map.deleteMember(at);
      observeRemoval<On>(*this, true, key);
      announce<On>(key);
    }
  }
  /// The body of every instantiating mutator without further arguments: the member of that key, made if there is none.
  template <auto On, class Map, class Key>
  auto instantiate(Map& map, Key const& key) -> ValidPtr<typename Map::Member> {
    auto member = map.member(key);
    observeWrite<On>(*this, !member, key, std::string_view("{}"));
    if (member) return member;
    member = map.newChild(*this, fwkType().attributeId(notification<On>.name), key);
    announce<On>(key);
    return member;
  }

 private:
  Name name_;
  Entity* parent_ = nullptr;
  mutable NotifieeList notifiees_;
  std::uint16_t parentAttrId_ = 0;
};

/// Notifications of every entity.
class NOX_EXPORT Entity::NotifieeConst : public PtrInterface::NotifieeConst {
 public:
  using Notifier = Entity;
  NotifieeConst() noexcept { noxNotifierTypeIs(Entity::noxType); }

  virtual void onParent() {}
  virtual void onVersion() {}
  virtual void onIsNondestructing() {}
};

inline Entity const* PtrInterface::NotifieeConst::list() const noexcept {
  return stateHas(kWatchesEntity) ? static_cast<Entity const*>(notifier_.get()) : nullptr;
}

/// Prints the full name; a null entity prints as "null".
NOX_EXPORT std::ostream& operator<<(std::ostream& out, Entity const* entity);
template <std::derived_from<Entity> T>
std::ostream& operator<<(std::ostream& out, Ptr<T> const& entity) {
  return out << static_cast<Entity const*>(entity.get());
}

}  // namespace Nox
