// Tables, rows and their checksums.
#include "agent/store/state_file.h"

#include <array>
#include <cstdio>
#include <string_view>
#include <vector>

#include "agent/document/input_error.h"
#include "agent/store/header_elsewhere.h"

namespace Agent {
namespace {

constexpr std::int64_t kApplication = 0x456E726C;
constexpr std::int64_t kFirstFormat = 1;

// How the tables were made is kept in the file as it is written here, and compared: another text is another format.
constexpr char kDocumentTable[] =
    "CREATE TABLE document(path TEXT NOT NULL PRIMARY KEY, text TEXT NOT NULL, revision INTEGER NOT NULL, "
    "ttl INTEGER, run INTEGER NOT NULL, checksum_low INTEGER NOT NULL, checksum_high INTEGER NOT NULL) "
    "STRICT, WITHOUT ROWID";
// This one has one row.
constexpr char kStateTable[] =
    "CREATE TABLE state(id INTEGER PRIMARY KEY CHECK (id = 1), history TEXT NOT NULL, revision INTEGER NOT NULL, "
    "commits INTEGER NOT NULL, documents INTEGER NOT NULL, digest TEXT NOT NULL, run INTEGER NOT NULL, "
    "awake INTEGER NOT NULL, in_use INTEGER NOT NULL, checksum TEXT NOT NULL) STRICT";
constexpr char kRunTable[] =
    "CREATE TABLE run(number INTEGER PRIMARY KEY, awake INTEGER NOT NULL, checksum TEXT NOT NULL) STRICT";
// Its one row is there to be written when the store is asked whether there is room.
constexpr char kRoomTable[] = "CREATE TABLE room(id INTEGER PRIMARY KEY CHECK (id = 1), content BLOB NOT NULL) STRICT";

// The tables of format 1, of which the last is the same.
constexpr char kFirstDocumentTable[] =
    "CREATE TABLE document(path TEXT NOT NULL PRIMARY KEY, text TEXT NOT NULL, revision INTEGER NOT NULL, "
    "ttl INTEGER) STRICT, WITHOUT ROWID";
constexpr char kFirstStateTable[] =
    "CREATE TABLE state(id INTEGER PRIMARY KEY CHECK (id = 1), revision INTEGER NOT NULL) STRICT";

std::vector<std::string> tablesOf(std::int64_t format) {
  if (format == kFirstFormat) return {kFirstDocumentTable, kFirstStateTable, kRoomTable};
  return {kDocumentTable, kStateTable, kRunTable, kRoomTable};
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
  std::string const found = "its format is " + std::to_string(format) + ", " + std::to_string(kStateFormat) +
                            " or an earlier one was expected";
  if (format > kStateFormat) database.fail("was written by a newer version: " + found);
  if (format < kFirstFormat) database.fail("is damaged: " + found);
}

/// What the header of an SQLite database says of whose it is.
struct HeaderMarks {
  std::int64_t application = 0;
  std::int64_t format = 0;
};

/// Nothing if it is no such header.
std::optional<HeaderMarks> marksIn(std::string_view header) {
  using namespace std::string_view_literals;
  constexpr std::size_t kWholeHeader = 100;
  if (!header.starts_with("SQLite format 3\0"sv) || header.size() < kWholeHeader) return std::nullopt;
  auto const at = [&header](std::size_t offset) { return static_cast<std::int32_t>(bigEndian(header, offset)); };
  return HeaderMarks{at(68), at(60)};
}

std::int64_t number(SqliteDatabase const& database, char const* sql) {
  return SqliteStatement(database, sql).firstNumber();
}

/// The parts of a row as one text, each behind its length.
class RowText {
 public:
  RowText& operator<<(std::string_view part) {
    text_.append(std::to_string(part.size())).append(":").append(part);
    return *this;
  }
  RowText& operator<<(std::uint64_t part) { return *this << std::string_view(std::to_string(part)); }
  RowText& operator<<(std::int64_t part) { return *this << std::string_view(std::to_string(part)); }

  std::string const& text() const noexcept { return text_; }

 private:
  std::string text_;
};

Checksum checksumOfHead(StateHead const& head) {
  RowText parts;
  parts << "state" << head.history << head.revision << head.commits << head.digest.count << head.digest.sum.text()
        << head.run << std::int64_t{head.awake.count()} << std::uint64_t{head.isInUse};
  return checksumOf(parts.text());
}

Checksum checksumOfRun(std::uint64_t run, std::chrono::milliseconds awake) {
  RowText parts;
  parts << "run" << run << std::int64_t{awake.count()};
  return checksumOf(parts.text());
}

void setFormat(SqliteDatabase& database) {
  database.execute(("PRAGMA application_id = " + std::to_string(kApplication)).c_str());
  database.execute(("PRAGMA user_version = " + std::to_string(kStateFormat)).c_str());
}

void insertHead(SqliteDatabase& database, StateHead const& head) {
  database.execute("INSERT INTO state VALUES (1, '', 0, 0, 0, '', 0, 0, 0, '')");
  SqliteStatement write(database, kWriteHead);
  writeHead(write, head);
}

}  // namespace

// The text, which may be long, is not copied.
Checksum DocumentRow::checksum() const {
  RowText parts;
  parts << "document" << path << revision << std::uint64_t{timeToLive.has_value()}
        << std::int64_t{timeToLive.value_or(0)} << run << std::uint64_t{text.size()};
  Checksum const head = checksumOf(parts.text());
  Checksum const body = checksumOf(text, head.low);
  return {body.low, body.high ^ head.high};
}

void checkHeader(SqliteDatabase const& database) {
  std::string const header = database.readHeader();
  if (header.empty()) return;
  auto const marks = marksIn(header);
  if (marks && marks->application == kApplication) return checkKind(database, marks->application, marks->format);
  // A write of the header that was interrupted left what it was and what it was to be elsewhere, and SQLite will put it
  // there.
  auto const elsewhere = headerElsewhere(database);
  if (elsewhere && elsewhere->empty()) return;
  auto const other = elsewhere ? marksIn(*elsewhere) : std::nullopt;
  if (other && other->application == kApplication) return checkKind(database, other->application, other->format);
  if (!marks) database.fail("is no state file: it does not begin like an SQLite database, which was expected");
  checkKind(database, marks->application, marks->format);
}

std::int64_t checkTables(SqliteDatabase& database, bool hadLog) {
  std::int64_t const format = number(database, "PRAGMA user_version");
  checkKind(database, number(database, "PRAGMA application_id"), format);
  // While there is a log, what the file lacks may stand in it.
  if (!hadLog && database.fileSize() % static_cast<std::uintmax_t>(number(database, "PRAGMA page_size")) != 0)
    database.fail("is damaged: it ends inside a page");
  for (std::string const& table : tablesOf(format)) {
    SqliteStatement present(database, "SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND sql = ?");
    present.bind(1, table);
    if (present.firstNumber() != 1) database.fail("is damaged: it lacks a table of format " + std::to_string(format));
  }
  if (number(database, "SELECT (SELECT count(*) FROM state) + (SELECT count(*) FROM room)") != 2)
    database.fail("is damaged: it lacks the row of the state");
  std::string fault = database.answer("PRAGMA quick_check(1)");
  if (fault == "ok") return format;
  // The fault stands on a line of its own behind the name of the database.
  database.fail("is damaged: " + printable(fault.substr(fault.find('\n') + 1), 200) +
                "; a whole database was expected: enrolix restore makes one of a backup");
}

void makeTables(SqliteDatabase& database) {
  for (std::string const& table : tablesOf(kStateFormat)) database.execute(table.c_str());
  database.execute("INSERT INTO room VALUES (1, x'')");
  insertHead(database, {.history = newHistoryId()});
  setFormat(database);
}

void convertTables(SqliteDatabase& database) {
  StateHead head{.history = newHistoryId()};
  head.revision = static_cast<Revision>(number(database, "SELECT revision FROM state"));
  std::vector<DocumentRow> rows;
  {
    SqliteStatement documents(database, "SELECT path, text, revision, ttl FROM document");
    while (documents.step()) {
      DocumentRow& row = rows.emplace_back();
      row.path = documents.text(0);
      row.text = documents.text(1);
      row.revision = static_cast<Revision>(documents.number(2).value_or(0));
      row.timeToLive = documents.number(3);
      if (row.revision > head.revision) database.fail("is damaged: it holds a document from behind the last turn");
    }
  }
  database.execute("DROP TABLE document; DROP TABLE state");
  for (char const* table : {kDocumentTable, kStateTable, kRunTable}) database.execute(table);
  SqliteStatement write(database, kWriteDocument);
  for (DocumentRow const& row : rows) {
    Checksum const checksum = row.checksum();
    writeDocument(write, row, checksum);
    head.digest.add(checksum);
  }
  insertHead(database, head);
  setFormat(database);
}

std::optional<StateHead> readHead(SqliteDatabase const& database) {
  SqliteStatement row(database,
                      "SELECT history, revision, commits, documents, digest, run, awake, in_use, checksum FROM state");
  if (!row.step()) return std::nullopt;
  auto const at = [&row](int column) { return static_cast<std::uint64_t>(row.number(column).value_or(0)); };
  StateHead head;
  head.history = row.text(0);
  head.revision = at(1);
  head.commits = at(2);
  head.digest.count = at(3);
  head.digest.sum = Checksum::parse(row.text(4)).value_or(Checksum());
  head.run = at(5);
  head.awake = std::chrono::milliseconds(row.number(6).value_or(0));
  head.isInUse = at(7) != 0;
  if (row.text(8) != checksumOfHead(head).text()) return std::nullopt;
  return head;
}

void writeHead(SqliteStatement& statement, StateHead const& head) {
  std::string const digest = head.digest.sum.text();
  std::string const checksum = checksumOfHead(head).text();
  int at = 0;
  auto const bind = [&](std::uint64_t value) { statement.bind(++at, static_cast<std::int64_t>(value)); };
  statement.bind(++at, head.history);
  bind(head.revision);
  bind(head.commits);
  bind(head.digest.count);
  statement.bind(++at, digest);
  bind(head.run);
  bind(static_cast<std::uint64_t>(head.awake.count()));
  bind(head.isInUse ? 1 : 0);
  statement.bind(++at, checksum);
  statement.run();
}

DocumentRow documentRow(SqliteStatement const& statement) {
  DocumentRow row;
  row.path = statement.text(0);
  row.text = statement.text(1);
  row.revision = static_cast<Revision>(statement.number(2).value_or(0));
  row.timeToLive = statement.number(3);
  row.run = static_cast<std::uint64_t>(statement.number(4).value_or(0));
  return row;
}

Checksum writtenChecksum(SqliteStatement const& statement) {
  return {static_cast<std::uint64_t>(statement.number(5).value_or(0)),
          static_cast<std::uint64_t>(statement.number(6).value_or(0))};
}

void writeDocument(SqliteStatement& statement, DocumentRow const& row, Checksum const& checksum) {
  statement.bind(1, row.path);
  statement.bind(2, row.text);
  statement.bind(3, static_cast<std::int64_t>(row.revision));
  statement.bind(4, row.timeToLive);
  statement.bind(5, static_cast<std::int64_t>(row.run));
  statement.bind(6, static_cast<std::int64_t>(checksum.low));
  statement.bind(7, static_cast<std::int64_t>(checksum.high));
  statement.run();
}

std::optional<std::chrono::milliseconds> awakeAtStart(SqliteDatabase const& database, std::uint64_t run) {
  SqliteStatement row(database, "SELECT awake, checksum FROM run WHERE number = ?");
  row.bind(1, static_cast<std::int64_t>(run));
  if (!row.step()) return std::nullopt;
  std::chrono::milliseconds const awake(row.number(0).value_or(0));
  return row.text(1) == checksumOfRun(run, awake).text() ? std::optional(awake) : std::nullopt;
}

void noteStart(SqliteDatabase const& database, StateHead const& head) {
  // What is left of a heartbeat counts from the start behind the run in which it was last put.
  SqliteStatement forget(database,
                         "DELETE FROM run WHERE number <= (SELECT coalesce(min(run), ?) FROM document WHERE run > 0)");
  forget.bind(1, static_cast<std::int64_t>(head.run));
  forget.run();
  std::string const checksum = checksumOfRun(head.run, head.awake).text();
  SqliteStatement note(database, "REPLACE INTO run VALUES (?, ?, ?)");
  note.bind(1, static_cast<std::int64_t>(head.run));
  note.bind(2, std::int64_t{head.awake.count()});
  note.bind(3, checksum);
  note.run();
}

}  // namespace Agent
