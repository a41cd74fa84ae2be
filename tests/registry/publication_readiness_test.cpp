// What becomes of publication while a switch is not ready, when a service is switched off, and as readiness changes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "publication_support.h"
#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace PublicationReadinessTest {

using namespace Publication;
using Controller::PublishedMountsTable;
using Nox::Ptr;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

// A switch that is not ready.

TEST(Publication, ASwitchThatIsNotReadySaysSoForEverySystemId) {
  OneSwitch world;
  world.offer("topology", "a");
  world.silence(systemId(1));
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  world.sm()->handleSystemPublish(systemId(1));
  world.publishedMountsTable->systemIs(systemId(2));
  EXPECT_THAT(text.lines(),
              ElementsAre(ofSystem("8 324", " 02:00:00:00:00:01"),
                          kSilent,
                          ofSystem("4 328", " 02:00:00:00:00:01 switch not ready"),
                          ofSystem("8 324", " 02:00:00:00:00:02"),
                          kSilent,
                          ofSystem("4 328", " 02:00:00:00:00:02 switch not ready")));
  EXPECT_THAT(ring.messages(),
              ElementsAre("5 80 switchReady: enabled 1 peerTable 0",
                          ofSystem("4 327", " 02:00:00:00:00:01 switch not ready"),
                          "5 80 switchReady: enabled 1 peerTable 0",
                          ofSystem("4 327", " 02:00:00:00:00:02 switch not ready")));
  EXPECT_THAT(log.linesWith("leaf-1."), IsEmpty());
}

TEST(Publication, NotReadyLeavesTheMachineAndWhatIsPublishedAsTheyAre) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const publisher = world.publisher();
  auto const before = world.published();
  TraceCapture text({8});
  world.silence(systemId(1));
  EXPECT_THAT(text.lines(), Not(Contains(testing::HasSubstr("handleSystemPublish"))));
  world.switchConfig("leaf-1")->enabledIs(false);
  world.publishedMountsTable->systemDel(systemId(1));
  EXPECT_EQ(world.publisher(), publisher);
  EXPECT_EQ(world.published(), before);
  // Ready again, the pass sees that the offer has gone.
  world.switchConfig("leaf-1")->enabledIs(true);
  EXPECT_EQ(world.publisher(), publisher);
  world.heartbeat(systemId(1));
  EXPECT_EQ(world.publisher(), nullptr);
  EXPECT_THAT(world.published(), IsEmpty());
}

TEST(Publication, TheMachineGoesOnPublishingWhileItsSwitchIsNotReady) {
  OneSwitch world;
  world.offer("topology", "a");
  world.silence(systemId(1));
  world.offer("topology", "b");
  world.publishedMountsTable->system(systemId(1))->publishedMountDel("a");
  EXPECT_THAT(world.published(), ElementsAre("topology", "topology: b /state/b - rt topology"));
  world.sm()->hasNotificationActiveIs(false);
  world.offer("topology", "c");
  EXPECT_THAT(world.published(), Contains("topology: c /state/c - rt topology"));
}

TEST(Publication, TheSwitchsEndDropsTheMachineAndLeavesWhatIsPublished) {
  OneSwitch world;
  world.offer("topology", "a");
  auto const status = world.answer();
  auto const offer = world.publishedMountsTable->system(systemId(1));
  world.leave("leaf-1");
  EXPECT_TRUE(offer->noxNotifiees().empty());
  EXPECT_THAT(published(*status), ElementsAre("topology", "topology: a /state/a - rt topology"));
}

// Services.

TEST(Publication, DisablingAServiceOnEitherSideDeletesItsInformationAndEnablingItBringsNothingBack) {
  for (bool const onSwitch : {true, false}) {
    SCOPED_TRACE(onSwitch ? "switch" : "controller");
    OneSwitch world;
    world.offer("topology", "a");
    world.offer("routing", "b");
    auto const publisher = world.publisher();
    auto const record = onSwitch ? world.switchsTopology : world.controllersTopology;
    record->enabledIs(false);
    EXPECT_THAT(world.published(), ElementsAre("routing", "routing: b /state/b - rt routing"));
    record->enabledIs(true);
    world.touch();
    EXPECT_EQ(world.publisher(), publisher);
    EXPECT_THAT(world.published(), ElementsAre("routing", "routing: b /state/b - rt routing"));
    // A mount that is notified again brings itself back, and no other.
    world.offer("topology", "c");
    EXPECT_THAT(world.published(),
                UnorderedElementsAre(
                    "routing", "routing: b /state/b - rt routing", "topology", "topology: c /state/c - rt topology"));
    // A machine that is rebuilt publishes all that is offered.
    Ptr<Controller::SystemPublishedMount const> const mount = world.publishedMountsTable->system(systemId(1));
    world.sm()->systemPublishSmDel();
    EXPECT_EQ(world.publisher(), nullptr);
    world.touch();
    EXPECT_NE(world.publisher(), nullptr);
    EXPECT_THAT(world.published(), Contains("topology: a /state/a - rt topology"));
  }
}

TEST(Publication, AMountOfADisabledServiceIsPublishedUntilTheServiceIsNextNegotiated) {
  OneSwitch world;
  world.controllersTopology->enabledIs(false);
  world.offer("topology", "a");
  EXPECT_THAT(world.published(), ElementsAre("topology", "topology: a /state/a - rt topology"));
  world.touch();
  EXPECT_THAT(world.published(), IsEmpty());
}

// Readiness.

TEST(Publication, ReadinessFollowsTheTableWhileTheSwitchIsReady) {
  OneSwitch world;
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  world.publishedMountsTable->servicePublishReadyIs("a", true);
  EXPECT_THAT(world.published(), ElementsAre("a ready"));
  EXPECT_THAT(text.lines(), ElementsAre(ofService("8 307", " a"), kReady));
  EXPECT_THAT(ring.messages(), ElementsAre("5 80 switchReady: enabled 1 peerTable 1"));
  EXPECT_THAT(
      log.lines(),
      ElementsAre("publishedMounts.servicePublishReady[a] = 1", "leaf-1.servicePublishedInfo[a] = {}", "a.ready = 1"));
  world.publishedMountsTable->servicePublishReadyIs("a", false);
  EXPECT_THAT(world.published(), ElementsAre("a"));
  world.publishedMountsTable->servicePublishReadyIs("a", true);
  world.publishedMountsTable->servicePublishReadyDel("a");
  EXPECT_THAT(world.published(), ElementsAre("a"));
}

TEST(Publication, AServiceThatTheTableDoesNotNameIsMadeNotReady) {
  OneSwitch world;
  world.sm()->handleServicePublishReady("a");
  EXPECT_THAT(world.published(), ElementsAre("a"));
}

TEST(Publication, ReadinessOfASwitchThatIsNotReadyIsTracedAlone) {
  OneSwitch world;
  world.silence(systemId(1));
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  world.publishedMountsTable->servicePublishReadyIs("a", true);
  EXPECT_THAT(
      text.lines(),
      ElementsAre(ofService("8 307", " a"), kSilent, ofService("4 314", " a 02:00:00:00:00:01 switch not ready")));
  EXPECT_THAT(ring.messages(),
              ElementsAre("5 80 switchReady: enabled 1 peerTable 0",
                          ofService("4 311", " a 02:00:00:00:00:01 switch not ready")));
  EXPECT_THAT(log.lines(), ElementsAre("publishedMounts.servicePublishReady[a] = 1"));
}

TEST(Publication, ReadinessThatChangesWhileNotReadyIsNotReplayed) {
  OneSwitch world;
  world.offer("topology", "a");
  world.silence(systemId(1));
  world.publishedMountsTable->servicePublishReadyIs("topology", true);
  world.heartbeat(systemId(1));
  EXPECT_THAT(world.published(), ElementsAre("topology", "topology: a /state/a - rt topology"));
  // The next mount that is published takes it along.
  world.offer("topology", "b");
  EXPECT_THAT(world.published(), Contains("topology ready"));
}

TEST(Publication, WithoutATableNothingIsReady) {
  OneSwitch world;
  world.publishedMountsTable->servicePublishReadyIs("a", true);
  world.sm()->publishedMountsTableDel();
  world.sm()->handleServicePublishReady("a");
  EXPECT_THAT(world.published(), ElementsAre("a"));
}

TEST(Publication, WithoutAStatusNothingIsWrittenAndTheMachineIsMadeAndDroppedAllTheSame) {
  Controllerdb::AgentTables records;
  auto const config = Nox::make<ControllerRegistration::SwitchConfig>("leaf-1");
  config->systemIdIs(systemId(1));
  config->enabledIs(true);
  records.peers->peerIs(systemId(1));
  records.publishedMountsTable->systemIs(systemId(1))->publishedMountIs(mountOf("topology", "a"));
  auto const sm = Controllerdb::switchConfigSmFactory(config,
                                                      nullptr,
                                                      records.peers,
                                                      nullptr,
                                                      nullptr,
                                                      nullptr,
                                                      "uuid-1",
                                                      nullptr,
                                                      "leaf-1",
                                                      records.publishedMountsTable,
                                                      nullptr);
  EXPECT_NE(sm->systemPublishSm(), nullptr);
  records.publishedMountsTable->servicePublishReadyIs("topology", true);
  records.publishedMountsTable->systemDel(systemId(1));
  EXPECT_EQ(sm->systemPublishSm(), nullptr);
}

TEST(Publication, AZombieReactorOfTheTableIsDeaf) {
  OneSwitch world;
  auto const table = Nox::make<PublishedMountsTable>("other");
  auto const reactor = world.sm()->newPublishedMountsTable(table);
  reactor->noxDoZombieReactors(true);
  TraceCapture text({1, 3, 4, 5, 7, 8});
  reactor->onSystem(systemId(1));
  reactor->onServicePublishReady("a");
  table->systemIs(systemId(1));
  EXPECT_THAT(text.lines(), IsEmpty());
}

}  // namespace PublicationReadinessTest
