// Which services of a switch are published a mount at a path: the index, and the records' operations that keep it true.
#include "records/published_paths.h"

#include "records/registration.h"

namespace ControllerRegistration {

using Controller::MountDesc;
using Nox::Ptr;
using Nox::String8;

// Up to so many services a walk is as good as the index.
static constexpr std::uint32_t kFewServices = 16;

static bool holds(ServicePublishedInfo const& info, String8 const& path) {
  auto const* row = info.publishedMount().find(path);
  return row != nullptr && !!row->value();
}

bool PublishedPaths::Order::operator()(Place const& a, Place const& b) const noexcept {
  if (!(a.first == b.first)) return a.first < b.first;
  return SwitchStatus::ServicePublishedInfoMap::before(a.second, b.second);
}

void PublishedPaths::start(SwitchStatus const& status) {
  places_ = std::make_unique<std::set<Place, Order>>();
  for (ServicePublishedInfo const& info : status.servicePublishedInfo()) infoIs(info);
}

String8 const* PublishedPaths::firstService(String8 const& path) const {
  if (!isOn()) return nullptr;
  auto const at = places_->lower_bound(path);
  return at != places_->end() && at->first == path ? &at->second : nullptr;
}

void PublishedPaths::infoIs(ServicePublishedInfo const& info) {
  if (!isOn()) return;
  for (auto const& row : info.publishedMount()) mountIs(info, row.value());
}

void PublishedPaths::infoDel(ServicePublishedInfo const& info) {
  if (!isOn()) return;
  for (auto const& row : info.publishedMount()) mountDel(info, row.fwkKey());
}

void PublishedPaths::mountIs(ServicePublishedInfo const& info, MountDesc const& mount) {
  if (!isOn()) return;
  if (!mount)
    mountDel(info, mount.path);
  else
    places_->emplace(mount.path, info.fwkKey());
}

void PublishedPaths::mountDel(ServicePublishedInfo const& info, String8 const& path) {
  if (isOn()) places_->erase(Place(path, info.fwkKey()));
}

/// The index is that of the status that owns the information; one that has left its status tells no index.
void ServicePublishedInfo::handleParent(Ptr<Nox::Entity> const& parent) {
  if (paths_ != nullptr) paths_->infoDel(*this);
  Ptr<SwitchStatus> const status = Nox::ptrCast<SwitchStatus>(parent);
  paths_ = status ? &status->publishedPaths_ : nullptr;
  if (paths_ != nullptr) paths_->infoIs(*this);
}

void ServicePublishedInfo::publishedMountIs(MountDesc const& mount) {
  if (paths_ != nullptr) paths_->mountIs(*this, mount);
  assign<Nox::keyed(&NotifieeConst::onPublishedMount)>(publishedMount_, mount.path, mount);
}

void ServicePublishedInfo::publishedMountDel(String8 const& path) {
  if (paths_ != nullptr) paths_->mountDel(*this, path);
  remove<Nox::keyed(&NotifieeConst::onPublishedMount)>(publishedMount_, path);
}

void ServicePublishedInfo::publishedMountDelAll() {
  if (paths_ != nullptr) paths_->infoDel(*this);
  removeAll<Nox::keyed(&NotifieeConst::onPublishedMount)>(publishedMount_);
}

Ptr<ServicePublishedInfo> SwitchStatus::servicePublishedInfoHolding(String8 const& path) {
  if (!publishedPaths_.isOn()) {
    if (servicePublishedInfo_.members() <= kFewServices) {
      for (ServicePublishedInfo& info : servicePublishedInfo_)
        if (holds(info, path)) return Ptr<ServicePublishedInfo>(&info);
      return nullptr;
    }
    publishedPaths_.start(*this);
  }
  String8 const* const service = publishedPaths_.firstService(path);
  return service != nullptr ? servicePublishedInfo_.member(*service) : nullptr;
}

}  // namespace ControllerRegistration
