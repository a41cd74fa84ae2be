// The registry as an agent meets it: a library that is loaded, driven by name, and unloaded.
#include "framework/by_name/library.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "agent/document/json_reader.h"
#include "agent/document/scenario.h"
#include "agent/tree/host.h"
#include "agent/tree/library_path.h"
#include "agent/tree/state_tree.h"
#include "framework/by_name/generic_if.h"
#include "framework/by_name/introspection.h"
#include "support/program.h"

namespace LibraryTest {
namespace {

using Nox::GenericIf;
using Op = GenericIf::Op;

std::size_t registeredTypes() {
  std::size_t count = 0;
  for (auto const& type : Nox::IntrospectionReactor::global().types()) count += type.name.empty() ? 0 : 1;
  return count;
}

TEST(Library, AgainAndAgainItIsLoadedRegisteredRunAndUnloaded) {
  std::size_t const ofRecords = registeredTypes();
  for (int round = 0; round < 100; ++round) {
    {
      Nox::Library const library(Agent::libraryPath(std::nullopt));
      ASSERT_NE(Nox::typeNamed("Controllerdb::Root"), nullptr) << round;
      ASSERT_EQ(registeredTypes(), ofRecords + 5);
      Agent::Host host(library);
      Agent::StateTree tree(host.tables());
      tree.put(Agent::parsePath("controller/config"), Agent::readJson(R"({"enabled": true})"));
      tree.put(Agent::parsePath("registration/leaf-1/config"),
               Agent::readJson(R"({"systemId": "02:00:00:aa:00:01", "enabled": true, "registrationGenId": 3})"));
      tree.put(Agent::parsePath("heartbeat/02:00:00:aa:00:01"), Agent::readJson("{}"));
      tree.put(Agent::parsePath("registration/leaf-1/status"), Agent::readJson("{}"));
      auto const answer = tree.read(Agent::parsePath("registration/leaf-1/status"));
      ASSERT_TRUE(answer);
      ASSERT_EQ(answer->at("registrationGenId"), 3);
    }
    ASSERT_EQ(Nox::typeNamed("Controllerdb::Root"), nullptr) << "the library is still there after round " << round;
    ASSERT_EQ(registeredTypes(), ofRecords);
  }
}

TEST(Library, WhatIsThrownInItIsCaughtByType) {
  Nox::Library const library(Agent::libraryPath(std::nullopt));
  Agent::Host const host(library);
  Nox::GenericIfEntity const root(host.root());
  Nox::Ptr<Nox::Dir> const dir = Nox::make<Nox::Dir>("leaf-1");
  auto const registryRoot = root.attributeOp("registryRootSm", Op::kRead).as<Nox::Ptr<Nox::PtrInterface>>();
  Nox::GenericIfPtrInterface const machine(registryRoot);
  machine.attributeOp("registrySm", Op::kInstantiate, {"leaf-1", dir, nullptr, nullptr, nullptr});
  Nox::Ptr<Nox::Dir> const other = Nox::make<Nox::Dir>("leaf-1");
  EXPECT_THROW(machine.attributeOp("registrySm", Op::kInstantiate, {"leaf-1", other, nullptr, nullptr, nullptr}),
               Nox::NameInUseException);
  EXPECT_THROW(root.attributeOp("registrationRootDir", Op::kSet, {true}), Nox::TypeException);
  EXPECT_THROW(root.attributeOp("registrationRootDir", Op::kSet, {host.root()}), Nox::TypeException);
}

TEST(Library, WhatIsNoRegistryIsRefusedWithOneLine) {
  Folder const folder;
  std::string const text = folder.write("libenrolix.so.0", "no library");
  struct {
    std::string path;
    std::string reason;
  } const cases[] = {{text, "cannot be loaded"},
                     {folder / "absent.so", "cannot be loaded"},
                     {"libm.so.6", "it has no noxLibraryInterface"}};
  for (auto const& [path, reason] : cases) {
    try {
      Nox::Library const library(path);
      ADD_FAILURE() << "loaded " << path;
    } catch (Nox::LibraryException const& refused) {
      std::string const what = refused.what();
      EXPECT_TRUE(what.starts_with(path + ": ")) << what;
      EXPECT_NE(what.find(reason), std::string::npos) << what;
      EXPECT_EQ(what.find('\n'), std::string::npos) << what;
    }
  }
}

TEST(Library, WhatSpeaksAnotherVersionOrSaysNothingIsRefusedWithOneLine) {
  Folder const folder;
  folder.write("empty.jsonl", "");
  struct {
    char const* library;
    char const* reason;
  } const cases[] = {{"other_version", ": speaks version 3 of the library interface, this program 2"},
                     {"null_interface", ": is no registry library: it has no noxLibraryInterface"}};
  for (auto const& [name, reason] : cases) {
    std::string const path = std::string(ENROLIX_FOREIGN_LIBRARIES "/") + name + ".so";
    try {
      Nox::Library const library(path);
      ADD_FAILURE() << "loaded " << path;
    } catch (Nox::LibraryException const& refused) {
      EXPECT_EQ(refused.what(), path + reason);
    }
    for (char const* const command : {"replay empty.jsonl", "types", "types --json"}) {
      Outcome const refused = runProgram(folder, std::string(command) + " --library '" + path + "'");
      EXPECT_EQ(refused.status, 1) << command;
      EXPECT_EQ(refused.err, path + reason + "\n") << command;
      EXPECT_EQ(refused.out, "") << command;
    }
  }
}

TEST(Library, OneThatMakesNoRootIsFoundOutWhenItIsAsked) {
  std::string const path = ENROLIX_FOREIGN_LIBRARIES "/without_root.so";
  Nox::Library const library(path);
  EXPECT_STREQ(library.interface().release, "0.0.0");
  EXPECT_THROW(library.rootFactory("root"), Nox::RangeException);
}

TEST(Library, TheProgramTakesTheLibraryThatItIsGiven) {
  Folder const folder;
  folder.write("empty.jsonl", "");
  std::string const library = Agent::libraryPath(std::nullopt);
  EXPECT_EQ(runProgram(folder, "replay --library '" + library + "' empty.jsonl").status, 0);
  Outcome const absent = runProgram(folder, "replay --library absent.so empty.jsonl");
  EXPECT_EQ(absent.status, 1);
  EXPECT_TRUE(absent.err.starts_with("./absent.so: cannot be loaded: ")) << absent.err;
  EXPECT_EQ(std::count(absent.err.begin(), absent.err.end(), '\n'), 1) << absent.err;
  EXPECT_EQ(runProgram(folder, "types --library absent.so").err, absent.err);
}

TEST(Types, ArePrintedAsATableOrAsJson) {
  Folder const folder;
  Outcome const table = runProgram(folder, "types Controllerdb::SwitchRegistrySm");
  EXPECT_EQ(table.status, 0) << table.err;
  EXPECT_TRUE(table.out.starts_with("Controllerdb::SwitchRegistrySm\n  256  name ")) << table.out;
  EXPECT_NE(table.out.find("\n         (controllerUUID: Nox::String)\n"), std::string::npos) << table.out;

  EXPECT_EQ(runProgram(folder, "types ControllerRegistration::SwitchStatus").out,
            "ControllerRegistration::SwitchStatus, an entity\n"
            "  256  controllerUUID        read, set, Nox::String\n"
            "  257  registrationGenId     read, set, U32\n"
            "  258  clientShutdownAck     read, set, bool\n"
            "  259  serviceStatus         read, instantiate, delete, "
            "Nox::HashMap<Controller::ServiceStatusV1, Nox::Name>\n"
            "  260  servicePublishedInfo  read, instantiate, delete, "
            "Nox::HashMap<ControllerRegistration::ServicePublishedInfo, Nox::String>\n");

  Outcome const all = runProgram(folder, "types --json");
  EXPECT_EQ(all.status, 0) << all.err;
  Agent::Json const json = Agent::Json::parse(all.out);
  std::vector<std::string> types;
  for (auto const& [name, type] : json.items()) types.push_back(name);
  EXPECT_THAT(types,
              testing::ElementsAre("Controllerdb::Config",
                                   "Controllerdb::Status",
                                   "ControllerRegistration::SwitchConfig",
                                   "ControllerRegistration::SwitchStatus",
                                   "ControllerRegistration::ServicePublishedInfo",
                                   "ControllerRegistration::ControllerStatus",
                                   "Controller::ServiceVersionConfigV1",
                                   "Controller::ServiceConfigV1",
                                   "Controller::ServiceVersionStatusV1",
                                   "Controller::ServiceStatusV1",
                                   "Controller::ServiceStatusDir",
                                   "Controller::ServiceConfigDir",
                                   "Controller::OverrideServiceConfigDir",
                                   "Controller::Peer",
                                   "Controller::PeerTable",
                                   "Controller::Heartbeat::Config",
                                   "Controller::SystemPublishedMount",
                                   "Controller::PublishedMountsTable",
                                   "Controller::RegisteredSwitchTable",
                                   "Controller::MountsRegistry",
                                   "Controllerdb::Root",
                                   "Controllerdb::RegistryRootSm",
                                   "Controllerdb::SwitchRegistrySm",
                                   "Controllerdb::SwitchConfigSm",
                                   "Controllerdb::SystemPublishSm"));
  Agent::Json const& handler = json["Controllerdb::RegistryRootSm"]["attributes"][10];
  EXPECT_EQ(handler.dump(),
            R"({"name":"handleRegistration","type":"void","id":266,"operations":["call"],)"
            R"("arguments":[{"name":"name","type":"Nox::Name"}]})");

  Outcome const wrong = runProgram(folder, "types Controllerdb::Switch");
  EXPECT_EQ(wrong.status, 1);
  EXPECT_EQ(wrong.err, "no such type: Controllerdb::Switch\n");
}

}  // namespace

}  // namespace LibraryTest
