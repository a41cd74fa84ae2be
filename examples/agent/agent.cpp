// A small agent: has the registry built over its records, enrols one switch, and prints what the switch is answered.
#include <exception>
#include <iostream>

#include "framework/by_name/generic_if.h"
#include "framework/by_name/library.h"
#include "framework/core/dir.h"
#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/registration.h"
#include "records/service.h"

namespace {

// What the agent and the registry share. A real agent keeps it in step with what comes over its network.
struct Records {
  Nox::ValidPtr<Controllerdb::Config> config = Nox::make<Controllerdb::Config>("config");
  Nox::ValidPtr<Controllerdb::Status> status = Nox::make<Controllerdb::Status>("status");
  Nox::ValidPtr<Nox::Dir> registrationRootDir = Nox::make<Nox::Dir>("registration");
  Nox::ValidPtr<ControllerRegistration::ControllerStatus> controllerStatus =
      Nox::make<ControllerRegistration::ControllerStatus>("controllerStatus");
  Nox::ValidPtr<Controller::PeerTable> peerTable = Nox::make<Controller::PeerTable>("peers");
  Nox::ValidPtr<Controller::ServiceConfigDir> serviceConfigDir =
      Nox::make<Controller::ServiceConfigDir>("serviceConfig");
  Nox::ValidPtr<Controller::OverrideServiceConfigDir> overrideServiceConfigDir =
      Nox::make<Controller::OverrideServiceConfigDir>("overrideServiceConfig");
  Nox::ValidPtr<Nox::Dir> serviceStatusDir = Nox::make<Nox::Dir>("serviceStatus");
};

// Has the root of a registry make its machines over these records. The root's class is the library's own affair: its
// attributes are reached by name.
void build(Nox::Ptr<Nox::Entity> const& root, Records const& records) {
  using Op = Nox::GenericIf::Op;
  Nox::GenericIfEntity const registry(root);
  registry.attributeOp("registrationRootDir", Op::kSet, {records.registrationRootDir});
  auto const publishedMountsTable = registry.attributeOp("publishedMountsTable", Op::kInstantiate);
  registry.attributeOp("registryRootSm",
                       Op::kInstantiate,
                       {records.config,
                        records.status,
                        records.registrationRootDir,
                        records.controllerStatus,
                        records.peerTable,
                        records.serviceConfigDir,
                        records.overrideServiceConfigDir,
                        records.serviceStatusDir,
                        publishedMountsTable});
}

void print(char const* when, Records const& records, ControllerRegistration::SwitchStatus const& answer) {
  std::cout << when << '\n'
            << "  controllerUUID: " << answer.controllerUUID() << '\n'
            << "  registrationGenId: " << answer.registrationGenId() << '\n'
            << "  clientShutdownAck: " << (answer.clientShutdownAck() ? "true" : "false") << '\n'
            << "  the controller's table: "
            << (records.controllerStatus->registeredSwitch().empty() ? "empty" : "leaf-1") << '\n';
}

void run() {
  // The library goes last: everything that it made is gone by then.
  Nox::Library const library("libenrolix.so.0");
  Records const records;
  auto const root = library.rootFactory("root");
  build(root, records);
  records.status->controllerUUIDIs("controller-1");
  records.config->enabledIs(true);

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
    records.registrationRootDir->entityIs("leaf-1", directory);
    records.peerTable->peerIs(id);
  }
  print("leaf-1 has enrolled:", records, *answer);

  records.config->enabledIs(false);
  print("the agent is disabled:", records, *answer);
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
