// Tests of the sibling libraries' machines: what they hold, and how their reactors are switched.
#include "records/siblings.h"

#include <gmock/gmock.h>

namespace SiblingsTest {
namespace {

using namespace Controller;
using ControllerRegistration::ControllerStatus;
using Nox::Dir;
using Nox::Ptr;

/// Every input of the three machines.
struct Inputs {
  Ptr<MountsRegistry> mountsRegistry = Nox::make<MountsRegistry>(nullptr, "", nullptr, "", 0U, 0.0);
  Ptr<ControllerStatus> controllerStatus = Nox::make<ControllerStatus>("controllerStatus");
  Ptr<PublishedMountsTable> publishedMounts = Nox::make<PublishedMountsTable>("publishedMounts");
  Ptr<RegisteredSwitchTable> registeredSwitches = Nox::make<RegisteredSwitchTable>("registeredSwitches");
  Ptr<PeerTable> peers = Nox::make<PeerTable>("peers");
  Ptr<Heartbeat::Config> heartbeatConfig = Nox::make<Heartbeat::Config>("heartbeat");
  Ptr<Dir> a = Nox::make<Dir>("a");
  Ptr<Dir> b = Nox::make<Dir>("b");
  Ptr<Dir> c = Nox::make<Dir>("c");
  Ptr<Dir> d = Nox::make<Dir>("d");
};

unsigned watchers(Nox::Entity const& input) {
  unsigned count = 0;
  for (auto* r = input.noxNotifiees().first(); r != nullptr; r = Nox::NotifieeList::next(*r)) ++count;
  return count;
}

/// How to make one machine, and the inputs that it watches, in the order of its reactors.
struct MountsRegistryCase {
  using Sm = MountsRegistrySm;
  static auto args(Inputs const& in) {
    return std::tuple(in.mountsRegistry,
                      Ptr<ControllerStatus const>(in.controllerStatus),
                      in.a,
                      in.publishedMounts,
                      in.registeredSwitches,
                      Ptr<Dir const>(in.b));
  }
  static std::vector<Ptr<Nox::Entity>> watched(Inputs const& in) {
    return {in.mountsRegistry, in.controllerStatus, in.b};
  }
  template <class... A>
  static Ptr<Sm> make(A const&... args) {
    return Sm::MountsRegistrySmIs(args...);
  }
};
struct ServiceConfigDirCase {
  using Sm = ServiceConfigDirSm;
  static auto args(Inputs const& in) {
    return std::tuple(Ptr<Dir const>(in.a), in.b, Ptr<Dir const>(in.c), in.d, in.publishedMounts, in.mountsRegistry);
  }
  static std::vector<Ptr<Nox::Entity>> watched(Inputs const& in) { return {in.a, in.b, in.c, in.d}; }
  template <class... A>
  static Ptr<Sm> make(A const&... args) {
    return Sm::ServiceConfigDirSmIs(args...);
  }
};
struct InitialMountCase {
  using Sm = InitialMountSm;
  static auto args(Inputs const& in) {
    return std::tuple(Ptr<Dir const>(in.a),
                      in.b,
                      Ptr<Heartbeat::Config const>(in.heartbeatConfig),
                      Ptr<RegisteredSwitchTable const>(in.registeredSwitches),
                      Ptr<PeerTable const>(in.peers));
  }
  static std::vector<Ptr<Nox::Entity>> watched(Inputs const& in) {
    return {in.a, in.b, in.registeredSwitches, in.peers};
  }
  template <class... A>
  static Ptr<Sm> make(A const&... args) {
    return Sm::InitialMountSmIs(args...);
  }
};

template <class Case>
class Siblings : public testing::Test {
 protected:
  template <class Args>
  static Ptr<typename Case::Sm> make(Args const& args) {
    return std::apply([](auto const&... a) { return Case::make(a...); }, args);
  }
  Ptr<typename Case::Sm> make() { return make(Case::args(in)); }
  void expectWatchers(unsigned count, char const* when) {
    for (Ptr<Nox::Entity> const& input : Case::watched(in)) EXPECT_EQ(watchers(*input), count) << when;
  }

  Inputs in;
};
using Cases = testing::Types<MountsRegistryCase, ServiceConfigDirCase, InitialMountCase>;
TYPED_TEST_SUITE(Siblings, Cases);

TYPED_TEST(Siblings, HoldTheirInputsAndHaveRunTheirFirstPass) {
  auto const sm = this->make();
  EXPECT_EQ(sm->constructorArgs(), TypeParam::args(this->in));
  EXPECT_TRUE(sm->initialized());
}

// Bit i of the mask says whether argument i is given.
TYPED_TEST(Siblings, AcceptAnyInputThatIsAbsent) {
  auto const all = TypeParam::args(this->in);
  constexpr std::size_t kCount = std::tuple_size_v<decltype(TypeParam::args(std::declval<Inputs const&>()))>;
  for (unsigned mask = 0; mask < 1U << kCount; ++mask) {
    auto given = all;
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      ((mask >> I & 1U ? void() : void(std::get<I>(given) = nullptr)), ...);
    }
    (std::make_index_sequence<kCount>());
    auto const sm = this->make(given);
    EXPECT_EQ(sm->constructorArgs(), given) << mask;
    sm->hasNotificationActiveIs(true);
    sm->noxDoZombieReactors(true);
    sm->hasNotificationActiveIs(false);
  }
}

TYPED_TEST(Siblings, StartSwitchedOffWithTheirReactorsOn) {
  auto const sm = this->make();
  EXPECT_FALSE(sm->hasNotificationActive());
  this->expectWatchers(1, "at first");
  sm->hasNotificationActiveIs(true);
  this->expectWatchers(1, "switched on");
}

TYPED_TEST(Siblings, SwitchTheirReactorsOffAndOnWithThem) {
  auto const sm = this->make();
  sm->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(false);
  this->expectWatchers(0, "switched off");
  sm->hasNotificationActiveIs(true);
  this->expectWatchers(1, "switched on again");
}

TYPED_TEST(Siblings, WithdrawTheirReactorsAsZombiesAndAtTheEnd) {
  auto sm = this->make();
  sm->noxDoZombieReactors(true);
  EXPECT_TRUE(sm->noxMarkedForDeletion());
  this->expectWatchers(0, "zombie");
  sm->noxDoZombieReactors(false);
  this->expectWatchers(1, "back");
  sm = nullptr;
  this->expectWatchers(0, "gone");
}

// Notifications of every input arrive, and change nothing.
TYPED_TEST(Siblings, DoNothingAboutWhatTheyHear) {
  auto const sm = this->make();
  sm->hasNotificationActiveIs(true);
  this->in.a->entityIs("entry", Nox::make<Nox::Entity>("entry"));
  this->in.b->entityIs("entry", Nox::make<Nox::Entity>("entry"));
  this->in.c->entityDel("entry");
  this->in.peers->peerIs(SystemId(std::uint64_t{1}));
  this->in.controllerStatus->registeredSwitchIs(SystemId(std::uint64_t{1}), true);
  EXPECT_EQ(sm->constructorArgs(), TypeParam::args(this->in));
}

// Each factory operation makes a fresh reactor on its input, which shares the machine's zombie state.
template <class Sm, class R, class In>
void expectReactor(Sm& sm, Nox::ValidPtr<R> (Sm::*newReactor)(Ptr<In> const&), Ptr<In> const& input) {
  sm.noxDoZombieReactors(false);
  auto const reactor = (sm.*newReactor)(input);
  EXPECT_EQ(reactor->input(), input);
  EXPECT_TRUE(reactor->hasNotificationActive());
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  EXPECT_FALSE(reactor->noxMarkedForDeletion());
  sm.noxDoZombieReactors(true);
  auto const zombie = (sm.*newReactor)(input);
  EXPECT_TRUE(zombie->noxMarkedForDeletion());
  EXPECT_FALSE(zombie->hasNotificationActive());
}

TEST(SiblingReactors, AreMadeForEachWatchedInput) {
  Inputs const in;
  auto const mounts = Nox::make<MountsRegistrySm>(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  expectReactor(*mounts, &MountsRegistrySm::newMountsRegistry, in.mountsRegistry);
  expectReactor(*mounts, &MountsRegistrySm::newControllerStatus, Ptr<ControllerStatus const>(in.controllerStatus));
  expectReactor(*mounts, &MountsRegistrySm::newAllClientsServiceStatusDir, Ptr<Dir const>(in.a));
  auto const services = Nox::make<ServiceConfigDirSm>(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  expectReactor(*services, &ServiceConfigDirSm::newMountConfigDir, Ptr<Dir const>(in.a));
  expectReactor(*services, &ServiceConfigDirSm::newMountStatusDir, in.b);
  expectReactor(*services, &ServiceConfigDirSm::newPublishConfigDir, Ptr<Dir const>(in.c));
  expectReactor(*services, &ServiceConfigDirSm::newPublishStatusDir, in.d);
  auto const initial = Nox::make<InitialMountSm>(nullptr, nullptr, nullptr, nullptr, nullptr);
  expectReactor(*initial, &InitialMountSm::newMountConfigDir, Ptr<Dir const>(in.a));
  expectReactor(*initial, &InitialMountSm::newMountStatusDir, in.b);
  expectReactor(
      *initial, &InitialMountSm::newRegisteredSwitchTable, Ptr<RegisteredSwitchTable const>(in.registeredSwitches));
  expectReactor(*initial, &InitialMountSm::newPeerTable, Ptr<PeerTable const>(in.peers));
}

template <class Member>
class SiblingMembers : public testing::Test {};
using Members = testing::Types<MountsRegistryEntrySm, PublishRegistryEntrySm, ConnectionServiceStatusDirSm,
                               ServiceMountConfigSm, ServicePublishConfigSm, ServiceInitialMountSm>;
TYPED_TEST_SUITE(SiblingMembers, Members);

TYPED_TEST(SiblingMembers, AreKeptUnderTheirNames) {
  Nox::HashMap<TypeParam, Nox::Name> members;
  auto const member = Nox::make<TypeParam>("syslog");
  members.newMember(member);
  EXPECT_EQ(members.member("syslog"), member);
  EXPECT_EQ(member->name(), "syslog");
  EXPECT_EQ(&member->fwkType(), &TypeParam::noxType);
  EXPECT_EQ(members.memberDel("syslog"), member);
  EXPECT_TRUE(members.empty());
}

}  // namespace

}  // namespace SiblingsTest
