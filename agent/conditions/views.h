// Switches and their conditions as JSON: what routes answer and commands show.
#pragma once

#include <span>
#include <string>

#include "agent/conditions/switch_conditions.h"
#include "agent/document/json.h"

namespace Agent {

/// A time as people and programs read it: "2026-11-22T23:51:53.120Z".
std::string timeText(std::chrono::system_clock::time_point time);

/// A switch in short: whether it is ready, why, since when, and the conditions that are not true: how
/// many, and the first of them.
Json switchRow(std::string const& name, JudgedSwitch const& judged);

/// All its conditions, each with its explanation; as many explanations as conditions.
Json switchView(std::string const& name, JudgedSwitch const& judged, std::span<Explanation const> explanations);

}  // namespace Agent
