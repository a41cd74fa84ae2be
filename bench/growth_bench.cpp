// How the cost of one change and of all switches together grows with their number, here and in the plain registry.
#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "bench/bench.h"
#include "bench/end_to_end_ours.h"
#include "bench/end_to_end_plain.h"
#include "bench/end_to_end_scenario.h"

namespace {

using namespace EndToEnd;

/// Switches without services and mounts: what is left is the way to the one switch that is concerned.
Scenario bareScenario(std::size_t switches) {
  Scenario scenario = uniformScenario(switches);
  scenario.controllerServices.clear();
  scenario.profiles = {Profile{}};
  return scenario;
}

/// The switches of a scenario, enrolled and heard.
template <class Registry>
struct Network {
  explicit Network(Scenario const& s) : scenario(s) {
    prepare(registry, scenario);
    run(Phase::kEnrol, registry, scenario);
    run(Phase::kHear, registry, scenario);
  }
  Scenario scenario;
  Registry registry;
};

/// One heartbeat that is lost and one that comes, each a change, now for this switch and now for that, or for none.
template <class Registry>
void heartbeats(benchmark::State& state, std::size_t switches, bool isKnown) {
  auto const network = std::make_unique<Network<Registry>>(bareScenario(switches));
  std::size_t at = 0;
  Bench::repeat(
      state,
      [&] {
        at = (at + 7919) % switches;
        std::uint64_t const id = Scenario::systemId(isKnown ? at : switches + at);
        network->registry.removeHeartbeat(id);
        network->registry.putHeartbeat(id);
      },
      2);
}

/// All switches enrol and are heard, the agent is disabled, enabled and disabled, and all of it goes: the time of one
/// part, for one switch. What comes behind it is left out.
template <class Registry>
void bringUpAndTearDown(benchmark::State& state, std::size_t switches, std::size_t part) {
  Scenario const scenario = uniformScenario(switches);
  for ([[maybe_unused]] auto const _ : state) {
    auto registry = std::make_unique<Registry>();
    prepare(*registry, scenario);
    std::function<void()> const parts[] = {[&] { run(Phase::kEnrol, *registry, scenario); },
                                           [&] { run(Phase::kHear, *registry, scenario); },
                                           [&] { registry->enableAgent(false); },
                                           [&] { registry->enableAgent(true); },
                                           [&] { registry->enableAgent(false); },
                                           [&] { registry.reset(); }};
    for (std::size_t i = 0; i < part; ++i) parts[i]();
    double const start = Bench::cpuSeconds();
    parts[part]();
    state.SetIterationTime(Bench::cpuSeconds() - start);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(switches));
}

template <class Registry>
void addRows(std::string const& subject) {
  for (long const switches : {1'000, 10'000, 100'000}) {
    auto const n = static_cast<std::size_t>(switches);
    Bench::add("growth", "heartbeat", subject, switches, [n](auto& state) { heartbeats<Registry>(state, n, true); });
    Bench::add("growth", "heartbeat of no switch", subject, switches, [n](auto& state) {
      heartbeats<Registry>(state, n, false);
    });
    static constexpr char const* kParts[] = {"enrol", "hear", "disable", "enable", "disable again", "destroy"};
    for (std::size_t part = 0; part < std::size(kParts); ++part) {
      Bench::add("growth",
                 kParts[part],
                 subject,
                 switches,
                 [n, part](auto& state) { bringUpAndTearDown<Registry>(state, n, part); })
          ->UseManualTime()
          ->Iterations(std::max(1L, 10'000 / switches))
          ->Repetitions(switches < 100'000 ? 3 : 1);
    }
  }
}

[[maybe_unused]] bool const isAdded = [] {
  addRows<OurRegistry>(Bench::kOurs);
  addRows<PlainRegistry>("plain");
  return true;
}();

}  // namespace
