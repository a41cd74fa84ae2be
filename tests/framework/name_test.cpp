// Names and strings: shared buffers, order, the frozen hash.
#include "framework/text/name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "framework/core/hash_map.h"
#include "framework/text/string8.h"

namespace NameTest {
namespace {

using Nox::Name;
using Nox::String8;

std::uint32_t word(Name const& name) { return const_cast<Name::Data*>(name.data())->references().value(); }

TEST(Name, CopiesShareOneBuffer) {
  Name const a("leaf-1");
  EXPECT_EQ(word(a), 1U);
  Name b;
  b = a;
  String8 const c(a);
  Name const d(c);
  EXPECT_EQ(a.data(), b.data());
  EXPECT_EQ(a.data(), d.data());
  EXPECT_EQ(word(a), 4U);
  EXPECT_NE(Name("leaf-1").data(), a.data());
  EXPECT_EQ(Name("leaf-1"), a);
}

TEST(Name, TheEmptyNameIsOneStaticBuffer) {
  Name const a, b(""), c(static_cast<char const*>(nullptr)), d{std::string()};
  for (Name const* n : {&a, &b, &c, &d}) {
    EXPECT_EQ(n->data(), Name::Data::empty());
    EXPECT_TRUE(n->empty());
    EXPECT_FALSE(*n);
    EXPECT_STREQ(n->charPtr(), "");
  }
  EXPECT_EQ(word(a), 0x1F000000U);
  Name moved("x");
  Name const taken = std::move(moved);
  EXPECT_TRUE(moved.empty());  // NOLINT(bugprone-use-after-move): a moved-from one is empty
  EXPECT_EQ(word(taken), 1U);
}

TEST(Name, OrderIsByteWiseWithPrefixesFirst) {
  std::vector<std::string> const ordered{"",
                                         std::string(1, '\0'),
                                         "A",
                                         "B",
                                         "a",
                                         std::string("a\0", 2),
                                         "aa",
                                         "b",
                                         "z",
                                         "\x7F",
                                         "\x80",
                                         "\xC3\xA4",
                                         "\xFF"};
  for (std::size_t i = 0; i < ordered.size(); ++i)
    for (std::size_t j = 0; j < ordered.size(); ++j) {
      EXPECT_EQ(Name(ordered[i]) < Name(ordered[j]), i < j) << i << ' ' << j;
      EXPECT_EQ(Name(ordered[i]) == Name(ordered[j]), i == j) << i << ' ' << j;
    }
}

TEST(Name, AssignmentSharesAndReleases) {
  Name a("one"), b("two");
  Name const& self = a;
  a = self;
  EXPECT_EQ(a, "one");
  a = b;
  EXPECT_EQ(word(b), 2U);
  a = Name();
  EXPECT_EQ(word(b), 1U);
}

TEST(Name, PrintsItsBytes) {
  std::ostringstream out;
  out << Name("a b") << Name() << String8("|") << Name(std::string("\0x", 2));
  EXPECT_EQ(out.str(), std::string("a b|\0x", 6));
}

/// The order of every collection, and so of every answer, hangs on these numbers.
TEST(Name, HashIsFrozen) {
  struct {
    char const* text;
    std::uint32_t hash;
  } const frozen[] = {
      {"", 0x74141C20U},
      {"a", 0x6C4E37EBU},
      {"b", 0xE7CFD0DBU},
      {"config", 0x5047CA82U},
      {"status", 0xCE7F976FU},
      {"leaf-1", 0xD5DD364BU},
      {"leaf-2", 0x57BA56D5U},
      {"spine-10", 0x66A987A7U},
      {"VersionStatus", 0x09048505U},
      {"registrationGenId", 0x8E1470F5U},
      {"\xC3\xA4", 0x6978E683U},
  };
  for (auto const& [text, hash] : frozen) {
    EXPECT_EQ(Name(text).hash(), hash) << '"' << text << '"';
    EXPECT_EQ(String8(text).hash(), hash) << '"' << text << '"';
    Name const twice(text);
    EXPECT_EQ(twice.hash(), twice.hash());
  }
  EXPECT_EQ(Nox::hashOfKey(258U), 258U);
}

TEST(Name, HashSpreadsNamesThatDifferInANumber) {
  std::set<std::uint32_t> low;
  for (int i = 0; i < 4096; ++i) low.insert(Name("leaf-" + std::to_string(i)).hash() & 4095U);
  EXPECT_GT(low.size(), 2400U);  // 4096 balls in 4096 boxes leave about 2589 boxes hit
}

TEST(String8, InitTakesASpanOfTheText) {
  String8 s("before");
  s.init("0123456789", 2, 3);
  EXPECT_EQ(s, "234");
  s.init("abc", 0, 0);
  EXPECT_TRUE(s.empty());
  s.init("a\0b", 0, 3);
  EXPECT_EQ(s, std::string_view("a\0b", 3));
}

TEST(String8, PlusMakesANewBufferUnlessASideIsEmpty) {
  String8 const a("ab"), b("cd"), none;
  EXPECT_EQ(a + b, "abcd");
  EXPECT_STREQ((a + b).charPtr(), "abcd");
  EXPECT_EQ((a + none).data(), a.data());
  EXPECT_EQ((none + b).data(), b.data());
  EXPECT_EQ(a + "", "ab");
  EXPECT_EQ(a, "ab");
}

TEST(String8, AssignmentOfTextLeavesCopiesAlone) {
  String8 a("first");
  String8 const copy = a;
  a = "second";
  EXPECT_EQ(a, "second");
  EXPECT_EQ(copy, "first");
  a = a.charPtr();
  EXPECT_EQ(a, "second");
  a = nullptr;
  EXPECT_TRUE(a.empty());
}

TEST(String8, FormatWritesInTheMannerOfPrintf) {
  EXPECT_EQ(Nox::format("%d of %s", 3, "x"), "3 of x");
  EXPECT_EQ(Nox::format("%s", ""), "");
  std::string const large(5000, 'y');
  EXPECT_EQ(Nox::format("%s!", large.c_str()), large + "!");
}

TEST(String8, RandomTextsCompareAndHashLikeTheirBytes) {
  std::mt19937 random(3);
  std::vector<std::string> texts;
  for (int i = 0; i < 200; ++i) {
    std::string text(random() % 6, '\0');
    for (char& c : text) c = static_cast<char>(random() % 3 == 0 ? random() % 256 : 'a' + random() % 2);
    texts.push_back(text);
  }
  auto const bytesLess = [](std::string const& a, std::string const& b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
      return static_cast<unsigned char>(x) < static_cast<unsigned char>(y);
    });
  };
  for (std::string const& a : texts)
    for (std::string const& b : texts) {
      String8 const x(a), y(b);
      ASSERT_EQ(x == y, a == b);
      ASSERT_EQ(x < y, bytesLess(a, b));
      if (a == b) {
        ASSERT_EQ(x.hash(), y.hash());
      }
    }
}

}  // namespace

}  // namespace NameTest
