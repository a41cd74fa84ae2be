// Applies operation after operation, and reports what is refused.
#include "agent/program/replay.h"

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iomanip>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "agent/document/scenario.h"
#include "agent/program/memory_usage.h"
#include "agent/store/output_file.h"
#include "agent/tree/host.h"
#include "agent/tree/key_order.h"
#include "agent/tree/library_path.h"
#include "agent/tree/state_tree.h"
#include "agent/view/switch_table.h"
#include "agent/view/tree_text.h"
#include "framework/text/one_line.h"
#include "framework/trace/swiftlog.h"
#include "framework/trace/trace.h"

namespace Agent {
namespace {

constexpr char kFacility[] = "Enrolix";

/// The text trace of some levels, printed as long as this lives.
class TextTrace {
 public:
  TextTrace(TraceLevels levels, std::ostream& out) {
    Nox::traceLevelsIs(kFacility, static_cast<Nox::TraceLevels>(levels.to_ulong()));
    Nox::traceEnabledIs(kFacility, levels.any());
    before_ = Nox::traceSinkIs([&out](Nox::TraceMessage const& message) {
      // Composed first, so that a line reaches an unbuffered stream in one piece.
      std::ostringstream line;
      line << message.level << ' ' << message.line << ' ';
      Nox::writeOneLine(line, message.text);
      line << '\n';
      out << line.view();
    });
  }
  ~TextTrace() {
    Nox::traceSinkIs(std::move(before_));
    Nox::traceEnabledIs(kFacility, false);
  }
  TextTrace(TextTrace const&) = delete;
  TextTrace& operator=(TextTrace const&) = delete;

 private:
  Nox::TraceSink before_;
};

/// The ring-buffer trace, kept in the file as long as this lives.
std::unique_ptr<Swiftlog::TraceFile> openRing(std::string const& file) {
  try {
    auto ring = Swiftlog::TraceFile::open(file);
    Swiftlog::theTraceFile = ring.get();
    return ring;
  } catch (std::system_error const& error) {
    throw FileError(file, error.code().message());
  }
}

/// A line on a terminal that tells how far a long replay has come.
class Progress {
 public:
  Progress(bool isWanted, std::ostream& out) : isWanted_(isWanted), out_(out) {}
  ~Progress() { erase(); }
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  /// Another operation has been done; this is the place.
  void advance(std::string const& file, std::size_t line) {
    ++operations_;
    if (!isWanted_ || Clock::now() < next_) return;
    next_ = Clock::now() + std::chrono::milliseconds(500);
    out_ << "\r\x1B[K" << operations_ << " operations, at " << printable(file, 60) << ":" << line << std::flush;
    isShown_ = true;
  }
  /// Makes room for other lines.
  void erase() {
    if (isShown_) out_ << "\r\x1B[K" << std::flush;
    isShown_ = false;
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool isWanted_;
  std::ostream& out_;
  Clock::time_point next_ = Clock::now() + std::chrono::seconds(2);
  std::size_t operations_ = 0;
  bool isShown_ = false;
};

/// What is written must be neither what is read nor each other: opening it would destroy what is there. Throws a
/// FileError.
void refuseSameFiles(ReplayOptions const& options) {
  std::vector<std::string> others = options.scenarios;
  for (std::optional<std::string> const& written : {options.output, options.ring}) {
    if (!written) continue;
    for (std::string const& other : others) {
      std::error_code ignored;  // a file that is not there is no other file
      bool const isRegular = std::filesystem::is_regular_file(*written, ignored);
      if (*written == other || (isRegular && std::filesystem::equivalent(*written, other, ignored)))
        throw FileError(*written, "is named twice, and would be written over");
    }
    others.push_back(*written);
  }
}

/// The memory in use, by kind and apart from what was in use `before`, and what the replay took.
std::string statsText(Controllerdb::AgentTables const& tables, MemoryCounts const& before,
                      std::chrono::duration<double> duration) {
  std::size_t switches = 0;
  for (auto const& [name, entry] : sortedByKey(tables.registrationRootDir->entries()))
    if (Nox::ptrCast<Nox::Dir>(entry->entityRef())) ++switches;
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::ostringstream text;
  text << memoryUsageTable(before, switches) << std::fixed << std::setprecision(3) << "\ntime         "
       << duration.count() << " s\n"
       << "peak memory  " << std::setprecision(1) << static_cast<double>(usage.ru_maxrss) / 1024 << " MiB\n";
  return text.str();
}

class Replay {
 public:
  Replay(ReplayOptions const& options, std::ostream& problems)
      : options_(options),
        problems_(problems),
        output_(options.output),
        ring_(options.ring ? openRing(*options.ring) : nullptr),
        trace_(options.trace, problems),
        progress_(isatty(STDERR_FILENO) == 1 && options.trace.none(), problems) {}

  /// Returns the exit status. Throws a FileError.
  int run() {
    MemoryCounts const before = options_.isStats ? countMemory() : MemoryCounts();
    auto const begin = std::chrono::steady_clock::now();
    for (std::string const& file : options_.scenarios)
      if (!apply(file)) return 1;
    progress_.erase();
    std::chrono::duration<double> const duration = std::chrono::steady_clock::now() - begin;
    // Before anything is printed: that, too, makes texts.
    std::string const stats = options_.isStats ? statsText(host_.tables(), before, duration) : std::string();
    if (options_.isTable) output_.write(tableText() + (options_.isStats ? "\n" : ""));
    if (!options_.isTable && !options_.isStats) writeTree();
    output_.write(stats);
    output_.finish();
    return isRefused_ ? 1 : 0;
  }

 private:
  /// Applies one scenario. Returns whether to go on.
  bool apply(std::string const& file) {
    ScenarioReader reader(openScenario(file));
    while (true) {
      try {
        std::optional<Operation> const operation = reader.next();
        if (!operation) return true;
        apply(*operation);
      } catch (InputError const& error) {
        progress_.erase();
        problems_ << errorLine(file, reader.line(), error) + "\n";
        isRefused_ = true;
        if (!options_.isKeptGoing) return false;
      }
      progress_.advance(file, reader.line());
    }
  }

  void apply(Operation const& operation) {
    try {
      if (operation.value)
        tree_.put(operation.path, *operation.value);
      else
        tree_.remove(operation.path);
    } catch (PathRefusal& refusal) {
      refusal.pathIs(toText(operation.path));
      throw;
    } catch (InputError& error) {
      error.pathIs(toText(operation.path));
      error.isInside("value");
      throw;
    } catch (std::exception const& exception) {
      // A handler failed: the registry stands, but this operation has not been answered as it should.
      InputError error("", printable(exception.what(), 1000));
      error.pathIs(toText(operation.path));
      throw error;
    }
  }

  void writeTree() {
    TreeText text([this](std::string_view piece) { output_.write(piece); });
    tree_.forEach([&](std::string const& path, Json const& document) { text.add(path, document); });
    text.finish();
  }

  std::string tableText() const {
    SwitchDocuments documents;
    tree_.forEach([&](std::string const& path, Json const& document) { documents.put(path, document); });
    return switchTable(switchRows(documents), false);
  }

  ReplayOptions const& options_;
  std::ostream& problems_;
  OutputFile output_;
  // The registry comes before what traces it, and goes after it: only what the scenarios bring about is traced.
  Nox::Library library_{libraryPath(options_.library)};
  Host host_{library_};
  StateTree tree_{host_.tables()};
  std::unique_ptr<Swiftlog::TraceFile> ring_;
  TextTrace trace_;
  Progress progress_;
  bool isRefused_ = false;
};

}  // namespace

int replay(ReplayOptions const& options, std::ostream& problems) {
  try {
    refuseSameFiles(options);
    return Replay(options, problems).run();
  } catch (FileError const& error) {
    problems << error.what() << '\n';
    return 1;
  }
}

}  // namespace Agent
