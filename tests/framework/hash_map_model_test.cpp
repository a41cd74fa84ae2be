// The keyed collection under random operations, against sorted standard containers.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "framework/core/hash_map.h"
#include "support/members.h"

namespace HashMapModelTest {
namespace {

using Nox::Name;
using Nox::Ptr;
using Sample::alive;
using Sample::Collider;
using Sample::Constant;
using Sample::keyOf;
using Sample::Map;
using Sample::Member;
using Sample::numbersOf;
using Sample::reversed;

template <class Key>
class HashMapOf : public testing::Test {};
using Keys = testing::Types<unsigned, Name, Collider, Constant>;
TYPED_TEST_SUITE(HashMapOf, Keys);

TYPED_TEST(HashMapOf, FollowsAStandardMapOverRandomOperations) {
  using Key = TypeParam;
  for (unsigned seed = 0; seed < 8; ++seed) {
    std::mt19937 random(seed);
    unsigned const range = 4U << seed;
    Map<Key> map(seed % 3 == 0 ? 1 : 1U << seed);
    std::map<std::pair<std::uint32_t, Key>, int> model;
    std::uint32_t modifications = 0;
    for (int step = 0; step < 1500; ++step) {
      Key const key = keyOf<Key>(random() % range);
      auto const place = std::pair(reversed(Nox::hashOfKey(key)), key);
      bool const filling = step / 300 % 2 == 0;
      if (random() % 4 < (filling ? 3U : 1U)) {
        if (!model.count(place)) {
          map.newMember(Nox::make<Member<Key>>(key, step));
          model[place] = step;
          ++modifications;
        }
      } else {
        Ptr<Member<Key>> const removed = map.memberDel(key);
        ASSERT_EQ(static_cast<bool>(removed), model.erase(place) != 0);
        if (removed) {
          ++modifications;
          ASSERT_EQ(removed->fwkHmNext(), nullptr);
          ASSERT_EQ(removed->count(), 1U) << "the collection's reference is dropped";
        }
      }
      ASSERT_EQ(map.members(), model.size());
      ASSERT_EQ(map.modifications(), modifications);
      Key const probe = keyOf<Key>(random() % range);
      auto const found = model.find(std::pair(reversed(Nox::hashOfKey(probe)), probe));
      Ptr<Member<Key>> const member = map.member(probe);
      ASSERT_EQ(static_cast<bool>(member), found != model.end());
      ASSERT_EQ(map.has(probe), found != model.end());
      if (member) {
        ASSERT_EQ(member->number, found->second);
      }
      if (step % 50 == 0) {
        std::vector<int> expected;
        expected.reserve(model.size());
        for (auto const& [k, number] : model) expected.push_back(number);
        ASSERT_EQ(numbersOf(map), expected);
      }
    }
  }
  EXPECT_EQ(alive, 0);
}

TYPED_TEST(HashMapOf, OrderIsThatOfReversedHashAndKeyWhateverBucketsAndInsertion) {
  using Key = TypeParam;
  std::vector<unsigned> keys(200);
  for (unsigned i = 0; i < keys.size(); ++i) keys[i] = i;
  std::vector<int> expected(keys.begin(), keys.end());
  std::sort(expected.begin(), expected.end(), [](int a, int b) {
    Key const x = keyOf<Key>(static_cast<unsigned>(a)), y = keyOf<Key>(static_cast<unsigned>(b));
    return std::pair(reversed(Nox::hashOfKey(x)), x) < std::pair(reversed(Nox::hashOfKey(y)), y);
  });
  std::mt19937 random(5);
  for (unsigned const buckets : {1U, 2U, 3U, 16U, 1024U, 1U << 16}) {
    std::shuffle(keys.begin(), keys.end(), random);
    Map<Key> map(buckets);
    for (unsigned const key : keys) map.newMember(Nox::make<Member<Key>>(keyOf<Key>(key), static_cast<int>(key)));
    EXPECT_EQ(numbersOf(map), expected) << buckets << " buckets at first";
  }
}

/// What an iterator must do, over a plain sorted vector.
template <class Key>
class Model {
 public:
  struct Item {
    std::uint32_t hash;
    Key key;
    int number;
    bool sorts(Item const& other) const { return std::pair(hash, key) < std::pair(other.hash, other.key); }
  };
  struct Position {
    std::optional<Item> at;       // the member under it
    std::optional<Item> removed;  // or the one that went there
    int twin = -1;                // and the next of its key at that time
  };

  Item const& insert(Key const& key, int number) {
    Item const item{reversed(Nox::hashOfKey(key)), key, number};
    auto const behind =
        std::upper_bound(items.begin(), items.end(), item, [](Item const& a, Item const& b) { return a.sorts(b); });
    return *items.insert(behind, item);
  }
  void remove(int number) {
    auto const it = find(number);
    Item const gone = *it;
    auto const next = items.erase(it);
    int const twin = next != items.end() && next->key == gone.key ? next->number : -1;
    for (Position* p : positions) {
      if (p->at && p->at->number == number) {
        p->removed = std::exchange(p->at, std::nullopt);
        p->twin = twin;
      } else if (p->twin == number) {
        p->twin = twin;
      }
    }
  }
  void advance(Position& p) {
    auto next = items.end();
    if (p.at) {
      next = std::next(find(p.at->number));
    } else if (p.removed && p.twin >= 0) {
      next = find(p.twin);
    } else if (p.removed) {
      next = std::upper_bound(
          items.begin(), items.end(), *p.removed, [](Item const& a, Item const& b) { return a.sorts(b); });
    }
    p = Position();
    if (next != items.end()) p.at = *next;
  }
  typename std::vector<Item>::iterator find(int number) {
    return std::find_if(items.begin(), items.end(), [number](Item const& i) { return i.number == number; });
  }

  std::vector<Item> items;
  std::vector<Position*> positions;
};

TYPED_TEST(HashMapOf, IteratorsAndDuplicatesFollowASortedListOverRandomOperations) {
  using Key = TypeParam;
  using Iterator = typename Map<Key>::Iterator;
  for (unsigned seed = 0; seed < 30; ++seed) {
    std::mt19937 random(seed);
    unsigned const range = 3U + seed * 2;
    Map<Key> map;
    Model<Key> model;
    struct Both {
      std::unique_ptr<Iterator> real;
      typename Model<Key>::Position model;
    };
    std::vector<Both> iterators(4);
    for (Both& b : iterators) model.positions.push_back(&b.model);
    int number = 0;
    for (int step = 0; step < 1200; ++step) {
      switch (random() % 6) {
        case 0:
        case 1: {
          if (model.items.size() > 80) break;
          Key const key = keyOf<Key>(random() % range);
          map.newMember(Nox::make<Member<Key>>(key, number));
          model.insert(key, number++);
          break;
        }
        case 2: {  // the first of a key
          Key const key = keyOf<Key>(random() % range);
          Ptr<Member<Key>> const removed = map.memberDel(key);
          auto const it =
              std::find_if(model.items.begin(), model.items.end(), [&](auto const& i) { return i.key == key; });
          ASSERT_EQ(removed ? removed->number : -1, it != model.items.end() ? it->number : -1);
          if (removed) model.remove(removed->number);
          break;
        }
        case 3: {  // the one under a position
          Both& b = iterators[random() % iterators.size()];
          if (!b.real) break;
          Ptr<Member<Key>> const removed = map.deleteMember(*b.real);
          ASSERT_EQ(removed ? removed->number : -1, b.model.at ? b.model.at->number : -1);
          if (removed) model.remove(removed->number);
          break;
        }
        case 4: {
          Both& b = iterators[random() % iterators.size()];
          if (!b.real || random() % 8 == 0) {
            b.real = std::make_unique<Iterator>(map);
            b.model = {};
            if (!model.items.empty()) b.model.at = model.items.front();
          } else {
            ++*b.real;
            model.advance(b.model);
          }
          break;
        }
        default:
          if (random() % 60 == 0) {
            map.deleteAll();
            while (!model.items.empty()) model.remove(model.items.front().number);
          }
      }
      ASSERT_EQ(map.members(), model.items.size());
      for (Both const& b : iterators) {
        if (!b.real) continue;
        ASSERT_EQ(static_cast<bool>(*b.real), b.model.at.has_value()) << "seed " << seed << " step " << step;
        if (*b.real) {
          ASSERT_EQ((*b.real)->number, b.model.at->number) << "seed " << seed << " step " << step;
        }
        ASSERT_EQ(b.real->hasBookmark(), b.model.at || b.model.removed) << "seed " << seed << " step " << step;
      }
    }
    std::vector<int> expected;
    for (auto const& item : model.items) expected.push_back(item.number);
    ASSERT_EQ(numbersOf(map), expected);
  }
  EXPECT_EQ(alive, 0);
}

}  // namespace

}  // namespace HashMapModelTest
