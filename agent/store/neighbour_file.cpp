// Calls of the file system, and what their failures are told as.
#include "agent/store/neighbour_file.h"

#include <utility>

#include "agent/document/input_error.h"
#include "agent/store/store.h"

namespace Agent {

NeighbourFile::NeighbourFile(SqliteDatabase const& database, std::string path, int flags, std::string purpose)
    : name_(database.name()),
      path_(std::move(path)),
      purpose_(std::move(purpose)),
      memory_(static_cast<std::size_t>(database.vfs().szOsFile)),
      file_(reinterpret_cast<sqlite3_file*>(memory_.data())) {
  sqlite3_vfs& vfs = database.vfs();
  // A new entry of the folder is synchronised with its file.
  check(vfs.xOpen(&vfs, path_.c_str(), file_, flags | SQLITE_OPEN_MAIN_JOURNAL, nullptr), "opened");
}

NeighbourFile::~NeighbourFile() {
  if (file_->pMethods != nullptr) file_->pMethods->xClose(file_);
}

std::size_t NeighbourFile::size() const {
  sqlite3_int64 size = 0;
  check(file_->pMethods->xFileSize(file_, &size), "read");
  return static_cast<std::size_t>(size);
}

std::string NeighbourFile::read(std::size_t from, std::size_t bytes) const {
  std::string text(bytes, '\0');
  check(file_->pMethods->xRead(file_, text.data(), static_cast<int>(bytes), static_cast<sqlite3_int64>(from)), "read");
  return text;
}

void NeighbourFile::write(std::size_t from, std::string const& text) const {
  check(file_->pMethods->xWrite(file_, text.data(), static_cast<int>(text.size()), static_cast<sqlite3_int64>(from)),
        "written");
}

void NeighbourFile::finish(std::size_t size) const {
  check(file_->pMethods->xTruncate(file_, static_cast<sqlite3_int64>(size)), "written");
  check(file_->pMethods->xSync(file_, SQLITE_SYNC_NORMAL), "synchronised");
}

void NeighbourFile::check(int code, char const* what) const {
  if (code == SQLITE_OK) return;
  std::string const text = name_ + ": " + purpose_ + ": " + printable(path_, path_.size()) + " cannot be " + what +
                           ": " + sqlite3_errstr(code);
  if ((code & 0xff) == SQLITE_FULL) throw StoreFull(text);
  throw StoreError(text);
}

}  // namespace Agent
