// What the benchmarks share: their names, and how what they do is timed.
#pragma once

#include <benchmark/benchmark.h>

#include <ctime>
#include <string>
#include <utility>

namespace Bench {

/// The subject that is the project's own, and the beginning of the name of every floor: a bare operation that no
/// subject can do without. All other subjects are peers.
inline constexpr char kOurs[] = "Enrolix";
inline constexpr char kFloor[] = "floor: ";

/// Enters a benchmark as "section/work/subject/size", which is what the tables are made from. The body says by
/// `SetItemsProcessed` how often it did the work; what is printed is the time of one.
template <class Body>
benchmark::internal::Benchmark* add(std::string const& section, std::string const& work, std::string const& subject,
                                    long size, Body body) {
  std::string const name = section + '/' + work + '/' + subject + '/' + std::to_string(size);
  return benchmark::RegisterBenchmark(name.c_str(), std::move(body));
}

/// Times a step that is the work done `times`.
template <class Step>
void repeat(benchmark::State& state, Step step, long times = 1) {
  for ([[maybe_unused]] auto const _ : state) step();
  state.SetItemsProcessed(state.iterations() * times);
}

/// What this thread has used of its core so far; time in which others had the core does not count.
inline double cpuSeconds() {
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + 1e-9 * static_cast<double>(used.tv_nsec);
}

/// Times `run`, which is the work done `times`, and not `prepare`, whose result it gets and which goes afterwards, also
/// untimed. For benchmarks that are entered with `UseManualTime`.
template <class Prepare, class Run>
void repeatPrepared(benchmark::State& state, long times, Prepare prepare, Run run) {
  for ([[maybe_unused]] auto const _ : state) {
    auto prepared = prepare();
    double const start = cpuSeconds();
    run(*prepared);
    state.SetIterationTime(cpuSeconds() - start);
  }
  state.SetItemsProcessed(state.iterations() * times);
}

}  // namespace Bench
