// A file of one of SQLite's file systems, used without a database.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <memory>
#include <string>

namespace Test {

/// The flags of files that are made when they are missing.
constexpr int kCreate = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;

/// An open file, without a database.
class OpenFile {
 public:
  OpenFile(sqlite3_vfs& vfs, std::string const& name, int flags)
      : memory_(std::make_unique<std::max_align_t[]>(static_cast<std::size_t>(vfs.szOsFile) / sizeof(std::max_align_t) +
                                                     1)),
        // What follows a name are parameters, until an empty one.
        name_(name + std::string(3, '\0')),
        code_(vfs.xOpen(&vfs, name_.c_str(), &file(), flags, nullptr)) {}
  ~OpenFile() {
    if (file().pMethods) file().pMethods->xClose(&file());
  }
  OpenFile(OpenFile const&) = delete;
  OpenFile& operator=(OpenFile const&) = delete;

  /// What opening it answered.
  int code() const { return code_; }
  int write(std::string const& bytes, sqlite3_int64 at = 0) {
    return methods().xWrite(&file(), bytes.data(), static_cast<int>(bytes.size()), at);
  }
  int truncate(sqlite3_int64 size) { return methods().xTruncate(&file(), size); }
  int sync() { return methods().xSync(&file(), SQLITE_SYNC_NORMAL); }
  int read(std::string& bytes, sqlite3_int64 at = 0) {
    return methods().xRead(&file(), bytes.data(), static_cast<int>(bytes.size()), at);
  }
  int size(sqlite3_int64& size) { return methods().xFileSize(&file(), &size); }
  int lastError() {
    int error = 0;
    return file().pMethods && methods().xFileControl(&file(), SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK ? error : 0;
  }
  sqlite3_io_methods const& methods() { return *file().pMethods; }
  sqlite3_file& file() { return *reinterpret_cast<sqlite3_file*>(memory_.get()); }

 private:
  std::unique_ptr<std::max_align_t[]> memory_;
  std::string name_;
  int code_;
};

}  // namespace Test
