// Reads as much of SQLite's journals and logs as it takes to find the first page.
#include "agent/store/header_elsewhere.h"

#include "agent/store/neighbour_file.h"

namespace Agent {
namespace {

constexpr std::size_t kHeader = 100;

bool isThere(SqliteDatabase const& database, char const* path) {
  int exists = 0;
  sqlite3_vfs& vfs = database.vfs();
  return vfs.xAccess(&vfs, path, SQLITE_ACCESS_EXISTS, &exists) == SQLITE_OK && exists != 0;
}

// A journal keeps the pages as they were; the first page is the first that a change of the header alone writes to.
std::optional<std::string> inJournal(NeighbourFile const& journal) {
  using namespace std::string_view_literals;
  constexpr std::size_t kJournalHeader = 28;
  std::size_t const size = journal.size();
  if (size < kJournalHeader) return std::nullopt;
  std::string const header = journal.read(0, kJournalHeader);
  if (!header.starts_with("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7"sv)) return std::nullopt;
  std::uint32_t const pages = bigEndian(header, 16);
  if (pages == 0) return "";
  std::size_t const page = bigEndian(header, 20);
  if (size < page + 4 + kHeader || bigEndian(journal.read(page, 4), 0) != 1) return std::nullopt;
  return journal.read(page + 4, kHeader);
}

// A log keeps the pages as they will be, and is all there before the file is written. Of an earlier log, longer than
// this one, the end may still stand there under another salt.
std::optional<std::string> inLog(NeighbourFile const& log) {
  constexpr std::size_t kLogHeader = 32;
  constexpr std::size_t kFrameHeader = 24;
  std::size_t const size = log.size();
  if (size < kLogHeader) return std::nullopt;
  std::string const header = log.read(0, kLogHeader);
  if ((bigEndian(header, 0) | 1U) != 0x377F0683U) return std::nullopt;
  std::size_t const page = bigEndian(header, 8);
  for (std::size_t at = kLogHeader; page >= kHeader && at + kFrameHeader + page <= size; at += kFrameHeader + page) {
    std::string const frame = log.read(at, kFrameHeader);
    if (frame.substr(8, 8) != header.substr(16, 8)) return std::nullopt;
    if (bigEndian(frame, 0) == 1) return log.read(at + kFrameHeader, kHeader);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> headerElsewhere(SqliteDatabase const& database) {
  auto const open = [&database](char const* path) {
    return NeighbourFile(database, path, SQLITE_OPEN_READWRITE, "what it will begin with cannot be found out");
  };
  char const* const journal = sqlite3_filename_journal(database.path());
  if (isThere(database, journal))
    if (auto header = inJournal(open(journal))) return header;
  if (isThere(database, database.logPath())) return inLog(open(database.logPath()));
  return std::nullopt;
}

}  // namespace Agent
