// Tests of what single records do beyond their tables: children, look-ups, creation by type name.
#include <gmock/gmock.h>

#include "framework/core/dir.h"
#include "support/listeners.h"
#include "support/write_log.h"

namespace RecordsTest {
namespace {

using namespace Controller;
using namespace ControllerRegistration;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ServiceConfigV1, HasItsVersionsFromTheStart) {
  auto const config = Nox::make<ServiceConfigV1>("syslog");
  ASSERT_TRUE(config->versionConfig());
  EXPECT_EQ(config->versionConfig()->name(), "versionConfig");
  EXPECT_EQ(config->versionConfig()->parent(), config);
  EXPECT_EQ(config->versionConfig()->parentAttrId(), 257U);
  EXPECT_EQ(config->versionConfig()->parentAttr(), "versionConfig");
  EXPECT_TRUE(config->versionConfig()->version().empty());
}

TEST(ServiceConfigV1, LetsGoOfVersionsThatOutliveIt) {
  Nox::Ptr<ServiceVersionConfigV1> const versions = Nox::make<ServiceConfigV1>("syslog")->versionConfig();
  EXPECT_FALSE(versions->parent());
}

TEST(ServiceVersionConfigV1, AnswersNoVersionForAnAbsentNumber) {
  auto const config = Nox::make<ServiceVersionConfigV1>("versionConfig");
  config->versionIs(ServiceVersionV1(2, "two"));
  EXPECT_EQ(config->version(2), ServiceVersionV1(2, "two"));
  EXPECT_EQ(config->version(3), ServiceVersionV1());
}

TEST(ServiceStatusV1, MakesItsVersionStatusOnce) {
  auto const status = Nox::make<ServiceStatusV1>("syslog");
  auto const listener = Nox::make<Listener<ServiceStatusV1>>(status);
  WriteLog log;
  EXPECT_FALSE(status->versionStatus());
  auto const versionStatus = status->versionStatusIs("VersionStatussyslog");
  EXPECT_EQ(status->versionStatus(), versionStatus);
  EXPECT_EQ(versionStatus->name(), "VersionStatussyslog");
  EXPECT_EQ(versionStatus->parent(), status);
  EXPECT_EQ(versionStatus->parentAttrId(), 257U);
  EXPECT_EQ(versionStatus->parentAttr(), "versionStatus");
  EXPECT_THAT(listener->take(), ElementsAre("versionStatus"));
  EXPECT_EQ(status->versionStatusIs("VersionStatussyslog"), versionStatus);
  EXPECT_THAT(listener->take(), IsEmpty());
  EXPECT_EQ(log.lines().size(), 2U);
  EXPECT_EQ(log.changes().size(), 1U);
}

TEST(ServiceStatusV1, ReplacesAVersionStatusOfAnotherName) {
  auto const status = Nox::make<ServiceStatusV1>("syslog");
  auto const first = status->versionStatusIs("first");
  auto const listener = Nox::make<Listener<ServiceStatusV1>>(status);
  auto const second = status->versionStatusIs("second");
  EXPECT_EQ(status->versionStatus(), second);
  EXPECT_FALSE(first->parent());
  EXPECT_EQ(second->parent(), status);
  EXPECT_THAT(listener->take(), ElementsAre("versionStatus"));
}

TEST(ServiceStatusV1, ReturnsTheVersionStatusThatItRemoves) {
  auto const status = Nox::make<ServiceStatusV1>("syslog");
  EXPECT_FALSE(status->versionStatusDel());
  auto const versionStatus = status->versionStatusIs("first");
  auto const listener = Nox::make<Listener<ServiceStatusV1>>(status);
  EXPECT_EQ(status->versionStatusDel(), versionStatus);
  EXPECT_FALSE(versionStatus->parent());
  EXPECT_FALSE(status->versionStatus());
  EXPECT_THAT(listener->take(), ElementsAre("versionStatus"));
  EXPECT_FALSE(status->versionStatusDel());
  EXPECT_THAT(listener->take(), IsEmpty());
}

TEST(ServiceStatusDir, IsMadeByItsTypeName) {
  auto const dir = Nox::make<Nox::Dir>("serviceStatus");
  auto const made = dir->newEntity("leaf-1", "Controller::ServiceStatusDir");
  EXPECT_TRUE(Nox::ptrCast<ServiceStatusDir>(Nox::Ptr<Nox::Entity>(made)));
  EXPECT_EQ(made->name(), "leaf-1");
  EXPECT_EQ(dir->entityPtr("leaf-1"), made);
  EXPECT_EQ(dir->newEntity("leaf-1", "Controller::ServiceStatusDir"), made);
}

TEST(Mounts, AreStoredUnderTheirPath) {
  auto const offer = Nox::make<SystemPublishedMount>(SystemId(std::uint64_t{0x020000000001}));
  EXPECT_EQ(offer->name(), "02:00:00:00:00:01");
  EXPECT_EQ(offer->systemId(), SystemId(std::uint64_t{0x020000000001}));
  MountDesc const mount{"/a/b", "/remote", "t", "rt", "syslog"};
  offer->publishedMountIs(mount);
  EXPECT_EQ(offer->publishedMount("/a/b"), mount);
  EXPECT_TRUE(!offer->publishedMount("/remote"));
  auto const info = Nox::make<ServicePublishedInfo>("syslog");
  info->publishedMountIs(mount);
  EXPECT_EQ(info->publishedMount("/a/b"), mount);
  EXPECT_TRUE(!info->publishedMount("syslog"));
}

// A row holds its record: what a registration leaves behind can still be read.
TEST(ControllerStatus, KeepsTheRecordsOfItsRows) {
  auto const table = Nox::make<ControllerStatus>("controllerStatus");
  SystemId const id(std::uint64_t{0x020000000001});
  EXPECT_FALSE(table->switchConfig(id));
  EXPECT_FALSE(table->switchStatus(id));
  EXPECT_FALSE(table->registeredSwitch(id));
  table->switchConfigIs(id, Nox::make<SwitchConfig>("leaf-1"));
  table->switchStatusIs(id, Nox::make<SwitchStatus>("leaf-1"));
  table->registeredSwitchIs(id, true);
  EXPECT_EQ(table->switchConfig(id)->name(), "leaf-1");
  EXPECT_EQ(table->switchStatus(id)->name(), "leaf-1");
  EXPECT_TRUE(table->registeredSwitch(id));
}

// Every iterator that a record offers starts at the first member and ends behind the last.
template <class Iterator>
unsigned visits(Iterator&& at) {
  unsigned count = 0;
  for (; at; ++at) ++count;
  return count;
}

TEST(Iterators, VisitEveryMember) {
  SystemId const id(std::uint64_t{1});
  MountDesc const mount{"/p", "", "", "rt", "syslog"};
  auto const service = Nox::make<ServiceConfigV1>("syslog");
  auto const switchConfig = Nox::make<SwitchConfig>("leaf-1");
  EXPECT_EQ(visits(switchConfig->serviceConfigIteratorConst()), 0U);
  switchConfig->serviceConfigIs(service);
  EXPECT_EQ(visits(switchConfig->serviceConfigIteratorConst()), 1U);
  auto const switchStatus = Nox::make<SwitchStatus>("leaf-1");
  switchStatus->serviceStatusIs("syslog");
  switchStatus->servicePublishedInfoIs("syslog")->publishedMountIs(mount);
  EXPECT_EQ(visits(switchStatus->serviceStatusIterator()), 1U);
  EXPECT_EQ(visits(switchStatus->servicePublishedInfoIterator()), 1U);
  EXPECT_EQ(visits(switchStatus->servicePublishedInfo("syslog")->publishedMountIterator()), 1U);
  auto const table = Nox::make<ControllerStatus>("controllerStatus");
  table->switchConfigIs(id, switchConfig);
  table->switchStatusIs(id, switchStatus);
  table->registeredSwitchIs(id, true);
  EXPECT_EQ(visits(table->switchConfigIteratorConst()), 1U);
  EXPECT_EQ(visits(table->switchStatusIteratorConst()), 1U);
  EXPECT_EQ(visits(table->registeredSwitchIteratorConst()), 1U);
  service->versionConfig()->versionIs(ServiceVersionV1(1));
  EXPECT_EQ(visits(service->versionConfig()->versionIteratorConst()), 1U);
  auto const configs = Nox::make<ServiceConfigDir>("serviceConfig");
  configs->serviceIs(service);
  EXPECT_EQ(visits(configs->serviceIteratorConst()), 1U);
  auto const overrides = Nox::make<OverrideServiceConfigDir>("overrideServiceConfig");
  overrides->overrideServiceIs(service);
  EXPECT_EQ(visits(overrides->overrideServiceIteratorConst()), 1U);
  auto const statuses = Nox::make<ServiceStatusDir>("leaf-1");
  statuses->serviceIs("syslog");
  EXPECT_EQ(visits(statuses->serviceIteratorConst()), 1U);
  auto const peers = Nox::make<PeerTable>("peers");
  peers->peerIs(id);
  EXPECT_EQ(visits(peers->peerIteratorConst()), 1U);
  auto const mounts = Nox::make<PublishedMountsTable>("publishedMounts");
  mounts->systemIs(id)->publishedMountIs(mount);
  mounts->servicePublishReadyIs("syslog", true);
  EXPECT_EQ(visits(mounts->systemIteratorConst()), 1U);
  EXPECT_EQ(visits(mounts->system(id)->publishedMountIteratorConst()), 1U);
  EXPECT_EQ(visits(mounts->servicePublishReadyIteratorConst()), 1U);
}

TEST(MountsRegistry, HoldsItsInputs) {
  Nox::Ptr<Nox::Dir> const registryDir = Nox::make<Nox::Dir>("registry");
  Nox::Ptr<Nox::Dir> const rootDir = Nox::make<Nox::Dir>("mounted");
  auto const registry = Nox::make<MountsRegistry>(registryDir, "/registry", rootDir, "/remote", 3U, 1.5);
  EXPECT_EQ(registry->registryDir(), registryDir);
  EXPECT_EQ(registry->registryDirPath(), "/registry");
  EXPECT_EQ(registry->rootDir(), rootDir);
  EXPECT_EQ(registry->remoteRootPath(), "/remote");
  EXPECT_EQ(registry->reconnectRetries(), 3U);
  EXPECT_EQ(registry->mountTimeout(), 1.5);
}

}  // namespace

}  // namespace RecordsTest
