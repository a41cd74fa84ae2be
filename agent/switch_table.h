// The table of switches for people.
#pragma once

#include <string>

#include "agent/tables.h"

namespace Agent {

/// A line a switch in the order of their names, under a line of headings, with columns that stand under each other: its
/// name, its system id, whether it is ready or what keeps it from being so, and its generation. Read from the tables
/// alone, as anybody outside could.
std::string switchTable(Tables const& tables);

}  // namespace Agent
