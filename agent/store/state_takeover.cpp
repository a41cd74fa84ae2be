// Copies files through the database's own file system.
#include "agent/store/state_takeover.h"

#include <algorithm>
#include <functional>
#include <string>

#include "agent/store/neighbour_file.h"
#include "agent/store/state_file.h"

namespace Agent {
namespace {

constexpr std::size_t kPiece = std::size_t{64} * 1024;

void copy(std::size_t size, std::function<std::string(std::size_t from, std::size_t bytes)> const& read,
          NeighbourFile const& to) {
  for (std::size_t at = 0; at < size; at += kPiece) to.write(at, read(at, std::min(kPiece, size - at)));
  to.finish(size);
}

}  // namespace

void copyFirstFormat(SqliteDatabase const& database, bool hadLog) {
  constexpr int kNew = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  constexpr char kPurpose[] = "the copy of its earlier format cannot be made";
  std::string const target = std::string(database.path()) + "-format1";
  copy(
      database.fileSize(),
      [&](std::size_t from, std::size_t bytes) { return database.readFile(from, bytes); },
      NeighbourFile(database, target, kNew, kPurpose));
  if (!hadLog) return;
  NeighbourFile const log(database, database.logPath(), SQLITE_OPEN_READWRITE, kPurpose);
  copy(
      log.size(),
      [&](std::size_t from, std::size_t bytes) { return log.read(from, bytes); },
      NeighbourFile(database, target + kLogEnding, kNew, kPurpose));
}

}  // namespace Agent
