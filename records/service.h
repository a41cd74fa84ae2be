// Services: what each side configures, and what was negotiated.
#pragma once

#include <compare>

#include "framework/by_name/rows.h"
#include "framework/core/entity.h"
#include "framework/text/text_form.h"

namespace Controller {

/// One version of a service: its number and its description. Number 0 without a description stands for no version.
class NOX_EXPORT ServiceVersionV1 {
 public:
  ServiceVersionV1() = default;
  explicit ServiceVersionV1(unsigned version, Nox::String8 desc = {}) : version_(version), desc_(std::move(desc)) {}

  unsigned version() const noexcept { return version_; }
  Nox::String8 desc() const { return desc_; }

  friend bool operator==(ServiceVersionV1 const&, ServiceVersionV1 const&) = default;

 private:
  unsigned version_ = 0;
  Nox::String8 desc_;
};

/// Prints the number, then a blank and the description if there is one.
NOX_EXPORT std::ostream& operator<<(std::ostream& out, ServiceVersionV1 const& version);

/// The versions of one service that one side offers.
class NOX_EXPORT ServiceVersionConfigV1 : public Nox::Typed<ServiceVersionConfigV1, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ServiceVersionConfigV1, Nox::Entity> {
   public:
    virtual void onVersion(unsigned /*version*/) {}
    virtual void onVersionnoxImmediate() {}
    void onVersion() override {}
  };
  /// One offered version, keyed by its number.
  class NoxVersion final : public Nox::Row<unsigned, ServiceVersionV1> {
   public:
    using Row::Row;
  };
  using VersionMap = Nox::ValueMap<NoxVersion, unsigned, ServiceVersionV1>;
  using VersionIteratorConst = VersionMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  VersionMap const& version() const noexcept { return version_; }
  ServiceVersionV1 version(unsigned number) const { return version_.value(number); }
  VersionIteratorConst versionIteratorConst() const { return VersionIteratorConst(version_); }
  void versionIs(ServiceVersionV1 const& v) { assign<Nox::keyed(&NotifieeConst::onVersion)>(version_, v.version(), v); }
  void versionDel(unsigned number) { remove<Nox::keyed(&NotifieeConst::onVersion)>(version_, number); }
  void versionDelAll() { removeAll<Nox::keyed(&NotifieeConst::onVersion)>(version_); }

 private:
  VersionMap version_;
};

/// One side's configuration of one service; its name is the service's.
class NOX_EXPORT ServiceConfigV1 : public Nox::Typed<ServiceConfigV1, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ServiceConfigV1, Nox::Entity> {
   public:
    virtual void onEnabled() {}
  };
  static Nox::NoxType noxType;
  static constexpr auto attributes();

  explicit ServiceConfigV1(Nox::Name service = {});

  bool enabled() const noexcept { return enabled_; }
  void enabledIs(bool enabled) { assign<&NotifieeConst::onEnabled>(enabled_, enabled); }

  /// The versions offered; always there.
  Nox::Ptr<ServiceVersionConfigV1> versionConfig() { return versionConfig_.get(); }
  Nox::Ptr<ServiceVersionConfigV1 const> versionConfig() const { return versionConfig_.get(); }

 private:
  bool enabled_ = false;
  Nox::Child<ServiceVersionConfigV1> versionConfig_;
};

/// The outcome of one negotiation.
class NOX_EXPORT ServiceVersionStatusV1 : public Nox::Typed<ServiceVersionStatusV1, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ServiceVersionStatusV1, Nox::Entity> {
   public:
    virtual void onNegotiatedVersion() {}
    virtual void onVersionCompatible() {}
    virtual void onVersionNegotiationComplete() {}
  };
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  ServiceVersionV1 const& negotiatedVersion() const noexcept { return negotiatedVersion_; }
  void negotiatedVersionIs(ServiceVersionV1 const& version) {
    assign<&NotifieeConst::onNegotiatedVersion>(negotiatedVersion_, version);
  }
  bool versionCompatible() const noexcept { return versionCompatible_; }
  void versionCompatibleIs(bool compatible) {
    assign<&NotifieeConst::onVersionCompatible>(versionCompatible_, compatible);
  }
  bool versionNegotiationComplete() const noexcept { return versionNegotiationComplete_; }
  void versionNegotiationCompleteIs(bool complete) {
    assign<&NotifieeConst::onVersionNegotiationComplete>(versionNegotiationComplete_, complete);
  }

 private:
  // The flags stand first: there they fit into what the base leaves of its last word, which saves 16 bytes.
  bool versionCompatible_ = false;
  bool versionNegotiationComplete_ = false;
  ServiceVersionV1 negotiatedVersion_;
};

/// The status of one service, as the switch or the controller sees it; its name is the service's.
class NOX_EXPORT ServiceStatusV1 : public Nox::Typed<ServiceStatusV1, Nox::Entity>, public Nox::HashMapLink {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ServiceStatusV1, Nox::Entity> {
   public:
    virtual void onEnabled() {}
    virtual void onVersionStatus() {}
  };
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  Nox::Name const& fwkKey() const noexcept { return rawName(); }

  bool enabled() const noexcept { return enabled_; }
  void enabledIs(bool enabled) { assign<&NotifieeConst::onEnabled>(enabled_, enabled); }

  /// The outcome of the negotiation; null until it is made.
  Nox::Ptr<ServiceVersionStatusV1> versionStatus() { return versionStatus_.get(); }
  Nox::Ptr<ServiceVersionStatusV1 const> versionStatus() const { return versionStatus_.get(); }
  /// The version status of that name: the present one, or a new one in its place.
  Nox::ValidPtr<ServiceVersionStatusV1> versionStatusIs(Nox::Name const& name);
  Nox::Ptr<ServiceVersionStatusV1> versionStatusDel();

 private:
  bool enabled_ = false;
  Nox::Child<ServiceVersionStatusV1> versionStatus_;
};

/// The controller's view of one switch's services.
class NOX_EXPORT ServiceStatusDir : public Nox::Typed<ServiceStatusDir, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ServiceStatusDir, Nox::Entity> {
   public:
    virtual void onService(Nox::Name /*service*/) {}
    virtual void onServicenoxImmediate() {}
    virtual void onService() {}
  };
  using ServiceMap = Nox::ChildMap<ServiceStatusV1, Nox::Name>;
  using ServiceIteratorConst = ServiceMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  ServiceMap const& service() const noexcept { return service_; }
  Nox::Ptr<ServiceStatusV1> service(Nox::Name const& name) { return service_.member(name); }
  Nox::Ptr<ServiceStatusV1 const> service(Nox::Name const& name) const { return service_.member(name); }
  ServiceIteratorConst serviceIteratorConst() const { return ServiceIteratorConst(service_); }
  Nox::ValidPtr<ServiceStatusV1> serviceIs(Nox::Name const& name) {
    return instantiate<Nox::keyed(&NotifieeConst::onService)>(service_, name);
  }
  void serviceDel(Nox::Name const& name) { remove<Nox::keyed(&NotifieeConst::onService)>(service_, name); }
  void serviceDelAll() { removeAll<Nox::keyed(&NotifieeConst::onService)>(service_); }

 private:
  ServiceMap service_;
};

/// The controller's own service configurations.
class NOX_EXPORT ServiceConfigDir : public Nox::Typed<ServiceConfigDir, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ServiceConfigDir, Nox::Entity> {
   public:
    virtual void onService(Nox::Name /*service*/) {}
    virtual void onServicenoxImmediate() {}
    virtual void onService() {}
  };
  /// One configured service, keyed by its name.
  class NoxService final : public Nox::Row<Nox::Name, Nox::Ptr<ServiceConfigV1>> {
   public:
    using Row::Row;
  };
  using ServiceMap = Nox::ValueMap<NoxService, Nox::Name, Nox::Ptr<ServiceConfigV1>>;
  using ServiceIteratorConst = ServiceMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  ServiceMap const& service() const noexcept { return service_; }
  Nox::Ptr<ServiceConfigV1> service(Nox::Name const& name) { return service_.value(name); }
  Nox::Ptr<ServiceConfigV1 const> service(Nox::Name const& name) const { return service_.value(name); }
  ServiceIteratorConst serviceIteratorConst() const { return ServiceIteratorConst(service_); }
  void serviceIs(Nox::ValidPtr<ServiceConfigV1> const& config) {
    assign<Nox::keyed(&NotifieeConst::onService)>(service_, config->name(), config);
  }
  void serviceDel(Nox::Name const& name) { remove<Nox::keyed(&NotifieeConst::onService)>(service_, name); }
  void serviceDelAll() { removeAll<Nox::keyed(&NotifieeConst::onService)>(service_); }

 private:
  ServiceMap service_;
};

/// Service configurations that replace the controller's own, each whole.
class NOX_EXPORT OverrideServiceConfigDir : public Nox::Typed<OverrideServiceConfigDir, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<OverrideServiceConfigDir, Nox::Entity> {
   public:
    virtual void onOverrideService(Nox::Name /*service*/) {}
    virtual void onOverrideServicenoxImmediate() {}
    virtual void onOverrideService() {}
  };
  /// One overridden service, keyed by its name.
  class NoxOverrideService final : public Nox::Row<Nox::Name, Nox::Ptr<ServiceConfigV1>> {
   public:
    using Row::Row;
  };
  using OverrideServiceMap = Nox::ValueMap<NoxOverrideService, Nox::Name, Nox::Ptr<ServiceConfigV1>>;
  using OverrideServiceIteratorConst = OverrideServiceMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  OverrideServiceMap const& overrideService() const noexcept { return overrideService_; }
  Nox::Ptr<ServiceConfigV1> overrideService(Nox::Name const& name) { return overrideService_.value(name); }
  Nox::Ptr<ServiceConfigV1 const> overrideService(Nox::Name const& name) const { return overrideService_.value(name); }
  OverrideServiceIteratorConst overrideServiceIteratorConst() const {
    return OverrideServiceIteratorConst(overrideService_);
  }
  void overrideServiceIs(Nox::ValidPtr<ServiceConfigV1> const& config) {
    assign<Nox::keyed(&NotifieeConst::onOverrideService)>(overrideService_, config->name(), config);
  }
  void overrideServiceDel(Nox::Name const& name) {
    remove<Nox::keyed(&NotifieeConst::onOverrideService)>(overrideService_, name);
  }
  void overrideServiceDelAll() { removeAll<Nox::keyed(&NotifieeConst::onOverrideService)>(overrideService_); }

 private:
  OverrideServiceMap overrideService_;
};

constexpr auto ServiceVersionConfigV1::attributes() {
  using T = ServiceVersionConfigV1;
  return std::tuple(Nox::collection<Nox::whole(&T::version), &T::versionIs, &T::versionDel>("version"));
}
constexpr auto ServiceConfigV1::attributes() {
  using T = ServiceConfigV1;
  return std::tuple(
      Nox::plain<&T::enabled, &T::enabledIs>("enabled"),
      Nox::childRecord<Nox::childRead<T>(&T::versionConfig), Nox::childOf<T>(&T::versionConfig)>("versionConfig"));
}
constexpr auto ServiceVersionStatusV1::attributes() {
  using T = ServiceVersionStatusV1;
  return std::tuple(
      Nox::plain<&T::name>("name"),
      Nox::plain<&T::negotiatedVersion, &T::negotiatedVersionIs>("negotiatedVersion"),
      Nox::plain<&T::versionCompatible, &T::versionCompatibleIs>("versionCompatible"),
      Nox::plain<&T::versionNegotiationComplete, &T::versionNegotiationCompleteIs>("versionNegotiationComplete"));
}
constexpr auto ServiceStatusV1::attributes() {
  using T = ServiceStatusV1;
  return std::tuple(Nox::plain<&T::enabled, &T::enabledIs>("enabled"),
                    Nox::childRecord<Nox::childRead<T>(&T::versionStatus),
                                     Nox::childOf<T>(&T::versionStatus),
                                     &T::versionStatusIs,
                                     &T::versionStatusDel>("versionStatus", "name"));
}
constexpr auto ServiceStatusDir::attributes() {
  using T = ServiceStatusDir;
  return std::tuple(Nox::collection<Nox::whole(&T::service), &T::serviceIs, &T::serviceDel>("service"));
}
constexpr auto ServiceConfigDir::attributes() {
  using T = ServiceConfigDir;
  return std::tuple(Nox::collection<Nox::whole(&T::service), &T::serviceIs, &T::serviceDel>("service"));
}
constexpr auto OverrideServiceConfigDir::attributes() {
  using T = OverrideServiceConfigDir;
  return std::tuple(Nox::collection<Nox::whole(&T::overrideService), &T::overrideServiceIs, &T::overrideServiceDel>(
      "overrideService"));
}

}  // namespace Controller

/// In generic values a version is the text that it prints.
template <>
struct NOX_EXPORT Nox::TextForm<Controller::ServiceVersionV1> {
  static std::optional<Controller::ServiceVersionV1> parse(std::string_view text);
  static String8 print(Controller::ServiceVersionV1 const& value);
};
