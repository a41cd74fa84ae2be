// What a record keeps its keyed attributes and its children in: collections of values, collections of child entities,
// and the single child. A child that is removed, or that outlives its owner, has no parent.
#pragma once

#include "framework/core/hash_map.h"

namespace Nox {

/// Member of a value collection: a key and the value stored under it.
template <class Key, class T>
class Row : public PtrInterface, public HashMapLink {
 public:
  Row(Key key, T value) : key_(std::move(key)), value_(std::move(value)) {}

  Key const& fwkKey() const noexcept { return key_; }
  T const& value() const noexcept { return value_; }
  void valueIs(T const& value) { value_ = value; }

 private:
  Key key_;
  T value_;
};

/// Keyed collection of values, each in a counted row of class R. The mutators say whether anything changed.
template <class R, class Key, class T>
class ValueMap : public HashMap<R, Key> {
 public:
  using Value = T;

  /// The value under that key; a default one if there is none.
  T value(Key const& key) const {
    R const* row = this->find(key);
    return row != nullptr ? row->value() : T{};
  }
  bool valueIs(Key const& key, T const& value) {
    if (R* row = this->find(key)) {
      if (row->value() == value) return false;
      row->valueIs(value);
    } else {
      this->newMember(make<R>(key, value));
    }
    return true;
  }
};

/// Keyed collection of child entities, made from their key alone.
template <class V, class Key>
class ChildMap : public HashMap<V, Key> {
 public:
  using Member = V;

  ChildMap() = default;
  ~ChildMap() {
    for (V& child : *this) child.parentIs(nullptr);
  }

  /// Makes and inserts the child of that key. `id` is the owner's attribute that holds it.
  ValidPtr<V> newChild(Entity& owner, AttributeId id, Key const& key) {
    ValidPtr<V> child = make<V>(key);
    child->parentAttrIdIs(id);
    child->parentIs(Ptr<Entity>(&owner));
    this->newMember(child);
    return child;
  }
  Ptr<V> deleteMember(typename HashMap<V, Key>::Iterator const& at) {
    Ptr<V> child = HashMap<V, Key>::deleteMember(at);
    if (child) child->parentIs(nullptr);
    return child;
  }
  Ptr<V> memberDel(Key const& key) { return deleteMember(typename HashMap<V, Key>::Iterator(*this, key)); }
  void deleteAll() {
    for (typename HashMap<V, Key>::Iterator at(*this); at; ++at) deleteMember(at);
  }
};

/// The one child entity of an attribute, or none.
template <class T>
class Child {
 public:
  Child() noexcept = default;
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;
  ~Child() { take(); }

  Ptr<T> const& get() const noexcept { return child_; }

  /// Puts a new child under that attribute of the owner; the previous one is released.
  ValidPtr<T> put(Entity& owner, AttributeId id, ValidPtr<T> child) {
    child->parentAttrIdIs(id);
    child->parentIs(Ptr<Entity>(&owner));
    take();
    child_ = child;
    return child;
  }
  /// Takes the child out: the field is cleared first, then the child's parent.
  Ptr<T> take() {
    Ptr<T> old = std::exchange(child_, nullptr);
    if (old) old->parentIs(nullptr);
    return old;
  }

 private:
  Ptr<T> child_;
};

/// Chooses, among a collection's readers, the one of the whole collection.
template <class R, class Map>
consteval auto whole(Map const& (R::*read)() const) {
  return read;
}

}  // namespace Nox
