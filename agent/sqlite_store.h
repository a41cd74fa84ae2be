// The store that outlives the program: an SQLite database in one file, with a log beside it while it is in use.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "agent/sqlite_database.h"
#include "agent/store.h"

namespace Agent {

/// A state in a file that this process has for itself as long as the store lives.
///
/// What is committed goes to the end of a log, "FILE-wal", and from there into the file now and then, so that the log
/// stays small; a store that is closed leaves the file alone. The file belongs to its user (mode 0600). Another
/// program's file, one of a newer version or a damaged one is refused, and stays as it is to the last byte, and the log
/// beside it too.
class SqliteStore final : public Store {
 public:
  /// Opens `file`, or makes it and the folders above it if it is missing or empty. Throws a StoreError, if another
  /// process has the file, "FILE: is in use by another process".
  explicit SqliteStore(std::string const& file);

  Revision load(std::function<void(DocumentChange const& document)> const& visit) override;
  void commit(std::span<CommittedTurn const> turns) override;
  void checkRoom() override;
  /// Nobody else writes to the file.
  void foreignTurnsIs(std::function<void()>) override {}

 private:
  class Transaction;

  SqliteDatabase database_;
  SqliteStatement begin_;
  SqliteStatement commit_;
  SqliteStatement put_;
  SqliteStatement remove_;
  SqliteStatement revisionIs_;
  SqliteStatement fill_;
};

}  // namespace Agent
