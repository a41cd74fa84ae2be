// Describes the options of a replay, and reads its trace levels.
#include <string_view>

#include "agent/program/replay.h"

namespace Agent {
namespace {

// A level from 1 to 9; 0 for any other text.
std::size_t parseLevel(std::string_view text) {
  bool const isLevel = text.size() == 1 && text[0] >= '1' && text[0] <= '9';
  return isLevel ? static_cast<std::size_t>(text[0] - '0') : 0;
}

// "all", or levels and ranges joined by commas: "1,3-5".
TraceLevels parseLevels(std::string const& text) {
  TraceLevels levels;
  if (text == "all") return levels.set().reset(0);
  std::string_view rest = text;
  while (true) {
    std::size_t const comma = rest.find(',');
    std::string_view const range = rest.substr(0, comma);
    std::size_t const dash = range.find('-');
    std::size_t const first = parseLevel(range.substr(0, dash));
    std::size_t const last = dash == std::string_view::npos ? first : parseLevel(range.substr(dash + 1));
    if (first == 0 || last < first) {
      throw WrongValue("expected levels from 1 to 9 like 1,3-5, or all, found " + inQuotes(text));
    }
    for (std::size_t level = first; level <= last; ++level) levels.set(level);
    if (comma == std::string_view::npos) return levels;
    rest.remove_prefix(comma + 1);
  }
}

}  // namespace

void describe(CommandLine& line, ReplayOptions& options) {
  line.option(
      "--trace LEVELS",
      [&options](std::string const& text) { options.trace = parseLevels(text); },
      "Print trace messages of these levels (1,3-5 or all)");
  line.option("--ring FILE", &options.ring, "Keep the ring-buffer trace in this file", fileProblem);
  line.option("--output FILE", &options.output, "Print to this file instead of standard output", fileProblem);
  line.flag("--keep-going", options.isKeptGoing, "Skip operations that are refused");
  line.flag("--table", options.isTable, "Print a table of the switches instead of the tree");
  line.flag("--stats",
            options.isStats,
            "Print a table of the memory used per switch, the time and the peak of memory; instead of the tree");
  line.files("SCENARIO", options.scenarios, "Scenario files, - for standard input");
  line.option("--library FILE", &options.library, "Load the registry from this file", fileProblem);
}

}  // namespace Agent
