// Puts and deletes: for every place of the tree, the entity that is written, made or removed.
#include "agent/tree/state_tree.h"

#include "agent/tree/codec.h"
#include "agent/tree/kept_entry.h"
#include "framework/text/shared_text.h"

namespace Agent {

using Controller::ServiceConfigV1;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using Nox::Dir;
using Nox::Name;
using Nox::Ptr;
using Nox::sharedText;

namespace {

[[noreturn]] void refusePath(std::string const& reason) { throw PathRefusal(reason); }

// What stands at a place, and which side may write it.
template <class R>
struct RecordDocument {};
template <class R>
struct LastingDocument {};
struct AnyValue {};
struct TrueOrFalse {};
struct OfRegistry {};
struct Directory {};

constexpr LastingDocument<Controllerdb::Config> kindOf(At::ControllerConfig const& /*at*/) { return {}; }
constexpr LastingDocument<Controllerdb::Status> kindOf(At::ControllerStatus const& /*at*/) { return {}; }
constexpr OfRegistry kindOf(At::ControllerSwitch const& /*at*/) { return {}; }
constexpr Directory kindOf(At::Registration const& /*at*/) { return {}; }
constexpr RecordDocument<SwitchConfig> kindOf(At::SwitchConfig const& /*at*/) { return {}; }
constexpr RecordDocument<SwitchStatus> kindOf(At::SwitchStatus const& /*at*/) { return {}; }
constexpr AnyValue kindOf(At::OtherEntry const& /*at*/) { return {}; }
constexpr AnyValue kindOf(At::Heartbeat const& /*at*/) { return {}; }
constexpr RecordDocument<ServiceConfigV1> kindOf(At::ServiceConfig const& /*at*/) { return {}; }
constexpr RecordDocument<ServiceConfigV1> kindOf(At::ServiceOverride const& /*at*/) { return {}; }
constexpr OfRegistry kindOf(At::ServiceStatus const& /*at*/) { return {}; }
constexpr RecordDocument<Controller::SystemPublishedMount> kindOf(At::MountOffer const& /*at*/) { return {}; }
constexpr TrueOrFalse kindOf(At::MountReady const& /*at*/) { return {}; }

// Refuses what no put or, without a document, no delete may do. What comes back from where it was kept may hold the
// registry's fields; whole documents of the registry's are checked when they are written.
template <Writer By>
struct Check {
  Json const* document;

  template <class Place>
  void operator()(Place const& at) const {
    allow(kindOf(at));
  }
  template <class R>
  void allow(RecordDocument<R> /*kind*/) const {
    if (document != nullptr) checkDocument<R, By>(*document);
  }
  template <class R>
  void allow(LastingDocument<R> /*kind*/) const {
    if (document == nullptr) refusePath("this path is always there: it can be put, not deleted");
    checkDocument<R, By>(*document);
  }
  void allow(AnyValue /*kind*/) const {
    if (document != nullptr && document->is_null())
      throw InputError("", "expected any JSON value but null, found null");
  }
  void allow(TrueOrFalse /*kind*/) const {
    if (document != nullptr) requireBool(*document, "");
  }
  void allow(OfRegistry /*kind*/) const {
    if (By == Writer::kOutside) refusePath("this path is the registry's own: it can be read, not put or deleted");
  }
  void allow(Directory /*kind*/) const {
    if (document != nullptr) refusePath("a registration has no document; expected registration/<switch>/<entry>");
  }
};

// Leaves out what is the registry's.
struct InputOf {
  Json const& document;

  template <class Place>
  std::optional<Json> operator()(Place const& at) const {
    return of(kindOf(at));
  }
  template <class R>
  std::optional<Json> of(RecordDocument<R> /*kind*/) const {
    return withoutAnswers<R>(document);
  }
  template <class R>
  std::optional<Json> of(LastingDocument<R> /*kind*/) const {
    return withoutAnswers<R>(document);
  }
  static std::optional<Json> of(OfRegistry /*kind*/) { return std::nullopt; }
  template <class Kind>
  std::optional<Json> of(Kind /*kind*/) const {
    return document;
  }
};

}  // namespace

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
    tree.tables_.peers->peerIs(at.systemId);
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
    writeDocument<Controllerdb::Status, Writer::kRegistry>(document, *tree.tables_.status);
  }
  void operator()(At::SwitchStatus const& at) const {
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
    tree.tables_.peers->peerDel(at.systemId);
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

void StateTree::check(Path const& path, Json const* document) { std::visit(Check<Writer::kOutside>{document}, path); }

std::optional<Json> StateTree::inputOf(Path const& path, Json const& document) {
  return std::visit(InputOf{document}, path);
}

void StateTree::put(Path const& path, Json const& document) {
  check(path, &document);
  Nox::Turn turn;
  std::visit(Put{*this, document}, path);
}

void StateTree::restore(Path const& path, Json const& document) {
  std::visit(Check<Writer::kRegistry>{&document}, path);
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
