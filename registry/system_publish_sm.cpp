// The mounts of one switch: which of them are written to its status, path by path.
#include "registry/system_publish_sm.h"

#include "registry/trace.h"

namespace Controllerdb {

using Controller::MountDesc;
using ControllerRegistration::ServicePublishedInfo;
using Nox::Ptr;
using Nox::String8;

SystemPublishSm::SystemPublishSm(MountPtr const& systemPublishedMount, StatusPtr const& status,
                                 MountsTablePtr const& publishedMountsTable) {
  Inputs::start(*this, systemPublishedMount, status, publishedMountsTable);
}

SystemPublishSm::~SystemPublishSm() {
  noxDoZombieReactors(true);
  orphanReactors();
}

Ptr<SystemPublishSm> SystemPublishSm::SystemPublishSmIs(MountPtr const& systemPublishedMount, StatusPtr const& status,
                                                        MountsTablePtr const& publishedMountsTable) {
  Nox::Turn turn;
  Nox::ValidPtr<SystemPublishSm> sm = Nox::make<SystemPublishSm>(systemPublishedMount, status, publishedMountsTable);
  sm->handleInitialized();
  return sm;
}

void SystemPublishSm::handleInitialized() {
  Nox::Turn const turn;
  if (initialized()) return;
  initializedIs(true);
  handlePublishedMount();
}

void SystemPublishSm::handlePublishedMount() {
  Nox::Turn const turn;
  TRACE_TEXT(8, 49, "void Controllerdb::SystemPublishSm::handlePublishedMount()");
  if (status_) {
    for (auto info = status_->servicePublishedInfoIterator(); info; ++info) {
      Ptr<ServicePublishedInfo> const keep = info.member();
      for (auto mount = keep->publishedMountIterator(); mount; ++mount) handlePublishedMount(mount->fwkKey());
    }
  }
  MountPtr const offer = systemPublishedMount();
  if (!offer) return;
  for (auto mount = offer->publishedMountIteratorConst(); mount; ++mount) handlePublishedMount(mount->fwkKey());
}

void SystemPublishSm::handlePublishedMount(String8 path) {
  Nox::Turn const turn;
  TRACE_TEXT(8, 17, "void Controllerdb::SystemPublishSm::handlePublishedMount(Nox::String)", " ", path);
  if (!status_) return;
  auto const offer = systemPublishedMount_.held();
  auto const* const row = offer ? offer->publishedMount().find(path) : nullptr;
  if (row == nullptr || !row->value())
    withdraw(path);
  else
    publish(row->value());
}

/// Writes on every call, whether or not the same is published already. A mount that has moved to another service stays
/// with the first one too, deliberately: only a path that is no longer offered at all is withdrawn.
void SystemPublishSm::publish(MountDesc published) {
  TRACE_RING(5, 22, "handlePublishedMount", " publishing:", published.path);
  TRACE_TEXT_IN("handlePublishedMount", 5, 23, "handlePublishedMount", " publishing: ", published.path);
  Ptr<ServicePublishedInfo> const info = status_->servicePublishedInfoIs(published.service);
  auto const table = publishedMountsTable_.held();
  info->readyIs(table && table->servicePublishReady(published.service));
  published.mode = MountDesc::defaultMode();  // deliberately, whatever mode is offered
  info->publishedMountIs(published);
}

/// From the first service that holds the path, and from no other: one service loses it in each call.
void SystemPublishSm::withdraw(String8 const& path) {
  Ptr<ServicePublishedInfo> const info = status_->servicePublishedInfoHolding(path);
  if (!info) return;
  TRACE_RING(5, 38, "handlePublishedMount", " withdrawing:", path);
  TRACE_TEXT_IN("handlePublishedMount", 5, 39, "handlePublishedMount", " withdrawing: ", path);
  info->publishedMountDel(path);
}

}  // namespace Controllerdb
