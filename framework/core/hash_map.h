// Keyed collections of counted members. Members of different keys stand in an order that depends on the keys alone,
// whatever was inserted and removed before.
#pragma once

#include <iterator>
#include <memory>
#include <optional>

#include "framework/core/hash_map_generic.h"
#include "framework/core/ptr.h"
#include "framework/text/reverse_bits.h"

namespace Nox {

/// Hash of a key: its own `hash()`, or the number itself.
template <class Key>
std::uint32_t hashOfKey(Key const& key) noexcept {
  return key.hash();
}
inline std::uint32_t hashOfKey(unsigned key) noexcept { return key; }

/// Whether `hasBookmark` counts this key as one; a key type with an empty value of its own may say no to that value.
template <class Key>
bool isBookmark(Key const& /*key*/) noexcept {
  return true;
}

template <class Value, class Key>
class HashMap;

/// The function table of one kind of collection, made on first use and shared by all its instances. It is destroyed
/// when the library whose collections it serves is unloaded.
template <class Value, class Key>
struct HashMapVTable : HashMapVTableGeneric {
  static HashMapVTable const& table() {
    static std::unique_ptr<HashMapVTable const> const made(new HashMapVTable);
    return *made;
  }

 private:
  using Map = HashMap<Value, Key>;

  HashMapVTable() : HashMapVTableGeneric{{}, &hashOf, &equals, &lessThan, &Map::setNextG} {}
  static std::uint32_t hashOf(HashMapLink const* m) { return Map::reversedHash(Map::keyOf(m)); }
  static bool equals(void const* key, HashMapLink const* m) { return *static_cast<Key const*>(key) == Map::keyOf(m); }
  static bool lessThan(void const* key, HashMapLink const* m) {
    return key == nullptr || *static_cast<Key const*>(key) < Map::keyOf(m);
  }
};

/// Intrusive keyed collection of counted members. `Value` derives from `PtrInterface` and `HashMapLink` and answers its
/// key by `fwkKey()`. The collection holds one reference to each member. Iteration is live and ordered by (bit-reversed
/// hash, key): what is inserted behind a position is visited, what is inserted before it is not; any member may be
/// removed under any position.
template <class Value, class Key>
class HashMap : public HashMapGeneric {
 public:
  class IteratorConst;
  class Iterator;

  explicit HashMap(unsigned buckets = 1) : HashMapGeneric(buckets) {}
  ~HashMap() {
    HashMapLink* all = takeAllG();
    while (HashMapLink* m = popG(all)) value(m)->release();
  }

  /// The first member of that key, or null.
  Ptr<Value> member(Key const& key) const { return Ptr<Value>(find(key)); }
  bool has(Key const& key) const { return find(key) != nullptr; }
  Value* find(Key const& key) const noexcept {
    std::uint32_t const hash = reversedHash(key);
    for (HashMapLink* m = chain(hash); !isEnd(m) && hashOf(m) <= hash; m = nextOf(m))
      if (hashOf(m) == hash && keyOf(m) == key) return value(m);
    return nullptr;
  }

  /// Whether a member of key `a` stands before one of key `b`.
  static bool before(Key const& a, Key const& b) noexcept {
    std::uint32_t const hashA = reversedHash(a);
    std::uint32_t const hashB = reversedHash(b);
    return hashA != hashB ? hashA < hashB : a < b;
  }

  /// Inserts a member, behind any others of its key. A member that is linked already fails the assertion
  /// "t->fwkHmNext() == 0".
  void newMember(Ptr<Value> const& member) {
    Key const& key = keyOf(member.get());
    newMemberG(ops(), member.get(), &key);
    member->reference();
  }

  /// Removes the member under `at`: unlinks it, runs `at`'s delete hook while it is alive, shrinks, and returns it;
  /// null if there is none.
  Ptr<Value> deleteMember(Iterator const& at);
  /// The same for the first member of that key, with a hook that does nothing.
  Ptr<Value> memberDel(Key const& key) {
    Ptr<Value> member = Ptr<Value>::adopt(find(key));
    if (!member) return member;
    deleteMemberG(ops(), member.get(), &key);
    maybeShrinkG();
    return member;
  }
  /// Removes every member in order, each with the hook of the given position, which starts at the first.
  void deleteAll(Iterator&& at);
  void deleteAll() { deleteAll(Iterator(*this)); }

  IteratorConst begin() const { return IteratorConst(*this); }
  std::default_sentinel_t end() const { return {}; }

 private:
  friend struct HashMapVTable<Value, Key>;

  static HashMapVTable<Value, Key> const& ops() { return HashMapVTable<Value, Key>::table(); }
  static Value* value(HashMapLink* m) noexcept { return static_cast<Value*>(m); }
  static decltype(auto) keyOf(HashMapLink const* m) noexcept { return static_cast<Value const*>(m)->fwkKey(); }
  static std::uint32_t reversedHash(Key const& key) noexcept {
    if constexpr (requires { key.reversedHash(); })
      return key.reversedHash();
    else
      return reverseBits(hashOfKey(key));
  }
  static void setNextG(HashMapLink* m, HashMapLink* next) { setNext(m, next); }
};

/// A position in a collection that may read it. True while it stands on a member; `++` goes on from there, also when
/// the member has been removed meanwhile: its key stays behind as the bookmark.
template <class Value, class Key>
class HashMap<Value, Key>::IteratorConst : public HashMapIteratorGeneric {
 public:
  explicit IteratorConst(HashMap const& map) : HashMapIteratorGeneric(map) { atIs(map.findNextBucketG(0)); }
  IteratorConst(HashMap const& map, Key const& key) : HashMapIteratorGeneric(map) { atIs(map.find(key)); }

  explicit operator bool() const noexcept { return at() != nullptr; }
  Value& operator*() const noexcept { return *value(at()); }
  Value* operator->() const noexcept { return value(at()); }
  Ptr<Value> member() const noexcept { return at() != nullptr ? Ptr<Value>(value(at())) : nullptr; }
  friend bool operator==(IteratorConst const& i, std::default_sentinel_t) noexcept { return !i; }

  IteratorConst& operator++() {
    if (map() == nullptr) return *this;
    auto const& in = static_cast<HashMap const&>(*map());
    if (at() != nullptr) {
      atIs(in.findNextG(at()));
    } else if (bookmark_) {
      HashMapLink* const twin = takePending();
      atIs(twin != nullptr ? twin : in.findNextG(ops(), reversedHash(*bookmark_), &*bookmark_));
    }
    bookmark_.reset();
    return *this;
  }

  /// Whether the position is that of some key: of the member under it, or of the one that was removed there.
  bool hasBookmark() const {
    if (at() != nullptr) return isBookmark(value(at())->fwkKey());
    return bookmark_ && isBookmark(*bookmark_);
  }

 private:
  void bookmarkIs(HashMapLink const* removed) override { bookmark_ = keyOf(removed); }

  std::optional<Key> bookmark_;  // validity is the optional's, whatever the key
};

/// A position from which members may be removed. An owner derives from it to hear of each.
template <class Value, class Key>
class HashMap<Value, Key>::Iterator : public IteratorConst {
 public:
  using IteratorConst::IteratorConst;

  /// Called for a member that has just been removed through this position; the member is alive and unlinked.
  virtual void deleteNotify(Ptr<Value> const& /*member*/) const {}
};

template <class Value, class Key>
Ptr<Value> HashMap<Value, Key>::deleteMember(Iterator const& at) {
  if (!at) return nullptr;
  Ptr<Value> member = Ptr<Value>::adopt(&*at);  // the collection's reference becomes ours
  Key const& key = keyOf(member.get());
  deleteMemberG(ops(), member.get(), &key);
  at.deleteNotify(member);
  if (at.map() != nullptr) maybeShrinkG();  // unless the hook has ended the collection
  return member;
}

template <class Value, class Key>
void HashMap<Value, Key>::deleteAll(Iterator&& at) {
  for (; at; ++at) deleteMember(at);
}

}  // namespace Nox
