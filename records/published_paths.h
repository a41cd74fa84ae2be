// Which services of a switch are published a mount at a path: an index for switches with many services.
#pragma once

#include <memory>
#include <set>
#include <utility>

#include "framework/text/string8.h"

namespace Controller {
struct MountDesc;
}  // namespace Controller

namespace ControllerRegistration {

class ServicePublishedInfo;
class SwitchStatus;

/// The index of one switch's status, from the path of a published mount to the services that hold it, in the order of
/// the status's collection. A default descriptor counts as no mount. It keeps names and no pointers, and nothing at all
/// before it is started. An information tells it of every change before the change is announced.
class NOX_EXPORT PublishedPaths {
 public:
  bool isOn() const noexcept { return places_ != nullptr; }
  /// Indexes what the status's services hold; from now on every change must be told.
  void start(SwitchStatus const& status);

  /// The first service that holds the path, or null.
  Nox::String8 const* firstService(Nox::String8 const& path) const;

  // What an information tells; of no consequence before the start.

  void infoIs(ServicePublishedInfo const& info);
  void infoDel(ServicePublishedInfo const& info);
  void mountIs(ServicePublishedInfo const& info, Controller::MountDesc const& mount);
  void mountDel(ServicePublishedInfo const& info, Nox::String8 const& path);

 private:
  /// A path and one service that holds it.
  using Place = std::pair<Nox::String8, Nox::String8>;
  /// By path, then by the services' order in their collection.
  struct Order {
    using is_transparent = void;
    bool operator()(Place const& a, Place const& b) const noexcept;
    bool operator()(Place const& a, Nox::String8 const& path) const noexcept { return a.first < path; }
  };

  std::unique_ptr<std::set<Place, Order>> places_;  // null before the start
};

}  // namespace ControllerRegistration
