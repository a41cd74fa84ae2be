// Puts and deletes: for every place of the tree, the entity that is written, made or removed.
#include "agent/state_tree.h"

#include "agent/codec.h"
#include "agent/kept_entry.h"
#include "framework/shared_text.h"

namespace Agent {

using Controller::ServiceConfigV1;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using Nox::Dir;
using Nox::Name;
using Nox::Ptr;
using Nox::sharedText;

namespace {

[[noreturn]] void refuse(std::string const& reason) { throw PathRefusal(reason); }

}  // namespace

// Refuses what no put or, without a document, no delete may do.
struct StateTree::Check {
  Json const* document;

  template <class R>
  void of() const {
    if (document != nullptr) checkDocument<R>(*document);
  }
  static void isRegistrys() { refuse("this path is the registry's own: it can be read, not put or deleted"); }
  void isAlwaysThere() const {
    if (document == nullptr) refuse("this path is always there: it can be put, not deleted");
  }
  void isNotNull() const {
    if (document != nullptr && document->is_null())
      throw InputError("", "expected any JSON value but null, found null");
  }

  void operator()(At::ControllerConfig const& /*at*/) const {
    isAlwaysThere();
    of<Controllerdb::Config>();
  }
  void operator()(At::ControllerStatus const& /*at*/) const {
    isAlwaysThere();
    of<Controllerdb::Status>();
  }
  void operator()(At::ControllerSwitch const& /*at*/) const { isRegistrys(); }
  void operator()(At::Registration const& /*at*/) const {
    if (document != nullptr) refuse("a registration has no document; expected registration/<switch>/<entry>");
  }
  void operator()(At::SwitchConfig const& /*at*/) const { of<SwitchConfig>(); }
  void operator()(At::SwitchStatus const& /*at*/) const { of<SwitchStatus>(); }
  void operator()(At::OtherEntry const& /*at*/) const { isNotNull(); }
  void operator()(At::Heartbeat const& /*at*/) const { isNotNull(); }
  void operator()(At::ServiceConfig const& /*at*/) const { of<ServiceConfigV1>(); }
  void operator()(At::ServiceOverride const& /*at*/) const { of<ServiceConfigV1>(); }
  void operator()(At::ServiceStatus const& /*at*/) const { isRegistrys(); }
  void operator()(At::MountOffer const& /*at*/) const { of<Controller::SystemPublishedMount>(); }
  void operator()(At::MountReady const& /*at*/) const {
    if (document != nullptr) requireBool(*document, "");
  }
};

// Each puts the document, which was checked, at a place.
struct StateTree::Put {
  StateTree& tree;
  Json const& document;

  // A record that already stands there, or else a new one that is complete when it is entered.
  template <Writer By = Writer::kOutside, class R, class Enter>
  void overOrNew(Ptr<R> const& present, std::string const& name, Enter const& enter) const {
    if (present) return writeDocument<R, By>(document, *present);
    Nox::ValidPtr<R> const made = Nox::make<R>(sharedText<Name>(name));
    writeDocument<R, By>(document, *made);
    enter(made);
  }
  // The switch's name is the record's, also when its registration has gone.
  template <class R, Writer By = Writer::kOutside>
  void inRegistration(std::string const& switchName, char const* entry) const {
    overOrNew<By>(Nox::ptrCast<R>(tree.entry(switchName, entry)), switchName, [&](Nox::ValidPtr<R> const& made) {
      tree.enter(switchName, entry, made);
    });
  }

  void operator()(At::ControllerConfig const& /*at*/) const { writeDocument(document, *tree.tables_.config); }
  void operator()(At::ControllerStatus const& /*at*/) const { writeDocument(document, *tree.tables_.status); }
  void operator()(At::SwitchConfig const& at) const { inRegistration<SwitchConfig>(at.switchName, "config"); }
  void operator()(At::SwitchStatus const& at) const { inRegistration<SwitchStatus>(at.switchName, "status"); }
  void operator()(At::OtherEntry const& at) const {
    if (auto const present = Nox::ptrCast<KeptEntry>(tree.entry(at.switchName, at.entry)))
      present->contentIs(document);
    else
      tree.enter(at.switchName, at.entry, Nox::make<KeptEntry>(sharedText<Name>(at.entry), document));
  }
  void operator()(At::Heartbeat const& at) const {
    tree.heartbeats_.insert_or_assign(at.systemId.address().bits(), document);
    tree.tables_.peerTable->peerIs(at.systemId);
  }
  void operator()(At::ServiceConfig const& at) const {
    Controller::ServiceConfigDir& dir = *tree.tables_.serviceConfigDir;
    overOrNew(dir.service(sharedText<Name>(at.service)), at.service, [&](Nox::ValidPtr<ServiceConfigV1> const& made) {
      dir.serviceIs(made);
    });
  }
  void operator()(At::ServiceOverride const& at) const {
    Controller::OverrideServiceConfigDir& dir = *tree.tables_.overrideServiceConfigDir;
    overOrNew(dir.overrideService(sharedText<Name>(at.service)),
              at.service,
              [&](Nox::ValidPtr<ServiceConfigV1> const& made) { dir.overrideServiceIs(made); });
  }
  void operator()(At::MountOffer const& at) const {
    writeDocument(document, *tree.tables_.publishedMountsTable->systemIs(at.systemId));
  }
  void operator()(At::MountReady const& at) const {
    tree.tables_.publishedMountsTable->servicePublishReadyIs(sharedText<Nox::String8>(at.service),
                                                             document.get<bool>());
  }
  // Nothing is put elsewhere.
  template <class Place>
  void operator()(Place const& /*at*/) const {}
};

// Each puts back what the registry had written at a place; everything else is put.
struct StateTree::Restore : Put {
  using Put::operator();

  void operator()(At::ControllerStatus const& /*at*/) const {
    checkDocument<Controllerdb::Status, Writer::kRegistry>(document);
    writeDocument<Controllerdb::Status, Writer::kRegistry>(document, *tree.tables_.status);
  }
  void operator()(At::SwitchStatus const& at) const {
    checkDocument<SwitchStatus, Writer::kRegistry>(document);
    inRegistration<SwitchStatus, Writer::kRegistry>(at.switchName, "status");
  }
  void operator()(At::ServiceStatus const& at) const {
    checkDocument<Controller::ServiceStatusV1, Writer::kRegistry>(document);
    Dir& all = *tree.tables_.allClientsServiceStatusDir;
    Name const switchName = sharedText<Name>(at.switchName);
    auto dir = all.entity<Controller::ServiceStatusDir>(switchName);
    if (!dir) {
      dir = Nox::make<Controller::ServiceStatusDir>(switchName);
      all.entityIs(switchName, dir);
    }
    writeDocument<Controller::ServiceStatusV1, Writer::kRegistry>(document,
                                                                  *dir->serviceIs(sharedText<Name>(at.service)));
  }
  void operator()(At::ControllerSwitch const& at) const {
    auto& table = *tree.tables_.controllerStatus;
    for (auto const& [name, value] : requireObject(document, "")) {
      if (value.is_null()) continue;
      if (name == "registeredSwitch")
        table.registeredSwitchIs(at.systemId, requireBool(value, name));
      else if (name == "switchConfig")
        table.switchConfigIs(at.systemId, named<SwitchConfig>(requireString(value, name), "config"));
      else if (name == "switchStatus")
        table.switchStatusIs(at.systemId, named<SwitchStatus>(requireString(value, name), "status"));
      else
        throw InputError(name, "no such field here; the fields are switchConfig, switchStatus, registeredSwitch");
    }
  }

  // A row's record: that of the registration, or a stand-in of its name if that has gone.
  template <class R>
  Ptr<R> named(std::string const& switchName, char const* entry) const {
    Ptr<R> const present = Nox::ptrCast<R>(tree.entry(switchName, entry));
    return present ? present : Ptr<R>(Nox::make<R>(sharedText<Name>(switchName)));
  }
};

struct StateTree::Remove {
  StateTree& tree;

  void operator()(At::Registration const& at) const {
    tree.tables_.registrationRootDir->entityDel(sharedText<Name>(at.switchName));
  }
  void operator()(At::SwitchConfig const& at) const { tree.removeEntry(at.switchName, "config"); }
  void operator()(At::SwitchStatus const& at) const { tree.removeEntry(at.switchName, "status"); }
  void operator()(At::OtherEntry const& at) const { tree.removeEntry(at.switchName, at.entry); }
  void operator()(At::Heartbeat const& at) const {
    tree.heartbeats_.erase(at.systemId.address().bits());
    tree.tables_.peerTable->peerDel(at.systemId);
  }
  void operator()(At::ServiceConfig const& at) const {
    tree.tables_.serviceConfigDir->serviceDel(sharedText<Name>(at.service));
  }
  void operator()(At::ServiceOverride const& at) const {
    tree.tables_.overrideServiceConfigDir->overrideServiceDel(sharedText<Name>(at.service));
  }
  void operator()(At::MountOffer const& at) const { tree.tables_.publishedMountsTable->systemDel(at.systemId); }
  void operator()(At::MountReady const& at) const {
    tree.tables_.publishedMountsTable->servicePublishReadyDel(sharedText<Nox::String8>(at.service));
  }
  // Nothing is deleted elsewhere.
  template <class Place>
  void operator()(Place const& /*at*/) const {}
};

void StateTree::check(Path const& path, Json const* document) { std::visit(Check{document}, path); }

void StateTree::put(Path const& path, Json const& document) {
  check(path, &document);
  Nox::Turn turn;
  std::visit(Put{*this, document}, path);
}

void StateTree::restore(Path const& path, Json const& document) {
  bool const isInput =
      !std::holds_alternative<At::ControllerStatus>(path) && !std::holds_alternative<At::SwitchStatus>(path) &&
      !std::holds_alternative<At::ControllerSwitch>(path) && !std::holds_alternative<At::ServiceStatus>(path);
  if (isInput) check(path, &document);
  std::visit(Restore{{*this, document}}, path);
}

void StateTree::remove(Path const& path) {
  check(path, nullptr);
  Nox::Turn turn;
  std::visit(Remove{*this}, path);
}

// A registration exists from its first entry on.
void StateTree::enter(std::string const& switchName, std::string const& entry,
                      Nox::ValidPtr<Nox::Entity> const& entity) {
  Name const name = sharedText<Name>(switchName);
  Ptr<Dir> dir = tables_.registrationRootDir->entity<Dir>(name);
  if (!dir) {
    dir = Nox::make<Dir>(name);
    tables_.registrationRootDir->entityIs(name, dir);
  }
  dir->entityIs(sharedText<Name>(entry), entity);
}

void StateTree::removeEntry(std::string const& switchName, std::string const& entry) {
  Name const name = sharedText<Name>(switchName);
  Ptr<Dir> const dir = tables_.registrationRootDir->entity<Dir>(name);
  if (!dir) return;
  dir->entityDel(sharedText<Name>(entry));
  if (dir->entries().empty()) tables_.registrationRootDir->entityDel(name);
}

Ptr<Nox::Entity> StateTree::entry(std::string const& switchName, std::string const& entry) const {
  Ptr<Dir> const dir = tables_.registrationRootDir->entity<Dir>(sharedText<Name>(switchName));
  return dir ? dir->entityRef(sharedText<Name>(entry)) : nullptr;
}

}  // namespace Agent
