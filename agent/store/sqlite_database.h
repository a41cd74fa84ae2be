// SQLite's C interface with owners and exceptions: one open file, and statements on it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// An open database file. All errors are thrown as StoreError, those of missing room as StoreFull; they begin with the
/// file's name.
class SqliteDatabase {
 public:
  /// Opens a file that is there; it is neither locked nor read. `name` is what errors call it. All files are those of
  /// the virtual file system `vfs`, the system's own if null, which outlives the database; any other makes the file
  /// where it is missing.
  SqliteDatabase(std::string const& name, std::string const& file, char const* vfs = nullptr);

  /// What errors call it.
  std::string const& name() const noexcept { return name_; }
  /// Where its files are.
  sqlite3_vfs& vfs() const;
  /// The file's path, and that of the log beside it, valid as long as the database is. They are made for the virtual
  /// file system, which may look beside them for more than their characters.
  char const* path() const;
  char const* logPath() const;

  /// In bytes, without the log.
  std::uintmax_t fileSize() const;
  /// So many bytes of the file from an offset on, fewer where it ends. Nothing but the file is looked at, whatever is
  /// written in a log beside it.
  std::string readFile(std::uintmax_t from, std::size_t bytes) const;
  /// The first bytes of the file, of a whole database its header; fewer if the file is shorter.
  std::string readHeader() const;

  /// There is a log beside the file.
  bool hasLog() const;
  /// Whether closing leaves the log as it is; otherwise closing moves what is in it into the file and removes it.
  void leavesLogIs(bool leavesLog);

  /// Moves all that is in the log into the file, synchronised, and makes the log empty. Throws if any of it fails.
  void moveLog();

  /// Runs statements and drops their answers.
  void execute(char const* sql);
  /// The first value of the answer, as text.
  std::string answer(char const* sql);

  /// Between the beginning of a transaction and its end.
  bool isInTransaction() const { return sqlite3_get_autocommit(handle_.get()) == 0; }
  /// Undoes all since the beginning of the transaction; does nothing outside of one.
  void rollBack() noexcept;

  /// Throws "NAME: reason".
  [[noreturn]] void fail(std::string const& reason) const;
  /// Throws what the last call on this database failed with.
  [[noreturn]] void failAsSaid() const;

 private:
  friend class SqliteStatement;

  /// The system's error that the last write failed with, a value of `errno`; 0 if it is not known.
  int writeError() const;

  struct Close {
    void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
  };

  sqlite3_file& file() const;

  std::string name_;
  std::unique_ptr<sqlite3, Close> handle_;
};

/// A prepared statement. It does not outlive its database.
class SqliteStatement {
 public:
  SqliteStatement(SqliteDatabase const& database, char const* sql);

  /// Sets the parameter `index`, counted from 1. A text is not copied: it stays as it is until the statement has run.
  void bind(int index, std::string const& text);
  void bind(int index, std::optional<std::int64_t> number);

  /// Goes to the next row of the answer; false behind the last one.
  bool step();
  /// Runs it to its end; afterwards it can be run again.
  void run();

  /// Steps, and gives the first value of that row; 0 if there is none.
  std::int64_t firstNumber() { return step() ? number(0).value_or(0) : 0; }

  /// A value of the current row, columns counted from 0. A text is valid until the next step.
  std::string_view text(int column) const;
  std::optional<std::int64_t> number(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
  };

  void check(int code) const;

  SqliteDatabase const& database_;
  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

}  // namespace Agent
