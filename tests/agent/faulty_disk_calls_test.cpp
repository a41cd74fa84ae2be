// The simulated disk, call by call: what a loss of power takes.
#include <gmock/gmock.h>

#include <memory>
#include <set>
#include <utility>

#include "support/faulty_disk.h"
#include "support/open_file.h"

namespace Test::FaultyDiskCallsTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

sqlite3_vfs& vfsOf(FaultyDisk const& disk) { return *sqlite3_vfs_find(disk.name()); }

/// A disk with one file that is there for good.
struct OneFile {
  OneFile() {
    disk.setBytes("/f", std::string(1536, 'o'));
    file = std::make_unique<OpenFile>(vfsOf(disk), "/f", kCreate | SQLITE_OPEN_MAIN_DB);
  }

  FaultyDisk disk;
  std::unique_ptr<OpenFile> file;
};

TEST(FaultyDiskCalls, LoseWhatAFailedSyncDidNotWriteInSpiteOfALaterOne) {
  for (std::uint32_t seed = 0; seed < 20; ++seed) {
    OneFile one;
    one.disk.plan({.call = CallKind::sync});
    EXPECT_EQ(one.file->write("lost"), SQLITE_OK);
    EXPECT_EQ(one.file->sync(), SQLITE_IOERR_FSYNC);
    EXPECT_EQ(one.file->write("kept", 8), SQLITE_OK);
    EXPECT_EQ(one.file->sync(), SQLITE_OK);
    EXPECT_EQ(one.disk.bytes("/f").substr(0, 12), "lostooookept");
    one.disk.powerCut(seed);
    one.disk.restart();
    EXPECT_EQ(one.disk.bytes("/f").substr(0, 12), "ooooooookept");
  }
}

TEST(FaultyDiskCalls, StopHalfWayOrDoNothingWhenTheyAreToldTo) {
  OneFile one;
  one.disk.plan({.effect = Effect::shorten, .error = EDQUOT});
  EXPECT_EQ(one.file->write("12345678"), SQLITE_IOERR_WRITE);
  EXPECT_EQ(one.disk.bytes("/f").substr(0, 6), "1234oo");
  for (CallKind const kind : {CallKind::write, CallKind::truncate, CallKind::remove})
    one.disk.plan({.effect = Effect::lie, .call = kind});
  EXPECT_EQ(one.file->write("abcd"), SQLITE_OK);
  EXPECT_EQ(one.file->truncate(0), SQLITE_OK);
  sqlite3_vfs& vfs = vfsOf(one.disk);
  EXPECT_EQ(vfs.xDelete(&vfs, "/f", 1), SQLITE_OK);
  EXPECT_EQ(one.disk.bytes("/f").substr(0, 6), "1234oo");
  EXPECT_EQ(one.disk.bytes("/f").size(), 1536U);
  EXPECT_EQ(one.disk.fired(), 4U);
  EXPECT_EQ(one.file->truncate(0), SQLITE_OK);
  EXPECT_EQ(one.disk.bytes("/f"), "");
}

// Whatever the file held beside it is left alone, and each sector has a fate of its own.
TEST(FaultyDiskCalls, KeepLoseTearOrSpoilEachUnsynchronisedSector) {
  std::set<std::string> fates;
  std::set<std::vector<std::string>> together;
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    OneFile one;
    // One whole sector and parts of two.
    EXPECT_EQ(one.file->write(std::string(912, 'n'), 200), SQLITE_OK);
    one.disk.powerCut(seed);
    EXPECT_EQ(one.file->sync(), SQLITE_IOERR);
    one.disk.restart();
    EXPECT_EQ(one.file->write("x"), SQLITE_IOERR) << "of a process that has ended";
    std::string const bytes = one.disk.bytes("/f");
    ASSERT_EQ(bytes.size(), 1536U) << "seed " << seed;
    EXPECT_EQ(bytes.substr(0, 200), std::string(200, 'o')) << "seed " << seed;
    EXPECT_EQ(bytes.substr(1112), std::string(424, 'o')) << "seed " << seed;
    std::vector<std::string> all;
    for (auto const& [begin, end] : {std::pair(200, 512), std::pair(512, 1024), std::pair(1024, 1112)}) {
      std::string const piece = bytes.substr(begin, end - begin);
      if (piece.find_first_not_of("on") != std::string::npos)
        all.emplace_back("spoilt");
      else if (piece.find('o') == std::string::npos)
        all.emplace_back("kept");
      else if (piece.find('n') == std::string::npos)
        all.emplace_back("lost");
      else
        all.emplace_back(piece.front() == 'n' ? "begun" : "ended");
    }
    fates.insert(all.begin(), all.end());
    together.insert(all);
  }
  EXPECT_THAT(fates, UnorderedElementsAre("kept", "lost", "begun", "ended", "spoilt"));
  for (char const* outer : {"kept", "lost"})
    for (char const* inner : {"kept", "lost"})
      EXPECT_TRUE(together.contains({outer, inner, outer})) << inner << " between " << outer;
}

TEST(FaultyDiskCalls, KeepOrLoseUnsynchronisedLengths) {
  std::set<std::size_t> sizes;
  for (std::uint32_t seed = 0; seed < 100; ++seed) {
    OneFile one;
    EXPECT_EQ(one.file->truncate(100), SQLITE_OK);
    EXPECT_EQ(one.file->write(std::string(10, 'n'), 1600), SQLITE_OK);
    EXPECT_EQ(one.disk.bytes("/f").substr(0, 101), std::string(100, 'o') + '\0');
    one.disk.powerCut(seed);
    one.disk.restart();
    sizes.insert(one.disk.bytes("/f").size());
  }
  EXPECT_TRUE(sizes.contains(100) && sizes.contains(1536) && sizes.contains(1610)) << testing::PrintToString(sizes);
}

TEST(FaultyDiskCalls, KeepOrLoseNamesUntilTheirFolderIsSynchronised) {
  std::set<std::vector<std::string>> outcomes;
  std::set<std::vector<std::string>> afterOwnSync;
  std::set<std::vector<std::string>> afterLaterSync;
  for (std::uint32_t seed = 0; seed < 40; ++seed) {
    FaultyDisk disk;
    sqlite3_vfs& vfs = vfsOf(disk);
    disk.setBytes("/d/gone", "x");
    disk.setBytes("/d/old", "x");
    EXPECT_EQ(vfs.xDelete(&vfs, "/d/gone", 0), SQLITE_OK);
    OpenFile const made(vfs, "/d/made", kCreate | SQLITE_OPEN_MAIN_DB);
    OpenFile log(vfs, "/d/log-wal", kCreate | SQLITE_OPEN_WAL);
    EXPECT_THAT(disk.names(), ElementsAre("/d/log-wal", "/d/made", "/d/old"));
    FaultyDisk::Snapshot const before = disk.snapshot();
    disk.powerCut(seed);
    disk.restart();
    outcomes.insert(disk.names());

    disk.restoreTo(before);
    EXPECT_EQ(vfs.xDelete(&vfs, "/d/old", 1), SQLITE_OK);
    disk.powerCut(seed);
    disk.restart();
    EXPECT_THAT(disk.names(), ElementsAre("/d/log-wal", "/d/made"));

    // A file makes its own name durable, and a new log the whole folder.
    disk.restoreTo(before);
    OpenFile again(vfs, "/d/made", kCreate | SQLITE_OPEN_MAIN_DB);
    EXPECT_EQ(again.sync(), SQLITE_OK);
    disk.powerCut(seed);
    disk.restart();
    afterOwnSync.insert(disk.names());

    disk.restoreTo(before);
    OpenFile logAgain(vfs, "/d/log-wal", kCreate | SQLITE_OPEN_WAL);
    EXPECT_EQ(logAgain.sync(), SQLITE_OK);
    FaultyDisk::Snapshot const synchronised = disk.snapshot();
    disk.powerCut(seed);
    disk.restart();
    EXPECT_THAT(disk.names(), ElementsAre("/d/log-wal", "/d/made", "/d/old"));

    // That is done once.
    disk.restoreTo(synchronised);
    OpenFile logOnceMore(vfs, "/d/log-wal", kCreate | SQLITE_OPEN_WAL);
    EXPECT_EQ(logOnceMore.sync(), SQLITE_OK);
    EXPECT_EQ(vfs.xDelete(&vfs, "/d/old", 0), SQLITE_OK);
    EXPECT_EQ(logOnceMore.sync(), SQLITE_OK);
    disk.powerCut(seed);
    disk.restart();
    afterLaterSync.insert(disk.names());
  }
  EXPECT_EQ(outcomes.size(), 8U);
  EXPECT_EQ(afterOwnSync.size(), 4U);
  EXPECT_EQ(afterLaterSync.size(), 2U);
  for (auto const& names : afterOwnSync) EXPECT_THAT(names, testing::Contains("/d/made"));
}

TEST(FaultyDiskCalls, AreUndoneByASnapshot) {
  OneFile one;
  EXPECT_EQ(one.file->write(std::string(1000, 'n'), 100), SQLITE_OK);
  OpenFile const other(vfsOf(one.disk), "/g", kCreate | SQLITE_OPEN_MAIN_DB);
  FaultyDisk::Snapshot const before = one.disk.snapshot();
  std::string const bytes = one.disk.bytes("/f");
  for (std::uint32_t seed = 0; seed < 20; ++seed) {
    std::vector<FaultyDisk::Snapshot> ends;
    for (int time = 0; time < 2; ++time) {
      one.disk.restoreTo(before);
      EXPECT_TRUE(one.disk.snapshot() == before);
      EXPECT_EQ(one.disk.bytes("/f"), bytes);
      EXPECT_THAT(one.disk.calls(), IsEmpty());
      one.disk.powerCut(seed);
      one.disk.restart();
      ends.push_back(one.disk.snapshot());
    }
    EXPECT_TRUE(ends[0] == ends[1]) << "seed " << seed;
    one.disk.setBytes("/f", "y");
    one.disk.remove("/g");
    EXPECT_EQ(one.disk.bytes("/f"), "y");
    EXPECT_THAT(one.disk.names(), ElementsAre("/f"));
  }
}

}  // namespace
}  // namespace Test::FaultyDiskCallsTest
