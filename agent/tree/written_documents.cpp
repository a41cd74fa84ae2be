// Finds the document that a written entity is part of: its own, or that of the entity that holds it.
#include "agent/tree/written_documents.h"

#include "framework/memory/assertion.h"

namespace Agent {
namespace {

bool isA(Nox::Entity const& entity, Nox::NoxType const& type) { return &entity.fwkType() == &type; }

std::string nameOf(Nox::Entity const& entity) { return std::string(entity.name().view()); }

}  // namespace

WrittenDocuments::WrittenDocuments(Controllerdb::AgentTables const& tables) : tables_(tables) {
  NOX_ASSERT(Nox::writeObserver_ == nullptr, "another observer watches the writes");
  Nox::writeObserver_ = this;
}

WrittenDocuments::~WrittenDocuments() { Nox::writeObserver_ = nullptr; }

void WrittenDocuments::written(Nox::Entity const& entity, std::string_view /*operation*/, bool changed,
                               Nox::WriteText key, Nox::WriteText /*value*/) {
  if (changed) note(entity, key);
}

void WrittenDocuments::removed(Nox::Entity const& entity, std::string_view /*operation*/, bool changed,
                               Nox::WriteText key) {
  if (changed) note(entity, key);
}

void WrittenDocuments::note(Nox::Entity const& entity, Nox::WriteText key) {
  if (&entity == tables_.status.get()) return add(At::ControllerStatus{});
  if (&entity == tables_.controllerStatus.get()) {
    if (auto const address = Lumo::EthAddr::parse(key.text())) add(At::ControllerSwitch{SystemId(*address)});
    return;
  }
  if (&entity == tables_.allClientsServiceStatusDir.get()) {
    prefixes_.push_back("service/status/" + key.text() + "/");
    return;
  }
  using Controller::ServiceStatusDir;
  using ControllerRegistration::SwitchStatus;
  // What a document holds lies two levels below its own entity at most.
  std::string service = isA(entity, ServiceStatusDir::noxType) ? key.text() : std::string();
  Nox::Ptr<Nox::Entity const> at(&entity);
  while (at && !isA(*at, SwitchStatus::noxType) && !isA(*at, ServiceStatusDir::noxType)) {
    service = nameOf(*at);
    at = at->parent();
  }
  if (!at) return;
  if (isA(*at, SwitchStatus::noxType))
    add(At::SwitchStatus{nameOf(*at)});
  else
    add(At::ServiceStatus{nameOf(*at), service});
}

}  // namespace Agent
