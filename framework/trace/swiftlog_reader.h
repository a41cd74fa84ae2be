// Reading of a ring-buffer trace file, also one that a crash has left behind.
#pragma once

#include <filesystem>
#include <iosfwd>

#include "framework/memory/export.h"

namespace Swiftlog {

/// Prints every message of the trace file at `path` in the order in which they were traced, one a line:
/// `<time> <level> <line tag> <text>`, the time in UTC as in 2031-05-06T07:08:09.123456Z, control characters of the
/// text escaped. If records were dropped, a last line in parentheses says how many. The file may still be written to;
/// then the print is of the moment. Throws std::system_error if the file cannot be read, and std::runtime_error, with
/// the path and the reason, if it is no ring trace file or a damaged one; nothing has been printed then. Trusts nothing
/// that the file holds.
NOX_EXPORT void printRingFile(std::filesystem::path const& path, std::ostream& out);

}  // namespace Swiftlog
