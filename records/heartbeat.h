// Heartbeats: the peers that the controller hears.
#pragma once

#include "framework/by_name/rows.h"
#include "framework/core/entity.h"
#include "records/ids.h"

namespace Controller {

/// One peer that is heard; its name is its system id.
class NOX_EXPORT Peer : public Nox::Typed<Peer, Nox::Entity>, public Nox::HashMapLink {
 public:
  static Nox::NoxType noxType;

  explicit Peer(SystemId const& systemId) : Typed(Nox::Name(systemId.stringValue())), systemId_(systemId) {}
  SystemId const& fwkKey() const noexcept { return systemId_; }
  SystemId const& systemId() const noexcept { return systemId_; }

 private:
  SystemId systemId_;
};

/// The peers that the controller hears now.
class NOX_EXPORT PeerTable : public Nox::Typed<PeerTable, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<PeerTable, Nox::Entity> {
   public:
    virtual void onPeer(SystemId const& /*systemId*/) {}
    virtual void onPeernoxImmediate() {}
    virtual void onPeer() {}
  };
  using PeerMap = Nox::ChildMap<Peer, SystemId>;
  using PeerIteratorConst = PeerMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  PeerMap const& peer() const noexcept { return peer_; }
  Nox::Ptr<Peer const> peer(SystemId const& systemId) const { return peer_.member(systemId); }
  PeerIteratorConst peerIteratorConst() const { return PeerIteratorConst(peer_); }
  Nox::ValidPtr<Peer> peerIs(SystemId const& systemId) {
    return instantiate<Nox::keyed(&NotifieeConst::onPeer)>(peer_, systemId);
  }
  void peerDel(SystemId const& systemId) { remove<Nox::keyed(&NotifieeConst::onPeer)>(peer_, systemId); }
  void peerDelAll() { removeAll<Nox::keyed(&NotifieeConst::onPeer)>(peer_); }

 private:
  PeerMap peer_;
};

namespace Heartbeat {

/// The configuration of the heartbeat library: an input of the root's initial mount machine, not looked at here.
class NOX_EXPORT Config : public Nox::Typed<Config, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<Config, Nox::Entity> {};
  static Nox::NoxType noxType;
  using Typed::Typed;
};

}  // namespace Heartbeat

constexpr auto PeerTable::attributes() {
  using T = PeerTable;
  return std::tuple(Nox::collection<Nox::whole(&T::peer), &T::peerIs, &T::peerDel>("peer"));
}

}  // namespace Controller
