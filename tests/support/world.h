// A whole registry with everything that it reads and writes, built in one line.
#pragma once

#include <string>

#include "records/tables.h"
#include "registry/EnrolixSm.h"

/// The address 02:00:00:00:00:NN.
Controller::SystemId systemId(unsigned number);

/// The tables of an agent, and a root with its registry root machine over them. Every verb is one turn, as an agent's
/// put or delete is, but for `enrol`, which is two puts.
class World : public Controllerdb::AgentTables {
 public:
  /// Disabled and empty; the controller's identity is "uuid-1".
  World();
  /// Enabled, with that many ready switches: "leaf-1" with systemId(1), and so on.
  explicit World(unsigned switches);

  void enable() { config->enabledIs(true); }
  void disable() { config->enabledIs(false); }

  /// Puts an enabled "config" of that id, then "status", into the directory of that name.
  void enrol(Nox::Name const& name, Controller::SystemId const& id, unsigned genId = 0);
  /// Puts an entity at an entry; the directory is made for its first entry.
  void enter(Nox::Name const& name, Nox::Name const& entry, Nox::ValidPtr<Nox::Entity> const& entity);
  /// Puts "config"; changes it where there is one.
  void putConfig(Nox::Name const& name, Controller::SystemId const& id, bool enabled = true, unsigned genId = 0);
  /// Puts an empty "status"; one that is there stays.
  void putStatus(Nox::Name const& name);
  /// Removes one entry of a directory that is there.
  void removeEntry(Nox::Name const& name, Nox::Name const& entry);
  /// Removes the directory at once.
  void leave(Nox::Name const& name) { registrationRootDir->entityDel(name); }

  void heartbeat(Controller::SystemId const& id) { peers->peerIs(id); }
  void silence(Controller::SystemId const& id) { peers->peerDel(id); }

  /// The registry root machine of `root`, and another one over the same records in its place.
  Nox::Ptr<Controllerdb::RegistryRootSm> const& registryRootSm() const { return root->registryRootSm(); }
  Nox::ValidPtr<Controllerdb::RegistryRootSm> newRegistryRootSm();

  // What belongs to one switch; null where there is none.

  Nox::Ptr<Nox::Dir> dir(Nox::Name const& name) const { return registrationRootDir->entity<Nox::Dir>(name); }
  Nox::Ptr<ControllerRegistration::SwitchConfig> switchConfig(Nox::Name const& name) const;
  Nox::Ptr<ControllerRegistration::SwitchStatus> switchStatus(Nox::Name const& name) const;
  Nox::Ptr<Controller::ServiceStatusDir> serviceStatusDir(Nox::Name const& name) const;
  Nox::Ptr<Controllerdb::SwitchRegistrySm> registrySm(Nox::Name const& name) const;
  Nox::Ptr<Controllerdb::SwitchConfigSm> configSm(Nox::Name const& name) const;
  /// The three rows of the controller's table, "<config's name> <status's name> <registered>", each "-" where there is
  /// no row.
  std::string rows(Controller::SystemId const& id) const;
  /// What a switch reads in its status: "<shutdown acknowledged> <controller's identity> <generation>".
  std::string answer(Nox::Name const& name) const;

  Nox::Ptr<Controllerdb::Root> root = Controllerdb::rootFactory("root");
};
