// Mounts: what switches offer, and the registry of remote mounts that the root owns.
#pragma once

#include "framework/by_name/rows.h"
#include "framework/core/dir.h"
#include "framework/core/entity.h"
#include "framework/text/text_form.h"
#include "records/ids.h"

namespace Controller {

/// One mount: five texts. Collections of descriptors store it under its path. The default descriptor stands for no
/// mount.
struct NOX_EXPORT MountDesc {
  Nox::String8 path;
  Nox::String8 remotePath;
  Nox::String8 type;
  Nox::String8 mode = defaultMode();
  Nox::String8 service;  ///< The name of the service that the mount belongs to.

  /// "rt", in one buffer for all.
  static Nox::String8 const& defaultMode();
  /// True for a value equal to the default: no mount.
  bool operator!() const;
  friend bool operator==(MountDesc const&, MountDesc const&) = default;

  static constexpr auto fields();
};

/// Prints the five fields, separated by blanks, empty ones as "-".
NOX_EXPORT std::ostream& operator<<(std::ostream& out, MountDesc const& mount);

/// What one switch offers; its name is the switch's system id.
class NOX_EXPORT SystemPublishedMount : public Nox::Typed<SystemPublishedMount, Nox::Entity>, public Nox::HashMapLink {
 public:
  class NotifieeConst : public Nox::NotifieeOf<SystemPublishedMount, Nox::Entity> {
   public:
    virtual void onPublishedMount(Nox::String8 /*path*/) {}
    virtual void onPublishedMountnoxImmediate() {}
    virtual void onPublishedMount() {}
  };
  /// One offered mount, keyed by its path.
  class NoxPublishedMount final : public Nox::Row<Nox::String8, MountDesc> {
   public:
    using Row::Row;
  };
  using PublishedMountMap = Nox::ValueMap<NoxPublishedMount, Nox::String8, MountDesc>;
  using PublishedMountIteratorConst = PublishedMountMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();

  explicit SystemPublishedMount(SystemId const& systemId)
      : Typed(Nox::Name(systemId.stringValue())), systemId_(systemId) {}

  SystemId const& fwkKey() const noexcept { return systemId_; }
  SystemId const& systemId() const noexcept { return systemId_; }

  PublishedMountMap const& publishedMount() const noexcept { return publishedMount_; }
  /// The mount offered at that path; the default descriptor if there is none.
  MountDesc publishedMount(Nox::String8 const& path) const { return publishedMount_.value(path); }
  PublishedMountIteratorConst publishedMountIteratorConst() const {
    return PublishedMountIteratorConst(publishedMount_);
  }
  void publishedMountIs(MountDesc const& mount) {
    assign<Nox::keyed(&NotifieeConst::onPublishedMount)>(publishedMount_, mount.path, mount);
  }
  void publishedMountDel(Nox::String8 const& path) {
    remove<Nox::keyed(&NotifieeConst::onPublishedMount)>(publishedMount_, path);
  }
  void publishedMountDelAll() { removeAll<Nox::keyed(&NotifieeConst::onPublishedMount)>(publishedMount_); }

 private:
  SystemId systemId_;
  PublishedMountMap publishedMount_;
};

/// What all switches offer, and which services are ready to be published.
class NOX_EXPORT PublishedMountsTable : public Nox::Typed<PublishedMountsTable, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<PublishedMountsTable, Nox::Entity> {
   public:
    virtual void onSystem(SystemId const& /*systemId*/) {}
    virtual void onSystemnoxImmediate() {}
    virtual void onSystem() {}
    virtual void onServicePublishReady(Nox::String8 /*service*/) {}
    virtual void onServicePublishReadynoxImmediate() {}
    virtual void onServicePublishReady() {}
  };
  /// Whether one service's publication is ready, keyed by the service's name.
  class NoxServicePublishReady final : public Nox::Row<Nox::String8, bool> {
   public:
    using Row::Row;
  };
  using SystemMap = Nox::ChildMap<SystemPublishedMount, SystemId>;
  using SystemIteratorConst = SystemMap::IteratorConst;
  using ServicePublishReadyMap = Nox::ValueMap<NoxServicePublishReady, Nox::String8, bool>;
  using ServicePublishReadyIteratorConst = ServicePublishReadyMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  SystemMap const& system() const noexcept { return system_; }
  Nox::Ptr<SystemPublishedMount> system(SystemId const& systemId) { return system_.member(systemId); }
  Nox::Ptr<SystemPublishedMount const> system(SystemId const& systemId) const { return system_.member(systemId); }
  SystemIteratorConst systemIteratorConst() const { return SystemIteratorConst(system_); }
  Nox::ValidPtr<SystemPublishedMount> systemIs(SystemId const& systemId) {
    return instantiate<Nox::keyed(&NotifieeConst::onSystem)>(system_, systemId);
  }
  void systemDel(SystemId const& systemId) { remove<Nox::keyed(&NotifieeConst::onSystem)>(system_, systemId); }
  void systemDelAll() { removeAll<Nox::keyed(&NotifieeConst::onSystem)>(system_); }

  ServicePublishReadyMap const& servicePublishReady() const noexcept { return servicePublishReady_; }
  /// Whether the service's publication is ready; false where the table says nothing.
  bool servicePublishReady(Nox::String8 const& service) const { return servicePublishReady_.value(service); }
  ServicePublishReadyIteratorConst servicePublishReadyIteratorConst() const {
    return ServicePublishReadyIteratorConst(servicePublishReady_);
  }
  void servicePublishReadyIs(Nox::String8 const& service, bool ready) {
    assign<Nox::keyed(&NotifieeConst::onServicePublishReady)>(servicePublishReady_, service, ready);
  }
  void servicePublishReadyDel(Nox::String8 const& service) {
    remove<Nox::keyed(&NotifieeConst::onServicePublishReady)>(servicePublishReady_, service);
  }
  void servicePublishReadyDelAll() {
    removeAll<Nox::keyed(&NotifieeConst::onServicePublishReady)>(servicePublishReady_);
  }

 private:
  SystemMap system_;
  ServicePublishReadyMap servicePublishReady_;
};

/// The table of switches whose remote state is mounted. The registry makes it and does not otherwise touch it.
class NOX_EXPORT RegisteredSwitchTable : public Nox::Typed<RegisteredSwitchTable, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<RegisteredSwitchTable, Nox::Entity> {};
  static Nox::NoxType noxType;
  using Typed::Typed;
};

/// Where and how remote state is mounted: the inputs of the mount library, held for it.
class NOX_EXPORT MountsRegistry : public Nox::Typed<MountsRegistry, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<MountsRegistry, Nox::Entity> {};
  static Nox::NoxType noxType;

  /// `mountTimeout` is in seconds.
  MountsRegistry(Nox::Ptr<Nox::Dir> registryDir, Nox::String8 registryDirPath, Nox::Ptr<Nox::Dir> rootDir,
                 Nox::String8 remoteRootPath, unsigned reconnectRetries, Nox::Seconds mountTimeout)
      : registryDir_(std::move(registryDir)),
        registryDirPath_(std::move(registryDirPath)),
        rootDir_(std::move(rootDir)),
        remoteRootPath_(std::move(remoteRootPath)),
        reconnectRetries_(reconnectRetries),
        mountTimeout_(mountTimeout) {}

  Nox::Ptr<Nox::Dir> const& registryDir() const noexcept { return registryDir_; }
  Nox::String8 const& registryDirPath() const noexcept { return registryDirPath_; }
  Nox::Ptr<Nox::Dir> const& rootDir() const noexcept { return rootDir_; }
  Nox::String8 const& remoteRootPath() const noexcept { return remoteRootPath_; }
  unsigned reconnectRetries() const noexcept { return reconnectRetries_; }
  Nox::Seconds mountTimeout() const noexcept { return mountTimeout_; }

  auto constructorArgs() const {
    return std::tie(registryDir_, registryDirPath_, rootDir_, remoteRootPath_, reconnectRetries_, mountTimeout_);
  }

 private:
  Nox::Ptr<Nox::Dir> registryDir_;
  Nox::String8 registryDirPath_;
  Nox::Ptr<Nox::Dir> rootDir_;
  Nox::String8 remoteRootPath_;
  unsigned reconnectRetries_;
  Nox::Seconds mountTimeout_;
};

/// The fields in declared order, by name.
constexpr auto MountDesc::fields() {
  return std::tuple(std::pair("path", &MountDesc::path),
                    std::pair("remotePath", &MountDesc::remotePath),
                    std::pair("type", &MountDesc::type),
                    std::pair("mode", &MountDesc::mode),
                    std::pair("service", &MountDesc::service));
}
constexpr auto SystemPublishedMount::attributes() {
  using T = SystemPublishedMount;
  return std::tuple(
      Nox::collection<Nox::whole(&T::publishedMount), &T::publishedMountIs, &T::publishedMountDel>("publishedMount"));
}
constexpr auto PublishedMountsTable::attributes() {
  using T = PublishedMountsTable;
  return std::tuple(
      Nox::collection<Nox::whole(&T::system), &T::systemIs, &T::systemDel>("system"),
      Nox::collection<Nox::whole(&T::servicePublishReady), &T::servicePublishReadyIs, &T::servicePublishReadyDel>(
          "servicePublishReady"));
}

}  // namespace Controller

/// In generic values a mount is the text that it prints; a field with a blank in it is not read back.
template <>
struct NOX_EXPORT Nox::TextForm<Controller::MountDesc> {
  static std::optional<Controller::MountDesc> parse(std::string_view text);
  static String8 print(Controller::MountDesc const& value);
};
