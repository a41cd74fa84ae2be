// A small agent: has the registry built over its records, enrols one switch, and prints what the switch is answered.
#include <exception>
#include <iostream>
#include <tuple>

#include "framework/by_name/generic_if.h"
#include "framework/by_name/library.h"
#include "framework/core/dir.h"
#include "records/tables.h"

namespace {

// Has the root of a registry make its machines over the tables that the agent shares with it. The root's class is the
// library's own affair: its attributes are reached by name. A real agent keeps its tables in step with what comes over
// its network.
void build(Nox::Ptr<Nox::Entity> const& root, Controllerdb::AgentTables& tables) {
  using Op = Nox::GenericIf::Op;
  Nox::GenericIfEntity const registry(root);
  registry.attributeOp("registrationRootDir", Op::kSet, {tables.registrationRootDir});
  tables.publishedMountsTable =
      registry.attributeOp("publishedMountsTable", Op::kInstantiate).as<Nox::Ptr<Controller::PublishedMountsTable>>();
  std::apply([&](auto const&... input) { registry.attributeOp("registryRootSm", Op::kInstantiate, {input...}); },
             tables.registryRootInputs());
}

void print(char const* when, Controllerdb::AgentTables const& tables,
           ControllerRegistration::SwitchStatus const& answer) {
  std::cout << when << '\n'
            << "  controllerUUID: " << answer.controllerUUID() << '\n'
            << "  registrationGenId: " << answer.registrationGenId() << '\n'
            << "  clientShutdownAck: " << (answer.clientShutdownAck() ? "true" : "false") << '\n'
            << "  the controller's table: "
            << (tables.controllerStatus->registeredSwitch().empty() ? "empty" : "leaf-1") << '\n';
}

void run() {
  // The library goes last: everything that it made is gone by then.
  Nox::Library const library("libenrolix.so.0");
  Controllerdb::AgentTables tables;
  auto const root = library.rootFactory("root");
  build(root, tables);
  tables.status->controllerUUIDIs("controller-1");
  tables.config->enabledIs(true);

  auto const request = Nox::make<ControllerRegistration::SwitchConfig>("leaf-1");
  auto const answer = Nox::make<ControllerRegistration::SwitchStatus>("leaf-1");
  {
    // The switch enrols, and its heartbeat is heard. The registry is told of it all when the turn closes.
    Nox::Turn const turn;
    Controller::SystemId const id(0x020000000001U);
    request->systemIdIs(id);
    request->registrationGenIdIs(7);
    request->enabledIs(true);
    auto const directory = Nox::make<Nox::Dir>("leaf-1");
    directory->entityIs("config", request);
    directory->entityIs("status", answer);
    tables.registrationRootDir->entityIs("leaf-1", directory);
    tables.peers->peerIs(id);
  }
  print("leaf-1 has enrolled:", tables, *answer);

  tables.config->enabledIs(false);
  print("the agent is disabled:", tables, *answer);
}

}  // namespace

int main() {
  try {
    run();
    return 0;
  } catch (std::exception const& error) {
    std::cerr << "agent: " << error.what() << '\n';
    return 1;
  }
}
