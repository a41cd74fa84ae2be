// A trace statement with a text and a number: off, into a ring buffer, and as text.
//
// Off is what nearly every statement is. Every ring-buffer record carries the time of day, the peers' too: spdlog's is
// its backtrace buffer, LTTng's is that of a session of its daemon, which script/bench starts; without one LTTng is off
// alone. Text is formatted in full and handed to a sink that drops it.
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include <unistd.h>

#include "bench/bench.h"
#include "framework/text/name.h"
#include "framework/trace/trace.h"

#ifdef BENCH_HAS_SPDLOG
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#endif
#ifdef BENCH_HAS_LTTNG
#include "bench/trace_lttng.h"
#endif

namespace {

constexpr char kPeer[] = "02:1c:73:0a:3f:01";

/// Enters one work. `statement(generation)` traces; all memory may have changed before each, so that nothing that it
/// tests is remembered.
template <class Statement>
void run(benchmark::State& state, Statement statement) {
  unsigned generation = 0;
  Bench::repeat(state, [&] {
    benchmark::ClobberMemory();
    statement(++generation);
  });
}
template <class Statement>
void addFloor(char const* work, char const* floor, Statement statement) {
  Bench::add("trace", work, Bench::kFloor + std::string(floor), 1, [statement](benchmark::State& state) {
    run(state, statement);
  });
}

Nox::TraceHandle& handle() {
  static Nox::TraceHandle made("Bench", false);
  return made;
}

void runNox(benchmark::State& state) {
  Nox::TraceHandle const& bench = handle();
  Nox::Name const peer(kPeer);
  run(state, [&](unsigned generation) {
    NOX_TRACE(bench, "trace_bench", 5, 1, "peer ", peer, " is heard, generation ", generation);
  });
}

void addNox() {
  Bench::add("trace", "off", Bench::kOurs, 1, runNox);
  Bench::add("trace", "ring", Bench::kOurs, 1, [](benchmark::State& state) {
    auto const path = std::filesystem::temp_directory_path() / ("enrolix-bench." + std::to_string(getpid()));
    auto const file = Swiftlog::TraceFile::open(path);
    std::filesystem::remove(path);
    Swiftlog::theTraceFile = file.get();
    runNox(state);
  });
  Bench::add("trace", "text", Bench::kOurs, 1, [](benchmark::State& state) {
    Nox::TraceSink before =
        Nox::traceSinkIs([](Nox::TraceMessage const& message) { benchmark::DoNotOptimize(message.text.data()); });
    Nox::traceEnabledIs("Bench", true);
    Nox::traceLevelsIs("Bench", Nox::traceLevels({5}));
    runNox(state);
    Nox::traceEnabledIs("Bench", false);
    Nox::traceSinkIs(std::move(before));
  });
}

#ifdef BENCH_HAS_SPDLOG
void addSpdlog() {
  auto const entered = [](char const* work, spdlog::level::level_enum level, bool keepsBacktrace) {
    Bench::add("trace", work, "spdlog", 1, [level, keepsBacktrace](benchmark::State& state) {
      spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_st>());
      logger.set_level(level);
      if (keepsBacktrace) logger.enable_backtrace(4096);
      std::string const peer(kPeer);
      run(state, [&](unsigned generation) { logger.debug("peer {} is heard, generation {}", peer, generation); });
    });
  };
  entered("off", spdlog::level::err, false);
  entered("ring", spdlog::level::err, true);
  entered("text", spdlog::level::trace, false);
}
#endif

#ifdef BENCH_HAS_LTTNG
void addLttng() {
  Bench::add("trace", "off", "LTTng", 1, [](benchmark::State& state) {
    run(state, [](unsigned generation) { lttng_ust_tracepoint(enrolix_bench, off, kPeer, generation); });
  });
  Bench::add("trace", "ring", "LTTng", 1, [](benchmark::State& state) {
    if (!lttng_ust_tracepoint_enabled(enrolix_bench, on)) {
      state.SkipWithError("no LTTng session records the event");
      return;
    }
    run(state, [](unsigned generation) { lttng_ust_tracepoint(enrolix_bench, on, kPeer, generation); });
  });
}
#endif

bool isOn = false;

bool const entered = [] {
  benchmark::DoNotOptimize(&isOn);  // any code may set it
  addNox();
#ifdef BENCH_HAS_SPDLOG
  addSpdlog();
#endif
#ifdef BENCH_HAS_LTTNG
  addLttng();
#endif
  addFloor("off", "a flag is tested", [](unsigned generation) {
    if (isOn) [[unlikely]]
      benchmark::DoNotOptimize(generation);
  });
  addFloor("ring", "clock_gettime", [](unsigned generation) {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    benchmark::DoNotOptimize(time.tv_nsec + generation);
  });
  addFloor("text", "snprintf", [](unsigned generation) {
    char text[80];
    std::snprintf(text, sizeof text, "peer %s is heard, generation %u", kPeer, generation);
    benchmark::DoNotOptimize(text);
  });
  return true;
}();

}  // namespace
