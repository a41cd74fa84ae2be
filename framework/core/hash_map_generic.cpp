// Insertion, removal, growth and the moving of positions. Every chain stays ordered by (bit-reversed hash, key).
#include "framework/core/hash_map_generic.h"

#include <bit>
#include <new>

#include "framework/memory/assertion.h"

namespace Nox {

// A collection grows when its load factor passes 1 and shrinks below 1/4; up to four members it is a single chain.
static constexpr std::uint32_t kChainMembers = 4;
static constexpr unsigned kFirstLog2Buckets = 3;
static constexpr unsigned kMaxLog2Buckets = 27;
static constexpr std::uint32_t kMaxMembers = (std::uint32_t{1} << 27) - 1;  // what its field holds

HashMapLink HashMapGeneric::end_;

HashMapIteratorGeneric::HashMapIteratorGeneric(HashMapGeneric const& map) noexcept
    : map_(&map), next_(map.iterators_), link_(&map.iterators_) {
  if (next_ != nullptr) next_->link_ = &next_;
  map.iterators_ = this;
}

HashMapIteratorGeneric::~HashMapIteratorGeneric() {
  if (map_ == nullptr) return;
  *link_ = next_;
  if (next_ != nullptr) next_->link_ = link_;
}

HashMapGeneric::HashMapGeneric(unsigned buckets) : one_(&end_) {
  if (buckets > 1) bucketsIs(static_cast<unsigned>(std::bit_width(buckets - 1)));
}

HashMapGeneric::~HashMapGeneric() {
  NOX_ASSERT(members_ == 0, "a collection is emptied before it goes");
  if (log2Buckets_ != 0) delete[] many_;
}

/// Positions that outlive the collection stand at its end.
void HashMapGeneric::detachIterators() noexcept {
  for (HashMapIteratorGeneric* i = iterators_; i != nullptr; i = i->next_) {
    i->map_ = nullptr;
    i->at_ = i->pending_ = nullptr;
  }
  iterators_ = nullptr;
}

HashMapLink* HashMapGeneric::findNextBucketG(std::uint32_t index) const noexcept {
  if (log2Buckets_ == 0) return index == 0 && !isEnd(one_) ? one_ : nullptr;
  for (; index < buckets(); ++index)
    if (!isEnd(many_[index])) return many_[index];
  return nullptr;
}

HashMapLink* HashMapGeneric::findNextG(HashMapVTableGeneric const& ops, std::uint32_t hash,
                                       void const* key) const noexcept {
  for (HashMapLink* m = chain(hash); !isEnd(m); m = m->next_)
    if (hash < m->hash_ || (hash == m->hash_ && ops.keyLessThan(key, m))) return m;
  return findNextBucketG(index(hash) + 1);
}

void HashMapGeneric::newMemberG(HashMapVTableGeneric const& ops, HashMapLink* m, void const* key) {
  if (m->fwkHmNext() != nullptr) assertionFailed("t->fwkHmNext() == 0", "HashMap.h", 328);
  m->hash_ = ops.hash(m);
  HashMapLink** at = bucket(m->hash_);
  while (!isEnd(*at) && m->hash_ >= (*at)->hash_ && !(m->hash_ == (*at)->hash_ && ops.keyLessThan(key, *at)))
    at = &(*at)->next_;
  NOX_ASSERT(members_ < kMaxMembers, "a collection is full");
  ops.setNext(m, *at);
  *at = m;
  ++members_;
  ++modifications_;
  maybeGrowG();
}

void HashMapGeneric::deleteMemberG(HashMapVTableGeneric const& ops, HashMapLink* m, void const* key) {
  if (iterators_ != nullptr) moveIterators(ops, m, key);
  HashMapLink** at = bucket(m->hash_);
  while (*at != m) at = &(*at)->next_;
  *at = m->next_;
  ops.setNext(m, nullptr);
  --members_;
  ++modifications_;
}

/// A position on a member that is removed keeps the member's key, and goes on with the next member of that key.
void HashMapGeneric::moveIterators(HashMapVTableGeneric const& ops, HashMapLink* m, void const* key) {
  HashMapLink* const next = findNextG(m);
  HashMapLink* const twin = next != nullptr && next->hash_ == m->hash_ && ops.keyEquals(key, next) ? next : nullptr;
  for (HashMapIteratorGeneric* i = iterators_; i != nullptr; i = i->next_) {
    if (i->at_ == m) {
      i->bookmarkIs(m);
      i->at_ = nullptr;
      i->pending_ = twin;
    } else if (i->pending_ == m) {
      i->pending_ = twin;
    }
  }
}

void HashMapGeneric::maybeGrowG() noexcept {
  if (members_ <= kChainMembers || members_ <= buckets() || log2Buckets_ >= kMaxLog2Buckets) return;
  bucketsIs(log2Buckets_ == 0 ? kFirstLog2Buckets : log2Buckets_ + 1U);
}

void HashMapGeneric::maybeShrinkG() noexcept {
  if (log2Buckets_ == 0 || members_ > buckets() / 4) return;
  bucketsIs(log2Buckets_ <= kFirstLog2Buckets ? 0 : log2Buckets_ - 1U);
}

/// All chains tied together are one chain in order; it is cut anew for another bucket count. Without memory the old
/// count serves on.
void HashMapGeneric::bucketsIs(unsigned log2Buckets) noexcept {
  HashMapLink** many = nullptr;
  if (log2Buckets != 0) {
    many = new (std::nothrow) HashMapLink*[std::size_t{1} << log2Buckets];
    if (many == nullptr) return;
    for (std::size_t i = 0; i < std::size_t{1} << log2Buckets; ++i) many[i] = &end_;
  }
  HashMapLink* m = emptyAllBucketsG();
  if (log2Buckets_ != 0) delete[] many_;
  log2Buckets_ = log2Buckets & 31;
  if (many == nullptr) {
    one_ = m;
    return;
  }
  many_ = many;
  while (!isEnd(m)) {
    std::uint32_t const here = index(m->hash_);
    many_[here] = m;
    HashMapLink* last = m;
    while (!isEnd(last->next_) && index(last->next_->hash_) == here) last = last->next_;
    m = std::exchange(last->next_, &end_);
  }
}

HashMapLink* HashMapGeneric::emptyAllBucketsG() noexcept {
  if (log2Buckets_ == 0) return std::exchange(one_, &end_);
  HashMapLink* first = &end_;
  HashMapLink** tail = &first;
  for (std::uint32_t i = 0; i < buckets(); ++i) {
    if (isEnd(many_[i])) continue;
    *tail = std::exchange(many_[i], &end_);
    while (!isEnd(*tail)) tail = &(*tail)->next_;
  }
  return first;
}

HashMapLink* HashMapGeneric::takeAllG() noexcept {
  detachIterators();
  modifications_ += members_;
  members_ = 0;
  return emptyAllBucketsG();
}

HashMapLink* HashMapGeneric::popG(HashMapLink*& chain) noexcept {
  if (isEnd(chain)) return nullptr;
  HashMapLink* const m = chain;
  chain = std::exchange(m->next_, nullptr);
  return m;
}

}  // namespace Nox
