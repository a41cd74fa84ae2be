// The state file: how it is made, found and locked.
#include "agent/store/sqlite_store.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/program.h"
#include "support/state_files.h"
#include "support/store_model.h"

namespace Agent::SqliteStoreTest {
namespace {

using Test::allBytes;
using Test::Child;
using Test::complaint;
using Test::leaveLog;
using Test::opened;
using Test::refusal;
using testing::StartsWith;

TEST(SqliteDatabase, UndoesWhatATransactionDid) {
  Folder folder;
  SqliteDatabase database("file", folder.write("file", ""));
  database.execute("CREATE TABLE a(b); BEGIN; INSERT INTO a VALUES (1)");
  EXPECT_TRUE(database.isInTransaction());
  for (int n = 0; n < 2; ++n) {
    database.rollBack();
    EXPECT_FALSE(database.isInTransaction());
    EXPECT_EQ(database.answer("SELECT count(*) FROM a"), "0");
  }
}

TEST(SqliteStore, MakesAFileForItsUserAloneAndTheFoldersAbove) {
  Folder folder;
  std::string const file = folder / "a/b/state";
  mode_t const mask = ::umask(0);
  SqliteStore store(file);
  store.prepare();
  commitOne(store, turnOf(1, {"a"}, "1"));
  ::umask(mask);
  for (std::string const& path : {file, file + "-wal"}) {
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0) << path;
    EXPECT_EQ(status.st_mode & 07777U, 0600U) << path;
  }
}

TEST(SqliteStore, LeavesOneFileAtItsEnd) {
  Folder folder;
  for (int n = 0; n < 2; ++n) {
    commitOne(*opened(folder / "state"), turnOf(n + 1, {"a"}, "1"));
    EXPECT_EQ(folder.files(), 1);
  }
}

TEST(SqliteStore, TakesUpTheLogOfAProcessThatWasKilled) {
  Folder folder;
  std::string const file = folder / "state";
  leaveLog(file);
  EXPECT_EQ(folder.files(), 3);
  EXPECT_EQ(contents(*opened(file)).revision, 100U);
  EXPECT_EQ(folder.files(), 1);
  EXPECT_EQ(contents(*opened(file)).revision, 100U);
}

TEST(SqliteStore, TakesAnEmptyFileAsNew) {
  Folder folder;
  std::string const file = folder.write("state", "");
  commitOne(*opened(file), turnOf(1, {"a"}, "1"));
  EXPECT_EQ(contents(*opened(file)).revision, 1U);
}

TEST(SqliteStore, TakesItsFileByAnyName) {
  Folder folder;
  std::filesystem::path const before = std::filesystem::current_path();
  std::filesystem::current_path(folder / "");
  for (std::string const name : {":memory:", "file:a?mode=memory", "with \n a break"}) {
    commitOne(*opened(name), turnOf(1, {"a"}, "1"));
    EXPECT_TRUE(std::filesystem::is_regular_file(name)) << name;
    EXPECT_EQ(contents(*opened(name)).revision, 1U) << name;
  }
  std::filesystem::current_path(before);
}

TEST(SqliteStore, FollowsALinkToItsFile) {
  Folder folder;
  std::filesystem::create_symlink(folder / "there", folder / "link");
  commitOne(*opened(folder / "link"), turnOf(1, {"a"}, "1"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(contents(*opened(folder / "there")).revision, 1U);
}

TEST(SqliteStore, CannotBeWhereNoFileCanBe) {
  Folder folder;
  std::string const file = folder.write("file", "text");
  EXPECT_THAT(refusal(file + "/state"), StartsWith(file + "/state: the folder "));
  EXPECT_EQ(refusal(folder / ""), (folder / "") + ": is no regular file, a state file was expected");
  EXPECT_EQ(refusal("/dev/null"), "/dev/null: is no regular file, a state file was expected");
  std::string const pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(refusal(pipe), pipe + ": is no regular file, a state file was expected");
  EXPECT_EQ(folder.read("file"), "text");
}

TEST(SqliteStore, OpensNothingBesideItsFileThatIsNoFile) {
  Folder folder;
  for (auto const& [what, ending] : kStateNeighbours) {
    std::string const file = folder / (std::string("beside_a_") + what);
    { SqliteStore const store(file); }
    std::string const beside = file + ending;
    std::string const link = file + "_by_link";
    std::filesystem::create_symlink(file, link);
    for (auto const& make : {+[](char const* path) { return ::mkfifo(path, 0600); },
                             +[](char const* path) { return ::mkdir(path, 0700); },
                             +[](char const* path) { return ::symlink("nowhere", path); }}) {
      ASSERT_EQ(make(beside.c_str()), 0);
      for (std::string const& name : {file, link}) {
        std::string const said = name + ": its " + what + " \"" + beside + "\" is no regular file: move it away";
        EXPECT_EQ(refusal(name), said);
        EXPECT_EQ(complaint(name), said);
      }
      std::filesystem::remove(beside);
    }
    EXPECT_EQ(complaint(link), "");
  }
}

TEST(SqliteStore, IsNotMadeAnewBesideWhatIsLeftOfAnother) {
  for (char const* const ending : {kLogEnding, kWitnessEnding}) {
    Folder folder;
    std::string const file = folder / "state";
    folder.write(std::string("state") + ending, "");
    EXPECT_EQ(complaint(file), file + ": there is no such file") << "an empty file tells of nothing";
    folder.write(std::string("state") + ending, "what was answered");
    auto const before = allBytes(folder);
    std::string const said = file + ": the file is missing, and beside its place stands \"" + file + ending +
                             "\": what belongs to it was answered; what it holds is revision 0 with 0 documents: "
                             "enrolix serve --accept-loss 0 goes on with that";
    EXPECT_EQ(refusal(file), said);
    EXPECT_EQ(complaint(file), said);
    EXPECT_TRUE(allBytes(folder) == before);
    SqliteStore store(file, {.acceptedLoss = 0});
    EXPECT_TRUE(store.isLossAccepted());
    store.prepare();
    EXPECT_EQ(contents(store).revision, 0U);
  }
}

TEST(SqliteStore, HasItsFileForItself) {
  Folder folder;
  std::string const file = folder / "state";
  for (bool const hasTurns : {false, true}) {
    Child child([&](Child::Send const& send) {
      SqliteStore store(file);
      store.prepare();
      if (hasTurns) commitOne(store, turnOf(1, {"a"}, "1"));
      send(1);
      ::pause();
    });
    ASSERT_TRUE(child.receive());
    auto const before = allBytes(folder);
    EXPECT_EQ(refusal(file), file + ": is in use by another process");
    EXPECT_TRUE(allBytes(folder) == before);
    child.kill();
    EXPECT_EQ(refusal(file), "");
  }
  SqliteStore store(file);
  EXPECT_EQ(refusal(file), file + ": is in use by another process") << "also from inside the process";
  Child stranger([&](Child::Send const& send) {
    // By a name that SQLite does not know in this process, so that it asks the system.
    std::string const other = file + ".link";
    std::filesystem::create_hard_link(file, other);
    send(refusal(other).empty() ? 1 : 0);
  });
  EXPECT_EQ(stranger.receive(), Revision(0)) << "the refused store has not taken the lock with it";
}

TEST(SqliteStore, IsRefusedWhileSomeoneReadsTheFile) {
  Folder folder;
  std::string const file = folder / "state";
  { SqliteStore const store(file); }
  Child child([&](Child::Send const& send) {
    sqlite3* database = nullptr;
    sqlite3_open(file.c_str(), &database);
    sqlite3_exec(database, "BEGIN; SELECT * FROM state", nullptr, nullptr, nullptr);
    send(1);
    ::pause();
  });
  ASSERT_TRUE(child.receive());
  EXPECT_EQ(refusal(file), file + ": is in use by another process");
}

TEST(SqliteStore, KeepsTheLogSmall) {
  Folder folder;
  SqliteStore store(folder / "state");
  store.prepare();
  auto const logSize = [&] { return std::filesystem::file_size(folder / "state-wal"); };
  constexpr std::size_t kLimit = 6'000'000;
  std::vector<CommittedTurn> turns;
  for (Revision n = 1; n <= 20; ++n) turns.push_back(turnOf(n, {std::to_string(n)}, std::string(1'000'000, 'x')));
  store.commit(turns);
  EXPECT_GT(logSize(), 20'000'000U) << "one commit takes what it needs";
  for (Revision n = 21; n <= 40; ++n) {
    commitOne(store, turnOf(n, {"a"}, std::string(1'000'000, 'y')));
    EXPECT_LT(logSize(), kLimit);
  }
}

}  // namespace
}  // namespace Agent::SqliteStoreTest
