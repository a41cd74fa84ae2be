// Names the objects of the pool, sums them up, and lines the sums up.
#include "agent/memory_table.h"

#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <typeindex>
#include <typeinfo>
#include <vector>

#include "framework/pool_counts.h"
#include "framework/ptr_interface.h"

namespace Agent {
namespace {

/// The class's name as it is written in the sources.
std::string className(std::type_index type) {
  std::unique_ptr<char, decltype(&std::free)> const written(abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr),
                                                            std::free);
  return written ? written.get() : type.name();
}

struct Kind {
  std::string name;
  Nox::AllocationCount count;
};

/// The live objects by class, the kinds with the most bytes first.
std::vector<Kind> liveKinds() {
  std::map<std::type_index, Nox::AllocationCount> byType;
  Nox::forEachLiveObject([&](void const* object, std::size_t bytes) {
    // All that is allocated as an object derives from this class, and first of all from it.
    Nox::AllocationCount& count = byType[typeid(*static_cast<Nox::PtrInterface const*>(object))];
    ++count.live;
    count.liveBytes += bytes;
  });
  std::vector<Kind> kinds;
  kinds.reserve(byType.size());
  for (auto const& [type, count] : byType) kinds.push_back({className(type), count});
  std::sort(kinds.begin(), kinds.end(), [](Kind const& a, Kind const& b) {
    return a.count.liveBytes != b.count.liveBytes ? a.count.liveBytes > b.count.liveBytes : a.name < b.name;
  });
  return kinds;
}

using Row = std::array<std::string, 5>;

/// Two decimals where something is divided.
std::string quotient(std::uint64_t number, std::size_t switches) {
  if (switches == 0) return std::to_string(number);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.2f", static_cast<double>(number) / static_cast<double>(switches));
  return text.data();
}

Row row(Kind const& kind, std::size_t switches, bool isMadeKnown) {
  auto const& [name, count] = kind;
  Row cells{name, quotient(count.liveBytes, switches), quotient(count.live, switches), "-", "-"};
  if (isMadeKnown) cells[3] = quotient(count.madeBytes, switches);
  if (isMadeKnown) cells[4] = quotient(count.made, switches);
  return cells;
}

}  // namespace

std::string memoryTable(std::size_t switches) {
  auto const [objects, internal] = Nox::poolCounts();
  std::vector<Row> rows{{"MEMORY " + (switches == 0 ? "without a switch" : "per switch of " + std::to_string(switches)),
                         "LIVE BYTES",
                         "LIVE",
                         "MADE BYTES",
                         "MADE"}};
  for (Kind const& kind : liveKinds()) rows.push_back(row(kind, switches, false));
  Nox::AllocationCount const total{objects.made + internal.made,
                                   objects.madeBytes + internal.madeBytes,
                                   objects.live + internal.live,
                                   objects.liveBytes + internal.liveBytes};
  for (Kind const& sum : {Kind{"all objects", objects}, Kind{"texts and tables", internal}, Kind{"total", total}})
    rows.push_back(row(sum, switches, true));

  std::array<std::size_t, std::tuple_size_v<Row>> widths{};
  for (Row const& cells : rows)
    for (std::size_t c = 0; c < cells.size(); ++c) widths[c] = std::max(widths[c], cells[c].size());
  std::string text;
  for (Row const& cells : rows) {
    text.append(cells[0]).append(widths[0] - cells[0].size(), ' ');
    // Numbers stand with their last digits below each other.
    for (std::size_t c = 1; c < cells.size(); ++c) text.append(2 + widths[c] - cells[c].size(), ' ').append(cells[c]);
    text.append("\n");
  }
  return text;
}

}  // namespace Agent
