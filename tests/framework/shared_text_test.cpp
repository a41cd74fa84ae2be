// Texts that share their buffers.
#include "framework/text/shared_text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "framework/memory/pool.h"
#include "framework/text/name.h"
#include "framework/text/string8.h"

namespace Nox::SharedTextTest {
namespace {

TEST(SharedText, GivesEqualTextsOneBuffer) {
  Name const a = sharedText<Name>("telemetry");
  String8 const b = sharedText<String8>(std::string("tele") + "metry");
  EXPECT_EQ(a, std::string_view("telemetry"));
  EXPECT_EQ(a.data(), b.data());
  EXPECT_NE(a.data(), sharedText<Name>("topology").data());
  EXPECT_NE(sharedText<Name>(std::string_view("a\0b", 3)).data(), sharedText<Name>(std::string_view("a\0c", 3)).data());
}

TEST(SharedText, KeepsNoBufferForTheEmptyTextAndForLongOnes) {
  EXPECT_EQ(sharedText<Name>("").data(), Name().data());
  std::string const text(1'000, 'x');
  String8 const once = sharedText<String8>(text);
  EXPECT_EQ(once, std::string_view(text));
  EXPECT_FALSE(once.isShared());
}

TEST(SharedText, IsTheTextThatWasAskedForWhateverComesAndGoes) {
  std::mt19937 random(7);
  std::vector<Name> held(500);
  for (unsigned i = 0; i < 100'000; ++i) {
    std::string const text = std::to_string(random() % 3'000);
    Name& place = held[random() % held.size()];
    place = sharedText<Name>(text);
    ASSERT_EQ(place, std::string_view(text));
    ASSERT_EQ(place.data(), sharedText<Name>(text).data());
  }
}

TEST(SharedText, GivesEachOfTenThousandNumberedNamesOneBuffer) {
  for (std::string const before : {"switch-", "leaf-", "/ports/of/rack-7/switch-", ""}) {
    for (std::string const behind : {"", "/status", "-a"}) {
      std::vector<Name> held;
      for (unsigned i = 0; i < 10'000; ++i)
        held.push_back(sharedText<Name>(before + std::to_string(1'000'000 + i) + behind));
      for (unsigned i = 0; i < 10'000; ++i)
        ASSERT_EQ(sharedText<Name>(held[i].view()).data(), held[i].data()) << held[i];
    }
  }
}

TEST(SharedText, ForgetsWhatHasGoneThoughNothingNewIsAsked) {
  Name const held = sharedText<Name>("held");
  std::uint64_t const before = poolCounts().internal.live;
  {
    std::vector<Name> passing;
    for (unsigned i = 0; i < 10'000; ++i) passing.push_back(sharedText<Name>("passing " + std::to_string(i)));
  }
  for (unsigned i = 0; i < 1'000'000; ++i) sharedText<Name>("held");
  EXPECT_LT(poolCounts().internal.live, before + 100);
}

TEST(SharedText, LetsTextsGoThatNobodyElseHolds) {
  Name const held = sharedText<Name>("held");
  std::uint64_t const before = poolCounts().internal.live;
  for (unsigned i = 0; i < 100'000; ++i) sharedText<Name>("passing " + std::to_string(i));
  EXPECT_LT(poolCounts().internal.live, before + 1'000);
  EXPECT_EQ(sharedText<Name>("held").data(), held.data());
}

TEST(SharedText, SharesPerThreadAndOutlivesIt) {
  Name const mine = sharedText<Name>("of two threads");
  Name theirs;
  std::thread([&] {
    theirs = sharedText<Name>("of two threads");
    EXPECT_EQ(sharedText<Name>("of two threads").data(), theirs.data());
  }).join();
  EXPECT_NE(theirs.data(), mine.data());
  EXPECT_EQ(theirs, mine);
  EXPECT_FALSE(theirs.isShared());
}

}  // namespace
}  // namespace Nox::SharedTextTest
