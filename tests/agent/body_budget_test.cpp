// Which bodies there is room for.
#include <gmock/gmock.h>

#include <deque>

#include "agent/net/body_budget.h"
#include "support/documents.h"

namespace Agent::BodyBudgetTest {
namespace {

using ::testing::HasSubstr;

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;

/// How many bodies of so many bytes there is room for, from that address.
std::size_t fill(BodyBudget& budget, std::deque<BodyBudget::Share>& shares, AddressShares::Origin from,
                 std::size_t bytes) {
  for (std::size_t count = 0;; ++count) {
    BodyBudget::Share share(budget, from);
    if (!share.sizeIs(bytes)) return count;
    shares.push_back(std::move(share));
  }
}

TEST(BodyBudget, AnAddressHasItsShare) {
  BodyBudget budget(16 * kMebibyte, 12 * kMebibyte);
  std::deque<BodyBudget::Share> shares;
  EXPECT_EQ(fill(budget, shares, 1, kMebibyte), 12u);
  EXPECT_EQ(fill(budget, shares, 1, 1), 0u) << "short ones too";
  EXPECT_EQ(fill(budget, shares, 2, kMebibyte), 3u);
  shares.clear();
  EXPECT_EQ(fill(budget, shares, 2, kMebibyte), 12u);
}

TEST(BodyBudget, LongBodiesLeaveRoomForShortOnes) {
  BodyBudget budget(16 * kMebibyte, 12 * kMebibyte);
  std::deque<BodyBudget::Share> shares;
  for (AddressShares::Origin const from : {1, 2}) fill(budget, shares, from, kMebibyte);
  EXPECT_EQ(shares.size(), 15u);
  BodyBudget::Share grows(budget, 3);
  EXPECT_TRUE(grows.sizeIs(2 * kShortBody));
  EXPECT_FALSE(grows.sizeIs(2 * kShortBody + 1)) << "what becomes long";
  EXPECT_EQ(fill(budget, shares, 3, kShortBody), 14u);
  shares.pop_front();
  EXPECT_TRUE(grows.sizeIs(2 * kShortBody + 1));
}

// A request may be held for longer than the server.
TEST(BodyBudget, GivesBackWhatOutlivesIt) {
  auto budget = std::make_unique<BodyBudget>(100, 100);
  BodyBudget::Share share(*budget, 1);
  EXPECT_TRUE(share.sizeIs(50));
  EXPECT_FALSE(share.sizeIs(101));
  EXPECT_TRUE(share.sizeIs(100));
  EXPECT_TRUE(share.sizeIs(10)) << "and less";
  BodyBudget::Share other(*budget, 1);
  EXPECT_TRUE(other.sizeIs(90));
  BodyBudget::Share const moved(std::move(share));
  budget.reset();
}

TEST(BodyBudget, IsWhatTheDocumentSays) {
  std::string const serving = wordsOf(documentNamed("docs/serving.md"));
  EXPECT_THAT(serving, HasSubstr("of up to " + std::to_string(kShortBody / 1024) + " KiB"));
  EXPECT_THAT(serving, HasSubstr("1/" + std::to_string(kShortBodiesPart) + " of `--max-bodies`"));
}

}  // namespace
}  // namespace Agent::BodyBudgetTest
