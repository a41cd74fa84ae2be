// The reader of ring trace files: what it refuses, and that it survives any bytes.
#include "framework/trace/swiftlog_reader.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "framework/text/name.h"
#include "framework/trace/swiftlog_file.h"
#include "support/ring_file.h"
#include "support/trace_capture.h"

namespace SwiftlogReaderTest {
namespace {

using Swiftlog::FileHeader;
using Test::bytesOf;
using Test::complaint;
using Test::headerOf;
using Test::leveled;
using Test::repeated;
using Test::write;

TEST(RingReader, NamesWhatIsWrongWithAFile) {
  TemporaryPath const path("ring-foreign");
  EXPECT_EQ(complaint(path.path()), "No such file or directory");
  EXPECT_EQ(complaint(std::filesystem::temp_directory_path()), "not a regular file");
  write(path.path(), "");
  EXPECT_EQ(complaint(path.path()), "not a ring trace file");
  write(path.path(), std::string(100'000, 'x'));
  EXPECT_EQ(complaint(path.path()), "not a ring trace file");
}

/// A small file with every kind of content, its rings wrapped around and something dropped.
std::string richFile() {
  RingCapture ring({.descriptions = 512, .ring = 200});
  for (int i = 0; i < 40; ++i) {
    repeated(i);
    leveled(1 + i % 3, std::string(static_cast<std::size_t>(i), 'v'));
    RING(5, 5, "flags ", i % 2 == 0, true, Nox::Name("n"));
  }
  leveled(1, std::string(300, 'z'));
  return bytesOf(ring.path());
}

TEST(RingReader, RefusesAFileThatIsCutShortOrTooLong) {
  std::string const whole = richFile();
  TemporaryPath const path("ring-cut");
  for (std::size_t size = 0; size < whole.size(); size += 1 + size / 100) {
    write(path.path(), whole.substr(0, size));
    EXPECT_NE(complaint(path.path()), "") << size;
  }
  write(path.path(), whole + 'x');
  EXPECT_NE(complaint(path.path()), "");
  write(path.path(), whole);
  EXPECT_EQ(complaint(path.path()), "");
}

TEST(RingReader, RefusesImpossibleNumbers) {
  std::string const whole = richFile();
  TemporaryPath const path("ring-numbers");
  FileHeader const header = headerOf(whole);
  std::size_t const rings = sizeof(FileHeader) + header.descriptionSize;
  std::size_t const record = rings + std::size_t{3} * header.ringSize + header.rings[3].oldest % header.ringSize;
  std::size_t const flags = rings + std::size_t{4} * header.ringSize + header.rings[4].oldest % header.ringSize;
  // Each place of a 32-bit number, with what may not stand there.
  struct Case {
    std::size_t place;
    std::vector<std::uint32_t> wrong;
  };
  std::uint32_t const most = std::numeric_limits<std::uint32_t>::max();
  for (auto const& [place, wrong] : {Case{0, {0}},
                                     Case{8, {0, 2}},
                                     Case{12, {0, 511, most}},
                                     Case{16, {0, 199, most}},
                                     Case{20, {1, 513, most}},
                                     Case{44, {1, most}},
                                     Case{52, {1, most}},
                                     Case{sizeof(FileHeader), {0, 7, 12, most}},
                                     Case{sizeof(FileHeader) + 9, {1, most}},
                                     Case{record, {0, 23, most}},
                                     Case{record + 4, {0, 99, most}},
                                     Case{record + 12, {most}},
                                     Case{flags + sizeof(Swiftlog::RecordHeader), {0x10002}}}) {
    for (std::uint32_t const number : wrong) {
      std::string bytes = whole;
      std::memcpy(&bytes[place], &number, sizeof number);
      write(path.path(), bytes);
      EXPECT_NE(complaint(path.path()), "") << "place " << place << " number " << number;
    }
  }
}

// Whatever bits are wrong, the reader prints or complains; a sanitizer watches that it does nothing else.
TEST(RingReader, SurvivesFlippedBits) {
  std::string const whole = richFile();
  FileHeader const header = headerOf(whole);
  TemporaryPath const path("ring-flipped");
  int complaints = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    std::mt19937 random(seed);
    std::string bytes = whole;
    // Half of the flips hit header and descriptions, which are the smaller part.
    for (unsigned flips = 1 + seed % 4; flips > 0; --flips) {
      std::size_t const within = random() % 2 == 0 ? bytes.size() : sizeof(FileHeader) + header.descriptionUsed;
      bytes[random() % within] ^= static_cast<char>(1U << random() % 8);
    }
    write(path.path(), bytes);
    if (!complaint(path.path()).empty()) ++complaints;
  }
  EXPECT_GT(complaints, 500);
}

}  // namespace
}  // namespace SwiftlogReaderTest
