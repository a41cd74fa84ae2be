// Tests of the registry as a whole: enrolment and leave to the last write and message, and switches that cross.
#include <gmock/gmock.h>

#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace WholeRegistryTest {
namespace {

using testing::ElementsAre;

TEST(WholeRegistry, EnrolmentWritesInOrder) {
  World w;
  w.enable();
  w.heartbeat(systemId(1));
  WriteLog log;
  w.enrol("leaf-1", systemId(1), 5);
  EXPECT_THAT(log.lines(),
              ElementsAre("leaf-1.systemId = 02:00:00:00:00:01",
                          "leaf-1.enabled = 1",
                          "leaf-1.registrationGenId = 5",
                          // The directory and its first entry, in one turn.
                          "registration.entry[leaf-1] = {}",
                          "registration.entityRef[leaf-1] = leaf-1",
                          "registration.entityPtr[leaf-1] = registration/leaf-1",
                          "leaf-1.entry[config] = {}",
                          "leaf-1.entityRef[config] = leaf-1",
                          "leaf-1.entityPtr[config] = registration/leaf-1/leaf-1",
                          // The registry root prepares the service status directory, and makes the switch registry.
                          "serviceStatus.entry[leaf-1] = {}",
                          "serviceStatus.entry[leaf-1] = {} (equal)",
                          "serviceStatus.entityRef[leaf-1] = leaf-1",
                          "serviceStatus.entityPtr[leaf-1] = serviceStatus/leaf-1",
                          // The second entry, and what follows from it: the answer.
                          "leaf-1.entry[status] = {}",
                          "leaf-1.entityRef[status] = leaf-1",
                          "leaf-1.entityPtr[status] = registration/leaf-1/leaf-1",
                          "controllerStatus.switchConfig[02:00:00:00:00:01] = registration/leaf-1/leaf-1",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] = registration/leaf-1/leaf-1",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted (absent)",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] = 1",
                          "leaf-1.clientShutdownAck = 0 (equal)",
                          "leaf-1.controllerUUID = \"uuid-1\"",
                          "leaf-1.registrationGenId = 5"));
}

TEST(WholeRegistry, EnrolmentTracesInOrder) {
  World w;
  w.enable();
  w.heartbeat(systemId(1));
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  w.enrol("leaf-1", systemId(1), 5);
  EXPECT_THAT(text.lines(),
              ElementsAre("8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 94 entry added in registry leaf-1",
                          "8 151 void Controllerdb::SwitchRegistrySm::handleEntry()",
                          "8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) config",
                          "8 180 config entry added in registry ",
                          "8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) status",
                          "8 180 status entry added in registry ",
                          "3 187 handleEntry registered switch: leaf-1",
                          "5 89 void Controllerdb::SwitchConfigSm::handleSwitchConfig() leaf-1",
                          "5 82 switchReady: enabled 1 peerTable peers/02:00:00:00:00:01",
                          "5 103 handleSwitchConfig ready",
                          "8 324 void Controllerdb::SwitchConfigSm::handleSystemPublish(const Controller::SystemId&) "
                          "02:00:00:00:00:01",
                          "5 82 switchReady: enabled 1 peerTable peers/02:00:00:00:00:01",
                          "3 117 handleSwitchConfig sending uuid to switch: uuid-1",
                          "1 128 handleSwitchConfig reflecting genid:5"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 94 entry added in registry leaf-1",
                          "8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) config",
                          "8 180 config entry added in registry ",
                          "8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) status",
                          "8 180 status entry added in registry ",
                          "3 186 handleEntry registered switch: leaf-1",
                          "5 90 handleSwitchConfig",
                          "5 80 switchReady: enabled 1 peerTable 1",
                          "5 104 handleSwitchConfig ready",
                          "5 80 switchReady: enabled 1 peerTable 1",
                          "3 116 handleSwitchConfig sending uuid to switch: uuid-1",
                          "1 130 handleSwitchConfig reflecting genid:5"));
}

TEST(WholeRegistry, LeaveWritesAndTracesInOrder) {
  World w(1);
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  WriteLog log;
  w.leave("leaf-1");
  EXPECT_THAT(log.lines(),
              ElementsAre("registration.entityPtr[leaf-1] deleted",
                          "registration.entityRef[leaf-1] deleted",
                          "registration.entry[leaf-1] deleted",
                          "controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchConfig[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] deleted",
                          "serviceStatus.entityPtr[leaf-1] deleted",
                          "serviceStatus.entityRef[leaf-1] deleted",
                          "serviceStatus.entry[leaf-1] deleted"));
  EXPECT_THAT(text.lines(),
              ElementsAre("8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 82 entry deleted from registry leaf-1",
                          "8 362 void Controllerdb::SwitchConfigSm::doCleanup() leaf-1"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 82 entry deleted from registry leaf-1"));
}

// Its switch is told of the entry, then the registry root of the directory.
TEST(WholeRegistry, LossOfTheLastEntryIsTracedBeforeTheLossOfTheDirectory) {
  World w(1);
  w.removeEntry("leaf-1", "config");
  TraceCapture text({3, 8});
  RingCapture ring;
  w.removeEntry("leaf-1", "status");
  EXPECT_THAT(text.lines(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) status",
                          "3 171 status entry deleted",
                          "8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 82 entry deleted from registry leaf-1"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) status",
                          "3 172 handleEntry un-registered switch:leaf-1",
                          "8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 82 entry deleted from registry leaf-1"));
}

TEST(WholeRegistry, SwitchThatMovesKeepsItsRowsWhenItLeavesBeforeItComes) {
  World w(1);
  w.leave("leaf-1");
  EXPECT_EQ(w.rows(systemId(1)), "- - -");
  w.enrol("leaf-2", systemId(1));
  EXPECT_EQ(w.rows(systemId(1)), "leaf-2 leaf-2 1");
}

TEST(WholeRegistry, SwitchThatComesBeforeItLeavesLosesItsRowsUntilItsNextPass) {
  World w(1);
  w.enrol("leaf-2", systemId(1));
  EXPECT_EQ(w.rows(systemId(1)), "leaf-2 leaf-2 1");
  w.leave("leaf-1");
  EXPECT_EQ(w.rows(systemId(1)), "- - -");
  EXPECT_EQ(w.answer("leaf-2"), "0 uuid-1 0");
  w.putConfig("leaf-2", systemId(1), true, 1);
  EXPECT_EQ(w.rows(systemId(1)), "leaf-2 leaf-2 1");
}

TEST(WholeRegistry, ServicesEachDirectoryOfManyOnItsOwn) {
  constexpr unsigned kSwitches = 100;
  World w(kSwitches);
  EXPECT_EQ(w.controllerStatus->registeredSwitch().members(), kSwitches);
  for (unsigned i = 1; i <= kSwitches; i += 2) w.silence(systemId(i));
  for (unsigned i = 1; i <= kSwitches; ++i) {
    std::string const name = "leaf-" + std::to_string(i);
    EXPECT_EQ(w.rows(systemId(i)), i % 2 == 1 ? "- - -" : name + ' ' + name + " 1");
    EXPECT_EQ(w.answer(Nox::Name(name)), i % 2 == 1 ? "1 uuid-1 0" : "0 uuid-1 0");
  }
  w.disable();
  EXPECT_TRUE(w.controllerStatus->registeredSwitch().empty());
}

}  // namespace

}  // namespace WholeRegistryTest
