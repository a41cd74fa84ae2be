// Tests of the root: what it makes, keeps and replaces, and the order in which it lets go.
#include <gmock/gmock.h>

#include <functional>

#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace RootTest {
namespace {

using namespace Controllerdb;
using testing::ElementsAre;
using testing::IsEmpty;
using Log = std::vector<std::string>;

TEST(Root, StartsWithItsNameAndNothingElse) {
  auto const root = rootFactory("root");
  EXPECT_EQ(root->name(), "root");
  EXPECT_FALSE(root->registrationRootDir());
  EXPECT_FALSE(root->mountsRegistry());
  EXPECT_FALSE(root->publishedMountsTable());
  EXPECT_FALSE(root->registeredSwitchTable());
  EXPECT_FALSE(root->registryRootSm());
  EXPECT_FALSE(root->mountsRegistrySm());
  EXPECT_FALSE(root->serviceConfigDirSm());
  EXPECT_FALSE(root->initialMountSm());
  EXPECT_EQ(Root::RootIs("other")->name(), "other");
}

TEST(Root, NamesItsAttributesById) {
  auto const root = rootFactory("root");
  Log names;
  for (Nox::AttributeId id = 256; id <= 267; ++id) names.emplace_back(root->attributeString(id).view());
  EXPECT_THAT(names,
              ElementsAre("name",
                          "isNondestructing",
                          "registrationRootDir",
                          "mountsRegistry",
                          "publishedMountsTable",
                          "registeredSwitchTable",
                          "registryRootSm",
                          "mountsRegistrySm",
                          "serviceConfigDirSm",
                          "initialMountSm",
                          "",
                          ""));
  EXPECT_EQ(root->attributeString(0), "");
}

TEST(Root, HoldsTheRegistrationRootDirectoryAndNothingElseHappens) {
  auto const root = rootFactory("root");
  Nox::Ptr<Nox::Dir> const dir = Nox::make<Nox::Dir>("registration");
  root->registrationRootDirIs(dir);
  EXPECT_EQ(root->registrationRootDir(), dir);
  EXPECT_FALSE(dir->parent());
  EXPECT_TRUE(dir->noxNotifiees().empty());
  root->registrationRootDirIs(nullptr);
  EXPECT_FALSE(root->registrationRootDir());
}

// The children that are entities.

template <class Child>
void expectChild(Root& root, Nox::Ptr<Child> const& child, Nox::AttributeId id, char const* attribute) {
  EXPECT_EQ(child->parent().get(), &root);
  EXPECT_EQ(child->parentAttrId(), id);
  EXPECT_EQ(child->parentAttr(), attribute);
}

TEST(Root, MakesEachTableOnceAsItsChild) {
  auto const root = rootFactory("root");
  auto const mounts = root->publishedMountsTableIs();
  EXPECT_EQ(root->publishedMountsTableIs(), mounts);
  EXPECT_EQ(root->publishedMountsTable(), mounts);
  expectChild(*root, mounts, 260, "publishedMountsTable");
  EXPECT_TRUE(mounts->system().empty());
  auto const switches = root->registeredSwitchTableIs();
  EXPECT_EQ(root->registeredSwitchTableIs(), switches);
  EXPECT_EQ(root->registeredSwitchTable(), switches);
  expectChild(*root, switches, 261, "registeredSwitchTable");
}

TEST(Root, FactoryOfATableReplacesIt) {
  auto const root = rootFactory("root");
  auto const mounts = root->newPublishedMountsTable();
  auto const switches = root->newRegisteredSwitchTable();
  EXPECT_NE(root->newPublishedMountsTable(), mounts);
  EXPECT_NE(root->newRegisteredSwitchTable(), switches);
  EXPECT_FALSE(mounts->parent());
  EXPECT_FALSE(switches->parent());
}

TEST(Root, KeepsTheMountsRegistryOfTheVeryArgumentsOnly) {
  auto const root = rootFactory("root");
  auto const is = [&root](auto const& args) {
    return std::apply([&root](auto const&... a) { return root->mountsRegistryIs(a...); }, args);
  };
  Nox::Ptr<Nox::Dir> const dir = Nox::make<Nox::Dir>("dir");
  std::tuple const held(dir, Nox::String8("/registry"), dir, Nox::String8("/remote"), 3U, Nox::Seconds(30));
  auto const first = is(held);
  expectChild(*root, first, 259, "mountsRegistry");
  EXPECT_EQ(is(held), first);
  EXPECT_EQ(is(std::tuple(dir, Nox::String8("/regi") + "stry", dir, Nox::String8("/remote"), 3U, 30.0)), first)
      << "texts are compared by value";
  auto const check = [&](auto change, char const* what) {
    auto args = held;
    auto const before = is(held);
    change(args);
    auto const made = is(args);
    EXPECT_NE(made, before) << what;
    EXPECT_EQ(made->constructorArgs(), args) << what;
    EXPECT_EQ(root->mountsRegistry(), made) << what;
    EXPECT_EQ(made->parent(), root) << what;
    EXPECT_FALSE(before->parent()) << what;
  };
  check([](auto& a) { std::get<0>(a) = Nox::make<Nox::Dir>("dir"); }, "registryDir");
  check([](auto& a) { std::get<1>(a) = "/other"; }, "registryDirPath");
  check([](auto& a) { std::get<2>(a) = nullptr; }, "rootDir");
  check([](auto& a) { std::get<3>(a) = "/other"; }, "remoteRootPath");
  check([](auto& a) { std::get<4>(a) = 4; }, "reconnectRetries");
  check([](auto& a) { std::get<5>(a) = 30.5; }, "mountTimeout");
}

TEST(Root, FactoryOfAMountsRegistryMakesAChildThatItDoesNotKeep) {
  auto const root = rootFactory("root");
  auto const held = root->mountsRegistryIs(nullptr, "", nullptr, "", 0, 0);
  auto const made = root->newMountsRegistry(nullptr, "", nullptr, "", 0, 0);
  EXPECT_NE(made, held);
  EXPECT_EQ(root->mountsRegistry(), held);
  EXPECT_EQ(held->parent(), root);
  expectChild(*root, made, 259, "mountsRegistry");
  made->parentIs(nullptr);
}

TEST(Root, ReturnsTheChildThatItRemovesWithoutItsParent) {
  auto const root = rootFactory("root");
  auto const mounts = root->publishedMountsTableIs();
  auto const switches = root->registeredSwitchTableIs();
  auto const registry = root->mountsRegistryIs(nullptr, "", nullptr, "", 0, 0);
  EXPECT_EQ(root->publishedMountsTableDel(), mounts);
  EXPECT_EQ(root->registeredSwitchTableDel(), switches);
  EXPECT_EQ(root->mountsRegistryDel(), registry);
  EXPECT_FALSE(mounts->parent());
  EXPECT_FALSE(switches->parent());
  EXPECT_FALSE(registry->parent());
  EXPECT_FALSE(root->publishedMountsTable());
  EXPECT_FALSE(root->registeredSwitchTable());
  EXPECT_FALSE(root->mountsRegistry());
}

TEST(Root, RemovalOfWhatIsNotThereReturnsNull) {
  auto const root = rootFactory("root");
  EXPECT_FALSE(root->mountsRegistryDel());
  EXPECT_FALSE(root->publishedMountsTableDel());
  EXPECT_FALSE(root->registeredSwitchTableDel());
  EXPECT_FALSE(root->registryRootSmDel());
  EXPECT_FALSE(root->mountsRegistrySmDel());
  EXPECT_FALSE(root->serviceConfigDirSmDel());
  EXPECT_FALSE(root->initialMountSmDel());
}

// The state machines.

/// Asks for the present machine's arguments again, then for others: each argument in turn is null instead.
template <class Sm, class Is>
void expectKeptForTheVeryArgumentsOnly(Nox::Ptr<Sm> const& (Root::*read)() const noexcept, Root& root, Is is) {
  auto const held = (root.*read)()->constructorArgs();
  auto const ask = [&](auto const& args) {
    return std::apply([&](auto const&... a) { return (root.*is)(a...); }, args);
  };
  auto const check = [&]<std::size_t I>(std::integral_constant<std::size_t, I> /*index*/) {
    auto const before = ask(held);
    EXPECT_EQ(ask(held), before);
    auto args = held;
    std::get<I>(args) = nullptr;
    auto const made = ask(args);
    EXPECT_NE(made, before) << "argument " << I;
    EXPECT_EQ((root.*read)(), made) << "argument " << I;
    EXPECT_EQ(made->constructorArgs(), args) << "argument " << I;
    EXPECT_TRUE(made->initialized()) << "argument " << I;
    EXPECT_TRUE(made->hasNotificationActive()) << "argument " << I;
    EXPECT_TRUE(before->hasNotificationActive()) << "a machine that is replaced is only released";
  };
  [&]<std::size_t... I>(std::index_sequence<I...>) { (check(std::integral_constant<std::size_t, I>()), ...); }
  (std::make_index_sequence<std::tuple_size_v<decltype(held)>>());
}

/// A world whose root also holds the sibling machines, no input of which is absent.
struct FullWorld : World {
  FullWorld() : World(1) {
    root->mountsRegistrySmIs(mountsRegistry, controllerStatus, dir, mounts, switches, dir);
    root->serviceConfigDirSmIs(dir, dir, dir, dir, mounts, mountsRegistry);
    root->initialMountSmIs(dir, dir, Nox::make<Controller::Heartbeat::Config>("heartbeat"), switches, peers);
  }
  Nox::Ptr<Nox::Dir> dir = Nox::make<Nox::Dir>("dir");
  Nox::ValidPtr<Controller::PublishedMountsTable> mounts = root->publishedMountsTableIs();
  Nox::ValidPtr<Controller::RegisteredSwitchTable> switches = root->registeredSwitchTableIs();
  Nox::ValidPtr<Controller::MountsRegistry> mountsRegistry = root->mountsRegistryIs(dir, "/", dir, "/", 3, 30);
};

TEST(Root, KeepsEachMachineOfTheVeryArgumentsOnly) {
  FullWorld w;
  expectKeptForTheVeryArgumentsOnly(&Root::registryRootSm, *w.root, &Root::registryRootSmIs);
  expectKeptForTheVeryArgumentsOnly(&Root::mountsRegistrySm, *w.root, &Root::mountsRegistrySmIs);
  expectKeptForTheVeryArgumentsOnly(&Root::serviceConfigDirSm, *w.root, &Root::serviceConfigDirSmIs);
  expectKeptForTheVeryArgumentsOnly(&Root::initialMountSm, *w.root, &Root::initialMountSmIs);
}

TEST(Root, RunsTheFirstPassOfANewRegistryRootOnly) {
  World w(1);
  TraceCapture text({8});
  w.newRegistryRootSm();
  EXPECT_THAT(text.lines(), IsEmpty());
  w.root->registryRootSmDel();
  text.clear();
  w.newRegistryRootSm();
  EXPECT_THAT(text.lines(), testing::Contains("8 41 void Controllerdb::RegistryRootSm::handleInitialized()").Times(1));
}

TEST(Root, SwitchesOffTheMachineThatItRemoves) {
  FullWorld w;
  auto const expectOff = [](auto const& held, auto const& removed) {
    ASSERT_TRUE(held);
    EXPECT_EQ(removed, held);
    EXPECT_FALSE(held->hasNotificationActive());
  };
  auto const registryRootSm = w.root->registryRootSm();
  auto const mountsRegistrySm = w.root->mountsRegistrySm();
  auto const serviceConfigDirSm = w.root->serviceConfigDirSm();
  auto const initialMountSm = w.root->initialMountSm();
  expectOff(registryRootSm, w.root->registryRootSmDel());
  expectOff(mountsRegistrySm, w.root->mountsRegistrySmDel());
  expectOff(serviceConfigDirSm, w.root->serviceConfigDirSmDel());
  expectOff(initialMountSm, w.root->initialMountSmDel());
  EXPECT_FALSE(w.root->registryRootSm());
  EXPECT_FALSE(w.root->mountsRegistrySm());
  EXPECT_FALSE(w.root->serviceConfigDirSm());
  EXPECT_FALSE(w.root->initialMountSm());
}

/// While it lives, service status directories cannot be made.
struct NoServiceStatusDirs {
  Nox::NoxType type{"Controller::ServiceStatusDir", &Nox::Entity::noxType};
  Nox::TypeRegistration registration{type};
};

TEST(Root, KeepsItsMachineWhenAFactoryThrows) {
  World w(1);
  auto const before = w.registryRootSm();
  auto const otherPeers = Nox::make<Controller::PeerTable>("other");
  auto const attempt = [&] {
    return w.root->registryRootSmIs(w.config,
                                    w.status,
                                    w.registrationRootDir,
                                    w.controllerStatus,
                                    otherPeers,
                                    w.serviceConfigDir,
                                    w.overrideServiceConfigDir,
                                    w.allClientsServiceStatusDir,
                                    w.publishedMountsTable);
  };
  {
    NoServiceStatusDirs const none;
    EXPECT_THROW(attempt(), Nox::RangeException);
  }
  EXPECT_EQ(w.registryRootSm(), before);
  EXPECT_TRUE(before->hasNotificationActive());
  EXPECT_TRUE(otherPeers->noxNotifiees().empty()) << "what was built has gone";
  w.leave("leaf-1");
  EXPECT_FALSE(w.registrySm("leaf-1"));
}

// The end.

TEST(Root, EndsWithoutChildren) {
  auto root = rootFactory("root");
  WriteLog log;
  root = nullptr;
  EXPECT_THAT(log.lines(), IsEmpty());
}

/// A directory that writes down its end: the last holder's end, if no other holds it.
class LastWords final : public Nox::Dir {
 public:
  LastWords(char const* holder, Log& log) : Dir(holder), log_(log) {}
  ~LastWords() override { log_.emplace_back(name().view()); }

 private:
  Log& log_;
};

TEST(Root, LetsGoOfItsAttributesInOrder) {
  Log log;
  auto const heldBy = [&log](char const* holder) { return Nox::Ptr<Nox::Dir>(Nox::make<LastWords>(holder, log)); };
  auto root = rootFactory("root");
  root->registrationRootDirIs(heldBy("registrationRootDir"));
  root->initialMountSmIs(nullptr, heldBy("initialMountSm"), nullptr, nullptr, nullptr);
  root->serviceConfigDirSmIs(nullptr, heldBy("serviceConfigDirSm"), nullptr, nullptr, nullptr, nullptr);
  root->mountsRegistrySmIs(nullptr, nullptr, heldBy("mountsRegistrySm"), nullptr, nullptr, nullptr);
  root->registryRootSmIs(
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, heldBy("registryRootSm"), nullptr);
  root->mountsRegistryIs(heldBy("mountsRegistry"), "", nullptr, "", 0, 0);
  root = nullptr;
  EXPECT_THAT(log,
              ElementsAre("mountsRegistry",
                          "registryRootSm",
                          "mountsRegistrySm",
                          "serviceConfigDirSm",
                          "initialMountSm",
                          "registrationRootDir"));
}

/// Writes down when an entity's parent changes.
class ParentWatch final : public Nox::Entity::NotifieeConst {
 public:
  ParentWatch(Nox::Ptr<Nox::Entity> const& entity, Log& log) : log_(log), name_(entity->name()) {
    NotifieeConst::notifierIs(entity);
  }
  void onParent() override { log_.emplace_back(name_.view()); }

 private:
  Log& log_;
  Nox::Name name_;
};

TEST(Root, UnlinksItsTablesBeforeTheMachinesThatUseThemEnd) {
  FullWorld w;
  Log log;
  auto const mounts = Nox::make<ParentWatch>(w.mounts, log);
  auto const switches = Nox::make<ParentWatch>(w.switches, log);
  struct AtRemoval final : Nox::WriteObserver {
    void written(Nox::Entity const&, std::string_view, bool, Nox::WriteText, Nox::WriteText) override {}
    void removed(Nox::Entity const&, std::string_view, bool, Nox::WriteText) override { then(); }
    std::function<void()> then;
  } observer;
  unsigned removals = 0;
  observer.then = [&] {
    ++removals;
    EXPECT_FALSE(w.mounts->parent());
    EXPECT_FALSE(w.switches->parent());
    EXPECT_FALSE(w.mountsRegistry->parent());
  };
  auto* const before = std::exchange(Nox::writeObserver_, &observer);
  w.root = nullptr;
  Nox::writeObserver_ = before;
  EXPECT_EQ(removals, 3U) << "the rows of the one switch";
  EXPECT_THAT(log, ElementsAre("publishedMountsTable", "registeredSwitchTable"));
}

TEST(Root, SwitchesOffMachinesThatOutliveIt) {
  FullWorld w;
  auto const registryRootSm = w.root->registryRootSm();
  auto const mountsRegistrySm = w.root->mountsRegistrySm();
  auto const serviceConfigDirSm = w.root->serviceConfigDirSm();
  auto const initialMountSm = w.root->initialMountSm();
  w.root = nullptr;
  EXPECT_FALSE(registryRootSm->hasNotificationActive());
  EXPECT_FALSE(mountsRegistrySm->hasNotificationActive());
  EXPECT_FALSE(serviceConfigDirSm->hasNotificationActive());
  EXPECT_FALSE(initialMountSm->hasNotificationActive());
}

}  // namespace

}  // namespace RootTest
