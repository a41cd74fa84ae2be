// The state machines of the sibling libraries (mounts, initial mounts), as the registry's root builds them. Each holds
// its inputs, keeps its reactors and empty collections, and does nothing else: their work belongs to those libraries.
#pragma once

#include "framework/core/dir.h"
#include "framework/core/state_machine.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"

namespace Controller {

/// A machine that is a member of a sibling's collection: its name is its key.
template <class Self>
class NOX_EXPORT SiblingMember : public Nox::StateMachine<Self>, public Nox::HashMapLink {
 public:
  explicit SiblingMember(Nox::Name name) : name_(std::move(name)) {}
  Nox::Name const& fwkKey() const noexcept { return name_; }
  Nox::Name const& name() const noexcept { return name_; }

 private:
  friend class Nox::StateMachine<Self>;
  auto reactors() { return std::tuple<>(); }

  Nox::Name name_;
};

/// One entry of the mounts registry.
class NOX_EXPORT MountsRegistryEntrySm final : public SiblingMember<MountsRegistryEntrySm> {
 public:
  static Nox::NoxType noxType;
  using SiblingMember::SiblingMember;
};
/// One publication of the mounts registry.
class NOX_EXPORT PublishRegistryEntrySm final : public SiblingMember<PublishRegistryEntrySm> {
 public:
  static Nox::NoxType noxType;
  using SiblingMember::SiblingMember;
};
/// The service status of one connected switch.
class NOX_EXPORT ConnectionServiceStatusDirSm final : public SiblingMember<ConnectionServiceStatusDirSm> {
 public:
  static Nox::NoxType noxType;
  using SiblingMember::SiblingMember;
};
/// The configured mounts of one service.
class NOX_EXPORT ServiceMountConfigSm final : public SiblingMember<ServiceMountConfigSm> {
 public:
  static Nox::NoxType noxType;
  using SiblingMember::SiblingMember;
};
/// The configured publications of one service.
class NOX_EXPORT ServicePublishConfigSm final : public SiblingMember<ServicePublishConfigSm> {
 public:
  static Nox::NoxType noxType;
  using SiblingMember::SiblingMember;
};
/// The initial mounts of one service.
class NOX_EXPORT ServiceInitialMountSm final : public SiblingMember<ServiceInitialMountSm> {
 public:
  static Nox::NoxType noxType;
  using SiblingMember::SiblingMember;
};

/// The mount library's machine over the mounts registry.
class NOX_EXPORT MountsRegistrySm final : public Nox::StateMachine<MountsRegistrySm> {
 public:
  class NoxMountsRegistry final : public Nox::Reactor<MountsRegistrySm, MountsRegistry> {
   public:
    using Reactor::Reactor;
  };
  class NoxControllerStatus final
      : public Nox::Reactor<MountsRegistrySm, ControllerRegistration::ControllerStatus const> {
   public:
    using Reactor::Reactor;
  };
  class NoxAllClientsServiceStatusDir final : public Nox::Reactor<MountsRegistrySm, Nox::Dir const> {
   public:
    using Reactor::Reactor;
  };
  using MountsRegistryPtr = Nox::Ptr<MountsRegistry>;
  using ControllerStatusPtr = Nox::Ptr<ControllerRegistration::ControllerStatus const>;
  static Nox::NoxType noxType;

  MountsRegistrySm(MountsRegistryPtr const& mountsRegistry, ControllerStatusPtr const& controllerStatus,
                   Nox::Ptr<Nox::Dir> const& serviceMountStatusDir,
                   Nox::Ptr<PublishedMountsTable> const& publishedMountsTable,
                   Nox::Ptr<RegisteredSwitchTable> const& registeredSwitchTable,
                   Nox::Ptr<Nox::Dir const> const& allClientsServiceStatusDir);
  ~MountsRegistrySm() override;

  auto newMountsRegistry(MountsRegistryPtr const& input) { return newReactor<NoxMountsRegistry>(input); }
  auto newControllerStatus(ControllerStatusPtr const& input) { return newReactor<NoxControllerStatus>(input); }
  auto newAllClientsServiceStatusDir(Nox::Ptr<Nox::Dir const> const& input) {
    return newReactor<NoxAllClientsServiceStatusDir>(input);
  }
  void handleMountEntry() { Nox::Turn const turn; }
  void handlePublishEntry() { Nox::Turn const turn; }
  void handleClientStatus() { Nox::Turn const turn; }
  void handleInitialized();

 private:
  friend class Nox::StateMachine<MountsRegistrySm>;
  auto childSms() { return std::tie(mountEntrySm_, publishEntrySm_, clientStatusSm_); }

  Nox::Input<NoxMountsRegistry> mountsRegistry_;
  Nox::Input<NoxControllerStatus> controllerStatus_;
  Nox::Ptr<Nox::Dir> serviceMountStatusDir_;
  Nox::Ptr<PublishedMountsTable> publishedMountsTable_;
  Nox::Ptr<RegisteredSwitchTable> registeredSwitchTable_;
  Nox::Input<NoxAllClientsServiceStatusDir> allClientsServiceStatusDir_;
  Nox::HashMap<MountsRegistryEntrySm, Nox::Name> mountEntrySm_;
  Nox::HashMap<PublishRegistryEntrySm, Nox::Name> publishEntrySm_;
  Nox::HashMap<ConnectionServiceStatusDirSm, Nox::Name> clientStatusSm_;

  using T = MountsRegistrySm;

 public:
  /// What it is built from.
  using Inputs = Nox::Inputs<&T::mountsRegistry_, &T::controllerStatus_, &T::serviceMountStatusDir_,
                             &T::publishedMountsTable_, &T::registeredSwitchTable_, &T::allClientsServiceStatusDir_>;
  /// A function that makes a machine of its inputs, given in their order.
  using Maker = Inputs::Function<Nox::ValidPtr<MountsRegistrySm>>;
  /// Makes the machine and runs its first passes.
  static Maker MountsRegistrySmIs;
};

/// The mount library's machine over the configured mounts and publications of services.
class NOX_EXPORT ServiceConfigDirSm final : public Nox::StateMachine<ServiceConfigDirSm> {
 public:
  template <class In>
  using Watch = Nox::Reactor<ServiceConfigDirSm, In>;
  class NoxMountConfigDir final : public Watch<Nox::Dir const> {
   public:
    using Reactor::Reactor;
  };
  class NoxMountStatusDir final : public Watch<Nox::Dir> {
   public:
    using Reactor::Reactor;
  };
  class NoxPublishConfigDir final : public Watch<Nox::Dir const> {
   public:
    using Reactor::Reactor;
  };
  class NoxPublishStatusDir final : public Watch<Nox::Dir> {
   public:
    using Reactor::Reactor;
  };
  static Nox::NoxType noxType;

  ServiceConfigDirSm(Nox::Ptr<Nox::Dir const> const& mountConfigDir, Nox::Ptr<Nox::Dir> const& mountStatusDir,
                     Nox::Ptr<Nox::Dir const> const& publishConfigDir, Nox::Ptr<Nox::Dir> const& publishStatusDir,
                     Nox::Ptr<PublishedMountsTable> const& publishedMountsTable,
                     Nox::Ptr<MountsRegistry> const& mountsRegistry);
  ~ServiceConfigDirSm() override;

  auto newMountConfigDir(Nox::Ptr<Nox::Dir const> const& input) { return newReactor<NoxMountConfigDir>(input); }
  auto newMountStatusDir(Nox::Ptr<Nox::Dir> const& input) { return newReactor<NoxMountStatusDir>(input); }
  auto newPublishConfigDir(Nox::Ptr<Nox::Dir const> const& input) { return newReactor<NoxPublishConfigDir>(input); }
  auto newPublishStatusDir(Nox::Ptr<Nox::Dir> const& input) { return newReactor<NoxPublishStatusDir>(input); }
  void handleInitialized();

 private:
  friend class Nox::StateMachine<ServiceConfigDirSm>;
  auto childSms() { return std::tie(mountConfigSm_, publishConfigSm_); }

  Nox::Input<NoxMountConfigDir> mountConfigDir_;
  Nox::Input<NoxMountStatusDir> mountStatusDir_;
  Nox::Input<NoxPublishConfigDir> publishConfigDir_;
  Nox::Input<NoxPublishStatusDir> publishStatusDir_;
  Nox::Ptr<PublishedMountsTable> publishedMountsTable_;
  Nox::Ptr<MountsRegistry> mountsRegistry_;
  Nox::HashMap<ServiceMountConfigSm, Nox::Name> mountConfigSm_;
  Nox::HashMap<ServicePublishConfigSm, Nox::Name> publishConfigSm_;

  using T = ServiceConfigDirSm;

 public:
  /// What it is built from.
  using Inputs = Nox::Inputs<&T::mountConfigDir_, &T::mountStatusDir_, &T::publishConfigDir_, &T::publishStatusDir_,
                             &T::publishedMountsTable_, &T::mountsRegistry_>;
  /// A function that makes a machine of its inputs, given in their order.
  using Maker = Inputs::Function<Nox::ValidPtr<ServiceConfigDirSm>>;
  /// Makes the machine and runs its first pass.
  static Maker ServiceConfigDirSmIs;
};

/// The heartbeat library's machine over the initial mounts.
class NOX_EXPORT InitialMountSm final : public Nox::StateMachine<InitialMountSm> {
 public:
  template <class In>
  using Watch = Nox::Reactor<InitialMountSm, In>;
  class NoxMountConfigDir final : public Watch<Nox::Dir const> {
   public:
    using Reactor::Reactor;
  };
  class NoxMountStatusDir final : public Watch<Nox::Dir> {
   public:
    using Reactor::Reactor;
  };
  class NoxRegisteredSwitchTable final : public Watch<RegisteredSwitchTable const> {
   public:
    using Reactor::Reactor;
  };
  class NoxPeerTable final : public Watch<PeerTable const> {
   public:
    using Reactor::Reactor;
  };
  static Nox::NoxType noxType;

  InitialMountSm(Nox::Ptr<Nox::Dir const> const& mountConfigDir, Nox::Ptr<Nox::Dir> const& mountStatusDir,
                 Nox::Ptr<Heartbeat::Config const> const& heartbeatConfig,
                 Nox::Ptr<RegisteredSwitchTable const> const& registeredSwitchTable,
                 Nox::Ptr<PeerTable const> const& peerTable);
  ~InitialMountSm() override;

  auto newMountConfigDir(Nox::Ptr<Nox::Dir const> const& input) { return newReactor<NoxMountConfigDir>(input); }
  auto newMountStatusDir(Nox::Ptr<Nox::Dir> const& input) { return newReactor<NoxMountStatusDir>(input); }
  auto newRegisteredSwitchTable(Nox::Ptr<RegisteredSwitchTable const> const& input) {
    return newReactor<NoxRegisteredSwitchTable>(input);
  }
  auto newPeerTable(Nox::Ptr<PeerTable const> const& input) { return newReactor<NoxPeerTable>(input); }
  void handleInitialized();

 private:
  friend class Nox::StateMachine<InitialMountSm>;
  auto childSms() { return std::tie(initialMountSm_); }

  Nox::Input<NoxMountConfigDir> mountConfigDir_;
  Nox::Input<NoxMountStatusDir> mountStatusDir_;
  Nox::Ptr<Heartbeat::Config const> heartbeatConfig_;
  Nox::Input<NoxRegisteredSwitchTable> registeredSwitchTable_;
  Nox::Input<NoxPeerTable> peerTable_;
  Nox::HashMap<ServiceInitialMountSm, Nox::Name> initialMountSm_;

  using T = InitialMountSm;

 public:
  /// What it is built from.
  using Inputs = Nox::Inputs<&T::mountConfigDir_, &T::mountStatusDir_, &T::heartbeatConfig_, &T::registeredSwitchTable_,
                             &T::peerTable_>;
  /// A function that makes a machine of its inputs, given in their order.
  using Maker = Inputs::Function<Nox::ValidPtr<InitialMountSm>>;
  /// Makes the machine and runs its first pass.
  static Maker InitialMountSmIs;
};

}  // namespace Controller
