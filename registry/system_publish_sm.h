// The publication machine of one switch: the mounts that it offers, written to its status by service.
#pragma once

#include "framework/core/state_machine.h"
#include "records/mount.h"
#include "records/registration.h"

namespace Controllerdb {

/// Mirrors what a switch offers into its status, and withdraws what it no longer offers. Keeps no state beside its
/// inputs: every decision is made from the records as they are. It is not switched on or off: its reactors are born
/// active, so it works from its construction to its end, also while its switch is not ready. Its end withdraws nothing.
class NOX_EXPORT SystemPublishSm final : public Nox::StateMachine<SystemPublishSm> {
 public:
  /// A reactor of this machine, whose pointer to the machine has a mutator of the machine's name.
  template <class In>
  class Watch : public Nox::Reactor<SystemPublishSm, In> {
   public:
    using Nox::Reactor<SystemPublishSm, In>::Reactor;
    void systemPublishSmIs(SystemPublishSm* sm) noexcept { this->smIs(sm); }
  };
  /// What the switch offers. The immediate form is left empty: full passes belong to initialization alone.
  class NoxSystemPublishedMount final : public Watch<Controller::SystemPublishedMount const> {
   public:
    using Watch::Watch;
    void onPublishedMount(Nox::String8 path) override {
      if (auto sm = live()) sm->handlePublishedMount(path);
    }
    void onPublishedMountnoxImmediate() override {}
  };
  /// The table of readiness: held, and read when a mount is published. The switch's own machine follows its changes; to
  /// this reactor no offer's change is delivered.
  class NoxPublishedMountsTable final : public Watch<Controller::PublishedMountsTable const> {
   public:
    using Watch::Watch;

   private:
    Nox::KeyInterest none_{*this};
  };

  using MountPtr = Nox::Ptr<Controller::SystemPublishedMount const>;
  using StatusPtr = Nox::Ptr<ControllerRegistration::SwitchStatus>;
  using MountsTablePtr = Nox::Ptr<Controller::PublishedMountsTable const>;
  static Nox::NoxType noxType;

  /// Makes the machine and runs its one full pass. Any input may be null: without an offer nothing is offered, without
  /// a status nothing is written, without a table nothing is ready.
  static Nox::Ptr<SystemPublishSm> SystemPublishSmIs(MountPtr const& systemPublishedMount, StatusPtr const& status,
                                                     MountsTablePtr const& publishedMountsTable);
  SystemPublishSm(MountPtr const& systemPublishedMount, StatusPtr const& status,
                  MountsTablePtr const& publishedMountsTable);
  ~SystemPublishSm() override;

  // The inputs that are watched. A mutator points the present reactor at the other input; no pass is run.

  MountPtr systemPublishedMount() const { return systemPublishedMount_.get(); }
  void systemPublishedMountIs(MountPtr const& mount) { systemPublishedMount_.repoint(*this, mount); }
  void systemPublishedMountDel() { systemPublishedMount_.retire(); }
  auto newSystemPublishedMount(MountPtr const& mount) { return newReactor<NoxSystemPublishedMount>(mount); }

  MountsTablePtr publishedMountsTable() const { return publishedMountsTable_.get(); }
  void publishedMountsTableIs(MountsTablePtr const& table) { publishedMountsTable_.repoint(*this, table); }
  void publishedMountsTableDel() { publishedMountsTable_.retire(); }
  auto newPublishedMountsTable(MountsTablePtr const& table) { return newReactor<NoxPublishedMountsTable>(table); }

  StatusPtr const& status() const noexcept { return status_; }

  // Handlers.

  void handleInitialized();
  /// The full pass: every published path is decided, then every offered one.
  void handlePublishedMount();
  /// Decides one path: publishes it if it is offered, otherwise withdraws it from the first service that holds it.
  void handlePublishedMount(Nox::String8 path);

 private:
  friend class Nox::StateMachine<SystemPublishSm>;
  void publish(Controller::MountDesc published);
  void withdraw(Nox::String8 const& path);

  Nox::Input<NoxSystemPublishedMount> systemPublishedMount_;
  StatusPtr status_;
  Nox::Input<NoxPublishedMountsTable> publishedMountsTable_;

  using T = SystemPublishSm;

 public:
  /// What it is built from.
  using Inputs = Nox::Inputs<&T::systemPublishedMount_, &T::status_, &T::publishedMountsTable_>;
  /// A function that makes a machine of its inputs, given in their order.
  using Maker = Inputs::Function<Nox::ValidPtr<SystemPublishSm>>;
};

}  // namespace Controllerdb
