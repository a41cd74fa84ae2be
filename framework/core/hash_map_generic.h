// The untyped core of the keyed collections: links, buckets, order, growth, and iterators that survive removals.
#pragma once

#include <cstdint>
#include <utility>

#include "framework/memory/export.h"
#include "framework/memory/pool.h"

namespace Nox {

class HashMapGeneric;

/// The intrusive link of a collection member; a member can be in one collection at a time.
class NOX_EXPORT HashMapLink {
 public:
  HashMapLink() noexcept = default;
  HashMapLink(HashMapLink const&) = delete;
  HashMapLink& operator=(HashMapLink const&) = delete;

  /// What follows in the chain: null only for a member of no collection; the last of a chain is followed by an end
  /// mark.
  HashMapLink* fwkHmNext() const noexcept { return next_; }

 protected:
  ~HashMapLink() = default;

 private:
  friend class HashMapGeneric;
  friend class HashMapIteratorGeneric;

  HashMapLink* next_ = nullptr;
  std::uint32_t hash_ = 0;  // the reversed hash, kept so that walking a chain need not ask the key
};

/// The functions by which the untyped code reads a member: one table for each kind of member and key, shared by all its
/// collections.
struct HashMapVTableGeneric : NoxMemPool {
  std::uint32_t (*hash)(HashMapLink const* member);
  bool (*keyEquals)(void const* key, HashMapLink const* member);
  /// Whether `key` sorts before the member's; a null key sorts before all.
  bool (*keyLessThan)(void const* key, HashMapLink const* member);
  void (*setNext)(HashMapLink* member, HashMapLink* next);
};

/// A position in a collection. Registered with it, so that a removal finds the positions that it moves.
class NOX_EXPORT HashMapIteratorGeneric {
 public:
  HashMapIteratorGeneric(HashMapIteratorGeneric const&) = delete;
  HashMapIteratorGeneric& operator=(HashMapIteratorGeneric const&) = delete;
  virtual ~HashMapIteratorGeneric();

  /// The collection, or null once it has gone.
  HashMapGeneric const* map() const noexcept { return map_; }

 protected:
  explicit HashMapIteratorGeneric(HashMapGeneric const& map) noexcept;
  /// Called when the member under this position is removed: keep its key.
  virtual void bookmarkIs(HashMapLink const* removed) = 0;

  /// The member under the position; null at the end, and between two members after a removal.
  HashMapLink* at() const noexcept { return at_; }
  void atIs(HashMapLink* at) noexcept { at_ = at; }
  /// After a removal, the member of the same key that is to be visited next, or null to go on by the bookmark; asked
  /// once.
  HashMapLink* takePending() noexcept { return std::exchange(pending_, nullptr); }

 private:
  friend class HashMapGeneric;

  HashMapGeneric const* map_;      // null once the collection has gone
  HashMapIteratorGeneric* next_;   // the collection's other positions
  HashMapIteratorGeneric** link_;  // what points at this one
  HashMapLink* at_ = nullptr;      // the member under the position, or null
  HashMapLink* pending_ = nullptr;
};

/// Buckets of chains. Members are ordered by (bit-reversed hash, key); the bucket is the top bits of the reversed hash,
/// so one order holds whatever the bucket count, and a bucket splits and joins by cutting and tying its chain.
class NOX_EXPORT HashMapGeneric {
 public:
  HashMapGeneric(HashMapGeneric const&) = delete;
  HashMapGeneric& operator=(HashMapGeneric const&) = delete;

  std::uint32_t members() const noexcept { return members_; }
  bool empty() const noexcept { return members_ == 0; }
  std::uint32_t buckets() const noexcept { return std::uint32_t{1} << log2Buckets_; }
  /// Counts insertions and removals.
  std::uint32_t modifications() const noexcept { return modifications_; }

 protected:
  /// `buckets` is rounded up to a power of two; the collection grows and shrinks from there.
  explicit HashMapGeneric(unsigned buckets);
  ~HashMapGeneric();

  static std::uint32_t hashOf(HashMapLink const* m) noexcept { return m->hash_; }
  static HashMapLink* nextOf(HashMapLink const* m) noexcept { return m->next_; }
  static bool isEnd(HashMapLink const* m) noexcept { return m == &end_; }

  /// Head of the chain where `hash` belongs; the end mark if it is empty.
  HashMapLink* chain(std::uint32_t hash) const noexcept { return *bucket(hash); }
  /// First member of the first non-empty bucket from `index` on, or null.
  HashMapLink* findNextBucketG(std::uint32_t index) const noexcept;
  /// The member after `m`, or null.
  HashMapLink* findNextG(HashMapLink const* m) const noexcept {
    return isEnd(m->next_) ? findNextBucketG(index(m->hash_) + 1) : m->next_;
  }
  /// The first member that sorts behind (hash, key), or null.
  HashMapLink* findNextG(HashMapVTableGeneric const& ops, std::uint32_t hash, void const* key) const noexcept;

  void newMemberG(HashMapVTableGeneric const& ops, HashMapLink* m, void const* key);
  /// Unlinks `m`, whose key is `key`, and moves the positions that stand on it. The caller runs the hook, then
  /// `maybeShrinkG`.
  void deleteMemberG(HashMapVTableGeneric const& ops, HashMapLink* m, void const* key);
  void maybeGrowG() noexcept;
  void maybeShrinkG() noexcept;
  /// Takes every member out at once and returns them as one chain, for a teardown without hooks; positions end.
  HashMapLink* takeAllG() noexcept;
  /// Takes the first member off such a chain, unlinked; null at its end.
  static HashMapLink* popG(HashMapLink*& chain) noexcept;

  static void setNext(HashMapLink* m, HashMapLink* next) noexcept { m->next_ = next; }

 private:
  friend class HashMapIteratorGeneric;

  static HashMapLink end_;

  HashMapLink* emptyAllBucketsG() noexcept;
  void moveIterators(HashMapVTableGeneric const& ops, HashMapLink* m, void const* key);

  std::uint32_t index(std::uint32_t hash) const noexcept { return log2Buckets_ == 0 ? 0 : hash >> (32 - log2Buckets_); }
  HashMapLink** bucket(std::uint32_t hash) const noexcept {
    return log2Buckets_ == 0 ? &one_ : &many_[hash >> (32 - log2Buckets_)];
  }
  void bucketsIs(unsigned log2Buckets) noexcept;
  void detachIterators() noexcept;

  union {
    mutable HashMapLink* one_;  // the only chain of a small collection stands here
    HashMapLink** many_;
  };
  std::uint32_t members_ : 27 = 0;
  std::uint32_t log2Buckets_ : 5 = 0;
  std::uint32_t modifications_ = 0;
  mutable HashMapIteratorGeneric* iterators_ = nullptr;
};

}  // namespace Nox
