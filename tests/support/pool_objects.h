// Objects and bytes of the pool that know what they hold.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>

#include "framework/memory/pool.h"

namespace Test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kPlainBuild = false;
#else
inline constexpr bool kPlainBuild = true;
#endif

struct Bytes {
  unsigned char* p;
  std::size_t size;
  unsigned char fill;
};

inline Bytes made(std::size_t size, unsigned char fill) {
  auto* p = static_cast<unsigned char*>(Nox::VFPtrInterface::operator new(size));
  std::memset(p, fill, size);
  return {p, size, fill};
}

inline bool intact(Bytes const& bytes) {
  return bytes.p[0] == bytes.fill && std::memcmp(bytes.p, bytes.p + 1, bytes.size - 1) == 0;
}

inline void unmade(Bytes const& bytes) {
  EXPECT_TRUE(intact(bytes)) << bytes.size << " bytes at " << static_cast<void*>(bytes.p);
  Nox::VFPtrInterface::operator delete(bytes.p, bytes.size);
}

/// A reactor's size or thereabouts, that knows its own value.
struct Object : Nox::VFPtrInterface {
  explicit Object(std::uint64_t v) : value(v), check(~v) {}
  Object(Object const&) = delete;
  Object& operator=(Object const&) = delete;
  virtual ~Object() { EXPECT_EQ(value, ~check); }
  std::uint64_t value;
  std::uint64_t check;
};

/// Of a size that has few slots in a chunk, so that chunks empty often.
struct WideObject : Object {
  using Object::Object;
  std::array<std::uint64_t, 100> more{};
};

/// Too big for any slot.
struct BigObject : Object {
  using Object::Object;
  std::array<std::uint64_t, 300> more{};
};

inline std::uintptr_t unitOf(void const* p) { return reinterpret_cast<std::uintptr_t>(p) >> 16; }

inline std::size_t residentBytes() {
  std::size_t all = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// Asks about the object itself and some places within it.
inline bool liveOnlyAtItsFirstByte(Bytes const& bytes) {
  if (!Nox::VFPtrInterface::isLive(bytes.p)) return false;
  for (std::size_t const inside : {std::size_t{1}, std::size_t{8}, std::size_t{16}, bytes.size / 2, bytes.size - 1})
    if (inside != 0 && inside < bytes.size && Nox::VFPtrInterface::isLive(bytes.p + inside)) return false;
  return true;
}

}  // namespace Test
