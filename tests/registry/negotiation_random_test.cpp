// Random changes of services over many switches: a model says at every point what they leave, and a fresh registry over
// the final inputs says where they end.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <random>

#include "negotiation_model.h"

namespace NegotiationRandomTest {
namespace {

using namespace ServiceTest;
using Controller::ServiceConfigV1;
using Nox::Name;
using Nox::Ptr;

constexpr unsigned kSwitches = 20;
constexpr unsigned kOperations = 2000;
constexpr std::array<char const*, 6> kServices = {"acl", "bgp", "clock", "dhcp", "edge", "flow"};
constexpr std::array<unsigned, 7> kNumbers = {0, 1, 2, 3, 4, 0x80000000, 0xFFFFFFFF};

using Services = std::map<std::string, Service>;
Service const* find(Services const& services, std::string const& name) {
  auto const at = services.find(name);
  return at == services.end() ? nullptr : &at->second;
}
Name nameOf(unsigned number) { return Name("leaf-" + std::to_string(number)); }

/// The inputs as plain values, and which statuses the triggers so far have left: a negotiation runs where `negotiate`
/// is called, and nowhere else.
struct Model {
  struct Switch {
    bool heard = false;
    Services services;
    std::map<std::string, Sides> statuses;
  };

  Service const* ofController(std::string const& service) const {
    Service const* const given = find(overrides, service);
    return given != nullptr ? given : find(services, service);
  }
  void negotiate(Switch& one, std::string const& service) const {
    one.statuses[service].negotiate(find(one.services, service), ofController(service));
  }
  void negotiateEverywhere(std::string const& service) {
    for (Switch& one : switches) negotiate(one, service);
  }
  void pass(Switch& one) const {
    if (!one.heard) return;
    for (auto const& [service, configured] : one.services) negotiate(one, service);
  }

  Services services;
  Services overrides;
  std::array<Switch, kSwitches> switches;
};

/// A registry and its model under the same random operations.
class RandomServices {
 public:
  explicit RandomServices(unsigned seed) : random_(seed) {
    world_.enable();
    for (unsigned i = 0; i < kSwitches; ++i) world_.enrol(nameOf(i), systemId(i));
  }

  /// One operation, one turn; most are about one switch, since one about the controller is about all.
  void operate() {
    std::string const name = kServices[random_() % kServices.size()];
    unsigned const number = static_cast<unsigned>(random_() % kSwitches);
    Model::Switch& one = model_.switches[number];
    Ptr<ControllerRegistration::SwitchConfig> const config = world_.switchConfig(nameOf(number));
    switch (random_() % 32) {
      case 0:
        return putForController(name);
      case 1:
        model_.services.erase(name);
        return world_.serviceConfigDir->serviceDel(name);
      case 2:
        if (find(model_.services, name) != nullptr)
          toggle(model_.services[name], *world_.serviceConfigDir->service(name));
        return model_.services.contains(name) ? model_.negotiateEverywhere(name) : void();
      case 3:
        if (find(model_.services, name) != nullptr)
          reoffer(model_.services[name], *world_.serviceConfigDir->service(name));
        return;
      case 4:
        model_.overrides[name] = randomService();
        return world_.overrideServiceConfigDir->overrideServiceIs(makeService(name, model_.overrides[name]));
      case 5:
        model_.overrides.erase(name);
        return world_.overrideServiceConfigDir->overrideServiceDel(name);
      case 6:
        if (find(model_.overrides, name) == nullptr) return;
        toggle(model_.overrides[name], *world_.overrideServiceConfigDir->overrideService(name));
        return reoffer(model_.overrides[name], *world_.overrideServiceConfigDir->overrideService(name));
      case 7:
        one.heard = !one.heard;
        if (one.heard)
          world_.heartbeat(systemId(number));
        else
          world_.silence(systemId(number));
        return model_.pass(one);
      case 8:
        return bump(number);
      default:
        break;
    }
    bool const known = one.services.contains(name);
    switch (random_() % 5) {
      case 0:
        one.services.erase(name);
        return config->serviceConfigDel(name);
      case 1:
        if (known) reoffer(one.services[name], *config->serviceConfig(name));
        return;
      case 2:
        if (!known) return;
        toggle(one.services[name], *config->serviceConfig(name));
        return model_.negotiate(one, name);
      default:
        one.services[name] = randomService();
        config->serviceConfigIs(makeService(name, one.services[name]));
        if (known) model_.negotiate(one, name);
    }
  }
  /// Has every ready switch run its pass.
  void bumpAll() {
    for (unsigned i = 0; i < kSwitches; ++i) bump(i);
  }

  /// Every status is what the model says.
  void expectModel() const {
    for (unsigned i = 0; i < kSwitches; ++i) {
      for (char const* service : kServices) {
        auto const at = model_.switches[i].statuses.find(service);
        Sides const sides = at != model_.switches[i].statuses.end() ? at->second : Sides();
        EXPECT_EQ(ofSwitch(world_, i, service), sides.textOfSwitch()) << nameOf(i) << ", " << service;
        EXPECT_EQ(ofController(world_, i, service), sides.textOfController()) << nameOf(i) << ", " << service;
      }
    }
  }
  /// A registry that is given the same inputs at once has the same outcome for every service of a ready switch that the
  /// controller configures or overrides.
  unsigned expectFresh() const {
    unsigned compared = 0;
    World fresh;
    for (auto const& [name, service] : model_.services) fresh.serviceConfigDir->serviceIs(makeService(name, service));
    for (auto const& [name, service] : model_.overrides)
      fresh.overrideServiceConfigDir->overrideServiceIs(makeService(name, service));
    fresh.enable();
    for (unsigned i = 0; i < kSwitches; ++i) {
      Model::Switch const& one = model_.switches[i];
      if (!one.heard) continue;
      fresh.heartbeat(systemId(i));
      fresh.putConfig(nameOf(i), systemId(i));
      for (auto const& [name, service] : one.services)
        fresh.switchConfig(nameOf(i))->serviceConfigIs(makeService(name, service));
      fresh.putStatus(nameOf(i));
      for (auto const& [name, service] : one.services) {
        if (model_.ofController(name) == nullptr) continue;
        EXPECT_EQ(ofSwitch(world_, i, name), ofSwitch(fresh, i, name)) << nameOf(i) << ", " << name;
        EXPECT_EQ(ofController(world_, i, name), ofController(fresh, i, name)) << nameOf(i) << ", " << name;
        ++compared;
      }
    }
    return compared;
  }

 private:
  Service randomService() {
    Service service{random_() % 4 != 0, {}};
    for (auto left = random_() % 4; left > 0; --left)
      service.versions[kNumbers[random_() % kNumbers.size()]] = std::to_string(random_() % 100);
    return service;
  }
  void putForController(std::string const& name) {
    bool const known = model_.services.contains(name);
    model_.services[name] = randomService();
    world_.serviceConfigDir->serviceIs(makeService(name, model_.services[name]));
    if (known) model_.negotiateEverywhere(name);
  }
  void toggle(Service& service, ServiceConfigV1& record) {
    service.enabled = !service.enabled;
    record.enabledIs(service.enabled);
  }
  void reoffer(Service& service, ServiceConfigV1& record) {
    service.versions = randomService().versions;
    offer(record, service.versions);
  }
  void bump(unsigned number) {
    auto const config = world_.switchConfig(nameOf(number));
    config->registrationGenIdIs(config->registrationGenId() + 1);
    model_.pass(model_.switches[number]);
  }
  static std::string ofSwitch(World const& world, unsigned number, Name const& service) {
    return outcomeOf(world.switchStatus(nameOf(number))->serviceStatus(service));
  }
  static std::string ofController(World const& world, unsigned number, Name const& service) {
    return outcomeOf(world.serviceStatusDir(nameOf(number))->service(service));
  }

  std::mt19937 random_;
  World world_;
  Model model_;
};

/// The seeds in a few groups, which may run side by side.
class RandomServiceOperations : public testing::TestWithParam<unsigned> {};
constexpr unsigned kGroups = 4;
constexpr unsigned kSeedsOfAGroup = kSanitized ? 10 : 50;

TEST_P(RandomServiceOperations, LeaveWhatAFreshRegistryReaches) {
  unsigned compared = 0;
  for (unsigned seed = GetParam(); seed < kGroups * kSeedsOfAGroup && !HasFailure(); seed += kGroups) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomServices services(seed);
    for (unsigned i = 1; i <= kOperations && !HasFailure(); ++i) {
      services.operate();
      if (i % (kOperations / 4) != 0) continue;
      SCOPED_TRACE("operation " + std::to_string(i));
      services.expectModel();
    }
    services.bumpAll();
    services.expectModel();
    compared += services.expectFresh();
  }
  EXPECT_GT(compared, kSeedsOfAGroup * kSwitches);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomServiceOperations, testing::Range(0U, kGroups));

}  // namespace

}  // namespace NegotiationRandomTest
