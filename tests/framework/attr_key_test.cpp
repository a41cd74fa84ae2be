// Keys of attribute names, of every length that is read in another way.
#include "framework/by_name/attr_key.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

namespace AttrKeyTest {
namespace {

using Nox::AttrKey;

constexpr std::uint64_t kSeed = 0x9E3779B97F4A7C15;
constexpr std::string_view kText = "abcdefghijklmnopqrstuvwxyz0123456789ABCD";
constexpr auto kHashes = [] {
  std::array<std::uint64_t, kText.size() + 1> hashes{};
  for (std::size_t n = 0; n < hashes.size(); ++n) hashes[n] = AttrKey(kText.substr(0, n)).hash(kSeed);
  return hashes;
}();

TEST(AttrKey, IsTheSameForTheSameTextElsewhere) {
  for (std::size_t n = 0; n < kHashes.size(); ++n) {
    std::string const copy(kText.substr(0, n));
    EXPECT_TRUE(AttrKey(copy) == AttrKey(kText.substr(0, n))) << n;
    EXPECT_EQ(AttrKey(copy).hash(kSeed), kHashes[n]) << "the compiler and the program disagree about " << copy;
  }
}

TEST(AttrKey, DiffersInEveryByteAndInItsLength) {
  for (std::size_t n = 0; n < kHashes.size(); ++n) {
    std::string const text(kText.substr(0, n));
    for (std::size_t i = 0; i < n; ++i) {
      for (char const other : {'\0', '#', '\xff'}) {
        std::string changed = text;
        changed[i] = other;
        EXPECT_FALSE(AttrKey(changed) == AttrKey(text)) << changed;
      }
    }
    EXPECT_FALSE(AttrKey(text + '\0') == AttrKey(text)) << n;
    EXPECT_FALSE(AttrKey(text + 'a') == AttrKey(text)) << n;
    EXPECT_FALSE(AttrKey('\0' + text) == AttrKey(text)) << n;
  }
}

}  // namespace

}  // namespace AttrKeyTest
