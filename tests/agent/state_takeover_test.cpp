// A state of the first format through ends of the process or the machine while it is taken over.
#include <gtest/gtest.h>

#include "support/moments.h"

namespace Agent::StateTakeoverTest {
namespace {

using Test::FaultyDisk;
using Test::rounds;

/// A state of the first format as its versions left it: closed, or with a log beside it after a kill.
void makeFirstFormat(FaultyDisk& disk, bool withLog) {
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open_v2(kState, &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, disk.name()), SQLITE_OK);
  auto const run = [database](std::string const& sql) {
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
  };
  run("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE;"
      "CREATE TABLE document(path TEXT NOT NULL PRIMARY KEY, text TEXT NOT NULL, revision INTEGER NOT NULL, "
      "ttl INTEGER) STRICT, WITHOUT ROWID;"
      "CREATE TABLE state(id INTEGER PRIMARY KEY CHECK (id = 1), revision INTEGER NOT NULL) STRICT;"
      "CREATE TABLE room(id INTEGER PRIMARY KEY CHECK (id = 1), content BLOB NOT NULL) STRICT;"
      "INSERT INTO state VALUES (1, 0); INSERT INTO room VALUES (1, x'');"
      "PRAGMA application_id = 1164866156; PRAGMA user_version = 1; COMMIT; PRAGMA journal_mode = WAL");
  run("INSERT INTO document VALUES ('a', 'one', 1, NULL), ('b', '" + std::string(9000, 'b') + "', 2, 60000)");
  run("UPDATE state SET revision = 2");
  if (withLog) disk.kill();
  sqlite3_close(database);
  if (withLog) disk.restart();
}

TEST(StateTakeover, TakesOverTheFirstFormatWhateverEndsComeBetween) {
  FaultyDisk disk;
  Trials trials(disk);
  for (bool const withLog : {false, true}) {
    disk.restoreTo({});
    makeFirstFormat(disk, withLog);
    Kept kept;
    CommittedTurn turn{2, {put("a", "one", 1), put("b", std::string(9000, 'b'), 2)}};
    turn.changes.back().timeToLive.emplace(60'000);
    kept.sure.commit(std::span(&turn, 1));
    std::vector<Moment> const moments = momentsOf(disk, kept, 1, [&] { wholeLife(disk, kept); });
    std::size_t const before = trials.starts();
    trials.tryAll(moments, rounds(1), rounds(4));
    EXPECT_GT(trials.starts(), before + 300);
    // The copy is a state that is as it was.
    Kept old;
    old.sure.commit(std::span(&turn, 1));
    for (Moment const& moment : moments) {
      disk.restoreTo(moment.files);
      disk.powerCut(static_cast<std::uint32_t>(moment.number));
      disk.restart();
      { auto const store = openState(disk); }
      FaultyDisk copy;
      copy.setBytes(kState, disk.bytes("/folder/state-format1"));
      if (withLog) copy.setBytes(kLog, disk.bytes("/folder/state-format1-wal"));
      EXPECT_EQ(contents(*openState(copy)), old.sure) << "call " << moment.number;
    }
  }
}

}  // namespace
}  // namespace Agent::StateTakeoverTest
