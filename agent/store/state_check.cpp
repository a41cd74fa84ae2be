// Compares what a state holds with its checksums and with its witness.
#include "agent/store/state_check.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "agent/document/input_error.h"

namespace Agent {
namespace {

std::string counted(std::uint64_t count, char const* one, char const* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

/// What the documents themselves are.
struct Found {
  Digest digest;
  Revision newest = 0;
  std::vector<std::string> damaged;
};

Found readDocuments(SqliteDatabase const& database) {
  Found found;
  SqliteStatement documents(database, kReadDocuments);
  while (documents.step()) {
    DocumentRow const row = documentRow(documents);
    Checksum const checksum = row.checksum();
    if (checksum != writtenChecksum(documents)) {
      found.damaged.push_back(row.path);
      continue;
    }
    found.digest.add(checksum);
    found.newest = std::max(found.newest, row.revision);
  }
  return found;
}

std::string damagedText(std::vector<std::string> const& damaged) {
  return counted(damaged.size(), "document is", "documents are") + " not as written, " +
         (damaged.size() == 1 ? "" : "the first at ") + inQuotes(damaged.front());
}

std::string digestText(Digest const& found, Digest const& written) {
  if (found.count == written.count) return "its documents are not those that were written";
  return "it holds " + counted(found.count, "document", "documents") + ", " + std::to_string(written.count) +
         " were written";
}

/// What the witness says against the head; empty if nothing.
std::string witnessText(SqliteDatabase const& database, StateHead const& head,
                        std::optional<Witness::Record> const& witness, bool hadLog) {
  auto const quoted = [](std::string const& path) { return printable(path); };
  std::string const witnessFile = quoted(std::string(database.path()) + kWitnessEnding);
  std::string const logFile = quoted(database.logPath());
  if (!witness) {
    if (!head.isInUse) return {};
    if (!hadLog)
      return "its log " + logFile + " and its witness " + witnessFile +
             " are missing or damaged, and nothing tells what was answered last: the three files belong together";
    return "its witness " + witnessFile +
           " is missing or damaged, and without it nothing tells whether its log is whole";
  }
  if (witness->history != head.history) {
    if (!head.isInUse) return {};
    return "its witness " + witnessFile + " belongs to another state";
  }
  if (witness->commits > head.commits) {
    return "its log " + logFile + (hadLog ? " is cut short or damaged" : " is missing") + ": " +
           counted(witness->commits - head.commits, "commit", "commits") + " up to revision " +
           std::to_string(witness->revision) + ", with " + counted(witness->digest.count, "document", "documents") +
           ", " + (witness->commits - head.commits == 1 ? "was" : "were") + " answered and " +
           (witness->commits - head.commits == 1 ? "is" : "are") + " not there";
  }
  bool const isSame = witness->revision == head.revision && witness->digest == head.digest;
  if (witness->commits == head.commits && !isSame)
    return "it is not the state that was answered at revision " + std::to_string(witness->revision);
  return {};
}

// Writes the table anew: a path that is not as written may stand out of order, where it is not found and hides others.
void keepWholeDocuments(SqliteDatabase& database) {
  std::vector<DocumentRow> whole;
  {
    SqliteStatement documents(database, kReadDocuments);
    while (documents.step()) {
      DocumentRow row = documentRow(documents);
      if (row.checksum() == writtenChecksum(documents)) whole.push_back(std::move(row));
    }
  }
  database.execute("DELETE FROM document");
  SqliteStatement write(database, kWriteDocument);
  for (DocumentRow const& row : whole) writeDocument(write, row, row.checksum());
}

}  // namespace

StateFinding examineState(SqliteDatabase const& database, std::optional<Witness::Record> const& witness, bool hadLog) {
  std::optional<StateHead> const head = readHead(database);
  Found found = readDocuments(database);
  StateFinding finding;
  finding.head = head.value_or(StateHead{.revision = found.newest});
  if (!head)
    finding.loss = "the row of its state is not as written";
  else
    finding.loss = witnessText(database, *head, witness, hadLog);
  if (finding.loss.empty() && !found.damaged.empty()) finding.loss = damagedText(found.damaged);
  if (finding.loss.empty() && found.digest != finding.head.digest)
    finding.loss = digestText(found.digest, finding.head.digest);
  if (!finding.loss.empty()) finding.head.digest = found.digest;
  finding.damaged = std::move(found.damaged);
  if (witness && witness->history == finding.head.history)
    finding.head.awake = std::max(finding.head.awake, witness->awake);
  return finding;
}

StateFinding examineEmptyFile(SqliteDatabase const& database, bool hasLog) {
  StateFinding finding;
  Witness witness(database);
  auto const quoted = [](std::string const& path) { return printable(path); };
  if (auto const record = witness.read())
    finding.loss = "it is empty, and its witness " + quoted(witness.path()) + " tells of revision " +
                   std::to_string(record->revision) + " with " + counted(record->digest.count, "document", "documents");
  else if (witness.isThere())
    finding.loss = "it is empty, and its witness " + quoted(witness.path()) + " is damaged";
  else if (hasLog)
    finding.loss = "it is empty, and its log " + quoted(database.logPath()) + " is not";
  return finding;
}

StateFinding examineMissingFile(std::string const& path) {
  StateFinding finding;
  std::error_code error;
  for (std::string const ending : {kLogEnding, kWitnessEnding})
    if (finding.loss.empty() && std::filesystem::exists(path + ending, error) &&
        std::filesystem::file_size(path + ending, error) > 0)
      finding.loss = "the file is missing, and beside its place stands " + inQuotes(path + ending) +
                     ": what belongs to it was answered";
  return finding;
}

void requireNoLoss(std::string const& name, StateFinding const& finding, std::optional<Revision> accepted) {
  if (finding.loss.empty() || accepted == finding.head.revision) return;
  std::string const revision = std::to_string(finding.head.revision);
  std::string const count = counted(finding.head.digest.count, "document", "documents");
  throw StateLoss(name + ": " + finding.loss + "; what it holds is revision " + revision + " with " + count +
                  ": enrolix serve --accept-loss " + revision + " goes on with that");
}

void acceptLoss(SqliteDatabase& database, StateFinding& finding, std::optional<Witness::Record> const& witness) {
  StateHead& head = finding.head;
  head.history = newHistoryId();
  if (witness) head.commits = std::max(head.commits, witness->commits);
  ++head.commits;
  // The witness of the other history says nothing about this one, which has none until it is in use.
  head.isInUse = false;
  try {
    if (!finding.damaged.empty()) keepWholeDocuments(database);
    SqliteStatement write(database, kWriteHead);
    writeHead(write, head);
  } catch (...) {
    database.rollBack();
    throw;
  }
}

}  // namespace Agent
