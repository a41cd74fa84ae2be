// The simulated disk: what it keeps and loses, and that SQLite keeps on it exactly what it promises to keep.
#include "support/faulty_disk.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>

namespace Test::FaultyDiskTest {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

constexpr char kDatabase[] = "/folder/database";

/// A database on the disk.
class Connection {
 public:
  explicit Connection(FaultyDisk const& disk)
      : code_(sqlite3_open_v2(kDatabase, &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_EXRESCODE,
                              disk.name())) {}
  ~Connection() { sqlite3_close(handle_); }
  Connection(Connection const&) = delete;
  Connection& operator=(Connection const&) = delete;

  /// The extended code that it ends with; that of opening, if that failed.
  int run(std::string const& sql) {
    if (code_ != SQLITE_OK) return code_;
    int const code = sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK && sqlite3_get_autocommit(handle_) == 0) sqlite3_exec(handle_, "ROLLBACK", {}, {}, {});
    return code;
  }
  int systemError() const { return sqlite3_system_errno(handle_); }
  /// The first value of the answer; "?" if there is none.
  std::string answer(std::string const& sql) {
    sqlite3_stmt* statement = nullptr;
    std::string text = "?";
    if (code_ == SQLITE_OK && sqlite3_prepare_v2(handle_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
      text = reinterpret_cast<char const*>(sqlite3_column_text(statement, 0));
    sqlite3_finalize(statement);
    return text;
  }

 private:
  sqlite3* handle_ = nullptr;
  int code_;
};

constexpr char kLog[] =
    "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; "
    "PRAGMA wal_autocheckpoint = 6;";
constexpr char kNoCheckpoint[] = "PRAGMA wal_autocheckpoint = 0;";
constexpr char kUnsynchronisedLog[] =
    "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF; "
    "PRAGMA wal_autocheckpoint = 6;";
constexpr char kJournal[] = "PRAGMA journal_mode = DELETE; PRAGMA synchronous = EXTRA;";
// The end of a journal is the end of its transaction, and the deletion is not made durable.
constexpr char kUnsynchronisedJournal[] = "PRAGMA journal_mode = DELETE; PRAGMA synchronous = FULL;";

// It takes pages of its own.
std::string text(int number) { return std::string(5000, static_cast<char>('a' + number % 26)); }

std::string entry(int number) {
  return "BEGIN IMMEDIATE; CREATE TABLE IF NOT EXISTS entry(n INTEGER PRIMARY KEY, text TEXT NOT NULL); "
         "INSERT INTO entry VALUES (" +
         std::to_string(number) + ", '" + text(number) + "'); COMMIT";
}

/// How many entries there are; absent if the database is damaged, or lacks one of them.
std::optional<int> entries(Connection& connection) {
  if (connection.run("PRAGMA locking_mode = EXCLUSIVE; BEGIN IMMEDIATE; COMMIT") != SQLITE_OK) return std::nullopt;
  if (connection.answer("PRAGMA integrity_check") != "ok") return std::nullopt;
  if (connection.answer("SELECT count(*) FROM sqlite_schema") == "0") return 0;
  std::string const count = connection.answer("SELECT count(*) FROM entry");
  if (count == "?") return std::nullopt;
  for (int n = 1; n <= std::stoi(count); ++n)
    if (connection.answer("SELECT text FROM entry WHERE n = " + std::to_string(n)) != text(n)) return std::nullopt;
  return std::stoi(count);
}

std::optional<int> entries(FaultyDisk const& disk) {
  Connection connection(disk);
  return entries(connection);
}

/// A process that writes entries: the last one that was acknowledged.
int write(FaultyDisk const& disk, std::string const& mode, int count) {
  Connection connection(disk);
  if (connection.run(mode) != SQLITE_OK) return 0;
  for (int n = 1; n <= count; ++n)
    if (connection.run(entry(n)) != SQLITE_OK) return n - 1;
  return count;
}

/// Ends a process that writes entries at each of its calls in turn, with `fault` all the time, and lists the ends that
/// harmed what was acknowledged. Without `cuts` the process alone ends; otherwise the power is lost, with so many
/// seeds.
std::vector<std::string> harms(std::string const& mode, std::uint32_t cuts, std::optional<Fault> const& fault = {}) {
  constexpr int kEntries = 4;
  std::vector<std::string> harms;
  FaultyDisk disk;
  bool isEnded = true;
  for (std::size_t after = 0; isEnded; ++after) {
    disk.restoreTo({});
    if (fault) disk.plan(*fault);
    disk.kill(after);
    int const acknowledged = write(disk, mode, kEntries);
    isEnded = disk.isDown();
    EXPECT_TRUE(isEnded || acknowledged == kEntries) << mode;
    EXPECT_TRUE(!fault || after < 20 || disk.fired() > 1) << mode;
    auto const check = [&](std::string const& end) {
      disk.restart();
      std::optional<int> const found = entries(disk);
      if (found && (*found == acknowledged || *found == acknowledged + 1)) return;
      harms.push_back(end + " after " + std::to_string(after) + " calls: " +
                      (found ? std::to_string(*found) : "damaged") + ", acknowledged " + std::to_string(acknowledged));
    };
    FaultyDisk::Snapshot const left = disk.snapshot();
    if (cuts == 0) check("kill");
    for (std::uint32_t seed = 0; seed < cuts; ++seed) {
      disk.restoreTo(left);
      disk.powerCut(seed);
      check("cut with seed " + std::to_string(seed));
    }
  }
  return harms;
}

Fault const kLyingSync{.effect = Effect::lie, .call = CallKind::sync, .persists = true};

TEST(FaultyDisk, KeepsWhatWasWrittenWhenTheProcessEnds) {
  for (char const* mode : {kLog, kUnsynchronisedLog, kJournal, kUnsynchronisedJournal}) {
    EXPECT_THAT(harms(mode, 0), IsEmpty()) << mode;
    EXPECT_THAT(harms(mode, 0, kLyingSync), IsEmpty()) << mode;
  }
}

TEST(FaultyDisk, KeepsWhatSqliteSynchronisedWhenThePowerIsLost) {
  EXPECT_THAT(harms(kLog, 6), IsEmpty());
  EXPECT_THAT(harms(kJournal, 6), IsEmpty());
}

TEST(FaultyDisk, LosesWhatSqliteDidNotSynchroniseWhenThePowerIsLost) {
  for (char const* mode : {kUnsynchronisedLog, kUnsynchronisedJournal}) EXPECT_THAT(harms(mode, 3), Not(IsEmpty()));
  for (char const* mode : {kLog, kJournal}) EXPECT_THAT(harms(mode, 3, kLyingSync), Not(IsEmpty())) << mode;
}

// What a process reads that an earlier one left unsynchronised is not durable yet: only what is acknowledged counts.
TEST(FaultyDisk, KeepsWhatSqliteSynchronisedThroughManyEnds) {
  for (std::uint32_t seed = 0; seed < 16; ++seed) {
    std::mt19937 random(seed);
    FaultyDisk disk;
    int acknowledged = 0;
    for (int life = 0; life < 16; ++life) {
      std::size_t const after = random() % 150;
      if (random() % 2 == 0)
        disk.kill(after);
      else
        disk.powerCut(random(), after);
      {
        Connection connection(disk);
        connection.run(seed % 2 == 0 ? kLog : kJournal);
        std::optional<int> const found = entries(connection);
        ASSERT_TRUE(found ? *found >= acknowledged : disk.isDown()) << "seed " << seed << ", life " << life;
        for (int n = found.value_or(0) + 1; found && connection.run(entry(n)) == SQLITE_OK; ++n) acknowledged = n;
        ASSERT_TRUE(disk.isDown()) << "seed " << seed << ", life " << life;
      }
      disk.restart();
    }
    EXPECT_GT(acknowledged, 10) << "seed " << seed;
  }
}

/// One fault, what SQLite answers to `sql` and the system's error behind that.
struct FaultCase {
  Fault fault;
  std::string sql;
  int code;
  int error;
};

TEST(FaultyDisk, FailsAsPlanned) {
  std::string const checkpoint = "PRAGMA wal_checkpoint(TRUNCATE)";
  std::string const readAgain = "PRAGMA shrink_memory; SELECT text FROM entry";
  auto const at = [](CallKind call, FileRole role, int error, Effect effect = Effect::fail) {
    return Fault{.effect = effect, .error = error, .call = call, .role = role};
  };
  for (FaultCase const& row : std::vector<FaultCase>{
           {at(CallKind::write, FileRole::log, ENOSPC), entry(3), SQLITE_FULL, ENOSPC},
           {at(CallKind::write, FileRole::log, ENOSPC, Effect::shorten), entry(3), SQLITE_FULL, ENOSPC},
           {Fault{.error = ENOSPC}, entry(3), SQLITE_FULL, ENOSPC},
           {at(CallKind::write, FileRole::log, EDQUOT), entry(3), SQLITE_IOERR_WRITE, EDQUOT},
           {at(CallKind::write, FileRole::log, EIO, Effect::shorten), entry(3), SQLITE_IOERR_WRITE, EIO},
           {at(CallKind::sync, FileRole::log, EIO), entry(3), SQLITE_IOERR_FSYNC, EIO},
           {at(CallKind::sync, FileRole::log, ENOSPC), entry(3), SQLITE_IOERR_FSYNC, ENOSPC},
           {at(CallKind::write, FileRole::main, EIO), checkpoint, SQLITE_IOERR_WRITE, EIO},
           {at(CallKind::sync, FileRole::main, EIO), checkpoint, SQLITE_IOERR_FSYNC, EIO},
           {at(CallKind::truncate, FileRole::log, EIO), checkpoint, SQLITE_IOERR_TRUNCATE, EIO},
           {at(CallKind::read, FileRole::log, EACCES), readAgain, SQLITE_IOERR_READ, EACCES},
           {at(CallKind::read, FileRole::log, EIO), readAgain, SQLITE_CORRUPT, EIO},
           {at(CallKind::create, FileRole::journal, ENOSPC), entry(3), SQLITE_CANTOPEN, ENOENT},
           {at(CallKind::remove, FileRole::journal, EIO), entry(3), SQLITE_IOERR_DELETE, EIO},
       }) {
    std::ostringstream trace;
    trace << Call{row.fault.call.value_or(CallKind::write), row.fault.role.value_or(FileRole::log)};
    SCOPED_TRACE(trace.str() + ", errno " + std::to_string(row.fault.error));
    FaultyDisk disk;
    Connection connection(disk);
    std::string const mode = row.fault.role == FileRole::journal ? kJournal : kLog;
    ASSERT_EQ(connection.run(mode + kNoCheckpoint + entry(1) + ";" + entry(2)), SQLITE_OK);
    disk.plan(row.fault);
    EXPECT_EQ(disk.fired(), 0U);
    EXPECT_EQ(connection.run(row.sql), row.code);
    EXPECT_EQ(disk.fired(), 1U);
    sqlite3_vfs* const vfs = sqlite3_vfs_find(disk.name());
    EXPECT_EQ(vfs->xGetLastError(vfs, 0, nullptr), row.error);
    EXPECT_EQ(connection.run(row.sql), SQLITE_OK);
    EXPECT_THAT(connection.answer("SELECT count(*) FROM entry"), AnyOf("2", "3"));
    EXPECT_EQ(disk.fired(), 1U);
  }
}

TEST(FaultyDisk, FailsWhileItIsOpened) {
  for (FaultCase const& row : std::vector<FaultCase>{
           {{.error = EIO, .call = CallKind::open, .role = FileRole::main}, entry(3), SQLITE_CANTOPEN, EIO},
           {{.error = ENOSPC, .call = CallKind::create, .role = FileRole::log}, entry(3), SQLITE_CANTOPEN, ENOENT},
           {{.error = EIO, .call = CallKind::size, .role = FileRole::main}, entry(3), SQLITE_IOERR_FSTAT, EIO},
       }) {
    FaultyDisk disk;
    ASSERT_EQ(write(disk, kLog, 2), 2);
    EXPECT_THAT(disk.names(), ElementsAre(kDatabase));
    disk.plan(row.fault);
    Connection connection(disk);
    EXPECT_EQ(connection.run(kLog + row.sql), row.code);
    EXPECT_EQ(connection.systemError(), row.error);
    EXPECT_EQ(disk.fired(), 1U);
  }
}

TEST(FaultyDisk, FailsUntilItsFaultsAreCleared) {
  FaultyDisk disk;
  Connection connection(disk);
  ASSERT_EQ(connection.run(kLog + entry(1)), SQLITE_OK);
  disk.plan({.error = ENOSPC, .after = 1, .persists = true});
  for (std::size_t n = 1; n <= 3; ++n) {
    EXPECT_EQ(connection.run(entry(2)), SQLITE_FULL);
    EXPECT_EQ(disk.fired(), n);
  }
  EXPECT_EQ(connection.answer("SELECT count(*) FROM entry"), "1");
  disk.clearFaults();
  EXPECT_EQ(connection.run(entry(2)), SQLITE_OK);
  EXPECT_EQ(disk.fired(), 0U);
}

TEST(FaultyDisk, CallsBackFromSlowCalls) {
  FaultyDisk disk;
  Connection connection(disk);
  ASSERT_EQ(connection.run(kLog + (kNoCheckpoint + entry(1))), SQLITE_OK);
  std::size_t const before = disk.calls().size();
  std::ostringstream seen;
  disk.plan({.effect = Effect::slow, .role = FileRole::log, .persists = true, .run = [&] {
               seen << disk.calls().back() << "; ";
             }});
  EXPECT_EQ(connection.run(entry(2)), SQLITE_OK);
  EXPECT_THAT(seen.str(), MatchesRegex("(write of log; )+sync of log; "));
  EXPECT_EQ(disk.calls().size(), before + disk.fired());
  // It may end the process, too.
  disk.clearFaults();
  disk.plan({.effect = Effect::slow, .call = CallKind::sync, .run = [&disk] { disk.kill(); }});
  EXPECT_EQ(connection.run(entry(3)), SQLITE_IOERR);
  EXPECT_TRUE(disk.isDown());
}

TEST(FaultyDisk, LocksOutASecondConnection) {
  FaultyDisk disk;
  Connection first(disk);
  ASSERT_EQ(first.run("PRAGMA journal_mode = DELETE;" + entry(1)), SQLITE_OK);
  Connection second(disk);
  // One writes, both read, and none finishes writing while the other reads.
  EXPECT_EQ(first.run("BEGIN IMMEDIATE; SELECT * FROM entry"), SQLITE_OK);
  EXPECT_EQ(second.run("BEGIN IMMEDIATE"), SQLITE_BUSY);
  EXPECT_EQ(second.run("BEGIN; SELECT * FROM entry"), SQLITE_OK);
  EXPECT_EQ(first.run("INSERT INTO entry VALUES (2, '')"), SQLITE_OK);
  EXPECT_EQ(first.run("COMMIT"), SQLITE_BUSY);
  EXPECT_EQ(second.run("COMMIT; PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT"), SQLITE_OK);
  EXPECT_EQ(first.run("SELECT * FROM entry"), SQLITE_BUSY);
  disk.restart();
  Connection third(disk);
  EXPECT_EQ(third.run("BEGIN EXCLUSIVE; COMMIT"), SQLITE_OK);
  EXPECT_EQ(second.run(entry(3)) & 0xff, SQLITE_IOERR);
}

}  // namespace
}  // namespace Test::FaultyDiskTest
