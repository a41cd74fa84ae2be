// What the log of a state file must hold, known from outside of it.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/store/document_digest.h"
#include "agent/store/store.h"

namespace Agent {

class SqliteDatabase;

/// What the name of a witness ends in, behind that of its state file.
inline constexpr char const* kWitnessEnding = "-witness";

/// The file "FILE-witness" beside a state file: which commit was the last one before an answer. It is written behind
/// each commit and not synchronised: the system keeps it through any end of the process. A power cut may take the last
/// of what was written; it then tells of an earlier commit, never of one that was not. It belongs to the user as the
/// state file does.
class Witness {
 public:
  /// The last commit that may have been answered.
  struct Record {
    HistoryId history;
    /// Counts the commits.
    std::uint64_t commits = 0;
    Revision revision = 0;
    Digest digest;
    /// For how long the agent has been awake, over all its starts.
    std::chrono::milliseconds awake{0};
  };

  /// The witness of the state file that the database has open. Nothing is opened or made.
  explicit Witness(SqliteDatabase const& database);
  ~Witness();
  Witness(Witness const&) = delete;
  Witness& operator=(Witness const&) = delete;

  /// Its path.
  std::string const& path() const noexcept { return path_; }
  /// There is a file, and it is not empty. Throws a StoreError if the system does not tell.
  bool isThere() const;
  /// What it tells; nothing if it is missing, or none of it is whole. Throws a StoreError if it cannot be read.
  std::optional<Record> read();

  /// Makes it, if it is missing or tells of another history, and writes the record, synchronised. Throws a StoreError.
  void begin(Record const& record);
  /// Writes the record, not synchronised. Only after `begin()`. Throws a StoreError.
  void write(Record const& record);
  /// Removes the file, if it can be: a state that is closed needs none.
  void remove() noexcept;

 private:
  struct Close {
    void operator()(sqlite3_file* file) const;
  };

  void open(int flags);
  void writeSlot(int slot, Record const& record);
  void check(int code, char const* what) const;

  sqlite3_vfs* vfs_;
  std::string name_;
  /// The open file refers to it.
  std::string const path_;
  std::unique_ptr<sqlite3_file, Close> file_;
  /// The slot that is synchronised, which no record but that of `begin()` goes into; and the one written last.
  int safeSlot_ = 0;
  int lastSlot_ = 0;
};

}  // namespace Agent
