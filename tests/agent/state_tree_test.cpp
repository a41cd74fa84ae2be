// The tree against the entities behind it: what each path reads and writes, which reactors are told, and in which
// order.
#include "agent/tree/state_tree.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "support/tree_world.h"

namespace Agent::StateTreeTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kId[] = "02:00:00:aa:00:01";
Controller::SystemId const kSystemId(0x020000aa0001);

/// A tree without a registry: nothing answers, so that every change is the put's own.
class Quiet {
 public:
  void put(std::string const& path, std::string const& document) { tree.put(parsePath(path), readJson(document)); }
  void remove(std::string const& path) { tree.remove(parsePath(path)); }
  std::string read(std::string const& path) const {
    auto const document = tree.read(parsePath(path));
    return document ? document->dump() : "nothing";
  }
  std::vector<std::string> paths() const {
    std::vector<std::string> all;
    tree.forEach([&](std::string const& path, Json const&) { all.push_back(path); });
    return all;
  }
  Nox::Ptr<Nox::Dir> registration(char const* name) { return tables.registrationRootDir->entity<Nox::Dir>(name); }

  Controllerdb::AgentTables tables;
  StateTree tree{tables};
};

using Log = std::vector<std::string>;

/// Logs the keyed notifications of a directory as "NAME.onEntry(key)".
class DirWatch final : public Nox::Dir::NotifieeConst {
 public:
  DirWatch(Log& log, Nox::Ptr<Nox::Dir> const& dir) : log_(log), name_(dir->name().view()) { notifierIs(dir); }
  ~DirWatch() override { notifierIs(nullptr); }
  void onEntityPtr(Nox::Name name) override { log("onEntityPtr", name); }
  void onEntityRef(Nox::Name name) override { log("onEntityRef", name); }
  void onEntry(Nox::Name name) override { log("onEntry", name); }

 private:
  void log(std::string const& what, Nox::Name const& key) {
    log_.push_back(name_ + "." + what + "(" + std::string(key.view()) + ")");
  }
  Log& log_;
  std::string name_;
};

/// Logs what is told of a switch's registration record.
class ConfigWatch final : public ControllerRegistration::SwitchConfig::NotifieeConst {
 public:
  ConfigWatch(Log& log, Nox::Ptr<ControllerRegistration::SwitchConfig> const& config) : log_(log) {
    notifierIs(config);
  }
  ~ConfigWatch() override { notifierIs(nullptr); }
  void onSystemId() override { log_.emplace_back("onSystemId"); }
  void onServiceConfig(Nox::Name service) override { log_.push_back("onServiceConfig " + std::string(service.view())); }
  void onEnabled() override { log_.emplace_back("onEnabled"); }
  void onRegistrationGenId() override { log_.emplace_back("onRegistrationGenId"); }

 private:
  Log& log_;
};

TEST(StateTree, StartsWithTheControllersTwoDocuments) {
  TreeWorld world;
  EXPECT_EQ(world.text(),
            "controller/config {\"enabled\":false}\n"
            "controller/status {\"controllerUUID\":\"\",\"enabled\":false}\n");
}

TEST(StateTree, ReadsBackWhatIsPutAtEveryPath) {
  struct {
    std::string path;
    std::string document;
    std::string read;
  } const cases[] = {
      {"controller/config", R"({"enabled":true})", R"({"enabled":true})"},
      {"controller/status", R"({"controllerUUID":"u"})", R"({"controllerUUID":"u","enabled":false})"},
      {"registration/a/config",
       R"({"enabled":true})",
       R"({"systemId":"00:00:00:00:00:00","serviceConfig":{},"enabled":true,"registrationGenId":0})"},
      {"registration/a/status",
       "{}",
       R"({"controllerUUID":"","registrationGenId":0,"clientShutdownAck":false,"serviceStatus":{},)"
       R"("servicePublishedInfo":{}})"},
      {"registration/a/other", R"([1,{"z":0.1,"a":null},"x"])", R"([1,{"z":0.1,"a":null},"x"])"},
      {"registration/b/other", "false", "false"},
      {"heartbeat/02:00:00:AA:00:01", "0", "0"},
      {"service/config/s", "{}", R"({"enabled":false,"versionConfig":{"version":{}}})"},
      {"service/override/s", R"({"enabled":true})", R"({"enabled":true,"versionConfig":{"version":{}}})"},
      {"mount/offer/02:00:00:aa:00:01",
       R"({"publishedMount":{"p":{}}})",
       R"({"publishedMount":{"p":{"path":"p","remotePath":"","type":"","mode":"rt","service":""}}})"},
      {"mount/ready/s", "false", "false"},
  };
  Quiet quiet;
  for (auto const& [path, document, read] : cases) {
    quiet.put(path, document);
    EXPECT_EQ(quiet.read(path), read) << path;
  }
  for (auto const& [path, document, read] : cases) EXPECT_EQ(quiet.read(path), read) << path << " after the others";
  for (auto const& [path, document, read] : cases) {
    if (path.find("controller/") == 0) continue;
    quiet.remove(path);
    EXPECT_EQ(quiet.read(path), "nothing") << path;
    quiet.remove(path);
  }
  EXPECT_THAT(quiet.paths(), ElementsAre("controller/config", "controller/status"));
}

TEST(StateTree, PathsComeInByteOrder) {
  Quiet quiet;
  for (char const* name : {"b", "a", "a b", "a-b", "ab", "a.", "a!", "Z", "é"}) {
    for (char const* entry : {"status", "config", "a"}) {
      quiet.put("registration/" + std::string(name) + "/" + entry, entry == std::string("a") ? "1" : "{}");
    }
    quiet.put("service/config/" + std::string(name), "{}");
    quiet.put("service/override/" + std::string(name), "{}");
    quiet.put("mount/ready/" + std::string(name), "true");
    auto const dir = quiet.tables.allClientsServiceStatusDir->newEntity(name, "Controller::ServiceStatusDir");
    Nox::ptrCast<Controller::ServiceStatusDir>(dir)->serviceIs(name);
  }
  for (char const* id : {"a0:00:00:00:00:00", "00:00:00:00:00:00", "0a:00:00:00:00:00", "09:ff:ff:ff:ff:ff"}) {
    quiet.put("heartbeat/" + std::string(id), "{}");
    quiet.put("mount/offer/" + std::string(id), "{}");
    quiet.tables.controllerStatus->registeredSwitchIs(Controller::SystemId(*Lumo::EthAddr::parse(id)), true);
  }
  auto const paths = quiet.paths();
  EXPECT_EQ(paths.size(), 2u + 9 * 7 + 4 * 3);
  EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
}

TEST(StateTree, TheTableOfSwitchesShowsAbsentRowsAsNull) {
  Quiet quiet;
  quiet.put("registration/a/config", "{}");
  auto const config = quiet.registration("a")->entity<ControllerRegistration::SwitchConfig>("config");
  auto& table = *quiet.tables.controllerStatus;
  std::string const path = std::string("controller/switch/") + kId;
  EXPECT_EQ(quiet.read(path), "nothing");
  table.registeredSwitchIs(kSystemId, false);
  EXPECT_EQ(quiet.read(path), R"({"switchConfig":null,"switchStatus":null,"registeredSwitch":false})");
  table.switchConfigIs(kSystemId, config);
  table.registeredSwitchDel(kSystemId);
  quiet.remove("registration/a");
  EXPECT_EQ(quiet.read(path), R"({"switchConfig":"a","switchStatus":null,"registeredSwitch":null})")
      << "also after the registration has gone";
  table.switchConfigDel(kSystemId);
  EXPECT_EQ(quiet.read(path), "nothing");
}

TEST(StateTree, ServiceStatusIsReadFromTheControllersDirectories) {
  Quiet quiet;
  auto const dir = Nox::make<Controller::ServiceStatusDir>("a");
  quiet.tables.allClientsServiceStatusDir->entityIs("a", dir);
  auto const status = dir->serviceIs("s");
  status->versionStatusIs("VersionStatuss")->negotiatedVersionIs(Controller::ServiceVersionV1(2, "two"));
  EXPECT_EQ(
      quiet.read("service/status/a/s"),
      R"({"enabled":false,"versionStatus":{"name":"VersionStatuss","negotiatedVersion":{"version":2,"desc":"two"},)"
      R"("versionCompatible":false,"versionNegotiationComplete":false}})");
  EXPECT_EQ(quiet.read("service/status/a/t"), "nothing");
  EXPECT_EQ(quiet.read("service/status/b/s"), "nothing");
}

TEST(StateTree, RefusesWhatIsTheRegistrysOrAlwaysThere) {
  TreeWorld world;
  for (char const* path : {"controller/switch/02:00:00:aa:00:01", "service/status/a/s"}) {
    std::string const refusal = ": this path is the registry's own: it can be read, not put or deleted";
    EXPECT_EQ(world.refusal(std::string(R"({"put": ")") + path + R"(", "value": {}})"), refusal);
    EXPECT_EQ(world.refusal(std::string(R"({"delete": ")") + path + R"("})"), refusal);
  }
  for (char const* path : {"controller/config", "controller/status"}) {
    EXPECT_EQ(world.refusal(std::string(R"({"delete": ")") + path + R"("})"),
              ": this path is always there: it can be put, not deleted");
  }
  EXPECT_THAT(world.refusal(R"({"put": "registration/a", "value": {}})"), HasSubstr("a registration has no document"));
  EXPECT_THROW(world.remove("controller/config"), PathRefusal);
}

TEST(StateTree, ContentMayBeAnythingButNull) {
  TreeWorld world;
  for (std::string path : {"heartbeat/02:00:00:aa:00:01", "registration/a/b"}) {
    EXPECT_EQ(world.refusal(R"({"put": ")" + path + R"(", "value": null})"),
              ": expected any JSON value but null, found null");
    EXPECT_EQ(world.read(path), "nothing");
    world.put(path, R"([null])");
    EXPECT_EQ(world.read(path), "[null]");
  }
}

TEST(StateTree, ARefusedPutChangesNothingAndTellsNobody) {
  Quiet quiet;
  quiet.put("registration/a/config", R"({"serviceConfig": {"s": {"enabled": true}}})");
  Log log;
  auto const rootWatch = Nox::make<DirWatch>(log, quiet.tables.registrationRootDir);
  auto const watch =
      Nox::make<ConfigWatch>(log, quiet.registration("a")->entity<ControllerRegistration::SwitchConfig>("config"));
  std::string const before = quiet.read("registration/a/config");
  EXPECT_THROW(
      quiet.put("registration/a/config",
                R"({"systemId": "02:00:00:aa:00:01", "enabled": true, "serviceConfig": {}, "registrationGenId": -1})"),
      InputError);
  EXPECT_THROW(quiet.put("registration/b/config", R"({"enabled": 1})"), InputError);
  EXPECT_THROW(quiet.put("service/config/s", "[]"), InputError);
  EXPECT_THROW(quiet.put("mount/offer/02:00:00:aa:00:01", R"({"publishedMount": 1})"), InputError);
  EXPECT_THROW(quiet.put("mount/ready/s", "0"), InputError);
  EXPECT_EQ(quiet.read("registration/a/config"), before);
  EXPECT_THAT(quiet.paths(), ElementsAre("controller/config", "controller/status", "registration/a/config"));
  EXPECT_THAT(log, IsEmpty());
}

TEST(StateTree, APutTellsOfItsChangesInTheOrderOfTheFields) {
  Quiet quiet;
  quiet.put("registration/a/config", R"({"serviceConfig": {"s": {}}})");
  Log log;
  auto const watch =
      Nox::make<ConfigWatch>(log, quiet.registration("a")->entity<ControllerRegistration::SwitchConfig>("config"));
  quiet.put(
      "registration/a/config",
      R"({"registrationGenId": 1, "enabled": true, "serviceConfig": {"t": {}}, "systemId": "02:00:00:aa:00:01"})");
  EXPECT_THAT(log,
              ElementsAre("onSystemId", "onServiceConfig s", "onServiceConfig t", "onEnabled", "onRegistrationGenId"));
  log.clear();
  quiet.put(
      "registration/a/config",
      R"({"registrationGenId": 1, "enabled": true, "serviceConfig": {"t": {}}, "systemId": "02:00:00:AA:00:01"})");
  EXPECT_THAT(log, IsEmpty()) << "a put that changes nothing";
  quiet.put("registration/a/config",
            R"({"registrationGenId": 1, "enabled": true, "serviceConfig": {"t": {"enabled": true}},
                "systemId": "02:00:00:aa:00:01"})");
  EXPECT_THAT(log, IsEmpty()) << "a change inside a member that stays";
}

TEST(StateTree, APutOverAnEntityChangesThatEntity) {
  Quiet quiet;
  auto const putAll = [&](std::string const& enabled) {
    quiet.put("registration/a/config", R"({"enabled": )" + enabled + "}");
    quiet.put("registration/a/status", "{}");
    quiet.put("registration/a/other", enabled);
    quiet.put("service/config/s", R"({"enabled": )" + enabled + "}");
    quiet.put("service/override/s", R"({"enabled": )" + enabled + "}");
    quiet.put("heartbeat/02:00:00:aa:00:01", enabled);
    quiet.put("mount/offer/02:00:00:aa:00:01", "{}");
  };
  auto const entities = [&]() -> std::vector<Nox::Ptr<Nox::Entity const>> {
    auto const& mounts = quiet.tables.publishedMountsTable;
    return {quiet.registration("a"),
            quiet.registration("a")->entityRef("config"),
            quiet.registration("a")->entityRef("status"),
            quiet.registration("a")->entityRef("other"),
            quiet.tables.serviceConfigDir->service("s"),
            quiet.tables.overrideServiceConfigDir->overrideService("s"),
            std::as_const(*quiet.tables.peers).peer(kSystemId),
            mounts->system(kSystemId)};
  };
  putAll("false");
  auto const first = entities();
  putAll("true");
  EXPECT_EQ(entities(), first);
  EXPECT_EQ(quiet.read("registration/a/other"), "true");
  EXPECT_EQ(first[1]->name(), "a") << "the records carry the switch's name";
  EXPECT_EQ(first[2]->name(), "a");
  for (char const* path : {"registration/a",
                           "service/config/s",
                           "service/override/s",
                           "heartbeat/02:00:00:aa:00:01",
                           "mount/offer/02:00:00:aa:00:01"})
    quiet.remove(path);
  putAll("true");
  auto const second = entities();
  for (std::size_t i = 0; i < first.size(); ++i) EXPECT_NE(second[i], first[i]) << i << " after a delete";
}

TEST(StateTree, AHandlersExceptionLeavesWhenEverythingIsWrittenAndTold) {
  class Thrower final : public Controllerdb::Config::NotifieeConst {
   public:
    void onEnabled() override { throw Nox::RangeException("refused by a handler"); }
  };
  Quiet quiet;
  auto const thrower = Nox::make<Thrower>();
  thrower->notifierIs(quiet.tables.config);
  EXPECT_THROW(quiet.put("controller/config", R"({"enabled": true})"), Nox::RangeException);
  EXPECT_EQ(quiet.read("controller/config"), R"({"enabled":true})");
  EXPECT_FALSE(Nox::Turn::isOpen());
  thrower->notifierIs(nullptr);
}

TEST(StateTree, ARegistrationExistsWhileItHoldsAnEntry) {
  Quiet quiet;
  Log log;
  auto const rootWatch = Nox::make<DirWatch>(log, quiet.tables.registrationRootDir);
  quiet.put("registration/a/x", "1");
  EXPECT_THAT(log,
              ElementsAre("registration.onEntry(a)", "registration.onEntityRef(a)", "registration.onEntityPtr(a)"));
  auto const dir = quiet.registration("a");
  auto const watch = Nox::make<DirWatch>(log, dir);
  log.clear();
  quiet.put("registration/a/x", "2");
  quiet.remove("registration/a/y");
  quiet.remove("registration/b/x");
  EXPECT_THAT(log, IsEmpty());
  quiet.put("registration/a/y", "2");
  EXPECT_THAT(log, ElementsAre("a.onEntry(y)", "a.onEntityRef(y)", "a.onEntityPtr(y)"));
  quiet.remove("registration/a/y");
  log.clear();
  quiet.remove("registration/a/x");
  EXPECT_THAT(log,
              ElementsAre("a.onEntityPtr(x)",
                          "a.onEntityRef(x)",
                          "a.onEntry(x)",
                          "registration.onEntityPtr(a)",
                          "registration.onEntityRef(a)",
                          "registration.onEntry(a)"));
  EXPECT_FALSE(quiet.registration("a"));
}

TEST(StateTree, ARegistrationThatIsDeletedWholeTellsTheRootAlone) {
  Quiet quiet;
  quiet.put("registration/a/config", "{}");
  quiet.put("registration/a/x", "1");
  auto const dir = quiet.registration("a");
  Log log;
  auto const rootWatch = Nox::make<DirWatch>(log, quiet.tables.registrationRootDir);
  auto const watch = Nox::make<DirWatch>(log, dir);
  quiet.remove("registration/a");
  EXPECT_THAT(log,
              ElementsAre("registration.onEntityPtr(a)", "registration.onEntityRef(a)", "registration.onEntry(a)"));
  EXPECT_TRUE(dir->entityRef("config")) << "who holds it keeps it with its entries";
  EXPECT_THAT(quiet.paths(), ElementsAre("controller/config", "controller/status"));
}

TEST(StateTree, AStatusKeepsItsAnswersWhenItIsPutAgain) {
  Quiet quiet;
  quiet.put("registration/a/status", "{}");
  quiet.registration("a")->entity<ControllerRegistration::SwitchStatus>("status")->registrationGenIdIs(5);
  quiet.put("registration/a/status", "{}");
  EXPECT_THAT(quiet.read("registration/a/status"), HasSubstr(R"("registrationGenId":5)"));
  quiet.tables.status->enabledIs(true);
  quiet.put("controller/status", "{}");
  EXPECT_EQ(quiet.read("controller/status"), R"({"controllerUUID":"","enabled":true})");
}

TEST(StateTree, TheRegistryAnswersWithinThePut) {
  TreeWorld world{R"({"put": "controller/status", "value": {"controllerUUID": "u"}})",
                  R"({"put": "controller/config", "value": {"enabled": true}})",
                  R"({"put": "registration/a/status", "value": {}})",
                  R"({"put": "heartbeat/02:00:00:aa:00:01", "value": {}})"};
  world.put("registration/a/config", R"({"systemId": "02:00:00:aa:00:01", "enabled": true, "registrationGenId": 9})");
  EXPECT_EQ(world.read("controller/switch/02:00:00:aa:00:01"),
            R"({"switchConfig":"a","switchStatus":"a","registeredSwitch":true})");
  EXPECT_THAT(world.read("registration/a/status"),
              HasSubstr(R"("controllerUUID":"u","registrationGenId":9,"clientShutdownAck":false)"));
  world.remove("heartbeat/02:00:00:aa:00:01");
  EXPECT_EQ(world.read("controller/switch/02:00:00:aa:00:01"), "nothing");
  EXPECT_THAT(world.read("registration/a/status"), HasSubstr(R"("clientShutdownAck":true)"));
}

}  // namespace
}  // namespace Agent::StateTreeTest
