// The format of a state file: how it is made, what is checked before it is used, and how turns are written to it.
#include "agent/sqlite_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "agent/input_error.h"

namespace Agent {
namespace {

constexpr std::int64_t kApplication = 0x456E726C;
constexpr std::int64_t kFormat = 1;

// How the tables were made is kept in the file as it is written here, and compared: another text is another format.
constexpr char kDocumentTable[] =
    "CREATE TABLE document(path TEXT NOT NULL PRIMARY KEY, text TEXT NOT NULL, revision INTEGER NOT NULL, "
    "ttl INTEGER) STRICT, WITHOUT ROWID";
// This one and the next have one row; that of the last is there to be written when it is asked whether there is room.
constexpr char kStateTable[] =
    "CREATE TABLE state(id INTEGER PRIMARY KEY CHECK (id = 1), revision INTEGER NOT NULL) STRICT";
constexpr char kRoomTable[] = "CREATE TABLE room(id INTEGER PRIMARY KEY CHECK (id = 1), content BLOB NOT NULL) STRICT";

[[noreturn]] void fail(std::string const& name, std::string const& reason, int error) {
  std::string const text = printable(name, name.size()) + ": " + reason + ": " + std::generic_category().message(error);
  if (error == ENOSPC || error == EDQUOT) throw StoreFull(text);
  throw StoreError(text);
}

// A new entry of a folder is lost with the machine's power unless the folder is synchronised too.
void synchroniseFolder(std::filesystem::path const& folder) {
  int const descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  ::fsync(descriptor);
  ::close(descriptor);
}

void makeFolder(std::string const& name, std::filesystem::path const& folder) {
  std::error_code error;
  std::vector<std::filesystem::path> missing;
  for (std::filesystem::path at = folder; !at.empty() && !std::filesystem::exists(at, error); at = at.parent_path())
    missing.push_back(at);
  std::filesystem::create_directories(folder, error);
  if (error) fail(name, "the folder " + inQuotes(folder.string()) + " cannot be made", error.value());
  for (std::filesystem::path const& made : missing) synchroniseFolder(made.parent_path());
}

// The absolute path of `name`, which is there from now on. SQLite takes some relative paths for something else.
std::string makeFile(std::string const& name) {
  std::filesystem::path const file = std::filesystem::absolute(name);
  makeFolder(name, file.parent_path());
  std::error_code error;
  if (!std::filesystem::exists(file, error)) {
    int const descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0) fail(name, "cannot be made", errno);
    ::close(descriptor);
    synchroniseFolder(file.parent_path());
  } else if (!std::filesystem::is_regular_file(file, error)) {
    throw StoreError(printable(name, name.size()) + ": is no regular file, a state file was expected");
  }
  return file.string();
}

void checkKind(SqliteDatabase const& database, std::int64_t application, std::int64_t format) {
  auto const hexadecimal = [](std::int64_t number) {
    std::string text(16, '\0');
    text.resize(std::snprintf(text.data(), text.size(), "0x%08x", static_cast<unsigned>(number)));
    return text;
  };
  if (application != kApplication)
    database.fail("is no state file: its application id is " + hexadecimal(application) + ", " +
                  hexadecimal(kApplication) + " was expected");
  if (format > kFormat)
    database.fail("was written by a newer version: its format is " + std::to_string(format) + ", " +
                  std::to_string(kFormat) + " was expected");
  if (format != kFormat)
    database.fail("is damaged: its format is " + std::to_string(format) + ", " + std::to_string(kFormat) +
                  " was expected");
}

// What the file itself says, before anything else of it or beside it is touched.
void checkHeader(SqliteDatabase const& database) {
  using namespace std::string_view_literals;
  std::string const header = database.readHeader();
  if (header.empty()) return;
  constexpr std::size_t kWholeHeader = 100;
  if (!std::string_view(header).starts_with("SQLite format 3\0"sv) || header.size() < kWholeHeader)
    database.fail("is no state file: it does not begin like an SQLite database, which was expected");
  auto const number = [&header](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t n = 0; n < 4; ++n) value = value << 8 | static_cast<unsigned char>(header[at + n]);
    return static_cast<std::int32_t>(value);
  };
  checkKind(database, number(68), number(60));
}

void make(SqliteDatabase& database) {
  for (char const* table : {kDocumentTable, kStateTable, kRoomTable}) database.execute(table);
  database.execute("INSERT INTO state VALUES (1, 0); INSERT INTO room VALUES (1, x'')");
  database.execute(("PRAGMA application_id = " + std::to_string(kApplication)).c_str());
  database.execute(("PRAGMA user_version = " + std::to_string(kFormat)).c_str());
}

void check(SqliteDatabase& database, bool hadLog) {
  auto const number = [&database](char const* sql) { return SqliteStatement(database, sql).firstNumber(); };
  checkKind(database, number("PRAGMA application_id"), number("PRAGMA user_version"));
  // While there is a log, what the file lacks may stand in it.
  if (!hadLog && database.fileSize() % number("PRAGMA page_size") != 0)
    database.fail("is damaged: it ends inside a page");
  SqliteStatement tables(database, "SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND sql IN (?, ?, ?)");
  std::array<std::string, 3> const expected{kDocumentTable, kStateTable, kRoomTable};
  for (int n = 0; n < 3; ++n) tables.bind(n + 1, expected[n]);
  if (tables.firstNumber() != 3) database.fail("is damaged: it lacks a table of format " + std::to_string(kFormat));
  if (number("SELECT (SELECT count(*) FROM state) + (SELECT count(*) FROM room)") != 2)
    database.fail("is damaged: it lacks the row of the state");
  SqliteStatement impossible(database,
                             "SELECT count(*) FROM document, state WHERE document.revision NOT BETWEEN 0 AND "
                             "state.revision OR ttl <= 0");
  if (impossible.firstNumber() != 0) database.fail("is damaged: it holds a document from behind the last turn");
  std::string fault = database.answer("PRAGMA quick_check(1)");
  if (fault == "ok") return;
  // The fault stands on a line of its own behind the name of the database.
  database.fail("is damaged: " + printable(fault.substr(fault.find('\n') + 1), 200) +
                "; a whole database was expected");
}

// The database of `name`, locked for this process and found or made whole.
SqliteDatabase open(std::string const& name) {
  SqliteDatabase database(name, makeFile(name));
  checkHeader(database);
  // Opening makes an empty log where there is none, which closing should remove; a log that is there is not ours yet.
  bool const hadLog = database.hasLog();
  database.leavesLogIs(hadLog);
  // With the file for itself, SQLite keeps the index of the log in memory and not in a third file.
  database.execute("PRAGMA locking_mode = EXCLUSIVE; PRAGMA cell_size_check = ON; PRAGMA temp_store = MEMORY");
  database.execute("BEGIN EXCLUSIVE");
  // Asked again behind the lock: what another process began to make and did not finish has been undone now.
  if (database.fileSize() == 0)
    make(database);
  else
    check(database, hadLog);
  database.execute("COMMIT");
  if (database.answer("PRAGMA journal_mode = WAL") != "wal") database.fail("cannot have a log beside it");
  // Each commit is synchronised. The log goes into the file at 4 MiB, and is cut down to that if one commit made it
  // longer.
  database.execute("PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 1024; PRAGMA journal_size_limit = 4194304");
  database.leavesLogIs(false);
  return database;
}

}  // namespace

/// Undone at its end, unless it was committed.
class SqliteStore::Transaction {
 public:
  explicit Transaction(SqliteStore& store) : store_(store) { store_.begin_.run(); }
  ~Transaction() { store_.database_.rollBack(); }
  Transaction(Transaction const&) = delete;
  Transaction& operator=(Transaction const&) = delete;

  void commit() { store_.commit_.run(); }

 private:
  SqliteStore& store_;
};

SqliteStore::SqliteStore(std::string const& file)
    : database_(open(file)),
      begin_(database_, "BEGIN IMMEDIATE"),
      commit_(database_, "COMMIT"),
      put_(database_, "REPLACE INTO document VALUES (?, ?, ?, ?)"),
      remove_(database_, "DELETE FROM document WHERE path = ?"),
      revisionIs_(database_, "UPDATE state SET revision = ?"),
      fill_(database_, "UPDATE room SET content = randomblob(16384)") {}

Revision SqliteStore::load(std::function<void(DocumentChange const& document)> const& visit) {
  auto const revision = SqliteStatement(database_, "SELECT revision FROM state").firstNumber();
  SqliteStatement documents(database_, "SELECT path, text, revision, ttl FROM document ORDER BY path");
  while (documents.step()) {
    DocumentChange document{std::string(documents.text(0)),
                            std::make_shared<std::string const>(documents.text(1)),
                            static_cast<Revision>(documents.number(2).value_or(0)),
                            std::nullopt};
    if (std::optional<std::int64_t> const ttl = documents.number(3)) document.timeToLive.emplace(*ttl);
    visit(document);
  }
  return static_cast<Revision>(revision);
}

void SqliteStore::commit(std::span<CommittedTurn const> turns) {
  if (turns.empty()) return;
  Transaction transaction(*this);
  for (CommittedTurn const& turn : turns) {
    for (DocumentChange const& change : turn.changes) {
      if (!change.text) {
        remove_.bind(1, change.path);
        remove_.run();
        continue;
      }
      std::optional<std::int64_t> ttl;
      if (change.timeToLive) ttl = change.timeToLive->count();
      put_.bind(1, change.path);
      put_.bind(2, *change.text);
      put_.bind(3, static_cast<std::int64_t>(change.revision));
      put_.bind(4, ttl);
      put_.run();
    }
  }
  revisionIs_.bind(1, static_cast<std::int64_t>(turns.back().revision));
  revisionIs_.run();
  transaction.commit();
}

void SqliteStore::checkRoom() {
  // Only what a transaction really changes reaches the disk, and only when it is committed.
  Transaction transaction(*this);
  fill_.run();
  transaction.commit();
}

}  // namespace Agent
