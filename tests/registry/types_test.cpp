// What the registry tells of its classes, word for word.
#include <gmock/gmock.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "framework/by_name/attr_table.h"
#include "framework/by_name/introspection.h"
#include "registry/EnrolixSm.h"

namespace TypesTest {
namespace {

using Nox::IntrospectionReactor;
using Nox::NoxAttr;
using Nox::NoxType;
using testing::ElementsAre;

std::string joined(NoxAttr::ArgQueue const& queue) {
  std::string text;
  for (auto const& argument : queue) text += (text.empty() ? "" : ", ") + std::string(argument.text().view());
  return text;
}

/// An attribute as lists write it: "x", "x [arguments]", "x keyed by name [arguments]", "handleX(argument) ()",
/// "switch(bool)".
std::string line(NoxAttr const& attr) {
  std::string text(attr.name().view());
  std::string const arguments = joined(attr.constructorArgNameQ());
  unsigned const ops = attr.introspectionFlags().value();
  if ((attr.flags() & NoxAttr::kKeyed) != 0) text += " keyed by name";
  if ((attr.flags() & NoxAttr::kHandler) != 0) {
    if (!arguments.empty()) text += "(" + arguments + ")";
    if (attr.type() == "void") text += " ()";
  } else if ((ops >> static_cast<unsigned>(Nox::GenericIf::Op::kInstantiate) & 1) != 0) {
    text += " [" + arguments + "]";
  }
  return text;
}

std::string list(NoxType const& type) {
  std::string text;
  for (NoxAttr const& attr : type.attrs()) text += (text.empty() ? "" : ", ") + line(attr);
  return text;
}

constexpr char kRoot[] =
    "name, isNondestructing, registrationRootDir, mountsRegistry [registryDir, registryDirPath, rootDir, "
    "remoteRootPath, reconnectRetries, mountTimeout], publishedMountsTable [], registeredSwitchTable [], "
    "registryRootSm [controllerdbConfig, controllerdbStatus, registrationRootDir, controllerStatus, "
    "heartbeatPeerTable, serviceConfigDir, overrideServiceConfigDir, allClientsServiceStatusDir, "
    "publishedMountsTable], mountsRegistrySm [mountsRegistry, controllerStatus, serviceMountStatusDir, "
    "publishedMountsTable, registeredSwitchTable, allClientsServiceStatusDir], serviceConfigDirSm [mountConfigDir, "
    "mountStatusDir, publishConfigDir, publishStatusDir, publishedMountsTable, mountsRegistry], initialMountSm "
    "[mountConfigDir, mountStatusDir, heartbeatConfig, registeredSwitchTable, peerTable]";
constexpr char kRegistryRootSm[] =
    "controllerdbConfig, controllerdbStatus, registrationRootDir, controllerStatus, heartbeatPeerTable, "
    "serviceConfigDir, overrideServiceConfigDir, allClientsServiceStatusDir, publishedMountsTable, noxFwkActivity, "
    "handleRegistration(name) (), registrySm keyed by name [switchDir, serviceStatusDir, publishedMountsTable, "
    "heartbeatPeerTable], handleEnabled (), doCleanup (), handleInitialized (), hasNotificationActiveIs(bool), "
    "noxDoZombieReactors(bool)";
constexpr char kSwitchRegistrySm[] =
    "name, switchDir, serviceStatusDir, publishedMountsTable, heartbeatPeerTable, registryRootSm, noxFwkActivity, "
    "handleEntry(name) (), configSm [config, status, heartbeatPeerTable, controllerStatus, serviceConfigDir, "
    "overrideServiceConfigDir, controllerUUID, serviceStatusDir, switchId, publishedMountsTable], handleInitialized "
    "(), fwkKey, hasNotificationActiveIs(bool), noxDoZombieReactors(bool)";
constexpr char kSwitchConfigSm[] =
    "config, status, heartbeatPeerTable, controllerStatus, serviceConfigDir, overrideServiceConfigDir, "
    "controllerUUID, serviceStatusDir, switchId, publishedMountsTable, switchRegistrySm, noxFwkActivity, switchReady, "
    "handleSwitchConfig (), handleHeartbeat(systemId) (), doVersionNegotiation(serviceName) (), serviceConfig keyed "
    "by name, localServiceConfig keyed by name, systemPublishSm [systemPublishedMount, status, "
    "publishedMountsTable], handleSystemPublish(systemId) (), handleServicePublishReady(service) (), doCleanup (), "
    "handleInitialized (), hasNotificationActiveIs(bool), noxDoZombieReactors(bool)";
constexpr char kSystemPublishSm[] =
    "systemPublishedMount, status, publishedMountsTable, noxFwkActivity, handlePublishedMount(path) (), "
    "handleInitialized (), hasNotificationActiveIs(bool), noxDoZombieReactors(bool)";

struct {
  NoxType& type;
  char const* list;
} const kClasses[] = {{Controllerdb::Root::noxType, kRoot},
                      {Controllerdb::RegistryRootSm::noxType, kRegistryRootSm},
                      {Controllerdb::SwitchRegistrySm::noxType, kSwitchRegistrySm},
                      {Controllerdb::SwitchConfigSm::noxType, kSwitchConfigSm},
                      {Controllerdb::SystemPublishSm::noxType, kSystemPublishSm}};

TEST(Types, ListTheirAttributesInTheOrderOfDeclaration) {
  for (auto const& [type, wanted] : kClasses) EXPECT_EQ(list(type), wanted) << type.name;
}

TEST(Types, NumberTheirAttributesFrom256) {
  for (auto const& [type, wanted] : kClasses) {
    Nox::AttributeId id = 256;
    for (NoxAttr const& attr : type.attrs()) EXPECT_EQ(attr.id(), id++) << type.name << ' ' << attr.name();
  }
  EXPECT_EQ(Controllerdb::Root::noxType.attr("registrationRootDir")->id(), 258U);
  EXPECT_EQ(Controllerdb::Root::noxType.attr("initialMountSm")->id(), 265U);
}

TEST(Types, AreRegisteredWhenTheLibraryIsLoaded) {
  std::vector<std::string_view> names;
  for (NoxType const& type : IntrospectionReactor::global().types()) names.push_back(type.name);
  // In front of them stand those of the records, whose library is loaded first.
  ASSERT_GE(names.size(), std::size(kClasses));
  EXPECT_THAT(std::vector(names.end() - std::size(kClasses), names.end()),
              ElementsAre("Controllerdb::Root",
                          "Controllerdb::RegistryRootSm",
                          "Controllerdb::SwitchRegistrySm",
                          "Controllerdb::SwitchConfigSm",
                          "Controllerdb::SystemPublishSm"));
  for (auto const& [type, wanted] : kClasses) {
    EXPECT_TRUE(type.hasGenericIfSupport());
    EXPECT_EQ(type.isEntity(), type.name == "Controllerdb::Root");
    EXPECT_EQ(Nox::typeNamed(type.name), &type);
  }
  auto const root = Controllerdb::rootFactory("root");
  EXPECT_EQ(&root->fwkType(), &Controllerdb::Root::_fwkType());
}

TEST(Types, NameTheTypesOfArgumentsInOrder) {
  auto const types = [](NoxType const& type, char const* attr) {
    return joined(type.attr(attr)->constructorArgTypeQ());
  };
  EXPECT_EQ(types(Controllerdb::Root::noxType, "mountsRegistry"),
            "Nox::Ptr<Nox::Dir>, Nox::String, Nox::Ptr<Nox::Dir>, Nox::String, U32, Nox::Seconds");
  EXPECT_EQ(types(Controllerdb::Root::noxType, "registryRootSm"),
            "Nox::Ptr<Controllerdb::Config const>, Nox::Ptr<Controllerdb::Status>, Nox::Ptr<Nox::Dir>, "
            "Nox::Ptr<ControllerRegistration::ControllerStatus>, Nox::Ptr<Controller::PeerTable const>, "
            "Nox::Ptr<Controller::ServiceConfigDir const>, Nox::Ptr<Controller::OverrideServiceConfigDir const>, "
            "Nox::Ptr<Nox::Dir>, Nox::Ptr<Controller::PublishedMountsTable const>");
  EXPECT_EQ(types(Controllerdb::Root::noxType, "initialMountSm"),
            "Nox::Ptr<Nox::Dir const>, Nox::Ptr<Nox::Dir>, Nox::Ptr<Controller::Heartbeat::Config const>, "
            "Nox::Ptr<Controller::RegisteredSwitchTable const>, Nox::Ptr<Controller::PeerTable const>");
  EXPECT_EQ(types(Controllerdb::RegistryRootSm::noxType, "registrySm"),
            "Nox::Ptr<Nox::Dir>, Nox::Ptr<Controller::ServiceStatusDir>, "
            "Nox::Ptr<Controller::PublishedMountsTable const>, Nox::Ptr<Controller::PeerTable const>");
  EXPECT_EQ(types(Controllerdb::SwitchConfigSm::noxType, "handleHeartbeat"), "Controller::SystemId");
  EXPECT_EQ(types(Controllerdb::SwitchConfigSm::noxType, "handleServicePublishReady"), "Nox::String");
  EXPECT_EQ(Controllerdb::SwitchConfigSm::noxType.attr("controllerUUID")->type(), "Nox::String");
  EXPECT_EQ(Controllerdb::SwitchConfigSm::noxType.attr("switchReady")->type(), "bool");
  EXPECT_EQ(Controllerdb::SwitchConfigSm::noxType.attr("switchRegistrySm")->type(), "Controllerdb::SwitchRegistrySm*");
  EXPECT_EQ(Controllerdb::RegistryRootSm::noxType.attr("registrySm")->type(),
            "Nox::HashMap<Controllerdb::SwitchRegistrySm, Nox::Name>");
  EXPECT_EQ(Controllerdb::SwitchConfigSm::noxType.attr("noxDoZombieReactors")->type(), "bool");
}

/// Writes down what it hears, beside what the reactor proper does.
class FakeReactor final : public IntrospectionReactor {
 public:
  ~FakeReactor() override {
    for (auto const& [type, wanted] : kClasses) typeDel(type);
    for (auto const& [type, wanted] : kClasses) Nox::registerType(type, global());
  }
  void handleNameSpace(char const* nameSpace) override { calls.push_back("namespace " + std::string(nameSpace)); }
  void handleType(NoxType& type, NoxType const* base) override {
    calls.push_back("type " + std::string(type.name) + " : " + std::string(base != nullptr ? base->name : "-"));
  }
  void defNoninstantiatingAttr(NoxType& type, Nox::Name const& name, Nox::Name const& attrType, unsigned flags,
                               NoxAttr::NoxAttrIntrospectionFlags introspectionFlags, Nox::AttributeId id) override {
    calls.push_back("def " + std::string(name.view()) + " " + std::to_string(id));
    IntrospectionReactor::defNoninstantiatingAttr(type, name, attrType, flags, introspectionFlags, id);
  }
  void handleAttr(NoxAttr const& attr) override {
    calls.push_back("attr " + line(attr) + " " + std::to_string(attr.id()));
  }
  void handleAttrContextExit() override { calls.emplace_back("attr exit"); }
  void handleScopeExit() override { calls.emplace_back("scope exit"); }

  std::vector<std::string> calls;
};

TEST(Types, AreDescribedInOrder) {
  FakeReactor reactor;
  Nox::registerType(Controllerdb::SystemPublishSm::noxType, reactor);
  EXPECT_THAT(reactor.calls,
              ElementsAre("namespace Controllerdb",
                          "type Controllerdb::SystemPublishSm : Nox::PtrInterface",
                          "def systemPublishedMount 256",
                          "def status 257",
                          "def publishedMountsTable 258",
                          "def noxFwkActivity 259",
                          "attr handlePublishedMount(path) () 260",
                          "attr exit",
                          "attr handleInitialized () 261",
                          "attr exit",
                          "attr hasNotificationActiveIs(bool) 262",
                          "attr exit",
                          "attr noxDoZombieReactors(bool) 263",
                          "attr exit",
                          "scope exit"));
  reactor.calls.clear();
  Nox::registerType(Controllerdb::Root::noxType, reactor);
  ASSERT_EQ(reactor.calls.size(), 2 + 3 + 2 * 7 + 1U);
  EXPECT_EQ(reactor.calls[1], "type Controllerdb::Root : Nox::Entity");
  EXPECT_EQ(reactor.calls[6].substr(0, 20), "attr exit");
}

TEST(Types, RegisteredTwiceTheyHaveOneDefinitionOfEach) {
  FakeReactor reactor;
  for (auto const& [type, wanted] : kClasses) {
    Nox::registerType(type, reactor);
    Nox::registerType(type, reactor);
    EXPECT_EQ(list(type), wanted);
  }
  NoxAttr::attrDel(Controllerdb::Root::noxType, "mountsRegistry");
  EXPECT_FALSE(Controllerdb::Root::noxType.attr("mountsRegistry"));
  NoxAttr::attrDel(Controllerdb::Root::noxType, "mountsRegistry");
}

TEST(Types, IntrospectionFlagsHaveSixBits) {
  EXPECT_EQ(NoxAttr::NoxAttrIntrospectionFlags(0x3f).value(), 0x3fU);
  for (unsigned const value : {0x40U, 0x80000000U}) {
    try {
      NoxAttr::NoxAttrIntrospectionFlags const flags(value);
      ADD_FAILURE() << flags.value();
    } catch (Nox::RangeException const& refused) {
      EXPECT_STREQ(refused.what(), "NoxAttrIntrospectionFlags::value > 0x3f not allowed");
    }
  }
}

}  // namespace

}  // namespace TypesTest
