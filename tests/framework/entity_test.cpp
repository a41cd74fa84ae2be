// Entities: names, parents, the common bodies of mutators, and the log of writes.
#include "framework/core/entity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/sample.h"
#include "support/write_log.h"

namespace EntityTest {
namespace {

using Nox::Entity;
using Nox::Ptr;
using Sample::Device;
using Sample::Log;
using Sample::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;

template <class T>
std::string printed(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

TEST(Entity, PrintsItsFullNameAndANullOnePrintsAsNull) {
  auto const root = Nox::make<Entity>("root"), dir = Nox::make<Entity>("dir"), leaf = Nox::make<Entity>("leaf");
  dir->parentIs(root);
  leaf->parentIs(dir);
  EXPECT_EQ(leaf->fullName(), "root/dir/leaf");
  EXPECT_EQ(leaf->uriPath(), "/root/dir/leaf");
  EXPECT_EQ(printed(leaf), "root/dir/leaf");
  EXPECT_EQ(printed(static_cast<Entity const*>(root.get())), "root");
  EXPECT_EQ(printed(Ptr<Entity>()), "null");
  EXPECT_EQ(printed(static_cast<Entity const*>(nullptr)), "null");
}

TEST(Entity, FullNameOfADeepTreeDoesNotRecurse) {
  constexpr int kDepth = 20000;
  std::vector<Ptr<Entity>> path{Nox::make<Entity>()};
  for (int i = 0; i < kDepth; ++i) {
    Ptr<Entity> const child = Nox::make<Entity>();
    child->parentIs(path.back());
    path.push_back(child);
  }
  EXPECT_EQ(path.back()->fullName().view().size(), static_cast<std::size_t>(kDepth));
}

TEST(Entity, KnowsTheAttributeUnderWhichItsParentHoldsIt) {
  auto const device = Nox::make<Device>();
  auto const card = device->cardIs("c");
  EXPECT_EQ(card->parent(), device);
  EXPECT_EQ(Ptr<Device::Card const>(card)->parent(), device);
  EXPECT_EQ(card->parentAttrId(), Sample::kCard);
  EXPECT_EQ(card->parentAttr(), "card");
  device->cardDel("c");
  EXPECT_EQ(card->parentAttr(), "");
  EXPECT_EQ(Nox::make<Entity>("alone")->attributeString(300), "");
}

TEST(EntityDeathTest, AnAttributeIdHasSixteenBits) {
  auto const entity = Nox::make<Entity>();
  entity->parentAttrIdIs(65535);
  EXPECT_EQ(entity->parentAttrId(), 65535U);
  EXPECT_DEATH(entity->parentAttrIdIs(65536), "attribute id out of range");
}

TEST(Entity, AChangedParentIsHandledThenAnnouncedAndAnEqualOneIsNot) {
  Log log;
  class Handling : public Device {
   public:
    explicit Handling(Log& l) : log_(l) {}
    void handleParent(Ptr<Entity> const& parent) override {
      log_.push_back(parent ? "handle" : "handle none");
      EXPECT_EQ(Entity::parent(), parent);
    }

   private:
    Log& log_;
  };
  Nox::ValidPtr<Device> const device = Nox::make<Handling>(log);
  auto const parent = Nox::make<Entity>("p");
  auto const recorder = Nox::make<Recorder>("r", log, device);
  device->parentIs(parent);
  device->parentIs(parent);
  EXPECT_THAT(log, ElementsAre("handle", "r parent"));
  device->parentIs(nullptr);
  EXPECT_THAT(log, ElementsAre("handle", "r parent", "handle none", "r parent"));
  EXPECT_EQ(parent->noxWord(), 1U);
}

TEST(Entity, AnnouncesThatItIsNondestructingWhenThatChanges) {
  Log log;
  auto const device = Nox::make<Device>();
  auto const recorder = Nox::make<Recorder>("r", log, device);
  device->isNondestructingIs(false);
  device->isNondestructingIs(true);
  device->isNondestructingIs(true);
  EXPECT_THAT(log, ElementsAre("r isNondestructing"));
  EXPECT_TRUE(device->isNondestructing());
}

TEST(Entity, WritingAnEqualValueNotifiesNobody) {
  Log log;
  auto const device = Nox::make<Device>();
  auto const recorder = Nox::make<Recorder>("r", log, device);
  device->speedIs(0);
  device->labelIs("");
  device->portDel("a");
  EXPECT_THAT(log, IsEmpty());
  device->speedIs(1);
  device->speedIs(1);
  device->labelIs("x");
  device->labelIs("x");
  device->portIs("a", 0);
  device->portIs("a", 0);
  auto const card = device->cardIs("c");
  EXPECT_EQ(device->cardIs("c"), card) << "the same key and arguments give the same member";
  device->portDel("a");
  device->portDel("a");
  EXPECT_EQ(device->cardDel("c"), card);
  EXPECT_EQ(device->cardDel("c"), nullptr);
  EXPECT_THAT(log, ElementsAre("r speed", "r label", "r port[a]", "r card[c]", "r port[a]", "r card[c]"));
}

TEST(Entity, ADeleteAllNotifiesMemberByMemberInCollectionOrderWhenAllAreGone) {
  Log log, expected;
  auto const device = Nox::make<Device>();
  for (int i = 0; i < 20; ++i) device->portIs("p" + std::to_string(i), 1);
  for (auto const& port : device->ports()) expected.push_back("r port[" + std::string(port.fwkKey().view()) + "]");
  auto const recorder = Nox::make<Recorder>("r", log, device);
  recorder->then = [&](std::string const&) { EXPECT_TRUE(device->ports().empty()); };
  device->portDelAll();
  EXPECT_EQ(log, expected);
}

TEST(Entity, AHandlerMayEndTheEntityWhoseMembersAreAllDeleted) {
  Log log;
  Ptr<Device> device = Nox::make<Device>();
  for (int i = 0; i < 20; ++i) device->cardIs("c" + std::to_string(i));
  Ptr<Recorder> recorder = Nox::make<Recorder>("r", log, device);
  recorder->then = [&](std::string const&) {
    device = nullptr;
    recorder = nullptr;
  };
  device->cardDelAll();
  EXPECT_EQ(log.size(), 1U) << "the rest waited for a reactor that has gone";
  EXPECT_EQ(Sample::Counted::alive, 0);
}

TEST(Entity, AHostAnnouncesWhatConcernsAWholeCollection) {
  Log log;
  auto const device = Nox::make<Device>();
  auto const recorder = Nox::make<Recorder>("r", log, device);
  device->announce<&Device::NotifieeConst::onPortnoxImmediate>();
  device->announce<Nox::unkeyed(&Device::NotifieeConst::onPort)>();
  device->announce<Nox::keyed(&Device::NotifieeConst::onPort)>("k");
  EXPECT_THAT(log, ElementsAre("r ports", "r port", "r port[k]"));
}

TEST(Entity, OperationsKnowTheirAttributes) {
  using N = Device::NotifieeConst;
  EXPECT_EQ(Nox::notification<&N::onSpeed>.name, "speed");
  EXPECT_EQ(Nox::notification<Nox::keyed(&N::onPort)>.name, "port");
  EXPECT_EQ(Nox::notification<Nox::unkeyed(&N::onPort)>.name, "port");
  EXPECT_EQ(Nox::notification<&N::onPortnoxImmediate>.name, "portnoxImmediate");
  EXPECT_EQ(Nox::notification<&N::onParent>.name, "parent");
  EXPECT_EQ(Nox::notification<&N::onMTU>.name, "MTU");
}

TEST(Entity, AttributeLogOperationsHoldTheirPlaces) {
  auto const entity = Nox::make<Entity>("e");
  EXPECT_EQ(entity->noxNboAttrLogSa(), nullptr);
  EXPECT_EQ(Ptr<Entity const>(entity)->noxNboAttrLogSa(), nullptr);
  EXPECT_FALSE(entity->noxHasAttrLogInterface());
  EXPECT_EQ(entity->noxNboAttrLogSaForMsgChannel(0), nullptr);
  entity->noxNboAttrLogSaIs(nullptr);
  entity->noxNboAttrLogSaDel();
}

TEST(WriteLog, ShowsEveryWriteInOrderEqualOnesToo) {
  auto const device = Nox::make<Device>("leaf-1");
  device->speedIs(5);
  WriteLog log;
  device->speedIs(6);
  device->speedIs(6);
  device->labelIs("x y");
  device->MTUIs(1500);
  device->portIs("eth0", 1);
  device->portIs("eth0", 1);
  device->cardIs("c");
  device->cardIs("c");
  device->portDel("eth0");
  device->portDel("eth0");
  device->cardDelAll();
  EXPECT_THAT(log.lines(),
              ElementsAre("leaf-1.speed = 6",
                          "leaf-1.speed = 6 (equal)",
                          "leaf-1.label = \"x y\"",
                          "leaf-1.MTU = 1500",
                          "leaf-1.port[eth0] = 1",
                          "leaf-1.port[eth0] = 1 (equal)",
                          "leaf-1.card[c] = {}",
                          "leaf-1.card[c] = {} (equal)",
                          "leaf-1.port[eth0] deleted",
                          "leaf-1.port[eth0] deleted (absent)",
                          "leaf-1.card[c] deleted"));
  EXPECT_THAT(log.linesWith(".card["),
              ElementsAre("leaf-1.card[c] = {}", "leaf-1.card[c] = {} (equal)", "leaf-1.card[c] deleted"));
  EXPECT_EQ(log.changes().size(), 7U);
  log.clear();
  EXPECT_THAT(log.lines(), IsEmpty());
  {
    WriteLog inner;
    device->speedIs(7);
    EXPECT_THAT(inner.changes(), ElementsAre("leaf-1.speed = 7"));
  }
  device->speedIs(8);
  EXPECT_THAT(log.lines(), ElementsAre("leaf-1.speed = 8"));
}

TEST(WriteLog, IsOnlyThereWhileItLives) {
  { WriteLog const log; }
  EXPECT_EQ(Nox::writeObserver_, nullptr);
}

}  // namespace

}  // namespace EntityTest
