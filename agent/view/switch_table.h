// The switches for people, as a table, and for programs, as lines of JSON.
#pragma once

#include <string>
#include <vector>

#include "agent/view/switch_rows.h"

namespace Agent {

/// A line a switch under a line of headings, with columns that stand under each other: its name, its system id, whether
/// it is ready or what keeps it from being so, and its generation; under it a line for each of its services. With
/// colours, for a terminal, the state is green, yellow or red.
std::string switchTable(std::vector<SwitchRow> const& rows, bool isColoured);

/// A JSON object a line, one for each switch; what is absent is null.
std::string switchLines(std::vector<SwitchRow> const& rows);

}  // namespace Agent
