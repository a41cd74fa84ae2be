// Tests of the records' attributes by name: every row of every record does by name what its member does.
#include <gmock/gmock.h>

#include <array>

#include "framework/by_name/generic_if.h"
#include "support/listeners.h"
#include "support/record_samples.h"

namespace RecordsByNameTest {
namespace {

using namespace Controller;
using namespace ControllerRegistration;
using Nox::GenericIf;
using Nox::Ptr;
using Test::newRecord;
using Test::sample;
using testing::ElementsAre;
using testing::ElementsAreArray;
using Op = GenericIf::Op;
using Value = GenericIf::Value;

template <class R>
class ByName : public testing::Test {
 protected:
  /// Calls `f` with every row of the kind that it takes.
  template <class F>
  static void forEachRow(F f) {
    auto const visit = [&](auto const& row) {
      if constexpr (std::is_invocable_v<F&, decltype(row)>) f(row);
    };
    std::apply([&](auto const&... row) { (visit(row), ...); }, Nox::kRows<R>);
  }

  Nox::ValidPtr<R> const record = newRecord<R>();
  Nox::ValidPtr<Listener<R>> const listener = Nox::make<Listener<R>>(record);
  Nox::GenericIfEntity const byName{record};
};

using All = testing::Types<Controllerdb::Config, Controllerdb::Status, SwitchConfig, SwitchStatus, ServicePublishedInfo,
                           ControllerStatus, ServiceVersionConfigV1, ServiceConfigV1, ServiceVersionStatusV1,
                           ServiceStatusV1, ServiceStatusDir, ServiceConfigDir, OverrideServiceConfigDir, PeerTable,
                           SystemPublishedMount, PublishedMountsTable>;
TYPED_TEST_SUITE(ByName, All);

TYPED_TEST(ByName, NamesAndIdsOfTheRowsAreThoseOfTheRecord) {
  Nox::AttributeId id = Nox::kFirstAttribute;
  TestFixture::forEachRow([&](auto const& row) {
    EXPECT_EQ(this->record->attributeString(id), row.name);
    EXPECT_EQ(this->byName.attributeId(row.name), id++);
  });
  EXPECT_EQ(this->record->attributeString(id), "");
}

TYPED_TEST(ByName, ScalarsAreReadAndSet) {
  TestFixture::forEachRow([&](Nox::IsPlainRow auto const& row) {
    using T = std::remove_cvref_t<decltype((this->record.get()->*row.read)())>;
    if constexpr (!Nox::kIsNone<std::remove_cvref_t<decltype(row)>::set>) {
      this->byName.attributeOp(row.name, Op::kSet, {Value(sample<T>())});
      EXPECT_EQ((this->record.get()->*row.read)(), sample<T>()) << row.name;
      EXPECT_THAT(this->listener->take(), ElementsAre(std::string(row.name)));
    }
    EXPECT_EQ(this->byName.attributeOp(row.name, Op::kRead), Value((this->record.get()->*row.read)())) << row.name;
    EXPECT_THROW(this->byName.attributeOp(row.name, Op::kDelete), Nox::OpNotSupportedException);
  });
}

/// What enters a member of that key, as arguments of its operation by name.
template <class R>
std::vector<Value> entering(void (R::*)(Nox::ValidPtr<ServiceConfigV1> const&), Value const& key) {
  return {Nox::make<ServiceConfigV1>(key.as<Nox::Name>())};
}
template <class R>
std::vector<Value> entering(void (R::*)(MountDesc const&), Value const& key) {
  return {MountDesc{.path = key.as<Nox::String8>(), .remotePath = "/r", .type = "", .mode = "rw", .service = "s"}};
}
template <class R>
std::vector<Value> entering(void (R::*)(ServiceVersionV1 const&), Value const& key) {
  return {ServiceVersionV1(key.as<unsigned>(), "")};
}
template <class R, class K>
std::vector<Value> entering(void (R::*)(K const&, bool), Value const& key) {
  return {key, true};
}
template <class R, class K, class V>
std::vector<Value> entering(void (R::*)(K const&, Ptr<V const> const&), Value const& key) {
  return {key, Nox::make<V>("other")};
}
template <class R, class K, class V>
std::vector<Value> entering(Nox::ValidPtr<V> (R::*)(K const&), Value const& key) {
  return {key};
}

TYPED_TEST(ByName, MembersOfCollectionsAreEnteredReadWalkedAndRemoved) {
  TestFixture::forEachRow([&](Nox::IsCollectionRow auto const& row) {
    using Row = std::remove_cvref_t<decltype(row)>;
    auto const& map = (this->record.get()->*Row::whole)();
    using Key = std::remove_cvref_t<decltype(map.begin()->fwkKey())>;
    std::array<Key, 3> keys;
    if constexpr (std::is_same_v<Key, unsigned>)
      keys = {1, 2, 3};
    else if constexpr (std::is_same_v<Key, SystemId>)
      keys = {SystemId(1), SystemId(2), SystemId(3)};
    else
      keys = {Key("/a"), Key("/b"), Key("/c")};
    for (Key const& key : keys) {
      auto const arguments = entering(Row::enter, Value(key));
      bool const isMade = arguments.size() == 1 && arguments[0] == Value(key);
      this->byName.attributeOp(row.name, isMade ? Op::kInstantiate : Op::kSet, arguments);
      EXPECT_TRUE(map.has(key)) << row.name;
    }
    this->listener->take();
    Heard inOrder;
    auto at = this->byName.attributeIteratorConst(row.name);
    for (auto const& member : map) {
      ASSERT_TRUE(*at) << row.name;
      EXPECT_EQ(at->key(), Value(member.fwkKey()));
      EXPECT_EQ(at->member(), this->byName.attributeOp(row.name, Op::kRead, {Value(member.fwkKey())}));
      std::ostringstream heard;
      heard << row.name << '[' << member.fwkKey() << ']';
      inOrder.push_back(heard.str());
      ++*at;
    }
    EXPECT_FALSE(*at);
    auto const whole = this->byName.attributeOp(row.name, Op::kRead).template as<Ptr<GenericIf::List_ const>>();
    EXPECT_EQ(whole->elements().size(), keys.size());
    this->byName.attributeOp(row.name, Op::kDelete);
    EXPECT_TRUE(map.empty());
    EXPECT_THAT(this->listener->take(), ElementsAreArray(inOrder)) << "one by one, in the collection's order";
    EXPECT_THROW(this->byName.attributeOp(row.name, Op::kDelete, {Value(Ptr<Nox::Entity>(this->record))}),
                 Nox::BadIndexAttrException);
    EXPECT_THROW(this->byName.attributeOp(row.name, Op::kRead, {Value(keys[0]), Value(keys[0])}),
                 Nox::UnknownArgException);
  });
}

TEST(ChildrenByName, AreMadeReplacedReadAndRemoved) {
  auto const status = Nox::make<ServiceStatusV1>("syslog");
  Nox::GenericIfEntity const byName(status);
  EXPECT_TRUE(byName.attributeOp("versionStatus", Op::kRead).isNull());
  auto const made = byName.attributeOp("versionStatus", Op::kInstantiate, {"first"});
  EXPECT_EQ(made, Value(status->versionStatus()));
  EXPECT_EQ(byName.attributeOp("versionStatus", Op::kRead), made);
  auto const child = made.as<Ptr<ServiceVersionStatusV1>>();
  EXPECT_EQ(child->parentAttr(), "versionStatus");
  EXPECT_EQ(byName.attributeOp("versionStatus", Op::kDelete), made);
  EXPECT_FALSE(status->versionStatus());
  auto const config = Nox::make<ServiceConfigV1>("syslog");
  EXPECT_EQ(Nox::GenericIfEntity(config).attributeOp("versionConfig", Op::kRead), Value(config->versionConfig()));
  EXPECT_THROW(Nox::GenericIfEntity(config).attributeOp("versionConfig", Op::kDelete), Nox::OpNotSupportedException);
}

// What a record holds is as constant as the record.
TEST(ChildrenByName, OfARecordThatIsOnlyReadAreOnlyRead) {
  auto const status = Nox::make<SwitchStatus>("leaf-1");
  Value const changing(Ptr<Nox::Entity>(status->serviceStatusIs("syslog")));
  Value const reading(Ptr<Nox::Entity const>(status->serviceStatus("syslog")));
  Nox::GenericIfEntity const mine{Ptr<SwitchStatus>(status)};
  Nox::GenericIfEntity const theirs{Ptr<SwitchStatus const>(status)};
  for (auto const& [byName, wanted] : {std::pair(&mine, &changing), std::pair(&theirs, &reading)}) {
    EXPECT_EQ(byName->attributeOp("serviceStatus", Op::kRead, {"syslog"}), *wanted);
    auto const whole = byName->attributeOp("serviceStatus", Op::kRead).as<Ptr<GenericIf::List_ const>>();
    EXPECT_THAT(whole->elements(), ElementsAre(*wanted));
    EXPECT_EQ(byName->attributeIteratorConst("serviceStatus")->member(), *wanted);
  }
  auto const service = status->serviceStatus("syslog");
  service->versionStatusIs("first");
  Nox::GenericIfEntity const read{Ptr<ServiceStatusV1 const>(service)};
  EXPECT_EQ(read.attributeOp("versionStatus", Op::kRead), Value(Ptr<Nox::Entity const>(service->versionStatus())));
}

TEST(TextForms, OfVersionsAndMountsAreReadBack) {
  using Versions = Nox::TextForm<ServiceVersionV1>;
  for (auto const& version : {ServiceVersionV1(), ServiceVersionV1(7), ServiceVersionV1(4294967295, "two  words ")})
    EXPECT_EQ(Versions::parse(Versions::print(version).view()), version) << version;
  for (char const* const text : {"", " ", "x", "7x", "-1", "4294967296"}) EXPECT_FALSE(Versions::parse(text)) << text;
  using Mounts = Nox::TextForm<MountDesc>;
  for (auto const& mount : {MountDesc(), MountDesc{"/a", "/b", "t", "rw", "syslog"}})
    EXPECT_EQ(Mounts::parse(Mounts::print(mount).view()), mount) << mount;
  for (char const* const text : {"", "/a", "/a - - rt", "/a - - rt - -", "/a  - rt -", "/a - - rt - ", " /a - - rt -"})
    EXPECT_FALSE(Mounts::parse(text)) << text;
}

}  // namespace

}  // namespace RecordsByNameTest
