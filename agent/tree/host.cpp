// Builds the root, attribute by attribute and by name: the tables first, then the machines that take them.
#include <tuple>

#include "agent/tree/host.h"

#include "framework/by_name/generic_if.h"

namespace Agent {
namespace {

using Op = Nox::GenericIf::Op;
using Value = Nox::GenericIf::Value;

constexpr unsigned kReconnectRetries = 3;
constexpr Nox::Seconds kMountTimeout = 30;

Nox::Ptr<Nox::Dir> newDir(char const* name) { return Nox::make<Nox::Dir>(name); }

Nox::Ptr<Controller::PublishedMountsTable> publishedMountsTable(Nox::Ptr<Nox::Entity> const& root) {
  return Nox::GenericIfEntity(root)
      .attributeOp("publishedMountsTable", Op::kInstantiate)
      .as<Nox::Ptr<Controller::PublishedMountsTable>>();
}

}  // namespace

Host::Host(Nox::Library const& library, std::function<void(Controllerdb::AgentTables& tables)> const& fill)
    : root_(library.rootFactory("enrolix")), tables_{.publishedMountsTable = publishedMountsTable(root_)} {
  Nox::Turn turn;
  if (fill) fill(tables_);
  Nox::GenericIfEntity const root(root_);
  root.attributeOp("registrationRootDir", Op::kSet, {tables_.registrationRootDir});
  Value const registeredSwitchTable = root.attributeOp("registeredSwitchTable", Op::kInstantiate);
  Value const mountsRegistry =
      root.attributeOp("mountsRegistry",
                       Op::kInstantiate,
                       {newDir("mounts"), "/mounts", newDir("mounted"), "/mounted", kReconnectRetries, kMountTimeout});
  Value const mountConfigDir = newDir("mountConfig");
  Value const mountStatusDir = newDir("mountStatus");
  std::apply([&](auto const&... input) { root.attributeOp("registryRootSm", Op::kInstantiate, {input...}); },
             tables_.registryRootInputs());
  root.attributeOp("mountsRegistrySm",
                   Op::kInstantiate,
                   {mountsRegistry,
                    tables_.controllerStatus,
                    newDir("serviceMountStatus"),
                    tables_.publishedMountsTable,
                    registeredSwitchTable,
                    tables_.allClientsServiceStatusDir});
  root.attributeOp("serviceConfigDirSm",
                   Op::kInstantiate,
                   {mountConfigDir,
                    mountStatusDir,
                    newDir("publishConfig"),
                    newDir("publishStatus"),
                    tables_.publishedMountsTable,
                    mountsRegistry});
  root.attributeOp("initialMountSm",
                   Op::kInstantiate,
                   {mountConfigDir,
                    mountStatusDir,
                    Nox::make<Controller::Heartbeat::Config>("heartbeatConfig"),
                    registeredSwitchTable,
                    tables_.peers});
}

bool Host::isServed(Nox::Name const& registration) const {
  auto const read = [](Value const& of, char const* attribute, std::initializer_list<Value> key = {}) {
    return of.isNull() ? Value() : Nox::GenericIf(of.object()).attributeOp(attribute, Op::kRead, key);
  };
  Value const machines = read(Value(root_), "registryRootSm");
  return !read(read(machines, "registrySm", {registration}), "configSm").isNull();
}

}  // namespace Agent
