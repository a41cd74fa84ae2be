// When a switch is published: its publication machine made, kept, replaced and dropped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "publication_support.h"
#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace PublicationTest {

using namespace Publication;
using Controller::PublishedMountsTable;
using ControllerRegistration::SwitchStatus;
using Nox::Ptr;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

TEST(Publication, AReadySwitchWithoutAnOfferHasNoMachineAndNothingPublished) {
  OneSwitch world;
  EXPECT_EQ(world.publisher(), nullptr);
  world.answer()->servicePublishedInfoIs("stray");
  world.touch();
  EXPECT_EQ(world.publisher(), nullptr);
  EXPECT_THAT(world.published(), IsEmpty());
}

TEST(Publication, AnOfferThatIsAddedLaterMakesTheMachine) {
  OneSwitch world;
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  world.publishedMountsTable->systemIs(systemId(1));
  EXPECT_NE(world.publisher(), nullptr);
  EXPECT_THAT(text.lines(),
              ElementsAre(ofSystem("8 324", " 02:00:00:00:00:01"),
                          kReady,
                          ofSystem("4 340", " creating systemPublishSm for 02:00:00:00:00:01"),
                          "8 49 void Controllerdb::SystemPublishSm::handlePublishedMount()"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("5 80 switchReady: enabled 1 peerTable 1",
                          ofSystem("4 338", " creating systemPublishSm for 02:00:00:00:00:01")));
  EXPECT_THAT(log.lines(), ElementsAre("publishedMounts.system[02:00:00:00:00:01] = {}"));
}

TEST(Publication, TheReadyPassPublishesAfterTheRowsAndBeforeTheAnswer) {
  OneSwitch world;
  world.silence(systemId(1));
  world.offer("topology", "a");
  EXPECT_EQ(world.publisher(), nullptr);
  WriteLog log;
  world.heartbeat(systemId(1));
  std::vector<std::string> lines = log.lines();
  auto const from = std::find(lines.begin(), lines.end(), "controllerStatus.registeredSwitch[02:00:00:00:00:01] = 1");
  EXPECT_THAT(std::vector(from, lines.end()),
              ElementsAre("controllerStatus.registeredSwitch[02:00:00:00:00:01] = 1",
                          "leaf-1.servicePublishedInfo[topology] = {}",
                          "topology.ready = 0 (equal)",
                          "topology.publishedMount[a] = a /state/a - rt topology",
                          "leaf-1.clientShutdownAck = 0",
                          "leaf-1.controllerUUID = \"uuid-1\" (equal)",
                          "leaf-1.registrationGenId = 0 (equal)"));
}

TEST(Publication, AnotherSystemsOfferChangesNothing) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const publisher = world.publisher();
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  world.publishedMountsTable->systemIs(systemId(2));
  world.publishedMountsTable->systemDel(systemId(2));
  EXPECT_THAT(
      text.lines(),
      ElementsAre(ofSystem("8 324", " 02:00:00:00:00:02"), kReady, ofSystem("8 324", " 02:00:00:00:00:02"), kReady));
  EXPECT_THAT(ring.messages(), Not(Contains(testing::HasSubstr("handleSystemPublish"))));
  EXPECT_THAT(log.linesWith("leaf-1."), IsEmpty());
  EXPECT_EQ(world.publisher(), publisher);
}

TEST(Publication, AnOfferThatIsRemovedDropsTheMachineAndEverythingPublished) {
  OneSwitch world;
  world.offer("topology", "a");
  world.publishedMountsTable->servicePublishReadyIs("stray", true);
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  world.publishedMountsTable->systemDel(systemId(1));
  EXPECT_EQ(world.publisher(), nullptr);
  EXPECT_THAT(world.published(), IsEmpty());
  EXPECT_THAT(text.lines(), ElementsAre(ofSystem("8 324", " 02:00:00:00:00:01"), kReady));
  EXPECT_THAT(log.linesWith("leaf-1."),
              UnorderedElementsAre("leaf-1.servicePublishedInfo[topology] deleted",
                                   "leaf-1.servicePublishedInfo[stray] deleted"));
}

TEST(Publication, TheMachineIsKeptWhileItsInputsStayAndCreatingIsTracedAllTheSame) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const publisher = world.publisher();
  TraceCapture text({4, 8});
  world.touch();
  world.sm()->handleSystemPublish(systemId(1));
  EXPECT_EQ(world.publisher(), publisher);
  std::string const creating = ofSystem("4 340", " creating systemPublishSm for 02:00:00:00:00:01");
  EXPECT_THAT(text.lines(), testing::IsSupersetOf({creating, creating}));
  EXPECT_THAT(text.lines(), Not(Contains("8 49 void Controllerdb::SystemPublishSm::handlePublishedMount()")));
}

TEST(Publication, AnotherOfferOfTheSameSystemReplacesTheMachine) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const publisher = world.publisher();
  auto const oldOffer = world.publishedMountsTable->system(systemId(1));
  {
    Nox::Turn turn;
    world.publishedMountsTable->systemDel(systemId(1));
    world.offer("topology", "b");
  }
  EXPECT_NE(world.publisher(), publisher);
  EXPECT_EQ(world.publisher()->systemPublishedMount(), world.publishedMountsTable->system(systemId(1)));
  EXPECT_THAT(world.published(), ElementsAre("topology", "topology: b /state/b - rt topology"));
  TraceCapture text({5});
  world.publishedMountsTable->system(systemId(1))->publishedMountDel("b");
  EXPECT_THAT(text.lines(), ElementsAre("5 39 handlePublishedMount withdrawing: b"));
}

TEST(Publication, AReplacedMachineHearsNothingOnceItIsReleased) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const oldOffer = world.publishedMountsTable->system(systemId(1));
  world.publishedMountsTable->systemDel(systemId(1));
  oldOffer->publishedMountIs(mountOf("topology", "late"));
  EXPECT_THAT(world.published(), IsEmpty());
  EXPECT_TRUE(oldOffer->noxNotifiees().empty());
}

TEST(Publication, AnyOtherInputMakesAnotherMachine) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const sm = world.sm();
  Ptr<Controller::SystemPublishedMount const> const mount = world.publishedMountsTable->system(systemId(1));
  Ptr<PublishedMountsTable const> const table = world.publishedMountsTable;
  auto const first = world.publisher();
  EXPECT_EQ(sm->systemPublishSmIs(mount, world.answer(), table), first);

  auto const otherStatus = Nox::make<SwitchStatus>("other");
  auto const second = sm->systemPublishSmIs(mount, otherStatus, table);
  EXPECT_NE(second, first);
  EXPECT_EQ(world.publisher(), second);
  EXPECT_THAT(published(*otherStatus), ElementsAre("topology", "topology: a /state/a - rt topology"));

  Ptr<PublishedMountsTable const> const otherTable = Nox::make<PublishedMountsTable>("other");
  auto const third = sm->systemPublishSmIs(mount, otherStatus, otherTable);
  EXPECT_NE(third, second);
  auto const fourth = sm->systemPublishSmIs(nullptr, otherStatus, otherTable);
  EXPECT_NE(fourth, third);
  EXPECT_THAT(published(*otherStatus), ElementsAre("topology"));
  EXPECT_EQ(sm->systemPublishSmIs(nullptr, otherStatus, otherTable), fourth);
  // The next pass goes back to the records that are there.
  world.touch();
  EXPECT_EQ(world.publisher()->status(), world.answer());
}

TEST(Publication, AMachineIsMadeByItsCreatorWithoutBecomingTheSwitchs) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const publisher = world.publisher();
  auto const made =
      world.sm()->newSystemPublishSm(publisher->systemPublishedMount(), world.answer(), world.publishedMountsTable);
  EXPECT_NE(made, publisher);
  EXPECT_EQ(world.publisher(), publisher);
}

TEST(Publication, AnotherTableRunsNoPassAndTheNextPassBuildsAnew) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const publisher = world.publisher();
  auto const other = Nox::make<PublishedMountsTable>("other");
  other->systemIs(systemId(1))->publishedMountIs(mountOf("routing", "b"));
  TraceCapture text({1, 3, 4, 5, 7, 8});
  world.sm()->publishedMountsTableIs(other);
  EXPECT_THAT(text.lines(), IsEmpty());
  EXPECT_EQ(world.publisher(), publisher);
  // The other table is heard, this one no longer.
  world.publishedMountsTable->servicePublishReadyIs("topology", true);
  EXPECT_THAT(text.lines(), IsEmpty());
  other->servicePublishReadyIs("routing", true);
  EXPECT_THAT(world.published(), Contains("routing ready"));
  world.touch();
  EXPECT_NE(world.publisher(), publisher);
  EXPECT_THAT(world.published(), UnorderedElementsAre("topology", "routing ready", "routing: b /state/b - rt routing"));
}

TEST(Publication, AReactorThatIsPointedAtAnotherTableHearsItAndRunsNoPass) {
  OneSwitch world;
  auto const first = Nox::make<PublishedMountsTable>("first");
  auto const second = Nox::make<PublishedMountsTable>("second");
  auto const reactor = world.sm()->newPublishedMountsTable(first);
  TraceCapture text({1, 3, 4, 5, 7, 8});
  reactor->notifierIs(second);
  reactor->notifierIs(second);
  first->systemIs(systemId(2));
  EXPECT_THAT(text.lines(), IsEmpty());
  second->systemIs(systemId(2));
  EXPECT_THAT(text.lines(), ElementsAre(ofSystem("8 324", " 02:00:00:00:00:02"), kReady));
  text.clear();
  reactor->notifierIs(Nox::make<Nox::Dir>("no table"));
  EXPECT_EQ(reactor->notifier(), nullptr);
  second->systemIs(systemId(3));
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(Publication, WithoutATableTheNextPassDropsTheMachineAndEverythingPublished) {
  OneSwitch world;
  world.offer("topology", "a");
  world.sm()->publishedMountsTableDel();
  EXPECT_NE(world.publisher(), nullptr);
  world.touch();
  EXPECT_EQ(world.publisher(), nullptr);
  EXPECT_THAT(world.published(), IsEmpty());
}

TEST(Publication, TheWholeTableFormTakesEverySystemInOrderAndOneHasAnEffect) {
  OneSwitch world;
  for (unsigned i = 2; i <= 4; ++i) world.publishedMountsTable->systemIs(systemId(i));
  world.offer("topology", "a");
  auto const publisher = world.publisher();
  TraceCapture text({4, 8});
  world.sm()->handleSystemPublish();
  std::vector<std::string> expected = {"8 352 void Controllerdb::SwitchConfigSm::handleSystemPublish()"};
  for (auto at = world.publishedMountsTable->systemIteratorConst(); at; ++at) {
    std::string const id(at->systemId().stringValue().view());
    expected.push_back(ofSystem("8 324", " " + id));
    if (at->systemId() == systemId(1)) expected.push_back(ofSystem("4 340", " creating systemPublishSm for " + id));
  }
  EXPECT_EQ(text.lines(), expected);
  EXPECT_EQ(world.publisher(), publisher);
  text.clear();
  world.sm()->publishedMountsTableDel();
  world.sm()->handleSystemPublish();
  EXPECT_THAT(text.lines(), ElementsAre("8 352 void Controllerdb::SwitchConfigSm::handleSystemPublish()"));
  EXPECT_EQ(world.publisher(), publisher);
}

TEST(Publication, TheImmediateFormsLookAtNothing) {
  OneSwitch world;
  using Notifiee = PublishedMountsTable::NotifieeConst;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  world.publishedMountsTable->announce<Nox::unkeyed(&Notifiee::onSystemnoxImmediate)>();
  world.publishedMountsTable->announce<Nox::unkeyed(&Notifiee::onServicePublishReadynoxImmediate)>();
  world.publishedMountsTable->announce<Nox::unkeyed(&Notifiee::onSystem)>();
  world.publishedMountsTable->announce<Nox::unkeyed(&Notifiee::onServicePublishReady)>();
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(Publication, TwoSwitchesOfOneSystemIdAreBothPublishedItsOffer) {
  OneSwitch world;
  world.enrol("leaf-2", systemId(1));
  world.offer("topology", "a");
  EXPECT_THAT(world.published(), ElementsAre("topology", "topology: a /state/a - rt topology"));
  EXPECT_EQ(published(*world.switchStatus("leaf-2")), world.published());
  EXPECT_NE(world.configSm("leaf-2")->systemPublishSm(), world.publisher());
}

}  // namespace PublicationTest
