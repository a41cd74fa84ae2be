// The state file: what it refuses and leaves as it is, and what ends of the process do to it.
#include "agent/store/sqlite_store.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "support/program.h"
#include "support/store_model.h"

namespace Agent::SqliteStoreTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The error that `work` ends with; empty if there is none.
template <class Work>
std::string errorOf(Work const& work) {
  try {
    work();
  } catch (StoreError const& error) {
    return error.what();
  }
  return "";
}

/// The error that opening the file ends with.
std::string refusal(std::string const& file) {
  return errorOf([&] { SqliteStore const store(file); });
}

/// The error that examining the file ends with.
std::string complaint(std::string const& file) {
  return errorOf([&] { checkState(file); });
}

/// A store on the file that takes turns.
std::unique_ptr<SqliteStore> opened(std::string const& file) {
  auto store = std::make_unique<SqliteStore>(file);
  store->prepare();
  return store;
}

/// All files of a folder with their bytes.
std::map<std::string, std::string> allBytes(Folder const& folder) {
  std::map<std::string, std::string> files;
  for (auto const& entry : std::filesystem::directory_iterator(folder / ""))
    files[entry.path().filename().string()] = readFile(entry.path());
  return files;
}

/// Another process that runs `task`, to which it can send numbers; it ends when the task returns, or is killed.
class Child {
 public:
  using Send = std::function<void(Revision number)>;

  explicit Child(std::function<void(Send const& send)> const& task) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) throw std::system_error(errno, std::generic_category());
    process_ = ::fork();
    if (process_ == 0) {
      ::close(pipe[0]);
      try {
        task([&pipe](Revision number) {
          if (::write(pipe[1], &number, sizeof number) != sizeof number) ::_exit(3);
        });
        ::_exit(0);
      } catch (...) {
        ::_exit(2);
      }
    }
    ::close(pipe[1]);
    input_ = pipe[0];
  }
  ~Child() {
    kill();
    ::close(input_);
  }
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;

  /// The next number that it sent; absent behind the last one.
  std::optional<Revision> receive() const {
    Revision number = 0;
    if (::read(input_, &number, sizeof number) != sizeof number) return std::nullopt;
    return number;
  }
  /// Waits for its end, and gives its exit status.
  int wait() {
    int status = 0;
    if (process_ > 0) ::waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    wait();
  }

 private:
  pid_t process_ = -1;
  int input_ = -1;
};

/// A database as another program would make it.
void makeDatabase(std::string const& file, std::string const& sql) {
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
  sqlite3_close(database);
}

/// The turns that a process commits until it is killed: each replaces one document of a few and one of all.
CommittedTurn turnNumber(Revision revision) {
  CommittedTurn turn = turnOf(revision, {"last", "of/" + std::to_string(revision % 17)}, std::to_string(revision));
  if (revision % 5 == 0) turn.changes.push_back(remove("of/" + std::to_string(revision % 7), revision));
  return turn;
}

/// A process that ended in the middle of its work: the file, and a log beside it.
void leaveLog(std::string const& file) {
  Child child([&](Child::Send const& send) {
    SqliteStore store(file);
    store.prepare();
    for (Revision revision = 1; revision <= 100; ++revision) commitOne(store, turnNumber(revision));
    send(1);
    ::pause();
  });
  EXPECT_TRUE(child.receive());
  child.kill();
}

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

/// A file that is refused, how it comes about, and what is said of it.
struct Refused {
  char const* name;
  std::function<void(std::string const& file)> make;
  std::string reason;
};

/// Names the kind in test messages.
void PrintTo(Refused const& kind, std::ostream* out) { *out << kind.name; }

class RefusedFile : public testing::TestWithParam<Refused> {};

/// Changes bytes of a file that a store left, with a log or without.
std::function<void(std::string const& file)> changed(bool withLog, std::function<void(std::string& bytes)> change) {
  return [withLog, change = std::move(change)](std::string const& file) {
    {
      SqliteStore store(file);
      store.prepare();
      for (Revision revision = 1; revision <= 200; ++revision)
        commitOne(store, turnOf(revision, {std::to_string(revision)}, std::string(300, 'x')));
    }
    if (withLog) leaveLog(file);
    std::string bytes = readFile(file);
    change(bytes);
    std::ofstream(file, std::ios::binary) << bytes;
  };
}

std::function<void(std::string const& file)> written(std::string text) {
  return [text = std::move(text)](std::string const& file) { std::ofstream(file, std::ios::binary) << text; };
}

std::function<void(std::string const& file)> made(std::string sql) {
  return [sql = std::move(sql)](std::string const& file) { makeDatabase(file, sql); };
}

std::function<void(std::string const& file)> altered(std::string sql) {
  return [sql = std::move(sql)](std::string const& file) {
    { SqliteStore const store(file); }
    makeDatabase(file, sql);
  };
}

constexpr char kNoDatabase[] = "is no state file: it does not begin like an SQLite database, which was expected";
constexpr char kNewer[] = "was written by a newer version: its format is 3, 2 or an earlier one was expected";
constexpr char kOther[] = "is no state file: its application id is 0x00000000, 0x456e726c was expected";

INSTANTIATE_TEST_SUITE_P(
    All, RefusedFile,
    testing::Values(
        Refused{"Text", written("{\"put\": \"controller/config\", \"value\": {}}\n"), kNoDatabase},
        Refused{"OneByte", written("S"), "is no state file: it has one byte"},
        Refused{"TwoBytes", written("SQ"), kNoDatabase},
        Refused{"BeginningOfAHeader", written(std::string("SQLite format 3\0", 16)), kNoDatabase},
        Refused{"Zeros", written(std::string(8192, '\0')), kNoDatabase},
        Refused{"OtherProgram", made("CREATE TABLE a(b); INSERT INTO a VALUES (1)"), kOther},
        Refused{"OtherProgramWithLog",
                [](std::string const& file) {
                  Child child([&](Child::Send const& send) {
                    makeDatabase(file, "PRAGMA journal_mode = WAL; CREATE TABLE a(b)");
                    sqlite3* database = nullptr;
                    sqlite3_open(file.c_str(), &database);
                    sqlite3_exec(database, "INSERT INTO a VALUES (1)", nullptr, nullptr, nullptr);
                    send(1);
                    ::pause();
                  });
                  EXPECT_TRUE(child.receive());
                },
                kOther},
        Refused{"OtherApplication",
                altered("PRAGMA application_id = -2"),
                "is no state file: its application id is 0xfffffffe, 0x456e726c was expected"},
        Refused{"Newer", altered("PRAGMA user_version = 3"), kNewer},
        Refused{"NewerWithLog", changed(true, [](std::string& bytes) { bytes[63] = 3; }), kNewer},
        Refused{"OfNoFormat",
                altered("PRAGMA user_version = 0"),
                "is damaged: its format is 0, 2 or an earlier one was expected"},
        Refused{"WithoutDocuments", altered("DROP TABLE document"), "is damaged: it lacks a table of format 2"},
        Refused{"OtherDocuments",
                altered("ALTER TABLE document ADD COLUMN more ANY"),
                "is damaged: it lacks a table of format 2"},
        Refused{"WithoutState", altered("DELETE FROM state"), "is damaged: it lacks the row of the state"},
        Refused{"HeaderChanged", changed(false, [](std::string& bytes) { bytes[16] = 3; }), "is damaged: "},
        Refused{"CutOff", changed(false, [](std::string& bytes) { bytes.resize(bytes.size() / 2); }), "is damaged: "},
        Refused{
            "CutInAPage", changed(false, [](std::string& bytes) { bytes.resize(bytes.size() - 100); }), "is damaged: "},
        Refused{"PageOverwritten",
                changed(false, [](std::string& bytes) { bytes.replace(6 * 4096, 4096, 4096, 'x'); }),
                "is damaged: "},
        Refused{"SchemaOverwritten",
                changed(false, [](std::string& bytes) { bytes.replace(100, 3996, 3996, 'x'); }),
                "is damaged: "},
        Refused{"DamagedBesideALog",
                changed(true,
                        [](std::string& bytes) {
                          // Some of these pages are in the log, too, which then stand for them.
                          for (std::size_t page = 8; page * 4096 < bytes.size(); ++page)
                            bytes.replace(page * 4096, 100, 100, '\x7f');
                        }),
                "is damaged: "}),
    [](auto const& kind) { return kind.param.name; });

TEST_P(RefusedFile, StaysAsItIs) {
  Folder folder;
  std::string const file = folder / "state";
  GetParam().make(file);
  auto const before = allBytes(folder);
  for (int n = 0; n < 2; ++n) {
    std::string const said = refusal(file);
    EXPECT_THAT(said, AllOf(StartsWith(file + ": " + GetParam().reason), Not(HasSubstr("\n"))));
    EXPECT_TRUE(allBytes(folder) == before) << said;
  }
}

TEST(SqliteStore, RefusesAnyChangeThatBreaksItAndLeavesItAsItIs) {
  Folder folder;
  std::string const file = folder / "state";
  changed(true, [](std::string&) {})(file);
  auto const whole = allBytes(folder);
  std::mt19937 random(3);
  int refused = 0;
  for (int round = 0; round < 60; ++round) {
    auto files = whole;
    std::string& bytes = files["state"];
    std::size_t const at = std::uniform_int_distribution<std::size_t>(0, bytes.size() - 1)(random);
    // Near the beginning of a page are the numbers that hold it together.
    std::size_t const from = round % 2 == 0 ? at / 4096 * 4096 : at;
    for (std::size_t n = from; n < std::min(from + 64, bytes.size()); ++n) bytes[n] = static_cast<char>(random());
    for (auto const& [name, content] : files) folder.write(name, content);
    try {
      SqliteStore store(file);
      contents(store);
    } catch (StoreError const& error) {
      ++refused;
      EXPECT_TRUE(allBytes(folder) == files) << error.what();
    }
  }
  EXPECT_GT(refused, 20);
}

TEST(SqliteStore, TellsOfDamageThatComesWhileItIsOpen) {
  Folder folder;
  std::string const file = folder / "state";
  // More than is kept in memory of the file.
  CommittedTurn turn{1, {}};
  for (int n = 0; n < 1000; ++n) turn.changes.push_back(put(std::to_string(n), std::string(10'000, 'x'), 1));
  commitOne(*opened(file), turn);
  SqliteStore store(file);
  store.prepare();
  std::string const page(4096, 'x');
  {
    std::fstream bytes(file, std::ios::binary | std::ios::in | std::ios::out);
    for (std::size_t n = std::filesystem::file_size(file) / page.size(); --n > 0;)
      bytes.seekp(static_cast<std::streamoff>(n * page.size())) << page;
  }
  for (int n = 0; n < 3; ++n) {
    try {
      commitOne(store, turn);
      ADD_FAILURE() << "it was kept in a damaged file";
    } catch (StoreError const& error) {
      EXPECT_EQ(error.what(), file + ": is damaged: database disk image is malformed");
    }
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

TEST(SqliteStore, HoldsEveryAnsweredTurnAfterAKill) {
  Folder folder;
  std::string const file = folder / "state";
  StoreModel model;
  Revision answered = 0;
  for (int round = 0; round < 12; ++round) {
    Child child([&](Child::Send const& send) {
      SqliteStore store(file);
      store.prepare();
      for (Revision revision = contents(store).revision + 1;;) {
        // One by one, and several together.
        std::vector<CommittedTurn> turns;
        for (Revision n = 0; n < 1 + revision % 4; ++n) turns.push_back(turnNumber(revision + n));
        store.commit(turns);
        revision += turns.size();
        send(revision - 1);
      }
    });
    for (int n = 0; n < 1 + round * round; ++n) {
      std::optional<Revision> const number = child.receive();
      ASSERT_TRUE(number);
      answered = *number;
    }
    child.kill();
    while (std::optional<Revision> const number = child.receive()) answered = *number;

    SqliteStore store(file);
    StoreModel const found = contents(store);
    EXPECT_GE(found.revision, answered);
    while (model.revision < found.revision) {
      CommittedTurn const turn = turnNumber(model.revision + 1);
      model.commit(std::span(&turn, 1));
    }
    ASSERT_EQ(found, model) << "round " << round;
  }
}

TEST(SqliteStore, IsMadeAgainIfItsMakingWasInterrupted) {
  std::mt19937 random(5);
  for (int round = 0; round < 40; ++round) {
    Folder folder;
    std::string const file = folder / "state";
    Child child([&](Child::Send const& send) {
      send(0);
      SqliteStore const store(file);
    });
    ASSERT_TRUE(child.receive());
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
    child.kill();
    ASSERT_EQ(refusal(file), "") << testing::PrintToString(allBytes(folder));
    SqliteStore store(file);
    store.prepare();
    commitOne(store, turnOf(1, {"a"}, "1"));
    EXPECT_EQ(contents(store), (StoreModel{{{"a", {"1", 1, -1}}}, 1}));
  }
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

TEST(SqliteStore, LivesThroughADiskThatIsReallyFull) {
  Folder folder;
  std::string const volume = folder / "volume";
  std::filesystem::create_directory(volume);
  constexpr int kNoVolume = 77;
  // The volume is seen by the other process alone and ends with it.
  Child child([&](Child::Send const&) {
    if (::unshare(CLONE_NEWNS) != 0) ::_exit(kNoVolume);
    ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    if (::mount("none", volume.c_str(), "tmpfs", 0, "size=1m") != 0) ::_exit(kNoVolume);
    StoreModel model;
    auto store = opened(volume + "/state");
    auto const check = [&](bool holds, int status) {
      if (!holds || contents(*store) != model) ::_exit(status);
    };
    for (int round = 0; round < 3; ++round) {
      std::ofstream(volume + "/ballast") << std::string(500'000, 'x') << std::flush;
      bool isFull = false;
      while (!isFull) {
        std::vector<CommittedTurn> turns;
        for (Revision n = 1; n <= 3; ++n)
          turns.push_back(turnOf(model.revision + n, {std::to_string(n)}, std::string(7'000, 'y')));
        try {
          store->commit(turns);
          model.commit(turns);
        } catch (StoreFull const&) {
          isFull = true;
        }
        check(true, 10);
      }
      try {
        store->prepare();
        check(false, 11);
      } catch (StoreFull const&) {
        check(true, 12);
      }
      std::filesystem::remove(volume + "/ballast");
      store->prepare();
      CommittedTurn const turn = turnOf(model.revision + 1, {"a"}, "b");
      commitOne(*store, turn);
      model.commit(std::span(&turn, 1));
      check(true, 13);
      store.reset();
      store = opened(volume + "/state");
      check(true, 14);
    }
    // A file that cannot be made at all.
    std::ofstream(volume + "/ballast") << std::string(2'000'000, 'x') << std::flush;
    try {
      SqliteStore const other(volume + "/other");
      ::_exit(15);
    } catch (StoreFull const&) {
    }
  });
  int const status = child.wait();
  if (status == kNoVolume) GTEST_SKIP() << "this process may not make a volume";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace Agent::SqliteStoreTest
