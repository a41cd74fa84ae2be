// A file beside a state file, reached through the file system that the database is on.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <string>
#include <vector>

#include "agent/store/sqlite_database.h"

namespace Agent {

/// An open file. All errors are thrown as StoreError: "NAME: PURPOSE: PATH cannot be ...".
class NeighbourFile {
 public:
  /// `flags` are SQLite's, like SQLITE_OPEN_READWRITE. `path` was made by SQLite, or is one of its paths with an
  /// ending.
  NeighbourFile(SqliteDatabase const& database, std::string path, int flags, std::string purpose);
  ~NeighbourFile();
  NeighbourFile(NeighbourFile const&) = delete;
  NeighbourFile& operator=(NeighbourFile const&) = delete;

  std::size_t size() const;
  /// So many bytes from there on, which the file must have.
  std::string read(std::size_t from, std::size_t bytes) const;
  void write(std::size_t from, std::string const& text) const;
  /// Makes it so long, and synchronises it with its entry in the folder.
  void finish(std::size_t size) const;

 private:
  void check(int code, char const* what) const;

  std::string const name_;
  std::string const path_;
  std::string const purpose_;
  std::vector<char> memory_;
  sqlite3_file* file_;
};

}  // namespace Agent
