// What happens to the switches: the phases that are measured, and the same with more variety, for comparison.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "bench/end_to_end_inputs.h"

namespace EndToEnd {

/// The measured phases, in order.
enum class Phase { kEnrol, kHear, kRenew, kLeave };
inline constexpr std::array kPhases{Phase::kEnrol, Phase::kHear, Phase::kRenew, Phase::kLeave};

/// One switch of a scenario: what it registers with and what is offered for it. Many share one profile.
struct Profile {
  std::vector<ServiceInput> services;
  std::vector<MountInput> mounts;
};
struct Scenario {
  std::vector<ServiceInput> controllerServices;
  std::vector<ServiceInput> overrides;
  std::vector<std::string> readyServices;
  std::vector<Profile> profiles;
  std::vector<std::string> switchNames;

  Profile const& profile(std::size_t i) const { return profiles[i % profiles.size()]; }
  SwitchInput input(std::size_t i, unsigned generation) const {
    return {switchNames[i], systemId(i), true, generation, &profile(i).services};
  }
  static std::uint64_t systemId(std::size_t i) { return 0x020000000000 + i; }
};

/// Every switch has 4 services of 3 versions and is offered 8 mounts.
Scenario uniformScenario(std::size_t switches);
/// No two neighbours have the same services, versions and mounts; some outcomes are incompatible, disabled or unknown.
Scenario variedScenario(std::size_t switches);

/// The agent is enabled, and the controller's side is in place.
template <class Registry>
void prepare(Registry& registry, Scenario const& scenario) {
  registry.nameController("5d0c7b1e-3f64-4a8e-9b52-c1e07f2a6d38");
  registry.enableAgent(true);
  for (ServiceInput const& service : scenario.controllerServices) registry.putService(service);
  for (ServiceInput const& service : scenario.overrides) registry.putOverride(service);
  for (std::string const& service : scenario.readyServices) registry.putReady(service, true);
}

/// One phase for all switches, one after the other.
template <class Registry>
void run(Phase phase, Registry& registry, Scenario const& scenario) {
  for (std::size_t i = 0; i < scenario.switchNames.size(); ++i) {
    std::string const& name = scenario.switchNames[i];
    std::uint64_t const systemId = Scenario::systemId(i);
    switch (phase) {
      case Phase::kEnrol:
        registry.putOffer(systemId, scenario.profile(i).mounts);
        registry.putConfig(scenario.input(i, 1));
        registry.putStatus(name);
        break;
      case Phase::kHear:
        registry.putHeartbeat(systemId);
        break;
      case Phase::kRenew:
        registry.putGeneration(name, 2);
        break;
      case Phase::kLeave:
        registry.removeRegistration(name);
        registry.removeHeartbeat(systemId);
        registry.removeOffer(systemId);
        break;
    }
  }
}

/// Takes both registries through the varied scenario and through changes of every kind, and compares what they have
/// written after each step. Returns what differs first, or nothing.
std::string differenceFromPlain();

}  // namespace EndToEnd
