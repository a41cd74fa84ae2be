// What records keep their keyed attributes in: values, child entities, the single child.
#include "framework/core/collections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "framework/core/entity.h"
#include "support/sample.h"

namespace CollectionsTest {
namespace {

using Nox::Entity;
using Nox::Name;
using Nox::Ptr;
using Sample::Counted;
using Sample::Device;
using Sample::kCard;
using Sample::kFan;
using testing::ElementsAre;

TEST(ValueMap, SaysWhetherAWriteChangedAnything) {
  Device::PortMap ports;
  EXPECT_EQ(ports.value("a"), 0U) << "the value of an absent key";
  EXPECT_TRUE(ports.valueIs("a", 0)) << "a new key is a change, whatever its value";
  EXPECT_FALSE(ports.valueIs("a", 0));
  EXPECT_TRUE(ports.valueIs("a", 1));
  EXPECT_FALSE(ports.valueIs("a", 1));
  EXPECT_EQ(ports.value("a"), 1U);
  EXPECT_TRUE(ports.memberDel("a"));
  EXPECT_FALSE(ports.memberDel("a"));
  EXPECT_FALSE(ports.has("a"));
}

TEST(ValueMap, FollowsAStandardMap) {
  std::mt19937 random(1);
  Device::PortMap ports;
  std::map<std::string, unsigned> model;
  for (int step = 0; step < 3000; ++step) {
    std::string const key = "p" + std::to_string(random() % 40);
    if (random() % 3 == 0) {
      ASSERT_EQ(static_cast<bool>(ports.memberDel(key)), model.erase(key) != 0);
    } else {
      unsigned const value = random() % 3;
      auto const [it, isNew] = model.try_emplace(key, value);
      ASSERT_EQ(ports.valueIs(key, value), isNew || it->second != value);
      it->second = value;
    }
    ASSERT_EQ(ports.members(), model.size());
    ASSERT_EQ(ports.value(key), model.count(key) ? model.at(key) : 0U);
  }
}

TEST(ValueMap, AChangedValueKeepsItsRowAndItsPlace) {
  Device::PortMap ports;
  ports.valueIs("a", 1);
  Device::Port const* const row = ports.find("a");
  std::uint32_t const modifications = ports.modifications();
  ports.valueIs("a", 2);
  EXPECT_EQ(ports.find("a"), row);
  EXPECT_EQ(ports.modifications(), modifications);
}

/// Writes down what is done to it as a child.
class Child : public Entity, public Nox::HashMapLink {
 public:
  explicit Child(Name name) : Entity(std::move(name)) {}
  Name fwkKey() const { return name(); }
  void parentAttrIdIs(Nox::AttributeId id) override {
    done.push_back("attr " + std::to_string(id));
    Entity::parentAttrIdIs(id);
  }
  void parentIs(Ptr<Entity> const& parent) override {
    done.push_back(parent ? "parent " + std::string(parent->name().view()) : "no parent");
    if (onParentIs) onParentIs();
    Entity::parentIs(parent);
  }
  std::vector<std::string> done;
  std::function<void()> onParentIs;
};
using ChildMap = Nox::ChildMap<Child, Name>;
using Single = Nox::Child<Child>;

TEST(ChildMap, ANewChildGetsItsAttributeThenItsParent) {
  auto const owner = Nox::make<Entity>("owner");
  ChildMap children;
  auto const child = children.newChild(*owner, kCard, "c");
  EXPECT_THAT(child->done, ElementsAre("attr 258", "parent owner"));
  EXPECT_EQ(children.member("c"), child);
  EXPECT_EQ(child->parentAttrId(), kCard);
}

TEST(ChildMap, ARemovedChildLosesItsParentAfterItsPlace) {
  auto const owner = Nox::make<Entity>("owner");
  ChildMap children;
  Ptr<Child> const child = children.newChild(*owner, kCard, "c");
  child->onParentIs = [&] { EXPECT_FALSE(children.has("c")); };
  EXPECT_EQ(children.memberDel("c"), child);
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(child->done.back(), "no parent");
  EXPECT_EQ(children.memberDel("c"), nullptr);
}

TEST(ChildMap, ChildrenThatOutliveEveryOtherWayOutHaveNoParent) {
  auto const owner = Nox::make<Entity>("owner");
  std::vector<Ptr<Child>> survivors;
  survivors.reserve(80);
  auto children = std::make_unique<ChildMap>();
  for (int i = 0; i < 40; ++i) survivors.push_back(children->newChild(*owner, kCard, "c" + std::to_string(i)));
  children->deleteMember(ChildMap::Iterator(*children, "c7"));
  EXPECT_EQ(survivors[7]->parent(), nullptr);
  EXPECT_EQ(survivors[8]->parent(), owner);
  children->deleteAll();
  for (auto const& child : survivors) EXPECT_EQ(child->parent(), nullptr);
  EXPECT_TRUE(children->empty());
  for (int i = 0; i < 40; ++i) survivors.push_back(children->newChild(*owner, kCard, "d" + std::to_string(i)));
  children.reset();
  for (auto const& child : survivors) EXPECT_EQ(child->parent(), nullptr);
}

TEST(SingleChild, IsPutUnderItsOwner) {
  auto const owner = Nox::make<Entity>("owner");
  Single slot;
  EXPECT_EQ(slot.get(), nullptr);
  auto const child = slot.put(*owner, kFan, Nox::make<Child>("a"));
  EXPECT_THAT(child->done, ElementsAre("attr 259", "parent owner"));
  EXPECT_EQ(slot.get(), child);
}

TEST(SingleChild, TakingItOutClearsTheFieldFirstThenTheParent) {
  auto const owner = Nox::make<Entity>("owner");
  Single slot;
  auto const child = slot.put(*owner, kFan, Nox::make<Child>("a"));
  bool told = false;
  child->onParentIs = [&] {
    told = true;
    EXPECT_EQ(slot.get(), nullptr);
  };
  EXPECT_EQ(slot.take(), child);
  EXPECT_TRUE(told);
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(slot.take(), nullptr);
}

TEST(SingleChild, AReplacedChildAndOneThatOutlivesTheOwnerHaveNoParent) {
  auto const owner = Nox::make<Entity>("owner");
  Ptr<Child> first, second;
  {
    Single slot;
    first = slot.put(*owner, kFan, Nox::make<Child>("a"));
    second = slot.put(*owner, kFan, Nox::make<Child>("b"));
    EXPECT_EQ(first->parent(), nullptr);
    EXPECT_EQ(second->parent(), owner);
    EXPECT_EQ(slot.get(), second);
  }
  EXPECT_EQ(second->parent(), nullptr);
}

TEST(Children, TheParentLinkIsNotCounted) {
  {
    auto const device = Nox::make<Device>();
    auto const card = device->cardIs("c");
    EXPECT_EQ(device->noxWord(), 1U);
  }
  EXPECT_EQ(Counted::alive, 0);
}

}  // namespace

}  // namespace CollectionsTest
