// Tests of one switch's configuration machine: readiness, answers, clean-up, in their exact order.
#include <gmock/gmock.h>

#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace SwitchConfigSmTest {
namespace {

using namespace Controllerdb;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using testing::ElementsAre;
using testing::IsEmpty;

/// One switch's inputs, with a machine made when a test asks for it: enabled, generation 5, not heard.
class SwitchConfigSmTest : public testing::Test {
 protected:
  SwitchConfigSmTest() {
    config->systemIdIs(systemId(1));
    config->enabledIs(true);
    config->registrationGenIdIs(5);
  }
  Nox::Ptr<SwitchConfigSm> make() {
    return switchConfigSmFactory(config,
                                 status,
                                 world.peers,
                                 world.controllerStatus,
                                 world.serviceConfigDir,
                                 world.overrideServiceConfigDir,
                                 "uuid-1",
                                 serviceStatusDir,
                                 "leaf-1",
                                 world.publishedMountsTable,
                                 nullptr);
  }
  std::string rows(unsigned id = 1) const { return world.rows(systemId(id)); }

  World world;
  Nox::Ptr<SwitchConfig> config = Nox::make<SwitchConfig>("leaf-1");
  Nox::Ptr<SwitchStatus> status = Nox::make<SwitchStatus>("leaf-1");
  Nox::Ptr<Controller::ServiceStatusDir> serviceStatusDir = Nox::make<Controller::ServiceStatusDir>("leaf-1");
};

// The passes, write by write and message by message.

TEST_F(SwitchConfigSmTest, ReadyPassWritesInOrder) {
  world.heartbeat(systemId(1));
  WriteLog log;
  auto const sm = make();
  EXPECT_THAT(log.lines(),
              ElementsAre("controllerStatus.switchConfig[02:00:00:00:00:01] = leaf-1",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] = leaf-1",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted (absent)",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] = 1",
                          "leaf-1.clientShutdownAck = 0 (equal)",
                          "leaf-1.controllerUUID = \"uuid-1\"",
                          "leaf-1.registrationGenId = 5"));
}

TEST_F(SwitchConfigSmTest, ReadyPassIsRepeatedWithTheSameWritesOfWhichOnlyTheFlagChanges) {
  world.heartbeat(systemId(1));
  auto const sm = make();
  WriteLog log;
  sm->handleSwitchConfig();
  EXPECT_THAT(log.lines(),
              ElementsAre("controllerStatus.switchConfig[02:00:00:00:00:01] = leaf-1 (equal)",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] = leaf-1 (equal)",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] = 1",
                          "leaf-1.clientShutdownAck = 0 (equal)",
                          "leaf-1.controllerUUID = \"uuid-1\" (equal)",
                          "leaf-1.registrationGenId = 5 (equal)"));
}

TEST_F(SwitchConfigSmTest, ReadyPassTracesInOrder) {
  world.heartbeat(systemId(1));
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  auto const sm = make();
  EXPECT_THAT(text.lines(),
              ElementsAre("5 89 void Controllerdb::SwitchConfigSm::handleSwitchConfig() leaf-1",
                          "5 82 switchReady: enabled 1 peerTable peers/02:00:00:00:00:01",
                          "5 103 handleSwitchConfig ready",
                          "8 324 void Controllerdb::SwitchConfigSm::handleSystemPublish(const Controller::SystemId&) "
                          "02:00:00:00:00:01",
                          "5 82 switchReady: enabled 1 peerTable peers/02:00:00:00:00:01",
                          "3 117 handleSwitchConfig sending uuid to switch: uuid-1",
                          "1 128 handleSwitchConfig reflecting genid:5"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("5 90 handleSwitchConfig",
                          "5 80 switchReady: enabled 1 peerTable 1",
                          "5 104 handleSwitchConfig ready",
                          "5 80 switchReady: enabled 1 peerTable 1",
                          "3 116 handleSwitchConfig sending uuid to switch: uuid-1",
                          "1 130 handleSwitchConfig reflecting genid:5"));
}

TEST_F(SwitchConfigSmTest, ShutdownPassWritesTheAcknowledgementThenRemovesTheRows) {
  world.heartbeat(systemId(1));
  auto const sm = make();
  WriteLog log;
  config->enabledIs(false);
  EXPECT_THAT(log.lines(),
              ElementsAre("leaf-1.enabled = 0",
                          "leaf-1.clientShutdownAck = 1",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchConfig[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] deleted"));
  EXPECT_EQ(rows(), "- - -");
}

TEST_F(SwitchConfigSmTest, ShutdownPassTracesInOrder) {
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  auto const sm = make();
  EXPECT_THAT(text.lines(),
              ElementsAre("5 89 void Controllerdb::SwitchConfigSm::handleSwitchConfig() leaf-1",
                          "5 82 switchReady: enabled 1 peerTable null",
                          "1 133 handleSwitchConfig shutdown",
                          "8 362 void Controllerdb::SwitchConfigSm::doCleanup() leaf-1"));
  EXPECT_THAT(
      ring.messages(),
      ElementsAre(
          "5 90 handleSwitchConfig", "5 80 switchReady: enabled 1 peerTable 0", "1 134 handleSwitchConfig shutdown"));
}

TEST_F(SwitchConfigSmTest, PassBeforeInitializationWritesNothingAndSaysSo) {
  world.heartbeat(systemId(1));
  auto const sm = make();
  sm->initializedIs(false);
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  WriteLog log;
  sm->handleSwitchConfig();
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(text.lines(),
              ElementsAre("5 89 void Controllerdb::SwitchConfigSm::handleSwitchConfig() leaf-1",
                          "5 92 handleSwitchConfig not initialized"));
  EXPECT_THAT(ring.messages(), ElementsAre("5 90 handleSwitchConfig", "5 93 handleSwitchConfig not initialized"));
}

TEST_F(SwitchConfigSmTest, FactorySwitchesItOn) { EXPECT_TRUE(make()->hasNotificationActive()); }

TEST_F(SwitchConfigSmTest, InitializesOnce) {
  auto const sm = make();
  EXPECT_TRUE(sm->initialized());
  WriteLog log;
  sm->handleInitialized();
  EXPECT_THAT(log.lines(), IsEmpty());
  sm->initializedIs(false);
  sm->handleInitialized();
  EXPECT_TRUE(sm->initialized());
  EXPECT_THAT(log.linesWith("clientShutdownAck"), ElementsAre("leaf-1.clientShutdownAck = 1 (equal)"));
}

// Readiness.

TEST_F(SwitchConfigSmTest, IsReadyWhileEnabledAndHeardAndNotOtherwise) {
  auto const sm = make();
  for (bool const enabled : {false, true, false, true})
    for (bool const heard : {false, true, false}) {
      config->enabledIs(enabled);
      heard ? world.heartbeat(systemId(1)) : world.silence(systemId(1));
      EXPECT_EQ(sm->switchReady(), enabled && heard);
      EXPECT_EQ(rows(), enabled && heard ? "leaf-1 leaf-1 1" : "- - -");
      EXPECT_EQ(status->clientShutdownAck(), !(enabled && heard));
    }
}

TEST_F(SwitchConfigSmTest, EnabledSwitchThatIsNotHeardIsShutDownAtCreation) {
  WriteLog log;
  auto const sm = make();
  EXPECT_TRUE(status->clientShutdownAck());
  EXPECT_EQ(rows(), "- - -");
  EXPECT_THAT(log.changes(), ElementsAre("leaf-1.clientShutdownAck = 1"));
}

TEST_F(SwitchConfigSmTest, HeartbeatOfAnotherSwitchLeavesTheEntryMessageAlone) {
  auto const sm = make();
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  WriteLog log;
  world.heartbeat(systemId(2));
  EXPECT_THAT(log.lines(), ElementsAre("peers.peer[02:00:00:00:00:02] = {}"));
  EXPECT_THAT(text.lines(),
              ElementsAre("8 142 void Controllerdb::SwitchConfigSm::handleHeartbeat(const Controller::SystemId&) "
                          "leaf-1 02:00:00:00:00:02"));
  EXPECT_THAT(ring.messages(), ElementsAre("8 144 handleHeartbeat 02:00:00:00:00:02"));
}

TEST_F(SwitchConfigSmTest, HeartbeatOfItsOwnSwitchRunsAPassWhenItComesAndWhenItGoes) {
  auto const sm = make();
  TraceCapture text({8});
  RingCapture ring;
  world.heartbeat(systemId(1));
  EXPECT_EQ(rows(), "leaf-1 leaf-1 1");
  EXPECT_THAT(text.lines(),
              ElementsAre("8 142 void Controllerdb::SwitchConfigSm::handleHeartbeat(const Controller::SystemId&) "
                          "leaf-1 02:00:00:00:00:01",
                          "8 146 handleHeartbeat matched",
                          "8 324 void Controllerdb::SwitchConfigSm::handleSystemPublish(const Controller::SystemId&) "
                          "02:00:00:00:00:01"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 144 handleHeartbeat 02:00:00:00:00:01",
                          "8 147 handleHeartbeat matched",
                          "5 90 handleSwitchConfig",
                          "5 80 switchReady: enabled 1 peerTable 1",
                          "5 104 handleSwitchConfig ready",
                          "5 80 switchReady: enabled 1 peerTable 1",
                          "3 116 handleSwitchConfig sending uuid to switch: uuid-1",
                          "1 130 handleSwitchConfig reflecting genid:5"));
  WriteLog log;
  world.silence(systemId(1));
  EXPECT_THAT(log.lines(),
              ElementsAre("peers.peer[02:00:00:00:00:01] deleted",
                          "leaf-1.clientShutdownAck = 1",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchConfig[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] deleted"));
}

TEST_F(SwitchConfigSmTest, ImmediateNotificationOfThePeersDoesNothing) {
  auto const sm = make();
  WriteLog log;
  world.peers->announce<&Controller::PeerTable::NotifieeConst::onPeernoxImmediate>();
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SwitchConfigSmTest, ChangedGenerationRerunsTheWholeReadyPath) {
  world.heartbeat(systemId(1));
  auto const sm = make();
  TraceCapture text({1});
  WriteLog log;
  config->registrationGenIdIs(7);
  EXPECT_EQ(status->registrationGenId(), 7U);
  EXPECT_THAT(text.lines(), ElementsAre("1 128 handleSwitchConfig reflecting genid:7"));
  EXPECT_THAT(log.lines(),
              ElementsAre("leaf-1.registrationGenId = 7",
                          "controllerStatus.switchConfig[02:00:00:00:00:01] = leaf-1 (equal)",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] = leaf-1 (equal)",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] = 1",
                          "leaf-1.clientShutdownAck = 0 (equal)",
                          "leaf-1.controllerUUID = \"uuid-1\" (equal)",
                          "leaf-1.registrationGenId = 7"));
}

TEST_F(SwitchConfigSmTest, GenerationOfASwitchThatIsNotReadyIsNotReflected) {
  auto const sm = make();
  config->registrationGenIdIs(4294967295U);
  EXPECT_EQ(status->registrationGenId(), 0U);
  world.heartbeat(systemId(1));
  EXPECT_EQ(status->registrationGenId(), 4294967295U);
}

// Rows are keyed by the system id and do not follow it.

TEST_F(SwitchConfigSmTest, ChangedSystemIdRunsNoPassAndLeavesTheRowsOfTheOldOneBehind) {
  world.heartbeat(systemId(1));
  auto const sm = make();
  world.heartbeat(systemId(2));
  WriteLog log;
  config->systemIdIs(systemId(2));
  EXPECT_THAT(log.lines(), ElementsAre("leaf-1.systemId = 02:00:00:00:00:02"));
  config->registrationGenIdIs(6);
  EXPECT_EQ(rows(1), "leaf-1 leaf-1 1");
  EXPECT_EQ(rows(2), "leaf-1 leaf-1 1");
  config->enabledIs(false);
  EXPECT_EQ(rows(1), "leaf-1 leaf-1 1");
  EXPECT_EQ(rows(2), "- - -");
}

TEST_F(SwitchConfigSmTest, TwoRegistrationsOfOneSystemIdShareTheirRows) {
  world.heartbeat(systemId(1));
  auto const sm = make();
  auto const otherConfig = Nox::make<SwitchConfig>("leaf-2");
  otherConfig->systemIdIs(systemId(1));
  otherConfig->enabledIs(true);
  auto const other = switchConfigSmFactory(otherConfig,
                                           Nox::make<SwitchStatus>("leaf-2"),
                                           world.peers,
                                           world.controllerStatus,
                                           world.serviceConfigDir,
                                           world.overrideServiceConfigDir,
                                           "uuid-1",
                                           serviceStatusDir,
                                           "leaf-2",
                                           world.publishedMountsTable,
                                           nullptr);
  EXPECT_EQ(rows(), "leaf-2 leaf-2 1") << "the last pass stands";
  config->registrationGenIdIs(6);
  EXPECT_EQ(rows(), "leaf-1 leaf-1 1");
  otherConfig->enabledIs(false);
  EXPECT_EQ(rows(), "- - -") << "either one removes them";
  EXPECT_FALSE(status->clientShutdownAck()) << "and the other one is not told";
}

}  // namespace

}  // namespace SwitchConfigSmTest
