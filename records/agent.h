// The agent's own configuration and status.
#pragma once

#include "framework/by_name/rows.h"
#include "framework/core/entity.h"

namespace Controllerdb {

/// The agent's configuration: written by the operator, read by the registry.
class NOX_EXPORT Config : public Nox::Typed<Config, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<Config, Nox::Entity> {
   public:
    virtual void onEnabled() {}
    virtual void onPort() {}
  };
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  bool enabled() const noexcept { return enabled_; }
  void enabledIs(bool enabled) { assign<&NotifieeConst::onEnabled>(enabled_, enabled); }

  unsigned port() const noexcept { return port_; }
  void portIs(unsigned port) { assign<&NotifieeConst::onPort>(port_, port); }

 private:
  bool enabled_ = false;
  unsigned port_ = 0;
};

/// The agent's status: the registry mirrors `enabled` into it, the operator gives the controller's identity.
class NOX_EXPORT Status : public Nox::Typed<Status, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<Status, Nox::Entity> {
   public:
    virtual void onControllerUUID() {}
    virtual void onEnabled() {}
  };
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  Nox::String8 const& controllerUUID() const noexcept { return controllerUUID_; }
  void controllerUUIDIs(Nox::String8 const& uuid) { assign<&NotifieeConst::onControllerUUID>(controllerUUID_, uuid); }

  bool enabled() const noexcept { return enabled_; }
  void enabledIs(bool enabled) { assign<&NotifieeConst::onEnabled>(enabled_, enabled); }

 private:
  Nox::String8 controllerUUID_;
  bool enabled_ = false;
};

constexpr auto Config::attributes() {
  return std::tuple(Nox::plain<&Config::enabled, &Config::enabledIs>("enabled"),
                    Nox::internal(Nox::plain<&Config::port, &Config::portIs>("port")));
}
constexpr auto Status::attributes() {
  return std::tuple(Nox::plain<&Status::controllerUUID, &Status::controllerUUIDIs>("controllerUUID"),
                    Nox::answer(Nox::plain<&Status::enabled, &Status::enabledIs>("enabled")));
}

}  // namespace Controllerdb
