// Examines states, and makes them of backups.
#include "agent/program/state_commands.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include "agent/document/scenario.h"
#include "agent/store/backup_reader.h"
#include "agent/store/output_file.h"
#include "agent/store/sqlite_store.h"
#include "agent/tree/state_tree.h"

namespace Agent {
namespace {

// So many documents in one transaction: a long backup need not be held whole.
constexpr std::size_t kDocumentsAtOnce = 10'000;

std::string summary(std::string const& file, Revision revision, std::uint64_t documents) {
  return printable(file) + ": revision " + std::to_string(revision) + ", " + std::to_string(documents) +
         (documents == 1 ? " document" : " documents");
}

/// The state file, and what may stand beside it.
std::vector<std::string> filesOf(std::string const& state) {
  std::vector<std::string> files{state};
  for (StateNeighbour const& neighbour : kStateNeighbours) files.push_back(state + neighbour.ending);
  return files;
}

/// A folder of its own name beside a file, removed at the end with all that is in it.
class Scaffold {
 public:
  explicit Scaffold(std::string const& beside) : folder_(beside + ".XXXXXX") {
    if (::mkdtemp(folder_.data()) == nullptr) throw FileError(beside, errno);
  }
  ~Scaffold() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  Scaffold(Scaffold const&) = delete;
  Scaffold& operator=(Scaffold const&) = delete;

  std::string file() const { return folder_ + "/state"; }

 private:
  std::string folder_;
};

/// Documents that a registry can find, as those of a state must be.
class Candidates {
 public:
  /// Throws an InputError if the document can be in no state.
  void add(DocumentChange const& document) {
    try {
      tree_.restore(parsePath(document.path), readJson(*document.text));
    } catch (InputError& error) {
      error.pathIs(document.path);
      throw;
    }
  }

 private:
  Controllerdb::AgentTables tables_;
  StateTree tree_{tables_};
};

/// Reads the backup, and gives `take` its documents in groups. Returns what the backup is of.
template <class Take>
std::pair<Revision, std::uint64_t> readBackup(std::string const& file, Take const& take) {
  Candidates candidates;
  std::vector<DocumentChange> group;
  BackupReader reader([&](DocumentChange const& document) {
    candidates.add(document);
    group.push_back(document);
    if (group.size() == kDocumentsAtOnce) take(reader.revision(), std::exchange(group, {}));
  });
  auto const source = openScenario(file);
  std::array<char, 64 * 1024> chunk;
  try {
    while (std::size_t const size = source->read(chunk.data(), chunk.size())) reader.feed({chunk.data(), size});
    reader.finish();
  } catch (InputError const& error) {
    throw StoreError(errorLine(file, reader.line(), error));
  }
  take(reader.revision(), std::exchange(group, {}));
  return {reader.revision(), reader.documents()};
}

}  // namespace

void describe(CommandLine& line, CheckOptions& options) {
  line.require(line.option("FILE", &options.file, "The state file", fileProblem));
}

void describe(CommandLine& line, RestoreOptions& options) {
  line.require(line.option("FILE", &options.backup, "The backup", fileProblem));
  line.require(line.option("--state FILE", &options.state, "The state file to make; none may be there", fileProblem));
}

int checkStateFile(CheckOptions const& options, std::ostream& out) {
  StateSummary const found = checkState(options.file);
  out << summary(options.file, found.head.revision, found.head.digest.count);
  if (found.format == kStateFormat)
    out << ", history " << found.head.history;
  else
    out << ", of format " << found.format << ", which serve takes over";
  if (found.head.isInUse) out << "; its agent was ended before it could close it, and nothing is missing";
  out << '\n';
  return 0;
}

int restoreState(RestoreOptions const& options, std::ostream& out) {
  std::filesystem::path const state = std::filesystem::absolute(options.state);
  for (std::string const& file : filesOf(state.string())) {
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(file, error)))
      throw FileError(file, "is there already: a state is restored where none is; move this one away first");
  }
  // It takes its place when it is whole.
  if (!std::filesystem::is_directory(state.parent_path()))
    throw FileError(options.state, "there is no folder " + inQuotes(state.parent_path().string()));
  Scaffold const scaffold(state.string());
  std::string const temporary = scaffold.file();
  std::pair<Revision, std::uint64_t> copied;
  HistoryId history;
  {
    SqliteStore store(temporary);
    store.prepare();
    history = store.history();
    copied = readBackup(options.backup, [&](Revision revision, std::vector<DocumentChange> documents) {
      CommittedTurn const turn{revision, std::move(documents)};
      store.commit({&turn, 1});
    });
  }
  StateSummary const made = checkState(temporary);
  bool const isWhole = !made.head.isInUse && !made.hasLog && made.head.revision == copied.first &&
                       made.head.digest.count == copied.second;
  if (!isWhole) throw StoreError(printable(options.state) + ": could not be closed");
  // Unlike a renaming, a link replaces nothing that has come meanwhile.
  if (::link(temporary.c_str(), state.c_str()) != 0) throw FileError(options.state, errno);
  synchroniseFolder(state.parent_path());
  out << summary(options.state, copied.first, copied.second) << ", history " << history << '\n';
  return 0;
}

}  // namespace Agent
