// Turns SQLite's codes into the errors of a store.
#include "agent/store/sqlite_database.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "agent/document/input_error.h"
#include "agent/store/store.h"

namespace Agent {
namespace {

constexpr std::size_t kHeaderSize = 100;

// Not all that a volume without room says is told apart by SQLite. A limit on the size of files acts like a volume.
bool isMissingRoom(int error) { return error == ENOSPC || error == EDQUOT || error == EFBIG; }

}  // namespace

SqliteDatabase::SqliteDatabase(std::string const& name, std::string const& file, char const* vfs)
    : name_(printable(name)) {
  sqlite3* handle = nullptr;
  int const create = vfs != nullptr ? SQLITE_OPEN_CREATE : 0;
  int const code = sqlite3_open_v2(
      file.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE | create, vfs);
  handle_.reset(handle);
  if (!handle) fail("there is no memory");
  if (code != SQLITE_OK) failAsSaid();
  if (sqlite3_db_readonly(handle, "main") != 0) fail("cannot be written");
}

sqlite3_vfs& SqliteDatabase::vfs() const {
  sqlite3_vfs* vfs = nullptr;
  sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_VFS_POINTER, &vfs);
  if (vfs == nullptr) fail("has no file system");
  return *vfs;
}

char const* SqliteDatabase::path() const { return sqlite3_db_filename(handle_.get(), "main"); }
char const* SqliteDatabase::logPath() const { return sqlite3_filename_wal(path()); }

sqlite3_file& SqliteDatabase::file() const {
  sqlite3_file* file = nullptr;
  int const code = sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file);
  if (code != SQLITE_OK || file == nullptr || file->pMethods == nullptr) fail("cannot be read");
  return *file;
}

std::uintmax_t SqliteDatabase::fileSize() const {
  sqlite3_file& main = file();
  sqlite3_int64 size = 0;
  int const code = main.pMethods->xFileSize(&main, &size);
  if (code != SQLITE_OK) fail(std::string("cannot be read: ") + sqlite3_errstr(code));
  // SQLite takes a file of one byte for an empty one.
  char byte = 0;
  if (size == 0 && main.pMethods->xRead(&main, &byte, 1, 0) == SQLITE_OK) size = 1;
  return static_cast<std::uintmax_t>(size);
}

// It is read through SQLite's own descriptor: closing another one would give up the locks that this process has.
std::string SqliteDatabase::readFile(std::uintmax_t from, std::size_t bytes) const {
  std::uintmax_t const size = fileSize();
  std::string text(from < size ? std::min<std::uintmax_t>(size - from, bytes) : 0, '\0');
  if (text.empty()) return text;
  sqlite3_file& main = file();
  int const code =
      main.pMethods->xRead(&main, text.data(), static_cast<int>(text.size()), static_cast<sqlite3_int64>(from));
  if (code != SQLITE_OK) fail(std::string("cannot be read: ") + sqlite3_errstr(code));
  return text;
}

std::string SqliteDatabase::readHeader() const { return readFile(0, kHeaderSize); }

bool SqliteDatabase::hasLog() const {
  int exists = 0;
  int const code = vfs().xAccess(&vfs(), logPath(), SQLITE_ACCESS_EXISTS, &exists);
  return code == SQLITE_OK && exists != 0;
}

void SqliteDatabase::moveLog() {
  int const code = sqlite3_wal_checkpoint_v2(handle_.get(), "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
  if (code != SQLITE_OK) failAsSaid();
}

void SqliteDatabase::leavesLogIs(bool leavesLog) {
  sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, leavesLog ? 1 : 0, nullptr);
}

void SqliteDatabase::execute(char const* sql) {
  if (sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) failAsSaid();
}

std::string SqliteDatabase::answer(char const* sql) {
  SqliteStatement statement(*this, sql);
  if (!statement.step()) return "";
  std::string text(statement.text(0));
  // What it changes is committed behind its last row.
  statement.run();
  return text;
}

void SqliteDatabase::rollBack() noexcept {
  if (isInTransaction()) sqlite3_exec(handle_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void SqliteDatabase::fail(std::string const& reason) const { throw StoreError(name_ + ": " + reason); }

int SqliteDatabase::writeError() const {
  // What the system said to a commit is known to the files alone.
  for (int const pointer : {SQLITE_FCNTL_JOURNAL_POINTER, SQLITE_FCNTL_FILE_POINTER}) {
    sqlite3_file* file = nullptr;
    int error = 0;
    if (sqlite3_file_control(handle_.get(), "main", pointer, &file) == SQLITE_OK && file->pMethods &&
        file->pMethods->xFileControl(file, SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK && error != 0)
      return error;
  }
  return 0;
}

void SqliteDatabase::failAsSaid() const {
  int const extended = sqlite3_extended_errcode(handle_.get());
  int const code = extended & 0xff;
  // It may quote what a damaged file holds.
  std::string reason = printable(sqlite3_errmsg(handle_.get()), 200);
  int error = 0;
  if (extended == SQLITE_IOERR_WRITE || extended == SQLITE_IOERR_FSYNC || extended == SQLITE_IOERR_TRUNCATE)
    error = writeError();
  else if (code == SQLITE_IOERR || code == SQLITE_CANTOPEN)
    error = sqlite3_system_errno(handle_.get());
  if (error != 0) reason += ": " + std::generic_category().message(error);
  // A sync that had no room leaves open what is written, as any failed sync does.
  bool const isSync = extended == SQLITE_IOERR_FSYNC || extended == SQLITE_IOERR_DIR_FSYNC;
  if (code == SQLITE_FULL || (isMissingRoom(error) && !isSync))
    throw StoreFull(name_ + ": there is no room: " + reason);
  switch (code) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      fail("is in use by another process");
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      fail("is damaged: " + reason);
    case SQLITE_READONLY:
    case SQLITE_PERM:
      fail("cannot be written: " + reason);
    default:
      fail(reason);
  }
}

SqliteStatement::SqliteStatement(SqliteDatabase const& database, char const* sql) : database_(database) {
  sqlite3_stmt* handle = nullptr;
  check(sqlite3_prepare_v3(database.handle_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &handle, nullptr));
  handle_.reset(handle);
}

void SqliteStatement::bind(int index, std::string const& text) {
  check(sqlite3_bind_text64(handle_.get(), index, text.data(), text.size(), nullptr, SQLITE_UTF8));
}

void SqliteStatement::bind(int index, std::optional<std::int64_t> number) {
  check(number ? sqlite3_bind_int64(handle_.get(), index, *number) : sqlite3_bind_null(handle_.get(), index));
}

bool SqliteStatement::step() {
  int const code = sqlite3_step(handle_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  try {
    database_.failAsSaid();
  } catch (...) {
    // The error is told before the reset, which makes calls of its own; without it the statement could not run again.
    sqlite3_reset(handle_.get());
    throw;
  }
}

void SqliteStatement::run() {
  while (step()) continue;
  check(sqlite3_reset(handle_.get()));
}

std::string_view SqliteStatement::text(int column) const {
  // The length is asked for last: reading a value as text may convert it.
  void const* const text = sqlite3_column_text(handle_.get(), column);
  auto const size = static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column));
  return text ? std::string_view(static_cast<char const*>(text), size) : std::string_view();
}

std::optional<std::int64_t> SqliteStatement::number(int column) const {
  if (sqlite3_column_type(handle_.get(), column) == SQLITE_NULL) return std::nullopt;
  return sqlite3_column_int64(handle_.get(), column);
}

void SqliteStatement::check(int code) const {
  if (code != SQLITE_OK) database_.failAsSaid();
}

}  // namespace Agent
