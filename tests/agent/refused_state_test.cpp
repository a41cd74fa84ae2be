// State files that are refused, and stay as they are.
#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <random>

#include "support/program.h"
#include "support/state_files.h"
#include "support/store_model.h"

namespace Agent::RefusedStateTest {
namespace {

using Test::allBytes;
using Test::Child;
using Test::leaveLog;
using Test::makeDatabase;
using Test::opened;
using Test::refusal;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

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
        Refused{"OneByte", written("S"), kNoDatabase}, Refused{"TwoBytes", written("SQ"), kNoDatabase},
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

TEST(RefusedState, RefusesAnyChangeThatBreaksItAndLeavesItAsItIs) {
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

TEST(RefusedState, TellsOfDamageThatComesWhileItIsOpen) {
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

}  // namespace
}  // namespace Agent::RefusedStateTest
