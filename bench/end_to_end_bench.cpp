// One switch from end to end, here and in the plain registry: it enrols with 4 services of 3 versions and 8 mounts, is
// heard and answered, raises its generation, and leaves. All switches go through one phase before the next begins.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <map>
#include <numeric>
#include <string>

#include "bench/allocation_count.h"
#include "bench/bench.h"
#include "bench/end_to_end_ours.h"
#include "bench/end_to_end_plain.h"
#include "bench/end_to_end_scenario.h"
#include "framework/memory/pool.h"

namespace {

using namespace EndToEnd;

/// What is measured is worth nothing unless both do the same.
void requireEqualDocuments() {
  static bool const isEqual = [] {
    std::string const difference = differenceFromPlain();
    if (!difference.empty()) std::cerr << "end_to_end: the registries differ: " << difference << '\n';
    return difference.empty();
  }();
  if (!isEqual) std::exit(EXIT_FAILURE);
}

/// A row of the table: consecutive phases together.
struct Row {
  char const* name;
  std::size_t first;
  std::size_t last;
};
constexpr Row kRows[] = {{"total", 0, 3}, {"enrol", 0, 0}, {"hear", 1, 1}, {"renew", 2, 2}, {"leave", 3, 3}};

/// What one switch costs: allocations in each phase, and bytes while it is there.
struct Memory {
  std::array<double, kPhases.size()> allocations{};
  double bytes = 0;
};

/// What the framework's pool has handed out so far; the plain registry takes nothing from it.
std::int64_t poolAllocations() {
  Nox::PoolCounts const counts = Nox::poolCounts();
  return static_cast<std::int64_t>(counts.objects.made + counts.internal.made);
}

template <class Registry>
Memory measureMemory(Scenario const& scenario) {
  auto const perSwitch = [&](std::int64_t amount) {
    return static_cast<double>(amount) / static_cast<double>(scenario.switchNames.size());
  };
  Memory memory;
  Registry registry;
  prepare(registry, scenario);
  std::int64_t const before = Bench::residentBytes();
  for (std::size_t i = 0; i < kPhases.size(); ++i) {
    std::int64_t const poolBefore = poolAllocations();
    Bench::countAllocations(true);
    run(kPhases[i], registry, scenario);
    Bench::countAllocations(false);
    memory.allocations[i] = perSwitch(Bench::allocationCount() + poolAllocations() - poolBefore);
    if (kPhases[i] == Phase::kHear) memory.bytes = perSwitch(Bench::residentBytes() - before);
  }
  return memory;
}

/// Times the row's phases for all switches of a new registry, which is made and destroyed outside the time.
template <class Registry>
void measure(benchmark::State& state, Row const& row, std::size_t switches) {
  requireEqualDocuments();
  Scenario const scenario = uniformScenario(switches);
  static std::map<std::size_t, Memory> known;
  auto const [memory, isNew] = known.try_emplace(switches);
  if (isNew) memory->second = measureMemory<Registry>(scenario);

  for ([[maybe_unused]] auto const _ : state) {
    Registry registry;
    prepare(registry, scenario);
    double start = 0;
    for (std::size_t i = 0; i <= row.last; ++i) {
      if (i == row.first) start = Bench::cpuSeconds();
      run(kPhases[i], registry, scenario);
    }
    state.SetIterationTime(Bench::cpuSeconds() - start);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(switches));
  auto const& allocations = memory->second.allocations;
  state.counters["allocations"] = std::accumulate(&allocations[row.first], &allocations[row.last] + 1, 0.0);
  if (row.first == 0 && row.last + 1 == kPhases.size()) state.counters["bytes"] = memory->second.bytes;
}

/// The number of cycles is fixed: a row that times a small part of one takes no more of them.
template <class Registry>
void addRows(std::string const& subject) {
  for (Row const& row : kRows) {
    for (long const switches : {1'000, 10'000, 100'000}) {
      Bench::add("end_to_end",
                 row.name,
                 subject,
                 switches,
                 [row, switches](benchmark::State& state) {
                   measure<Registry>(state, row, static_cast<std::size_t>(switches));
                 })
          ->UseManualTime()
          ->Iterations(std::max(1L, 10'000 / switches))
          ->Repetitions(3);
    }
  }
}

[[maybe_unused]] bool const isAdded = [] {
  addRows<OurRegistry>(Bench::kOurs);
  addRows<PlainRegistry>("plain");
  return true;
}();

}  // namespace
