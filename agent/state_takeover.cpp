// Copies files through the database's own file system.
#include "agent/state_takeover.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "agent/input_error.h"
#include "agent/store.h"

namespace Agent {
namespace {

constexpr std::size_t kPiece = std::size_t{64} * 1024;

/// A file beside the state file.
class Neighbour {
 public:
  Neighbour(SqliteDatabase const& database, std::string path, int flags)
      : name_(database.name()), path_(std::move(path)), memory_(static_cast<std::size_t>(database.vfs().szOsFile)) {
    file_ = reinterpret_cast<sqlite3_file*>(memory_.data());
    sqlite3_vfs& vfs = database.vfs();
    // A new entry of the folder is synchronised with its file.
    check(vfs.xOpen(&vfs, path_.c_str(), file_, flags | SQLITE_OPEN_MAIN_JOURNAL, nullptr), "opened");
  }
  ~Neighbour() {
    if (file_->pMethods != nullptr) file_->pMethods->xClose(file_);
  }
  Neighbour(Neighbour const&) = delete;
  Neighbour& operator=(Neighbour const&) = delete;

  std::size_t size() const {
    sqlite3_int64 size = 0;
    check(file_->pMethods->xFileSize(file_, &size), "read");
    return static_cast<std::size_t>(size);
  }
  std::string read(std::size_t from, std::size_t bytes) const {
    std::string text(bytes, '\0');
    check(file_->pMethods->xRead(file_, text.data(), static_cast<int>(bytes), static_cast<sqlite3_int64>(from)),
          "read");
    return text;
  }
  void write(std::size_t from, std::string const& text) const {
    check(file_->pMethods->xWrite(file_, text.data(), static_cast<int>(text.size()), static_cast<sqlite3_int64>(from)),
          "written");
  }
  void finish(std::size_t size) const {
    check(file_->pMethods->xTruncate(file_, static_cast<sqlite3_int64>(size)), "written");
    check(file_->pMethods->xSync(file_, SQLITE_SYNC_NORMAL), "synchronised");
  }

 private:
  void check(int code, char const* what) const {
    if (code == SQLITE_OK) return;
    std::string const text = name_ +
                             ": the copy of its earlier format cannot be made: " + printable(path_, path_.size()) +
                             " cannot be " + what + ": " + sqlite3_errstr(code);
    if ((code & 0xff) == SQLITE_FULL) throw StoreFull(text);
    throw StoreError(text);
  }

  std::string const name_;
  std::string const path_;
  std::vector<char> memory_;
  sqlite3_file* file_ = nullptr;
};

void copy(std::size_t size, std::function<std::string(std::size_t from, std::size_t bytes)> const& read,
          Neighbour const& to) {
  for (std::size_t at = 0; at < size; at += kPiece) to.write(at, read(at, std::min(kPiece, size - at)));
  to.finish(size);
}

}  // namespace

void copyFirstFormat(SqliteDatabase const& database, bool hadLog) {
  constexpr int kNew = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  std::string const target = std::string(database.path()) + "-format1";
  copy(
      database.fileSize(),
      [&](std::size_t from, std::size_t bytes) { return database.readFile(from, bytes); },
      Neighbour(database, target, kNew));
  if (!hadLog) return;
  Neighbour const log(database, database.logPath(), SQLITE_OPEN_READWRITE);
  copy(
      log.size(),
      [&](std::size_t from, std::size_t bytes) { return log.read(from, bytes); },
      Neighbour(database, target + "-wal", kNew));
}

}  // namespace Agent
