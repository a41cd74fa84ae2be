// Members of keyed collections with numbers, and keys whose hashes collide, for tests of the collections.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/hash_map.h"
#include "framework/text/name.h"

namespace Sample {

/// A key whose hash takes three values alone.
struct Collider {
  unsigned value = 0;
  std::uint32_t hash() const noexcept { return value % 3 * 0x80000001U; }
  friend bool operator==(Collider const& a, Collider const& b) noexcept { return a.value == b.value; }
  friend bool operator<(Collider const& a, Collider const& b) noexcept { return a.value < b.value; }
};
/// A key whose hash is always the same.
struct Constant {
  unsigned value = 0;
  std::uint32_t hash() const noexcept { return 0xDEADBEEFU; }
  friend bool operator==(Constant const& a, Constant const& b) noexcept { return a.value == b.value; }
  friend bool operator<(Constant const& a, Constant const& b) noexcept { return a.value < b.value; }
};
/// A key that is no bookmark when it is zero.
struct Choosy {
  unsigned value = 0;
  std::uint32_t hash() const noexcept { return value; }
  friend bool operator==(Choosy const& a, Choosy const& b) noexcept { return a.value == b.value; }
  friend bool operator<(Choosy const& a, Choosy const& b) noexcept { return a.value < b.value; }
};
inline bool isBookmark(Choosy const& key) noexcept { return key.value != 0; }

/// How many members there are.
inline int alive = 0;

template <class Key>
class Member : public Nox::PtrInterface, public Nox::HashMapLink {
 public:
  explicit Member(Key key, int n = 0) : number(n), key_(std::move(key)) { ++alive; }
  ~Member() override { --alive; }
  Key const& fwkKey() const noexcept { return key_; }
  std::uint32_t count() const { return noxWord() & kCountMask; }
  int const number;

 private:
  Key key_;
};
template <class Key>
using Map = Nox::HashMap<Member<Key>, Key>;

/// Bit by bit, unlike the collection's own.
inline std::uint32_t reversed(std::uint32_t hash) {
  std::uint32_t r = 0;
  for (int i = 0; i < 32; ++i) r |= (hash >> i & 1) << (31 - i);
  return r;
}

template <class Key>
Key keyOf(unsigned n);
template <>
inline unsigned keyOf(unsigned n) {
  return n;
}
template <>
inline Nox::Name keyOf(unsigned n) {
  return n == 0 ? Nox::Name() : Nox::Name("leaf-" + std::to_string(n));
}
template <>
inline Collider keyOf(unsigned n) {
  return {n};
}
template <>
inline Constant keyOf(unsigned n) {
  return {n};
}

template <class Key>
std::vector<int> numbersOf(Map<Key> const& map) {
  std::vector<int> numbers;
  for (Member<Key> const& m : map) numbers.push_back(m.number);
  return numbers;
}

}  // namespace Sample
