// Puts and deletes: for every place of the tree, the entity that is written, made or removed.
#include "agent/state_tree.h"

#include "agent/codec.h"
#include "agent/kept_entry.h"

namespace Agent {

using Controller::ServiceConfigV1;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using Nox::Dir;
using Nox::Name;
using Nox::Ptr;

namespace {

[[noreturn]] void refuse(std::string const& reason) { throw PathRefusal(reason); }

constexpr char kIsRegistrys[] = "this path is the registry's own: it can be read, not put or deleted";
constexpr char kAlwaysThere[] = "this path is always there: it can be put, not deleted";
constexpr char kIsDirectory[] = "a registration has no document; expected registration/<switch>/<entry>";

void refuseNull(Json const& document) {
  if (document.is_null()) throw InputError("", "expected any JSON value but null, found null");
}

}  // namespace

// Each puts the document at a place: it is checked first, and then written.
struct StateTree::Put {
  StateTree& tree;
  Json const& document;

  template <class R>
  void over(R& record) const {
    checkDocument<R>(document);
    writeDocument(document, record);
  }
  // A record that already stands there, or else a new one that is complete when it is entered.
  template <class R, class Enter>
  void overOrNew(Ptr<R> const& present, std::string const& name, Enter const& enter) const {
    if (present) return over(*present);
    Nox::ValidPtr<R> const made = Nox::make<R>(Name(name));
    over(*made);
    enter(made);
  }
  // The switch's name is the record's, also when its registration has gone.
  template <class R>
  void inRegistration(std::string const& switchName, char const* entry) const {
    overOrNew(Nox::ptrCast<R>(tree.entry(switchName, entry)), switchName, [&](Nox::ValidPtr<R> const& made) {
      tree.enter(switchName, entry, made);
    });
  }

  void operator()(At::ControllerConfig const& /*at*/) const { over(*tree.tables_.config); }
  void operator()(At::ControllerStatus const& /*at*/) const { over(*tree.tables_.status); }
  void operator()(At::ControllerSwitch const& /*at*/) const { refuse(kIsRegistrys); }
  void operator()(At::Registration const& /*at*/) const { refuse(kIsDirectory); }
  void operator()(At::SwitchConfig const& at) const { inRegistration<SwitchConfig>(at.switchName, "config"); }
  void operator()(At::SwitchStatus const& at) const { inRegistration<SwitchStatus>(at.switchName, "status"); }
  void operator()(At::OtherEntry const& at) const {
    refuseNull(document);
    if (auto const present = Nox::ptrCast<KeptEntry>(tree.entry(at.switchName, at.entry)))
      present->contentIs(document);
    else
      tree.enter(at.switchName, at.entry, Nox::make<KeptEntry>(Name(at.entry), document));
  }
  void operator()(At::Heartbeat const& at) const {
    refuseNull(document);
    tree.heartbeats_.insert_or_assign(at.systemId.address().bits(), document);
    tree.tables_.peerTable->peerIs(at.systemId);
  }
  void operator()(At::ServiceConfig const& at) const {
    Controller::ServiceConfigDir& dir = *tree.tables_.serviceConfigDir;
    overOrNew(dir.service(Name(at.service)), at.service, [&](Nox::ValidPtr<ServiceConfigV1> const& made) {
      dir.serviceIs(made);
    });
  }
  void operator()(At::ServiceOverride const& at) const {
    Controller::OverrideServiceConfigDir& dir = *tree.tables_.overrideServiceConfigDir;
    overOrNew(dir.overrideService(Name(at.service)), at.service, [&](Nox::ValidPtr<ServiceConfigV1> const& made) {
      dir.overrideServiceIs(made);
    });
  }
  void operator()(At::ServiceStatus const& /*at*/) const { refuse(kIsRegistrys); }
  void operator()(At::MountOffer const& at) const {
    checkDocument<Controller::SystemPublishedMount>(document);
    writeDocument(document, *tree.tables_.publishedMountsTable->systemIs(at.systemId));
  }
  void operator()(At::MountReady const& at) const {
    tree.tables_.publishedMountsTable->servicePublishReadyIs(Nox::String8(at.service), requireBool(document, ""));
  }
};

struct StateTree::Remove {
  StateTree& tree;

  void operator()(At::ControllerConfig const& /*at*/) const { refuse(kAlwaysThere); }
  void operator()(At::ControllerStatus const& /*at*/) const { refuse(kAlwaysThere); }
  void operator()(At::ControllerSwitch const& /*at*/) const { refuse(kIsRegistrys); }
  void operator()(At::Registration const& at) const {
    tree.tables_.registrationRootDir->entityDel(Name(at.switchName));
  }
  void operator()(At::SwitchConfig const& at) const { tree.removeEntry(at.switchName, "config"); }
  void operator()(At::SwitchStatus const& at) const { tree.removeEntry(at.switchName, "status"); }
  void operator()(At::OtherEntry const& at) const { tree.removeEntry(at.switchName, at.entry); }
  void operator()(At::Heartbeat const& at) const {
    tree.heartbeats_.erase(at.systemId.address().bits());
    tree.tables_.peerTable->peerDel(at.systemId);
  }
  void operator()(At::ServiceConfig const& at) const { tree.tables_.serviceConfigDir->serviceDel(Name(at.service)); }
  void operator()(At::ServiceOverride const& at) const {
    tree.tables_.overrideServiceConfigDir->overrideServiceDel(Name(at.service));
  }
  void operator()(At::ServiceStatus const& /*at*/) const { refuse(kIsRegistrys); }
  void operator()(At::MountOffer const& at) const { tree.tables_.publishedMountsTable->systemDel(at.systemId); }
  void operator()(At::MountReady const& at) const {
    tree.tables_.publishedMountsTable->servicePublishReadyDel(Nox::String8(at.service));
  }
};

void StateTree::put(Path const& path, Json const& document) {
  Nox::Turn turn;
  std::visit(Put{*this, document}, path);
}

void StateTree::remove(Path const& path) {
  Nox::Turn turn;
  std::visit(Remove{*this}, path);
}

// A registration exists from its first entry on.
void StateTree::enter(std::string const& switchName, std::string const& entry,
                      Nox::ValidPtr<Nox::Entity> const& entity) {
  Name const name(switchName);
  Ptr<Dir> dir = tables_.registrationRootDir->entity<Dir>(name);
  if (!dir) {
    dir = Nox::make<Dir>(name);
    tables_.registrationRootDir->entityIs(name, dir);
  }
  dir->entityIs(Name(entry), entity);
}

void StateTree::removeEntry(std::string const& switchName, std::string const& entry) {
  Name const name(switchName);
  Ptr<Dir> const dir = tables_.registrationRootDir->entity<Dir>(name);
  if (!dir) return;
  dir->entityDel(Name(entry));
  if (dir->entries().empty()) tables_.registrationRootDir->entityDel(name);
}

Ptr<Nox::Entity> StateTree::entry(std::string const& switchName, std::string const& entry) const {
  Ptr<Dir> const dir = tables_.registrationRootDir->entity<Dir>(Name(switchName));
  return dir ? dir->entityRef(Name(entry)) : nullptr;
}

}  // namespace Agent
