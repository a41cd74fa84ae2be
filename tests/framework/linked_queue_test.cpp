// Queues through the members' own links: order, removal under a walk, and what holds what.
#include "framework/core/linked_queue.h"

#include <gmock/gmock.h>

#include <deque>
#include <random>
#include <string>
#include <vector>

namespace LinkedQueueTest {
namespace {

using testing::ElementsAre;

class Item final : public Nox::PtrInterface, public Nox::LinkQueueLink<0>, public Nox::LinkQueueLink<1> {
 public:
  explicit Item(int n) : number(n) { ++alive; }
  ~Item() override { --alive; }
  int const number;
  static inline int alive = 0;
};

using Queue = Nox::LinkQueue<Item, 0>;

template <class Q>
std::vector<int> numbers(Q const& queue) {
  std::vector<int> all;
  for (Item const& item : queue) all.push_back(item.number);
  return all;
}

TEST(LinkQueue, KeepsTheOrderInWhichMembersCame) {
  Item a(1);
  Item b(2);
  Item c(3);
  Queue queue;
  EXPECT_TRUE(queue.empty());
  for (Item* item : {&b, &a, &c}) queue.enq(*item);
  EXPECT_THAT(numbers(queue), ElementsAre(2, 1, 3));
  queue.remove(a);
  EXPECT_THAT(numbers(queue), ElementsAre(2, 3));
  queue.enq(a);
  EXPECT_THAT(numbers(queue), ElementsAre(2, 3, 1));
  queue.deleteAll();
  EXPECT_TRUE(queue.empty());
}

TEST(LinkQueue, AMemberIsInOneQueuePerLink) {
  Item a(1);
  Queue queue;
  Nox::LinkQueue<Item, 1> other;
  queue.enq(a);
  other.enq(a);
  EXPECT_EQ(numbers(queue), numbers(other));
  EXPECT_DEATH(queue.enq(a), "in one queue at a time");
}

/// A walk that removes and appends members at random, against a list of what it must still visit.
TEST(LinkQueue, AWalkSurvivesAnyRemovalAndVisitsWhatIsAppended) {
  for (unsigned seed = 0; seed < 2000; ++seed) {
    std::mt19937 random(seed);
    std::deque<Item> items;
    Queue queue;
    std::vector<Item*> model;
    auto const append = [&] {
      model.push_back(&items.emplace_back(static_cast<int>(items.size()))), queue.enq(*model.back());
    };
    for (unsigned n = random() % 6; n > 0; --n) append();
    std::size_t behind = 0;  // how many of the model the walk has passed
    Queue::IteratorConst at(queue);
    while (behind < model.size()) {
      ASSERT_TRUE(at) << seed;
      ASSERT_EQ(&*at, model[behind]) << seed;
      std::size_t passed = behind + 1;
      for (unsigned n = random() % 4; n > 0 && !model.empty(); --n) {
        std::size_t const victim = random() % model.size();
        queue.remove(*model[victim]);
        model.erase(model.begin() + static_cast<std::ptrdiff_t>(victim));
        if (victim < passed) --passed;
        ASSERT_TRUE(at.hasBookmark());
      }
      if (items.size() < 40 && random() % 2 == 0) append();
      behind = passed;
      ++at;
    }
    EXPECT_FALSE(at) << seed;
    EXPECT_FALSE(at.hasBookmark()) << seed;
    queue.deleteAll();
  }
}

TEST(LinkQueue, APositionOutlivesItsQueue) {
  Item a(1);
  auto queue = std::make_unique<Queue>();
  queue->enq(a);
  Queue::IteratorConst at(*queue);
  queue = nullptr;
  ++at;
  EXPECT_FALSE(at);
}

struct Owner {
  using ItemQueue = Nox::LinkedQueue<Item, Owner, Nox::Ptr<Item>>;
  void enq(Nox::Ptr<Item> const& item) { items.enq(item); }
  Nox::Ptr<Item> remove(Item& item) { return items.remove(item); }
  ItemQueue items;
};

TEST(LinkedQueue, HoldsItsMembersUntilTheyAreRemoved) {
  {
    Owner owner;
    for (int number : {1, 2, 3}) owner.enq(Nox::make<Item>(number));
    EXPECT_EQ(Item::alive, 3);
    EXPECT_THAT(numbers(owner.items), ElementsAre(1, 2, 3));
    Nox::Ptr<Item> const removed = owner.remove(*owner.items.begin());
    EXPECT_EQ(removed->number, 1);
    EXPECT_EQ(Item::alive, 3);
    owner.items.deleteAll();
    EXPECT_EQ(Item::alive, 1);
    EXPECT_TRUE(owner.items.empty());
    owner.enq(removed);
  }
  EXPECT_EQ(Item::alive, 0);
}

}  // namespace

}  // namespace LinkedQueueTest
