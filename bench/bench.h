// What the benchmarks share: their names, and how what they do is timed.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
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

/// Times `run`, which is the work done `times`, and not `prepare`, whose result it gets and which goes afterwards, also
/// untimed. For benchmarks that are entered with `UseManualTime`.
template <class Prepare, class Run>
void repeatPrepared(benchmark::State& state, long times, Prepare prepare, Run run) {
  using Clock = std::chrono::steady_clock;
  for ([[maybe_unused]] auto const _ : state) {
    auto prepared = prepare();
    auto const start = Clock::now();
    run(*prepared);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
  state.SetItemsProcessed(state.iterations() * times);
}

}  // namespace Bench
