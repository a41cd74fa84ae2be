// The keyed collection: its order, its growth, and iterators under every kind of insertion and removal.
#include "framework/core/hash_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "support/members.h"

namespace HashMapTest {
namespace {

using Nox::Name;
using Nox::Ptr;
using Sample::alive;
using Sample::Choosy;
using Sample::Constant;
using Sample::Map;
using Sample::Member;
using Sample::numbersOf;

using Plain = Map<unsigned>;
Ptr<Member<unsigned>> put(Plain& map, unsigned key, int number = 0) {
  Ptr<Member<unsigned>> member = Nox::make<Member<unsigned>>(key, number);
  map.newMember(member);
  return member;
}

TEST(HashMap, KeysThatHashAlikeIterateInKeyOrderWhateverTheInsertion) {
  std::vector<unsigned> keys{3, 1, 2, 0, 4, 6, 5};
  std::sort(keys.begin(), keys.end());
  do {
    Map<Constant> map;
    for (unsigned const key : keys) map.newMember(Nox::make<Member<Constant>>(Constant{key}, static_cast<int>(key)));
    ASSERT_EQ(numbersOf(map), (std::vector<int>{0, 1, 2, 3, 4, 5, 6}));
  } while (std::next_permutation(keys.begin(), keys.end()));
}

TEST(HashMap, ADuplicateGoesBehindTheFirstWhichLookUpAndRemovalTake) {
  Plain map;
  for (int i = 0; i < 3; ++i) put(map, 7, i);
  put(map, 8, 3);
  EXPECT_EQ(map.member(7)->number, 0);
  EXPECT_EQ(map.memberDel(7)->number, 0);
  EXPECT_EQ(map.member(7)->number, 1);
  put(map, 7, 9);
  std::vector<int> sevens;
  for (Plain::Iterator at(map, 7); at && at->fwkKey() == 7; ++at) sevens.push_back(map.deleteMember(at)->number);
  EXPECT_EQ(sevens, (std::vector<int>{1, 2, 9}));
  EXPECT_EQ(map.members(), 1U);
}

TEST(HashMap, TheCollectionHoldsOneReferenceToEachMember) {
  Ptr<Member<unsigned>> member;
  {
    Plain map;
    member = put(map, 1);
    EXPECT_EQ(member->count(), 2U);
    map.memberDel(1);
    EXPECT_EQ(member->count(), 1U);
    map.newMember(member);
  }
  EXPECT_EQ(member->count(), 1U);
  EXPECT_EQ(member->fwkHmNext(), nullptr) << "a member that outlives its collection is free for another";
  Plain other;
  other.newMember(member);
  EXPECT_TRUE(other.has(1));
}

TEST(HashMapDeathTest, AMemberThatIsStillLinkedIsRefused) {
  Plain one, other;
  auto const first = put(one, 1);
  auto const last = put(one, 0x80000001);
  EXPECT_DEATH(other.newMember(first), "t->fwkHmNext\\(\\) == 0");
  EXPECT_DEATH(one.newMember(first), "t->fwkHmNext\\(\\) == 0");
  EXPECT_DEATH(other.newMember(last), "HashMap\\.h:328: assertion failed: t->fwkHmNext\\(\\) == 0\n");
  Plain single;
  auto const only = put(single, 1);
  EXPECT_DEATH(single.newMember(only), "t->fwkHmNext\\(\\) == 0");
  single.memberDel(1);
  other.newMember(only);
  EXPECT_TRUE(other.has(1));
}

TEST(HashMap, BucketsGrowAndShrinkWithHysteresis) {
  Plain map;
  EXPECT_EQ(map.buckets(), 1U);
  std::map<std::uint32_t, unsigned> grownAt, shrunkAt;  // bucket count reached -> members then
  for (unsigned i = 0; i < 5000; ++i) {
    std::uint32_t const before = map.buckets();
    put(map, i);
    ASSERT_LE(map.members(), std::max(4U, map.buckets())) << "load factor";
    if (map.buckets() != before) grownAt[map.buckets()] = map.members();
  }
  for (unsigned i = 0; i < 5000; ++i) {
    std::uint32_t const before = map.buckets();
    map.memberDel(i);
    if (map.buckets() != before) shrunkAt[before] = map.members();
    ASSERT_LE(map.buckets(), std::max(8U, 8 * map.members())) << "a shrunk collection keeps no large array";
  }
  EXPECT_EQ(map.buckets(), 1U);
  ASSERT_GE(grownAt.size(), 10U);
  for (auto const& [buckets, members] : grownAt)
    EXPECT_LE(shrunkAt.at(buckets) * 2, members) << "half of the members go before " << buckets << " buckets go";
}

TEST(HashMap, AMemberThatComesAndGoesAtAThresholdMovesTheBucketsOnce) {
  Plain map;
  for (unsigned i = 0; i < 300; ++i) {
    int changes = 0;
    for (int round = 0; round < 5; ++round) {
      std::uint32_t const before = map.buckets();
      put(map, 1000 + i);
      std::uint32_t const between = map.buckets();
      map.memberDel(1000 + i);
      changes += (before != between) + (between != map.buckets());
    }
    EXPECT_LE(changes, 1) << "at " << i << " members";
    put(map, i);
  }
}

/// A position that tells of removals.
class Watching : public Plain::Iterator {
 public:
  using Hook = std::function<void(Ptr<Member<unsigned>> const&)>;
  Watching(Plain const& map, Hook hook) : Iterator(map), hook_(std::move(hook)) {}
  Watching(Plain const& map, unsigned key, Hook hook) : Iterator(map, key), hook_(std::move(hook)) {}
  void deleteNotify(Ptr<Member<unsigned>> const& member) const override { hook_(member); }

 private:
  Hook hook_;
};

TEST(HashMap, DeleteNotifyFindsTheMemberAliveUnlinkedAndOutOfTheCount) {
  Plain map;
  put(map, 1);
  put(map, 2);
  int calls = 0;
  auto const removed = map.deleteMember(Watching(map, 1, [&](Ptr<Member<unsigned>> const& member) {
    ++calls;
    EXPECT_EQ(member->fwkKey(), 1U);
    EXPECT_EQ(member->fwkHmNext(), nullptr);
    EXPECT_EQ(member->count(), 1U) << "the collection's reference became the hook's";
    EXPECT_EQ(map.members(), 1U);
    EXPECT_FALSE(map.has(1));
    EXPECT_EQ(alive, 2);
  }));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(removed->fwkKey(), 1U);
  EXPECT_EQ(map.deleteMember(Watching(map, 1, [&](auto const&) { ++calls; })), nullptr);
  EXPECT_EQ(calls, 1) << "nothing to remove, nothing to tell";
}

TEST(HashMap, DeleteAllTellsOfEachMemberInOrder) {
  Plain map;
  std::vector<unsigned> inOrder, told;
  for (unsigned i = 0; i < 100; ++i) put(map, i);
  for (auto const& m : map) inOrder.push_back(m.fwkKey());
  map.deleteAll(Watching(map, [&](Ptr<Member<unsigned>> const& member) { told.push_back(member->fwkKey()); }));
  EXPECT_EQ(told, inOrder);
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.buckets(), 1U);
  EXPECT_EQ(alive, 0);
}

TEST(HashMap, AHookMayRemoveInsertAndEmpty) {
  Plain map;
  for (unsigned i = 0; i < 64; ++i) put(map, i);
  unsigned told = 0;
  map.deleteAll(Watching(map, [&](Ptr<Member<unsigned>> const& member) {
    ++told;
    map.memberDel(member->fwkKey() ^ 1);     // with its neighbour, for which the hook is not called
    if (member->fwkKey() == 6) put(map, 6);  // the same key again: not visited, or this would never end
    if (member->fwkKey() == 13) map.deleteAll();
  }));
  EXPECT_LT(told, 33U);
  EXPECT_LE(map.members(), 1U);
}

TEST(HashMap, AHookMayEndTheCollection) {
  auto map = std::make_unique<Plain>();
  for (unsigned i = 0; i < 64; ++i) put(*map, i);
  Ptr<Member<unsigned>> kept;
  map->deleteAll(Watching(*map, [&](Ptr<Member<unsigned>> const& member) {
    kept = member;
    map.reset();
  }));
  EXPECT_EQ(alive, 1);
}

/// A collection of 0..9 in the order in which it iterates, and its positions.
struct Ten {
  Ten() {
    for (unsigned i = 0; i < 10; ++i) put(map, i);
    for (auto const& m : map) order.push_back(m.fwkKey());
  }
  std::vector<unsigned> rest(Plain::Iterator& at) const {
    std::vector<unsigned> keys;
    for (++at; at; ++at) keys.push_back(at->fwkKey());
    return keys;
  }
  std::vector<unsigned> orderFrom(std::size_t i) const { return {order.begin() + static_cast<long>(i), order.end()}; }
  Plain map;
  std::vector<unsigned> order;
};

TEST(HashMapIterator, GoesOnAfterItsMemberIsRemoved) {
  for (std::size_t i = 0; i < 10; ++i) {
    Ten t;
    Plain::Iterator at(t.map, t.order[i]);
    t.map.memberDel(t.order[i]);
    EXPECT_FALSE(at);
    EXPECT_EQ(at.member(), nullptr);
    EXPECT_TRUE(at.hasBookmark());
    EXPECT_EQ(t.rest(at), t.orderFrom(i + 1));
    EXPECT_FALSE(at.hasBookmark());
  }
}

TEST(HashMapIterator, SkipsTheNextOneWhenThatIsRemoved) {
  for (std::size_t i = 0; i + 1 < 10; ++i) {
    Ten t;
    Plain::Iterator at(t.map, t.order[i]);
    t.map.memberDel(t.order[i + 1]);
    EXPECT_EQ(t.rest(at), t.orderFrom(i + 2));
  }
}

TEST(HashMapIterator, SurvivesTheRemovalOfItsMemberAndItsNeighbours) {
  Ten t;
  Plain::Iterator at(t.map, t.order[4]);
  for (std::size_t const i : {4U, 5U, 3U, 6U}) t.map.memberDel(t.order[i]);
  EXPECT_EQ(t.rest(at), t.orderFrom(7));
}

TEST(HashMapIterator, EndsWhenEveryMemberIsRemoved) {
  Ten t;
  Plain::Iterator at(t.map, t.order[4]);
  t.map.deleteAll();
  EXPECT_TRUE(at.hasBookmark());
  EXPECT_TRUE(t.rest(at).empty());
  put(t.map, 1);
  EXPECT_TRUE(t.rest(at).empty()) << "a position at the end stays there";
}

TEST(HashMapIterator, VisitsWhatIsInsertedBehindAndNotWhatIsInsertedBefore) {
  for (bool const removed : {false, true}) {
    Ten t;
    unsigned const before = t.order[2], behind = t.order[7];
    t.map.memberDel(before);
    t.map.memberDel(behind);
    Plain::Iterator at(t.map, t.order[4]);
    if (removed) t.map.memberDel(t.order[4]);
    put(t.map, before);
    put(t.map, behind);
    EXPECT_EQ(t.rest(at), t.orderFrom(5));
  }
}

TEST(HashMapIterator, KeepsItsPlaceWhileBucketsComeAndGo) {
  Ten t;
  Plain::Iterator at(t.map, t.order[4]);
  for (unsigned i = 100; i < 2000; ++i) put(t.map, i);
  for (unsigned i = 100; i < 2000; ++i) t.map.memberDel(i);
  EXPECT_EQ(t.rest(at), t.orderFrom(5));
}

TEST(HashMapIterator, OutlivesItsCollection) {
  auto ten = std::make_unique<Ten>();
  Plain::Iterator on(ten->map, ten->order[4]), removed(ten->map, ten->order[5]), end(ten->map, 77);
  ten->map.memberDel(ten->order[5]);
  ten.reset();
  for (Plain::Iterator* at : {&on, &removed, &end}) {
    EXPECT_FALSE(*at);
    EXPECT_EQ(at->map(), nullptr);
    EXPECT_FALSE(++*at);
  }
}

TEST(HashMapIterator, ABookmarkIsValidWhateverItsKey) {
  Map<Name> map;
  map.newMember(Nox::make<Member<Name>>(Name()));
  map.newMember(Nox::make<Member<Name>>(Name("x")));
  Map<Name>::Iterator at(map, Name());
  EXPECT_TRUE(at.hasBookmark());
  map.memberDel(Name());
  EXPECT_TRUE(at.hasBookmark()) << "an empty key is a key";
  ++at;
  ASSERT_TRUE(at);
  EXPECT_EQ(at->fwkKey(), "x");
  EXPECT_FALSE(++at);
  EXPECT_FALSE(at.hasBookmark());
  EXPECT_FALSE(Map<Name>::Iterator(map, "absent").hasBookmark());
}

TEST(HashMapIterator, AKeyTypeMaySayThatItsEmptyValueIsNoBookmark) {
  Map<Choosy> map;
  for (unsigned i = 0; i < 2; ++i) map.newMember(Nox::make<Member<Choosy>>(Choosy{i}));
  Map<Choosy>::Iterator none(map, Choosy{0}), some(map, Choosy{1});
  EXPECT_FALSE(none.hasBookmark());
  EXPECT_TRUE(some.hasBookmark());
  map.memberDel(Choosy{0});
  map.memberDel(Choosy{1});
  EXPECT_FALSE(none.hasBookmark());
  EXPECT_TRUE(some.hasBookmark());
}

TEST(HashMap, AMillionMembersInOneChainComeDownWithoutRecursion) {
  for (bool const oneByOne : {false, true}) {
    Map<Constant> map;
    // From the largest key down, each goes to the head of its chain at once.
    for (unsigned i = 1000000; i > 0; --i) map.newMember(Nox::make<Member<Constant>>(Constant{i}));
    EXPECT_EQ(alive, 1000000);
    if (oneByOne) map.deleteAll();
    EXPECT_EQ(map.members(), oneByOne ? 0U : 1000000U);
  }
  EXPECT_EQ(alive, 0);
}

TEST(HashMap, AMemberThatGoesWithItsCollectionFindsItEmpty) {
  static Plain* theMap = nullptr;
  struct Greedy : Member<unsigned> {
    using Member::Member;
    ~Greedy() override {
      EXPECT_TRUE(theMap->empty());
      EXPECT_FALSE(theMap->has(fwkKey() + 1));
    }
  };
  {
    Plain going;
    theMap = &going;
    for (unsigned i = 0; i < 50; ++i) going.newMember(Ptr<Greedy>(Nox::make<Greedy>(i)));
  }
  EXPECT_EQ(alive, 0);
}

}  // namespace

}  // namespace HashMapTest
