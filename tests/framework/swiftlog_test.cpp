// The ring-buffer trace: what a statement leaves in the file, and what the reader makes of it.
#include "framework/trace/swiftlog.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "framework/text/name.h"
#include "framework/text/string8.h"
#include "framework/trace/swiftlog_file.h"
#include "framework/trace/swiftlog_reader.h"
#include "framework/trace/trace.h"
#include "support/ring_file.h"
#include "support/trace_capture.h"

namespace SwiftlogTest {
namespace {

using Lines = std::vector<std::string>;
using Swiftlog::FileHeader;
using Swiftlog::TraceFile;
using Test::bytesOf;
using Test::headerOf;
using Test::leveled;
using Test::onceMore;
using Test::repeated;
using Test::write;

/// A number that prints with a word of its own.
struct Degrees {
  int value;
};
std::ostream& operator<<(std::ostream& out, Degrees const& degrees) { return out << degrees.value << "deg"; }

/// A value that traces in the very ring buffer that it is recorded in.
struct Chatty {};
std::ostream& operator<<(std::ostream& out, Chatty const& /*value*/) {
  RING(4, 13, "chatting ", Degrees{1});
  return out << "chatty";
}

TEST(RingTrace, AStatementWithoutATraceFileTouchesNothing) {
  ASSERT_EQ(Swiftlog::theTraceFile, nullptr);
  int evaluated = 0;
  auto const statement = [&evaluated] { RING(1, 1, "value ", ++evaluated); };
  statement();
  EXPECT_EQ(evaluated, 0);
  // Its cell is still 0, or the message would not be described now.
  RingCapture ring;
  EXPECT_EQ(ring.file().messages(), 0);
  statement();
  EXPECT_EQ(ring.file().messages(), 1);
  EXPECT_EQ(ring.messages(), Lines{"1 1 value 1"});
}

TEST(RingTrace, AMessageIsDescribedTheFirstTimeAlone) {
  RingCapture ring;
  for (int i = 0; i < 3; ++i) repeated(i);
  EXPECT_EQ(ring.file().messages(), 1);
  onceMore();
  EXPECT_EQ(ring.file().messages(), 2);
  EXPECT_EQ(ring.messages(), (Lines{"4 11 repeated 0", "4 11 repeated 1", "4 11 repeated 2", "1 12 once more"}));
}

TEST(RingTrace, ClosingTheFileResetsItsCells) {
  for (int round = 0; round < 2; ++round) {
    RingCapture ring;
    if (round == 1) onceMore();  // so that the numbers differ from those of the file before
    repeated(round);
    onceMore();
    Lines const expected = round == 0 ? Lines{"4 11 repeated 0", "1 12 once more"}
                                      : Lines{"1 12 once more", "4 11 repeated 1", "1 12 once more"};
    EXPECT_EQ(ring.messages(), expected);
    EXPECT_EQ(ring.file().messages(), 2);
  }
  EXPECT_EQ(Swiftlog::theTraceFile, nullptr);

  TemporaryPath const path("ring-cell");
  std::unique_ptr<TraceFile> other = TraceFile::open(path.path());
  int cell = 17;
  other->msgIdArrIs(&cell);
  RingCapture ring;
  other.reset();
  EXPECT_EQ(cell, 0);
  EXPECT_EQ(Swiftlog::theTraceFile, &ring.file()) << "only the process's own file is taken back";
}

TEST(RingTrace, RecordsEveryKindOfValue) {
  RingCapture ring;
  char const* const none = nullptr;
  char changeable[] = "first";
  bool const flag = true;
  RING(1, 1, "only literals", "!");
  RING(1, 2, flag, " ", false, "/", !flag);
  RING(1, 3, Nox::Name("name"), " ", Nox::String8("text"), " ", std::string("a\0b\n", 4), std::string_view(), none);
  RING(1,
       4,
       std::numeric_limits<std::uint64_t>::max(),
       " ",
       std::numeric_limits<std::int64_t>::min(),
       " ",
       0,
       " ",
       std::uint16_t{7},
       " ",
       'c');
  RING(1, 5, Degrees{12}, " ", 0.25, " ", Degrees{-3}, true);
  for (int i = 0; i < 2; ++i, std::strcpy(changeable, "next")) RING(1, 6, changeable);
  EXPECT_EQ(ring.messages(),
            (Lines{"1 1 only literals!",
                   "1 2 1 0/0",
                   "1 3 name text a\\x00b\\n",
                   "1 4 18446744073709551615 -9223372036854775808 0 7 c",
                   "1 5 12deg 0.25 -3deg1",
                   "1 6 first",
                   "1 6 next"}));
}

// The operations that a statement uses, one by one, and the bytes that they leave.
TEST(RingTrace, ARecordHoldsIdAndValuesAndNoLiteral) {
  RingCapture ring;
  Swiftlog::MsgDesc description(&ring.file(), "ProbeFile", 267);
  Swiftlog::MsgFormatString text;
  text.put("p");
  Swiftlog::MsgFormatString flag;
  flag.put("b");
  description << "literal one" << Swiftlog::Varg(text) << "literal two" << Swiftlog::Varg(flag);
  EXPECT_EQ(description.id(), 0);
  description.finish();
  EXPECT_EQ(description.id(), 1);

  Swiftlog::RingBuf* const buffer = ring.file().ringBuf(6);
  buffer->startMsg(&ring.file(), description.id());
  Swiftlog::put(buffer, "value");
  Swiftlog::put(buffer, true);
  buffer->endMsg();

  std::string const bytes = bytesOf(ring.path());
  FileHeader const header = headerOf(bytes);
  for (unsigned i = 0; i < Swiftlog::kRings; ++i)
    EXPECT_EQ(header.rings[i].end, i == 6 ? sizeof(Swiftlog::RecordHeader) + 4 + 5 + 1 : 0U) << i;
  std::string const record =
      bytes.substr(sizeof(FileHeader) + header.descriptionSize + std::size_t{6} * header.ringSize, header.rings[6].end);
  EXPECT_EQ(record.substr(sizeof(Swiftlog::RecordHeader)), std::string("\5\0\0\0value\1", 10));
  EXPECT_EQ(ring.messages(), Lines{"7 267 literal onevalueliteral two1"});
}

TEST(RingTrace, AValueMayTraceWhileItIsRecorded) {
  RingCapture ring;
  RING(4, 14, "outer ", Degrees{2}, " ", Chatty{}, " ", Degrees{3});
  EXPECT_EQ(ring.messages(), (Lines{"4 13 chatting 1deg", "4 14 outer 2deg chatty 3deg"}));
}

TEST(RingTrace, LevelsAreMergedInTheOrderTraced) {
  RingCapture ring;
  Lines expected;
  std::mt19937 random(7);
  for (int i = 0; i < 200; ++i) {
    int const level = std::array{1, 2, 9}[random() % 3];
    leveled(level, std::to_string(i));
    expected.push_back(std::to_string(level) + ' ' + std::to_string(level) + ' ' + std::to_string(i));
  }
  EXPECT_EQ(ring.messages(), expected);
}

TEST(RingTrace, AMessageCarriesItsTimeInUtc) {
  RingCapture ring;
  repeated(1);
  std::string bytes = bytesOf(ring.path());
  FileHeader const header = headerOf(bytes);
  std::size_t const place = sizeof(FileHeader) + header.descriptionSize + std::size_t{3} * header.ringSize +
                            offsetof(Swiftlog::RecordHeader, time);
  std::uint64_t recorded = 0;
  std::memcpy(&recorded, &bytes[place], sizeof recorded);
  EXPECT_GT(recorded, 1'700'000'000'000'000'000U);

  struct Case {
    std::uint64_t time;
    char const* printed;
  };
  TemporaryPath const copy("ring-time");
  for (auto const& [time, printed] : {Case{0, "1970-01-01T00:00:00.000000Z"},
                                      Case{1'709'209'799'000'001'999, "2024-02-29T12:29:59.000001Z"},
                                      Case{std::numeric_limits<std::uint64_t>::max(), "2554-07-21T23:34:33.709551Z"}}) {
    std::memcpy(&bytes[place], &time, sizeof time);
    write(copy.path(), bytes);
    EXPECT_EQ(printedRing(copy.path()), Lines{std::string(printed) + " 4 11 repeated 1"});
  }
}

// A ring buffer against a model: a queue of records that gives up its oldest ones when a new one needs their room.
TEST(RingTrace, TheNewestRecordsAreAlwaysThere) {
  for (unsigned seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::uint32_t const size = 64 + random() % 500;
    RingCapture ring({.descriptions = 4096, .ring = size});
    struct Entry {
      std::string text;
      std::size_t size;
    };
    std::deque<Entry> model;
    std::size_t used = 0;
    std::uint64_t dropped = 0;
    for (int i = 0; i < 300; ++i) {
      std::string text =
          std::to_string(i) + ':' + std::string(random() % (random() % 20 == 0 ? 2 * size : size / 4 + 1), 'x');
      std::size_t const needed = sizeof(Swiftlog::RecordHeader) + 4 + text.size();
      leveled(2, text);
      if (needed > size) {
        ++dropped;
      } else {
        for (; used + needed > size; model.pop_front()) used -= model.front().size;
        model.push_back({std::move(text), needed});
        used += needed;
      }
      if (i % 10 != 0) continue;
      Lines expected;
      for (Entry const& entry : model) expected.push_back("2 2 " + entry.text);
      if (dropped != 0)
        expected.push_back("(records dropped: " + std::to_string(dropped) +
                           ", messages without room for their description: 0)");
      ASSERT_EQ(ring.messages(), expected);
    }
    EXPECT_EQ(ring.file().droppedRecords(), dropped);
  }
}

TEST(RingTrace, ARecordThatFillsItsRingBufferStaysAndOneByteMoreIsDroppedWhole) {
  RingCapture ring({.descriptions = 4096, .ring = 100});
  std::string const full(100 - sizeof(Swiftlog::RecordHeader) - 4, 'f');
  leveled(1, full);
  EXPECT_EQ(ring.messages(), Lines{"1 1 " + full});
  leveled(1, full + 'g');
  leveled(1, std::string(1000, 'h'));
  EXPECT_EQ(ring.messages(),
            (Lines{"1 1 " + full, "(records dropped: 2, messages without room for their description: 0)"}));
}

TEST(RingTrace, AMessageWithoutRoomForItsDescriptionIsCountedOnceAndItsRecordsAreDropped) {
  RingCapture ring({.descriptions = 100, .ring = 4096});
  auto const tooLong = [](int value) {
    RING(3, 1, "a literal that is longer than what the description area of one hundred bytes has left for it. ", value);
  };
  onceMore();
  for (int i = 0; i < 4; ++i) tooLong(i);
  onceMore();
  EXPECT_EQ(ring.file().messages(), 1);
  EXPECT_EQ(ring.file().droppedDescriptions(), 1U);
  EXPECT_EQ(
      ring.messages(),
      (Lines{
          "1 12 once more", "1 12 once more", "(records dropped: 4, messages without room for their description: 1)"}));
}

TEST(TraceFile, WhatWasTracedSurvivesTheDeathOfTheProcess) {
  RingCapture ring;
  pid_t const child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    repeated(1);
    Swiftlog::RingBuf* const buffer = ring.file().ringBuf(3);
    buffer->startMsg(&ring.file(), 1);  // dies in the middle of a record
    Swiftlog::put(buffer, "unfinished");
    raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(ring.messages(), Lines{"4 11 repeated 1"});
}

TEST(TraceFile, WhatIsNotCommittedIsNotRead) {
  RingCapture ring({.descriptions = 4096, .ring = 256});
  for (int i = 0; i < 20; ++i) leveled(1, std::to_string(i));
  Lines const expected = ring.messages();
  std::string bytes = bytesOf(ring.path());
  FileHeader const header = headerOf(bytes);
  std::size_t const start = sizeof(FileHeader) + header.descriptionSize;
  for (std::uint64_t at = header.rings[0].end; at < header.rings[0].oldest + header.ringSize; ++at)
    bytes[start + at % header.ringSize] = '\xEE';
  for (std::size_t at = header.descriptionUsed; at < header.descriptionSize; ++at)
    bytes[sizeof(FileHeader) + at] = '\xEE';
  TemporaryPath const copy("ring-torn");
  write(copy.path(), bytes);
  Lines lines = printedRing(copy.path());
  for (std::string& line : lines) line.erase(0, line.find(' ') + 1);
  EXPECT_EQ(lines, expected);
}

TEST(TraceFile, OpeningAPathAgainStartsNewContents) {
  TemporaryPath const path("ring-again");
  for (std::uint32_t const size : {4096U, 4096U, 64U, 5000U}) {
    std::unique_ptr<TraceFile> const file = TraceFile::open(path.path(), {.descriptions = size, .ring = size});
    Swiftlog::theTraceFile = file.get();
    EXPECT_EQ(printedRing(path.path()), Lines{});
    repeated(1);
    EXPECT_EQ(printedRing(path.path()).size(), 1U);
  }
}

TEST(TraceFile, OpeningFailsWithThePathAndTheReason) {
  TemporaryPath const path("ring-open");
  RingCapture ring;
  struct Case {
    std::filesystem::path path;
    TraceFile::Sizes sizes;
    int error;
  };
  for (Case const& wrong : {Case{std::filesystem::temp_directory_path(), {}, EISDIR},
                            Case{path.path() / "deeper", {}, ENOENT},
                            Case{"/dev/null", {}, EINVAL},
                            Case{ring.path(), {}, EBUSY},
                            Case{path.path(), {.ring = 63}, EINVAL},
                            Case{path.path(), {.descriptions = Swiftlog::kMaxAreaSize + 1}, EINVAL}}) {
    try {
      TraceFile::open(wrong.path, wrong.sizes);
      ADD_FAILURE() << "opened " << wrong.path;
    } catch (std::system_error const& error) {
      EXPECT_EQ(error.code().value(), wrong.error) << error.what();
      EXPECT_EQ(std::string(error.what()).rfind(wrong.path.string() + ": ", 0), 0U) << error.what();
    }
  }
  EXPECT_FALSE(std::filesystem::exists(path.path()));
}

}  // namespace
}  // namespace SwiftlogTest
