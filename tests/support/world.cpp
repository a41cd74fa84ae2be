// The test world: how the pieces are put together, and read.
#include "support/world.h"

#include <sstream>

using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using Nox::Name;
using Nox::Ptr;

Controller::SystemId systemId(unsigned number) { return Controller::SystemId(0x020000000000U + number); }

World::World() {
  status->controllerUUIDIs("uuid-1");
  newRegistryRootSm();
}

World::World(unsigned switches) : World() {
  enable();
  for (unsigned i = 1; i <= switches; ++i) {
    enrol(Name("leaf-" + std::to_string(i)), systemId(i));
    heartbeat(systemId(i));
  }
}

Nox::ValidPtr<Controllerdb::RegistryRootSm> World::newRegistryRootSm() {
  return std::apply([this](auto const&... input) { return root->registryRootSmIs(input...); }, registryRootInputs());
}

void World::enrol(Name const& name, Controller::SystemId const& id, unsigned genId) {
  putConfig(name, id, true, genId);
  putStatus(name);
}

void World::enter(Name const& name, Name const& entry, Nox::ValidPtr<Nox::Entity> const& entity) {
  Nox::Turn turn;
  if (!dir(name)) registrationRootDir->entityIs(name, Nox::make<Nox::Dir>(name));
  dir(name)->entityIs(entry, entity);
}

void World::putConfig(Name const& name, Controller::SystemId const& id, bool enabled, unsigned genId) {
  Nox::Turn turn;
  Ptr<SwitchConfig> const present = switchConfig(name);
  Ptr<SwitchConfig> const record = present ? present : Ptr<SwitchConfig>(Nox::make<SwitchConfig>(name));
  record->systemIdIs(id);
  record->enabledIs(enabled);
  record->registrationGenIdIs(genId);
  if (!present) enter(name, "config", record);
}

void World::putStatus(Name const& name) {
  if (!switchStatus(name)) enter(name, "status", Nox::make<SwitchStatus>(name));
}

void World::removeEntry(Name const& name, Name const& entry) {
  Nox::Turn turn;
  Ptr<Nox::Dir> const directory = dir(name);
  directory->entityDel(entry);
  if (directory->entries().empty()) leave(name);
}

Ptr<SwitchConfig> World::switchConfig(Name const& name) const {
  Ptr<Nox::Dir> const directory = dir(name);
  return directory ? directory->entity<SwitchConfig>("config") : nullptr;
}

Ptr<SwitchStatus> World::switchStatus(Name const& name) const {
  Ptr<Nox::Dir> const directory = dir(name);
  return directory ? directory->entity<SwitchStatus>("status") : nullptr;
}

Ptr<Controller::ServiceStatusDir> World::serviceStatusDir(Name const& name) const {
  return Nox::ptrCast<Controller::ServiceStatusDir>(allClientsServiceStatusDir->entityPtr(name));
}

Ptr<Controllerdb::SwitchRegistrySm> World::registrySm(Name const& name) const {
  return registryRootSm() ? registryRootSm()->registrySm(name) : nullptr;
}

Ptr<Controllerdb::SwitchConfigSm> World::configSm(Name const& name) const {
  Ptr<Controllerdb::SwitchRegistrySm> const owner = registrySm(name);
  return owner ? owner->configSm() : nullptr;
}

std::string World::rows(Controller::SystemId const& id) const {
  auto const nameOf = [](bool present, auto const& record) {
    return present ? (record ? std::string(record->name().view()) : "null") : "-";
  };
  std::string text = nameOf(controllerStatus->switchConfig().has(id), controllerStatus->switchConfig(id)) + ' ' +
                     nameOf(controllerStatus->switchStatus().has(id), controllerStatus->switchStatus(id)) + ' ';
  if (!controllerStatus->registeredSwitch().has(id)) return text + '-';
  return text + (controllerStatus->registeredSwitch(id) ? '1' : '0');
}

std::string World::answer(Name const& name) const {
  Ptr<SwitchStatus> const record = switchStatus(name);
  if (!record) return "none";
  std::ostringstream text;
  text << record->clientShutdownAck() << ' ' << record->controllerUUID() << ' ' << record->registrationGenId();
  return text.str();
}
