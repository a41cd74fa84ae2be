// A small record and a reactor that writes down what it hears, for tests of the framework.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "framework/by_name/attr_table.h"
#include "framework/core/collections.h"
#include "framework/core/entity.h"

namespace Sample {

using Log = std::vector<std::string>;

/// Counts its living instances.
struct Counted {
  static inline int alive = 0;
  Counted() { ++alive; }
  Counted(Counted const&) = delete;
  Counted& operator=(Counted const&) = delete;
  ~Counted() { --alive; }
};

/// A plain framework object.
class Object : public Nox::PtrInterface, Counted {
 public:
  std::uint32_t count() const { return noxWord() & kCountMask; }
};

/// Number of the attribute under which a device holds its cards, and its fan.
constexpr Nox::AttributeId kCard = 258;
constexpr Nox::AttributeId kFan = 259;

/// A record with every kind of attribute: scalars, a keyed value, children by key, and one child.
class Device : public Nox::Typed<Device, Nox::Entity>, Counted {
 public:
  class NotifieeConst : public Nox::NotifieeOf<Device, Nox::Entity> {
   public:
    virtual void onSpeed() {}
    virtual void onLabel() {}
    virtual void onMTU() {}
    virtual void onPort(Nox::Name /*name*/) {}
    virtual void onPortnoxImmediate() {}
    virtual void onPort() {}
    virtual void onCard(Nox::Name /*name*/) {}
  };
  static Nox::NoxType noxType;

  class Port : public Nox::Row<Nox::Name, unsigned> {
   public:
    using Row::Row;
  };
  class Card : public Nox::Entity, public Nox::HashMapLink {
   public:
    using Entity::Entity;
    Nox::Name fwkKey() const { return name(); }
  };
  using PortMap = Nox::ValueMap<Port, Nox::Name, unsigned>;
  using CardMap = Nox::ChildMap<Card, Nox::Name>;

  explicit Device(Nox::Name name = "device") : Typed(std::move(name)) {}

  unsigned speed() const { return speed_; }
  void speedIs(unsigned speed) { assign<&NotifieeConst::onSpeed>(speed_, speed); }
  Nox::String8 label() const { return label_; }
  void labelIs(Nox::String8 const& label) { assign<&NotifieeConst::onLabel>(label_, label); }
  unsigned MTU() const { return mtu_; }
  void MTUIs(unsigned mtu) { assign<&NotifieeConst::onMTU>(mtu_, mtu); }

  unsigned port(Nox::Name const& name) const { return port_.value(name); }
  PortMap const& ports() const { return port_; }
  void portIs(Nox::Name const& name, unsigned value) { assign<Nox::keyed(&NotifieeConst::onPort)>(port_, name, value); }
  void portDel(Nox::Name const& name) { remove<Nox::keyed(&NotifieeConst::onPort)>(port_, name); }
  void portDelAll() { removeAll<Nox::keyed(&NotifieeConst::onPort)>(port_); }

  CardMap const& cards() const { return card_; }
  Nox::ValidPtr<Card> cardIs(Nox::Name const& name) {
    return instantiate<Nox::keyed(&NotifieeConst::onCard)>(card_, name);
  }
  Nox::Ptr<Card> cardDel(Nox::Name const& name) { return remove<Nox::keyed(&NotifieeConst::onCard)>(card_, name); }
  void cardDelAll() { removeAll<Nox::keyed(&NotifieeConst::onCard)>(card_); }

 private:
  unsigned speed_ = 0;
  unsigned mtu_ = 0;
  Nox::String8 label_;
  PortMap port_;
  CardMap card_;
};
inline constexpr auto kDevice =
    Nox::attrTable(Nox::kFirstAttribute, Nox::plain<&Device::speed, &Device::speedIs>("speed"),
                   Nox::plain<&Device::label, &Device::labelIs>("label"),
                   Nox::collection<&Device::cards, &Device::cardIs, &Device::cardDel>("card"));
static_assert(kDevice.rows.back().id == kCard);
inline constinit Nox::NoxType Device::noxType{"Sample::Device", &Nox::Entity::noxType, nullptr, kDevice.view()};

/// A record that derives from another.
class Router : public Nox::Typed<Router, Device> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<Router, Device> {
   public:
    virtual void onRoutes() {}
  };
  static Nox::NoxType noxType;

  explicit Router(Nox::Name name = "router") : Typed(std::move(name)) {}
  void routesIs(unsigned routes) { assign<&NotifieeConst::onRoutes>(routes_, routes); }

 private:
  unsigned routes_ = 0;
};
inline constinit Nox::NoxType Router::noxType{"Sample::Router", &Device::noxType, nullptr};

/// A reactor that writes down "NAME ATTRIBUTE" for all that it hears of a device, then does what it is told.
class Recorder : public Device::NotifieeConst, Counted {
 public:
  Recorder(std::string name, Log& log) : name_(std::move(name)), log_(log) {}
  Recorder(std::string name, Log& log, Nox::Ptr<Device> const& device) : Recorder(std::move(name), log) {
    notifierIs(device);
  }

  std::function<void(std::string const& attribute)> then;

  void onParent() override { heard("parent"); }
  void onIsNondestructing() override { heard("isNondestructing"); }
  void onSpeed() override { heard("speed"); }
  void onLabel() override { heard("label"); }
  void onMTU() override { heard("MTU"); }
  void onPort(Nox::Name key) override { heard("port[" + std::string(key.view()) + "]"); }
  void onPortnoxImmediate() override { heard("ports"); }
  void onPort() override { heard("port"); }
  void onCard(Nox::Name key) override { heard("card[" + std::string(key.view()) + "]"); }
  void onNotificationException() override { log_.push_back(name_ + " exception"); }

  std::uint32_t count() const { return noxWord() & kCountMask; }

 private:
  void heard(std::string const& attribute) {
    log_.push_back(name_ + " " + attribute);
    if (then) then(attribute);
  }

  std::string name_;
  Log& log_;
};

}  // namespace Sample
