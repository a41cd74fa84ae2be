// The format of a state file: its tables, the row that says what the state is, and what is checked before it is used.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "agent/store/document_digest.h"
#include "agent/store/sqlite_database.h"
#include "agent/store/store.h"
#include "agent/store/witness.h"

namespace Agent {

/// What a state file says of its state as a whole.
struct StateHead {
  HistoryId history = {};
  Revision revision = 0;
  /// Counts the commits, over all histories.
  std::uint64_t commits = 0;
  /// Of all documents.
  Digest digest = {};
  /// The number of the last start of an agent.
  std::uint64_t run = 0;
  /// For how long the agent was awake, over all its starts, when the head was written.
  std::chrono::milliseconds awake{0};
  /// An agent has begun to take turns and has not closed the state: what the file lacks stands in its log, and there is
  /// a witness.
  bool isInUse = false;
};

/// A row of the table of documents.
struct DocumentRow {
  std::string path;
  std::string text;
  Revision revision = 0;
  std::optional<std::int64_t> timeToLive;
  /// The start of the agent since which a heartbeat with a time to live was last put; 0 for all other documents.
  std::uint64_t run = 0;

  Checksum checksum() const;
};

/// What the names of SQLite's log and of its journal end in, behind that of the state file.
inline constexpr char const* kLogEnding = "-wal";
inline constexpr char const* kJournalEnding = "-journal";

/// A file that may stand beside a state file.
struct StateNeighbour {
  char const* what;
  char const* ending;
};
inline constexpr std::array<StateNeighbour, 3> kStateNeighbours{
    {{"log", kLogEnding}, {"witness", kWitnessEnding}, {"journal", kJournalEnding}}};

/// The format that files are written in.
inline constexpr std::int64_t kStateFormat = 2;

/// Throws a StoreError if the file itself, whatever stands in a log beside it, is not empty and no state file of this
/// format or an earlier one.
void checkHeader(SqliteDatabase const& database);

/// The format of what the database holds, log included. Throws a StoreError if it is none that is known, the tables are
/// not those of the format, or the database is damaged. `hadLog` tells that there was a log before it was opened.
std::int64_t checkTables(SqliteDatabase& database, bool hadLog);

/// Makes the tables in an empty database, and the head of a new state.
void makeTables(SqliteDatabase& database);

/// Makes the tables of format 2 of those of format 1, in the transaction that has begun. Throws a StoreError.
void convertTables(SqliteDatabase& database);

/// The head; nothing if it is not as it was written. Throws a StoreError.
std::optional<StateHead> readHead(SqliteDatabase const& database);
/// Writes the head, for which `statement` was prepared from this text.
inline constexpr char kWriteHead[] =
    "UPDATE state SET history = ?, revision = ?, commits = ?, documents = ?, digest = ?, run = ?, awake = ?, "
    "in_use = ?, checksum = ?";
void writeHead(SqliteStatement& statement, StateHead const& head);

/// The rows of all documents, in byte order of their paths.
inline constexpr char kReadDocuments[] =
    "SELECT path, text, revision, ttl, run, checksum_low, checksum_high FROM document ORDER BY path";
/// The current row of that statement, and its checksum as it was written.
DocumentRow documentRow(SqliteStatement const& statement);
Checksum writtenChecksum(SqliteStatement const& statement);

/// Writes a row, for which `statement` was prepared from this text. The row stays as it is meanwhile.
inline constexpr char kWriteDocument[] = "REPLACE INTO document VALUES (?, ?, ?, ?, ?, ?, ?)";
void writeDocument(SqliteStatement& statement, DocumentRow const& row, Checksum const& checksum);

/// For how long the agent had been awake at the start of that number; nothing if it is not known. Throws a StoreError.
std::optional<std::chrono::milliseconds> awakeAtStart(SqliteDatabase const& database, std::uint64_t run);
/// Notes that for the run of the head, and forgets the starts that no heartbeat refers to any more.
void noteStart(SqliteDatabase const& database, StateHead const& head);

}  // namespace Agent
