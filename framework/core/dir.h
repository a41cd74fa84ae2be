// Directories: entities that hold named entries and named entity pointers. An entity that is entered without a
// parent becomes the directory's child; the directory clears that link when it lets the entity go.
#pragma once

#include "framework/core/collections.h"
#include "framework/core/entity.h"

namespace Nox {

/// A directory keeps two collections under one set of names. An entry says that a name is there and refers to an
/// entity; an entity pointer makes an entity reachable. What is complete has both: an entity pointer without an entry
/// is announced but not yet instantiated.
///
/// Mutators of a host: `entityIs` (entry and pointer at once) and `entityDel` (both go). Mutators one by one:
///   prepare      entryIs(name)                 an empty entry, unless there is one
///   create       newEntity(name, type name)    a child of a registered type, unless the entry has one
///   point        entityPtrIs(name, entity)
///   remove       entityPtrDel(name)            first removal: the pointer
///                entityRefDel(name)            second: what the entry refers to
///                entryDel(name)                final: the entry
/// A removal of what is absent does nothing.
class NOX_EXPORT Dir : public Typed<Dir, Entity> {
 public:
  class NotifieeConst;
  class Entry;
  class NoxEntityPtr;
  class EntryStateIterator;
  using EntryMap = HashMap<Entry, Name>;
  using EntityPtrMap = HashMap<NoxEntityPtr, Name>;
  using EntryIterator = EntryMap::IteratorConst;
  using EntityPtrIteratorConst = EntityPtrMap::IteratorConst;
  static NoxType noxType;

  using Typed::Typed;
  ~Dir() override;

  /// The entry of that name, or null.
  Ptr<Entry> entry(Name const& name) const;
  /// The entity that the entry of that name refers to, or null.
  Ptr<Entity> entityRef(Name const& name) const;
  /// The entity that the pointer of that name leads to, or null.
  Ptr<Entity> entityPtr(Name const& name) const;
  /// The entity that the entry of that name refers to, if it is a T.
  template <class T>
  Ptr<T> entity(Name const& name) const {
    return ptrCast<T>(entityRef(name));
  }

  EntryMap const& entries() const noexcept { return entries_; }
  EntityPtrMap const& entityPtrs() const noexcept { return entityPtrs_; }
  /// All entries, in the collection's order.
  EntryIterator entryIterator() const;
  /// All entity pointers, in the collection's order.
  EntityPtrIteratorConst entityPtrIteratorConst() const;

  /// Makes an entry of that name that refers to nothing yet; an existing one stays as it is.
  void entryIs(Name const& name);
  /// Points the name at an entity.
  void entityPtrIs(Name const& name, Ptr<Entity> const& entity);
  /// What the entry of that name refers to, of whatever type, made reachable again if its pointer was removed; if that
  /// is nothing, a new child of the registered type, which entry and pointer then name. Throws RangeException for a
  /// type that is not registered.
  ValidPtr<Entity> newEntity(Name const& name, std::string_view typeName);
  /// Entry and pointer of that name, both to `entity`, which becomes the directory's child unless it has a parent.
  void entityIs(Name const& name, ValidPtr<Entity> const& entity);

  void entityPtrDel(Name const& name);
  void entityRefDel(Name const& name);
  /// Removes what the entry refers to, then the entry.
  void entryDel(Name const& name);
  /// All three removals.
  void entityDel(Name const& name);

 private:
  void entityRefIs(Name const& name, ValidPtr<Entity> const& entity);

  EntryMap entries_;
  EntityPtrMap entityPtrs_;
};

/// One named entry: its key, and the entity that it refers to, or none.
class NOX_EXPORT Dir::Entry final : public PtrInterface, public HashMapLink {
 public:
  explicit Entry(Name name) : name_(std::move(name)) {}
  Name const& fwkKey() const noexcept { return name_; }
  Name const& name() const noexcept { return name_; }
  Ptr<Entity> const& entityRef() const noexcept { return entity_; }

 private:
  friend class Dir;
  Name name_;
  Ptr<Entity> entity_;
};

/// One named pointer to an entity.
class NOX_EXPORT Dir::NoxEntityPtr final : public Row<Name, Ptr<Entity>> {
 public:
  using Row::Row;
};

/// The position through which entries are removed; a removal is announced as a change of the entry's state.
class NOX_EXPORT Dir::EntryStateIterator final : public Dir::EntryMap::Iterator {
 public:
  explicit EntryStateIterator(Dir const& dir) : Iterator(dir.entries()), dir_(dir) {}
  EntryStateIterator(Dir const& dir, Name const& name) : Iterator(dir.entries(), name), dir_(dir) {}
  void deleteNotify(Ptr<Dir::Entry> const& entry) const override;

 private:
  Dir const& dir_;
};

/// Notifications of a directory, in slot order. The framework itself sends the keyed forms of entry state, entry,
/// entity reference and entity pointer; a host may announce the others.
class NOX_EXPORT Dir::NotifieeConst : public NotifieeOf<Dir, Entity> {
 public:
  virtual void onSubdir(Name /*name*/) {}
  virtual void onSubdirnoxImmediate() {}
  virtual void onSubdir() {}
  virtual void onMountImmediate() {}
  virtual void onEntryState(Name /*name*/) {}
  virtual void onEntryStatenoxImmediate() {}
  virtual void onEntryState() {}
  virtual void onCompatibilityEntryState(Name /*name*/) {}
  virtual void onCompatibilityEntryStatenoxImmediate() {}
  virtual void onCompatibilityEntryState() {}
  virtual void onEntry(Name /*name*/) {}
  virtual void onEntrynoxImmediate() {}
  virtual void onEntry() {}
  virtual void onCompatibilityEntry(Name /*name*/) {}
  virtual void onCompatibilityEntrynoxImmediate() {}
  virtual void onCompatibilityEntry() {}
  virtual void onEntityPtr(Name /*name*/) {}
  virtual void onEntityRef(Name /*name*/) {}
  virtual void onEntityRefnoxImmediate() {}
  virtual void onEntityRef() {}
  virtual void onMountFlags() {}
  virtual void onGlobalDir() {}
  virtual void onEntityPtrnoxImmediate() {}
  virtual void onEntityPtr() {}
};

}  // namespace Nox
