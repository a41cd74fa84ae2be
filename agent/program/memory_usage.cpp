// Names the objects of the pool, sums them up, and lines the sums up.
#include "agent/program/memory_usage.h"

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

#include "framework/core/ptr_interface.h"

namespace Agent {
namespace {

/// The class's name as it is written in the sources.
std::string className(std::type_index type) {
  std::unique_ptr<char, decltype(&std::free)> const written(abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr),
                                                            std::free);
  return written ? written.get() : type.name();
}

struct CountedKind {
  std::string name;
  Nox::AllocationCount count;
};

void add(Nox::AllocationCount& sum, Nox::AllocationCount const& count) {
  sum.made += count.made;
  sum.madeBytes += count.madeBytes;
  sum.live += count.live;
  sum.liveBytes += count.liveBytes;
}

/// Takes `before` out of `now`. Of what lived before, as much as lives still.
void split(Nox::AllocationCount& now, Nox::AllocationCount& before) {
  before.live = std::min(before.live, now.live);
  before.liveBytes = std::min(before.liveBytes, now.liveBytes);
  now.made -= before.made;
  now.madeBytes -= before.madeBytes;
  now.live -= before.live;
  now.liveBytes -= before.liveBytes;
}

/// The kinds with the most bytes first. Those with less than `leastBytes` are one kind, the last.
std::vector<CountedKind> sortedKinds(std::map<std::type_index, Nox::AllocationCount> const& live, double leastBytes) {
  std::vector<CountedKind> kinds;
  CountedKind others{"other kinds", {}};
  for (auto const& [type, count] : live)
    if (static_cast<double>(count.liveBytes) < leastBytes)
      add(others.count, count);
    else if (count.live > 0)
      kinds.push_back({className(type), count});
  std::sort(kinds.begin(), kinds.end(), [](CountedKind const& a, CountedKind const& b) {
    return a.count.liveBytes != b.count.liveBytes ? a.count.liveBytes > b.count.liveBytes : a.name < b.name;
  });
  if (others.count.live > 0) kinds.push_back(others);
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

Row row(CountedKind const& kind, std::size_t switches, bool isMadeKnown) {
  auto const& [name, count] = kind;
  Row cells{name, quotient(count.liveBytes, switches), quotient(count.live, switches), "-", "-"};
  if (isMadeKnown) cells[3] = quotient(count.madeBytes, switches);
  if (isMadeKnown) cells[4] = quotient(count.made, switches);
  return cells;
}

}  // namespace

MemoryCounts countMemory() {
  MemoryCounts counts;
  auto const [objects, internal] = Nox::poolCounts();
  counts.internal = internal;
  counts.objectsMade = {objects.made, objects.madeBytes, 0, 0};
  Nox::forEachLiveObject([&](void const* object, std::size_t bytes) {
    // All that is allocated as an object derives from this class, and first of all from it.
    Nox::AllocationCount& count = counts.liveObjects[typeid(*static_cast<Nox::PtrInterface const*>(object))];
    ++count.live;
    count.liveBytes += bytes;
  });
  return counts;
}

std::string memoryUsageTable(MemoryCounts before, std::size_t switches) {
  MemoryCounts now = countMemory();
  split(now.objectsMade, before.objectsMade);
  split(now.internal, before.internal);
  Nox::AllocationCount objects = now.objectsMade;
  Nox::AllocationCount objectsBefore = before.objectsMade;
  for (auto& [type, count] : now.liveObjects) {
    Nox::AllocationCount& countBefore = before.liveObjects[type];
    split(count, countBefore);
    add(objects, count);
    add(objectsBefore, countBefore);
  }
  Nox::AllocationCount total = objects;
  add(total, now.internal);
  Nox::AllocationCount totalBefore = objectsBefore;
  add(totalBefore, before.internal);

  std::vector<Row> rows{{"MEMORY " + (switches == 0 ? "without a switch" : "per switch of " + std::to_string(switches)),
                         "LIVE BYTES",
                         "LIVE",
                         "MADE BYTES",
                         "MADE"}};
  constexpr double kLeastShare = 0.01;
  for (CountedKind const& kind : sortedKinds(now.liveObjects, kLeastShare * static_cast<double>(total.liveBytes)))
    rows.push_back(row(kind, switches, false));
  for (CountedKind const& sum : {CountedKind{"all objects", objects},
                                 CountedKind{"texts and function tables", now.internal},
                                 CountedKind{"total", total}})
    rows.push_back(row(sum, switches, true));
  rows.push_back(row({"before the first operation, not divided", totalBefore}, 0, true));

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
