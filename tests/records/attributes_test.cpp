// Tests of every scalar attribute of every record, driven by the records' own attribute tables.
#include <gmock/gmock.h>

#include "support/listeners.h"
#include "support/record_samples.h"
#include "support/write_log.h"

namespace AttributesTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Test::newRecord;
using Test::sample;

/// Calls `f` with every row that has a reader and a mutator of one value.
template <class R, class F>
void forEachScalar(F f) {
  auto const visit = [&](auto const& row) {
    using Row = std::remove_cvref_t<decltype(row)>;
    if constexpr (Nox::IsPlainRow<Row>)
      if constexpr (!Nox::kIsNone<Row::set>) f(row);
  };
  std::apply([&](auto const&... row) { (visit(row), ...); }, Nox::kRows<R>);
}

template <class R>
class Scalars : public testing::Test {};
using ScalarRecords =
    testing::Types<Controllerdb::Config, Controllerdb::Status, ControllerRegistration::SwitchConfig,
                   ControllerRegistration::SwitchStatus, ControllerRegistration::ServicePublishedInfo,
                   Controller::ServiceConfigV1, Controller::ServiceVersionStatusV1, Controller::ServiceStatusV1>;
TYPED_TEST_SUITE(Scalars, ScalarRecords);

TYPED_TEST(Scalars, StartWithTheirDefaults) {
  auto const record = newRecord<TypeParam>();
  forEachScalar<TypeParam>([&](auto const& row) {
    using T = std::remove_cvref_t<decltype((record.get()->*row.read)())>;
    EXPECT_EQ((record.get()->*row.read)(), T{}) << row.name;
  });
}

TYPED_TEST(Scalars, NotifyTheirOwnAttributeOnceForEachChange) {
  auto const record = newRecord<TypeParam>();
  auto const listener = Nox::make<Listener<TypeParam>>(record);
  forEachScalar<TypeParam>([&](auto const& row) {
    using T = std::remove_cvref_t<decltype((record.get()->*row.read)())>;
    std::string const name(row.name);
    (record.get()->*row.set)(sample<T>());
    EXPECT_EQ((record.get()->*row.read)(), sample<T>()) << name;
    EXPECT_THAT(listener->take(), ElementsAre(name));
    (record.get()->*row.set)(T{});
    EXPECT_EQ((record.get()->*row.read)(), T{}) << name;
    EXPECT_THAT(listener->take(), ElementsAre(name));
  });
}

TYPED_TEST(Scalars, NotifyNobodyOfAnEqualWrite) {
  auto const record = newRecord<TypeParam>();
  auto const listener = Nox::make<Listener<TypeParam>>(record);
  forEachScalar<TypeParam>([&](auto const& row) {
    using T = std::remove_cvref_t<decltype((record.get()->*row.read)())>;
    (record.get()->*row.set)(T{});
    EXPECT_THAT(listener->take(), IsEmpty()) << row.name;
    (record.get()->*row.set)(sample<T>());
    listener->take();
    WriteLog log;
    (record.get()->*row.set)(sample<T>());
    EXPECT_THAT(listener->take(), IsEmpty()) << row.name;
    EXPECT_THAT(log.changes(), IsEmpty()) << row.name;
    EXPECT_EQ(log.lines().size(), 1U) << row.name << ": an equal write is a write that can be observed";
  });
}

TYPED_TEST(Scalars, LeaveEachOtherAlone) {
  auto const record = newRecord<TypeParam>();
  forEachScalar<TypeParam>([&](auto const& row) {
    using T = std::remove_cvref_t<decltype((record.get()->*row.read)())>;
    (record.get()->*row.set)(sample<T>());
    forEachScalar<TypeParam>([&](auto const& other) {
      using U = std::remove_cvref_t<decltype((record.get()->*other.read)())>;
      EXPECT_EQ((record.get()->*other.read)(), other.name == row.name ? sample<U>() : U{}) << other.name;
    });
    (record.get()->*row.set)(T{});
  });
}

template <class R>
class Records : public testing::Test {};
using AllRecords =
    testing::Types<Controllerdb::Config, Controllerdb::Status, ControllerRegistration::SwitchConfig,
                   ControllerRegistration::SwitchStatus, ControllerRegistration::ServicePublishedInfo,
                   ControllerRegistration::ControllerStatus, Controller::ServiceVersionConfigV1,
                   Controller::ServiceConfigV1, Controller::ServiceVersionStatusV1, Controller::ServiceStatusV1,
                   Controller::ServiceStatusDir, Controller::ServiceConfigDir, Controller::OverrideServiceConfigDir,
                   Controller::PeerTable, Controller::SystemPublishedMount, Controller::PublishedMountsTable,
                   Controller::RegisteredSwitchTable, Controller::Heartbeat::Config>;
TYPED_TEST_SUITE(Records, AllRecords);

TYPED_TEST(Records, NotifyWhenTheyBecomeNondestructing) {
  auto const record = newRecord<TypeParam>();
  auto const listener = Nox::make<Listener<TypeParam>>(record);
  EXPECT_FALSE(record->isNondestructing());
  record->isNondestructingIs(true);
  record->isNondestructingIs(true);
  EXPECT_TRUE(record->isNondestructing());
  EXPECT_THAT(listener->take(), ElementsAre("isNondestructing"));
}

TYPED_TEST(Records, KnowTheirType) {
  auto const record = newRecord<TypeParam>();
  EXPECT_EQ(&record->fwkType(), &TypeParam::noxType);
  EXPECT_EQ(TypeParam::noxType.base, &Nox::Entity::noxType);
  if (TypeParam::noxType.newEntity == nullptr) return;
  Nox::Ptr<Nox::Entity> const made = TypeParam::noxType.newEntity("made");
  EXPECT_TRUE(Nox::ptrCast<TypeParam>(made));
  EXPECT_EQ(made->name(), "made");
}

TEST(Records, TypesAreNamedWithTheirNamespaces) {
  EXPECT_EQ(Controllerdb::Config::noxType.name, "Controllerdb::Config");
  EXPECT_EQ(Controllerdb::Status::noxType.name, "Controllerdb::Status");
  EXPECT_EQ(ControllerRegistration::SwitchConfig::noxType.name, "ControllerRegistration::SwitchConfig");
  EXPECT_EQ(ControllerRegistration::SwitchStatus::noxType.name, "ControllerRegistration::SwitchStatus");
  EXPECT_EQ(ControllerRegistration::ServicePublishedInfo::noxType.name, "ControllerRegistration::ServicePublishedInfo");
  EXPECT_EQ(ControllerRegistration::ControllerStatus::noxType.name, "ControllerRegistration::ControllerStatus");
  EXPECT_EQ(Controller::ServiceVersionConfigV1::noxType.name, "Controller::ServiceVersionConfigV1");
  EXPECT_EQ(Controller::ServiceConfigV1::noxType.name, "Controller::ServiceConfigV1");
  EXPECT_EQ(Controller::ServiceVersionStatusV1::noxType.name, "Controller::ServiceVersionStatusV1");
  EXPECT_EQ(Controller::ServiceStatusV1::noxType.name, "Controller::ServiceStatusV1");
  EXPECT_EQ(Controller::ServiceStatusDir::noxType.name, "Controller::ServiceStatusDir");
  EXPECT_EQ(Controller::ServiceConfigDir::noxType.name, "Controller::ServiceConfigDir");
  EXPECT_EQ(Controller::OverrideServiceConfigDir::noxType.name, "Controller::OverrideServiceConfigDir");
  EXPECT_EQ(Controller::Peer::noxType.name, "Controller::Peer");
  EXPECT_EQ(Controller::PeerTable::noxType.name, "Controller::PeerTable");
  EXPECT_EQ(Controller::SystemPublishedMount::noxType.name, "Controller::SystemPublishedMount");
  EXPECT_EQ(Controller::PublishedMountsTable::noxType.name, "Controller::PublishedMountsTable");
  EXPECT_EQ(Controller::RegisteredSwitchTable::noxType.name, "Controller::RegisteredSwitchTable");
  EXPECT_EQ(Controller::MountsRegistry::noxType.name, "Controller::MountsRegistry");
  EXPECT_EQ(Controller::Heartbeat::Config::noxType.name, "Controller::Heartbeat::Config");
}

/// The attributes of a record in declared order, which is the order of their ids.
template <class R>
std::vector<std::string> attributeNames() {
  return std::apply([](auto const&... row) { return std::vector<std::string>{std::string(row.name)...}; },
                    Nox::kRows<R>);
}

TEST(Records, ListTheirAttributesInDeclaredOrder) {
  EXPECT_THAT(attributeNames<Controllerdb::Config>(), ElementsAre("enabled", "port"));
  EXPECT_THAT(attributeNames<ControllerRegistration::SwitchConfig>(),
              ElementsAre("systemId", "connectionConfig", "serviceConfig", "enabled", "registrationGenId"));
  EXPECT_THAT(
      attributeNames<ControllerRegistration::SwitchStatus>(),
      ElementsAre("controllerUUID", "registrationGenId", "clientShutdownAck", "serviceStatus", "servicePublishedInfo"));
  EXPECT_THAT(attributeNames<ControllerRegistration::ControllerStatus>(),
              ElementsAre("switchConfig", "switchStatus", "registeredSwitch"));
  EXPECT_THAT(attributeNames<Controller::ServiceConfigV1>(), ElementsAre("enabled", "versionConfig"));
  EXPECT_THAT(attributeNames<Controller::ServiceStatusV1>(), ElementsAre("enabled", "versionStatus"));
  EXPECT_THAT(attributeNames<Controller::PublishedMountsTable>(), ElementsAre("system", "servicePublishReady"));
}

}  // namespace

}  // namespace AttributesTest
