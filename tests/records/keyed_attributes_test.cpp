// Tests of every keyed collection of every record.
#include <gmock/gmock.h>

#include <map>

#include "framework/by_name/generic_if.h"
#include "support/listeners.h"
#include "support/record_samples.h"
#include "support/write_log.h"

namespace KeyedAttributesTest {
namespace {

using namespace Controller;
using namespace ControllerRegistration;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

template <class T>
std::string textOf(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

template <class K>
K keyOf(unsigned number) {
  if constexpr (std::is_same_v<K, unsigned>)
    return number;
  else if constexpr (std::is_same_v<K, SystemId>)
    return SystemId(0x020000000000U + number);
  else
    return K("key-" + std::to_string(number));
}

// Entering a value under a key, whatever the mutator takes. `edition` tells values of one key apart; edition 0 is the
// default value.
template <class R>
void enter(R& record, void (R::*is)(Nox::ValidPtr<ServiceConfigV1> const&), Nox::Name const& key, unsigned edition) {
  static std::map<std::pair<std::string, unsigned>, Nox::Ptr<ServiceConfigV1>> editions;
  Nox::Ptr<ServiceConfigV1>& config = editions[{textOf(key), edition}];
  if (!config) config = Nox::make<ServiceConfigV1>(key);
  (record.*is)(config);
}
template <class R>
void enter(R& record, void (R::*is)(MountDesc const&), Nox::String8 const& key, unsigned edition) {
  (record.*is)({.path = key, .remotePath = edition == 0 ? "" : "/remote", .type = "", .mode = "rt", .service = ""});
}
template <class R>
void enter(R& record, void (R::*is)(ServiceVersionV1 const&), unsigned key, unsigned edition) {
  (record.*is)(ServiceVersionV1(key, edition == 0 ? "" : "described"));
}
template <class R, class K>
void enter(R& record, void (R::*is)(K const&, bool), K const& key, unsigned edition) {
  (record.*is)(key, edition != 0);
}
template <class R, class K, class V>
void enter(R& record, void (R::*is)(K const&, Nox::Ptr<V const> const&), K const& key, unsigned edition) {
  static Nox::Ptr<V const> const other = Nox::make<V>("other");
  (record.*is)(key, edition == 0 ? nullptr : other);
}
template <class R, class K, class V>
void enter(R& record, Nox::ValidPtr<V> (R::*is)(K const&), K const& key, unsigned /*edition*/) {
  (record.*is)(key);
}

/// One keyed attribute: the reader of the whole, and the mutators that enter, remove one, and remove all.
template <class Record, auto Read, auto Is, auto Del, auto DelAll>
struct Keyed {
  using R = Record;
  using Key = std::remove_cvref_t<decltype((*(std::declval<R const&>().*Read)().begin()).fwkKey())>;
  static constexpr auto read = Read;
  static constexpr auto is = Is;
  static constexpr auto del = Del;
  static constexpr auto delAll = DelAll;

  /// The name in the row of the record's table that enters members of this attribute.
  static std::string name() {
    std::string found;
    auto const visit = [&](auto const& r) {
      using Row = std::remove_cvref_t<decltype(r)>;
      if constexpr (requires { Row::enter; })
        if constexpr (std::is_same_v<decltype(Row::enter), decltype(is)>)
          if (Row::enter == is) found = r.name;
    };
    std::apply([&](auto const&... r) { (visit(r), ...); }, Nox::kRows<R>);
    return found;
  }
};

template <class C>
class KeyedAttributes : public testing::Test {
 protected:
  using R = typename C::R;
  using Key = typename C::Key;
  static Key key(unsigned number) { return keyOf<Key>(number); }
  void is(unsigned number, unsigned edition = 1) { enter(*record, C::is, key(number), edition); }
  void del(unsigned number) { (record.get()->*C::del)(key(number)); }
  auto const& all() { return (std::as_const(*record).*C::read)(); }
  static std::string heardOf(Key const& k) { return C::name() + '[' + textOf(k) + ']'; }

  Nox::ValidPtr<R> record = ::Test::newRecord<R>();
  Nox::ValidPtr<Listener<R>> listener = Nox::make<Listener<R>>(record);
};

using Values = testing::Types<
    Keyed<SwitchConfig, Nox::whole(&SwitchConfig::serviceConfig), &SwitchConfig::serviceConfigIs,
          &SwitchConfig::serviceConfigDel, &SwitchConfig::serviceConfigDelAll>,
    Keyed<ServicePublishedInfo, Nox::whole(&ServicePublishedInfo::publishedMount),
          &ServicePublishedInfo::publishedMountIs, &ServicePublishedInfo::publishedMountDel,
          &ServicePublishedInfo::publishedMountDelAll>,
    Keyed<ControllerStatus, Nox::whole(&ControllerStatus::switchConfig), &ControllerStatus::switchConfigIs,
          &ControllerStatus::switchConfigDel, &ControllerStatus::switchConfigDelAll>,
    Keyed<ControllerStatus, Nox::whole(&ControllerStatus::switchStatus), &ControllerStatus::switchStatusIs,
          &ControllerStatus::switchStatusDel, &ControllerStatus::switchStatusDelAll>,
    Keyed<ControllerStatus, Nox::whole(&ControllerStatus::registeredSwitch), &ControllerStatus::registeredSwitchIs,
          &ControllerStatus::registeredSwitchDel, &ControllerStatus::registeredSwitchDelAll>,
    Keyed<ServiceVersionConfigV1, Nox::whole(&ServiceVersionConfigV1::version), &ServiceVersionConfigV1::versionIs,
          &ServiceVersionConfigV1::versionDel, &ServiceVersionConfigV1::versionDelAll>,
    Keyed<ServiceConfigDir, Nox::whole(&ServiceConfigDir::service), &ServiceConfigDir::serviceIs,
          &ServiceConfigDir::serviceDel, &ServiceConfigDir::serviceDelAll>,
    Keyed<OverrideServiceConfigDir, Nox::whole(&OverrideServiceConfigDir::overrideService),
          &OverrideServiceConfigDir::overrideServiceIs, &OverrideServiceConfigDir::overrideServiceDel,
          &OverrideServiceConfigDir::overrideServiceDelAll>,
    Keyed<SystemPublishedMount, Nox::whole(&SystemPublishedMount::publishedMount),
          &SystemPublishedMount::publishedMountIs, &SystemPublishedMount::publishedMountDel,
          &SystemPublishedMount::publishedMountDelAll>,
    Keyed<PublishedMountsTable, Nox::whole(&PublishedMountsTable::servicePublishReady),
          &PublishedMountsTable::servicePublishReadyIs, &PublishedMountsTable::servicePublishReadyDel,
          &PublishedMountsTable::servicePublishReadyDelAll>>;
using Children = testing::Types<
    Keyed<SwitchStatus, Nox::whole(&SwitchStatus::serviceStatus), &SwitchStatus::serviceStatusIs,
          &SwitchStatus::serviceStatusDel, &SwitchStatus::serviceStatusDelAll>,
    Keyed<SwitchStatus, Nox::whole(&SwitchStatus::servicePublishedInfo), &SwitchStatus::servicePublishedInfoIs,
          &SwitchStatus::servicePublishedInfoDel, &SwitchStatus::servicePublishedInfoDelAll>,
    Keyed<ServiceStatusDir, Nox::whole(&ServiceStatusDir::service), &ServiceStatusDir::serviceIs,
          &ServiceStatusDir::serviceDel, &ServiceStatusDir::serviceDelAll>,
    Keyed<PeerTable, Nox::whole(&PeerTable::peer), &PeerTable::peerIs, &PeerTable::peerDel, &PeerTable::peerDelAll>,
    Keyed<PublishedMountsTable, Nox::whole(&PublishedMountsTable::system), &PublishedMountsTable::systemIs,
          &PublishedMountsTable::systemDel, &PublishedMountsTable::systemDelAll>>;

template <class A, class B>
struct Joined;
template <class... A, class... B>
struct Joined<testing::Types<A...>, testing::Types<B...>> {
  using Type = testing::Types<A..., B...>;
};
using All = Joined<Values, Children>::Type;
TYPED_TEST_SUITE(KeyedAttributes, All);

TYPED_TEST(KeyedAttributes, AreEmptyAtFirstAndPartOfTheTable) {
  EXPECT_TRUE(this->all().empty());
  EXPECT_NE(TypeParam::name(), "");
}

// A new member is a change even if its value is the default.
TYPED_TEST(KeyedAttributes, NotifyTheKeyOfANewMemberAndOfARemovedOne) {
  this->is(3, 0);
  EXPECT_TRUE(this->all().has(this->key(3)));
  EXPECT_THAT(this->listener->take(), ElementsAre(this->heardOf(this->key(3))));
  this->del(3);
  EXPECT_TRUE(this->all().empty());
  EXPECT_THAT(this->listener->take(), ElementsAre(this->heardOf(this->key(3))));
}

TYPED_TEST(KeyedAttributes, NotifyNobodyOfAnEqualWrite) {
  this->is(3);
  this->listener->take();
  WriteLog log;
  this->is(3);
  EXPECT_THAT(this->listener->take(), IsEmpty());
  EXPECT_THAT(log.changes(), IsEmpty());
  EXPECT_EQ(log.lines().size(), 1U);
}

TYPED_TEST(KeyedAttributes, IgnoreTheRemovalOfAnAbsentMember) {
  this->is(3);
  this->listener->take();
  WriteLog log;
  this->del(4);
  (this->record.get()->*TypeParam::del)(typename TypeParam::Key());
  EXPECT_THAT(this->listener->take(), IsEmpty());
  EXPECT_THAT(log.changes(), IsEmpty());
  EXPECT_EQ(this->all().members(), 1U);
}

TYPED_TEST(KeyedAttributes, AreRemovedByTheKeyOfTheVeryMember) {
  this->is(3);
  this->listener->take();
  (this->record.get()->*TypeParam::del)((*this->all().begin()).fwkKey());
  EXPECT_TRUE(this->all().empty());
  EXPECT_THAT(this->listener->take(), ElementsAre(this->heardOf(this->key(3))));
}

// Twenty members, so that the collection has grown several buckets.
TYPED_TEST(KeyedAttributes, AreEmptiedMemberByMemberInTheirOrder) {
  for (unsigned i = 1; i <= 20; ++i) this->is(i);
  this->listener->take();
  Heard expected;
  for (auto const& member : this->all()) expected.push_back(this->heardOf(member.fwkKey()));
  ASSERT_EQ(expected.size(), 20U);
  WriteLog log;
  (this->record.get()->*TypeParam::delAll)();
  EXPECT_TRUE(this->all().empty());
  EXPECT_THAT(this->listener->take(), ElementsAreArray(expected));
  for (std::string& line : expected) line = std::string(this->record->name().view()) + '.' + line + " deleted";
  EXPECT_THAT(log.lines(), ElementsAreArray(expected));
  (this->record.get()->*TypeParam::delAll)();
  EXPECT_THAT(this->listener->take(), IsEmpty());
}

TYPED_TEST(KeyedAttributes, IterateInAnOrderThatInsertionDoesNotDecide) {
  std::vector<std::string> forwards;
  std::vector<std::string> backwards;
  for (unsigned i = 1; i <= 20; ++i) this->is(i);
  for (auto const& member : this->all()) forwards.push_back(textOf(member.fwkKey()));
  (this->record.get()->*TypeParam::delAll)();
  for (unsigned i = 20; i >= 1; --i) this->is(i);
  for (auto const& member : this->all()) backwards.push_back(textOf(member.fwkKey()));
  EXPECT_EQ(forwards, backwards);
}

// What only collections of values do.

template <class C>
class KeyedValues : public KeyedAttributes<C> {};
TYPED_TEST_SUITE(KeyedValues, Values);

TYPED_TEST(KeyedValues, NotifyAReplacedValueOnce) {
  this->is(3, 0);
  this->listener->take();
  this->is(3, 1);
  EXPECT_THAT(this->listener->take(), ElementsAre(this->heardOf(this->key(3))));
  EXPECT_EQ(this->all().members(), 1U);
}

// What only collections of child entities do.

template <class C>
class KeyedChildren : public KeyedAttributes<C> {};
TYPED_TEST_SUITE(KeyedChildren, Children);

TYPED_TEST(KeyedChildren, AnswerTheSameMemberForTheSameKey) {
  auto const first = (this->record.get()->*TypeParam::is)(this->key(3));
  EXPECT_EQ((this->record.get()->*TypeParam::is)(this->key(3)), first);
  EXPECT_EQ(this->all().member(this->key(3)), first);
  EXPECT_EQ(textOf(first->fwkKey()), textOf(this->key(3)));
  EXPECT_EQ(textOf(first->name()), textOf(this->key(3))) << "a member's key is its name";
  this->del(3);
  EXPECT_NE((this->record.get()->*TypeParam::is)(this->key(3)), first);
}

TYPED_TEST(KeyedChildren, AreParentOfTheirMembersUnderTheirAttributeId) {
  auto const member = (this->record.get()->*TypeParam::is)(this->key(3));
  EXPECT_EQ(member->parent(), this->record);
  EXPECT_EQ(member->parentAttr(), TypeParam::name());
  EXPECT_EQ(member->parentAttrId(), Nox::GenericIfEntity(this->record).attributeId(TypeParam::name()));
  this->del(3);
  EXPECT_FALSE(member->parent());
}

TYPED_TEST(KeyedChildren, LeaveNoMemberWithAParentThatHasGone) {
  auto const kept = (this->record.get()->*TypeParam::is)(this->key(3));
  (this->record.get()->*TypeParam::delAll)();
  EXPECT_FALSE(kept->parent());
  auto const survivor = [&] {
    auto const other = ::Test::newRecord<typename TestFixture::R>();
    return (other.get()->*TypeParam::is)(this->key(3));
  }();
  EXPECT_FALSE(survivor->parent());
}

// The immediate and the plain form: the records never send them, a host may.

TEST(KeyedAttributeForms, OfTheControllersTableHaveThreeFormsOfNotificationEach) {
  using N = ControllerStatus::NotifieeConst;
  auto const table = Nox::make<ControllerStatus>("controllerStatus");
  auto const listener = Nox::make<Listener<ControllerStatus>>(table);
  SystemId const id(std::uint64_t{0x020000000001});
  table->announce<Nox::keyed(&N::onSwitchConfig)>(id);
  table->announce<&N::onSwitchConfignoxImmediate>();
  table->announce<Nox::unkeyed(&N::onSwitchConfig)>();
  table->announce<Nox::keyed(&N::onSwitchStatus)>(id);
  table->announce<&N::onSwitchStatusnoxImmediate>();
  table->announce<Nox::unkeyed(&N::onSwitchStatus)>();
  table->announce<Nox::keyed(&N::onRegisteredSwitch)>(id);
  table->announce<&N::onRegisteredSwitchnoxImmediate>();
  table->announce<Nox::unkeyed(&N::onRegisteredSwitch)>();
  EXPECT_THAT(listener->take(),
              ElementsAre("switchConfig[02:00:00:00:00:01]",
                          "switchConfig!",
                          "switchConfig",
                          "switchStatus[02:00:00:00:00:01]",
                          "switchStatus!",
                          "switchStatus",
                          "registeredSwitch[02:00:00:00:00:01]",
                          "registeredSwitch!",
                          "registeredSwitch"));
}

}  // namespace

}  // namespace KeyedAttributesTest
