// The text trace: when a statement speaks, what it says, and where that goes.
#include "framework/trace/trace.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/text/name.h"
#include "framework/text/string8.h"
#include "tests/support/trace_capture.h"

namespace TraceTest {
namespace {

using Lines = std::vector<std::string>;

Nox::TraceHandle& probe() {
  static Nox::TraceHandle handle("Probe", false);
  return handle;
}
#define PROBE(LEVEL, LINE, ...) NOX_TRACE_TEXT(probe(), "ProbeFile", LEVEL, LINE, __VA_ARGS__)
#define PROBE_BOTH(LEVEL, LINE, ...) NOX_TRACE(probe(), "ProbeFile", LEVEL, LINE, __VA_ARGS__)

/// Sets the coverage stream for the length of a scope.
struct Coverage {
  Coverage() { Nox::coverageStream_ = &out; }
  ~Coverage() { Nox::coverageStream_ = nullptr; }
  Coverage(Coverage const&) = delete;
  Coverage& operator=(Coverage const&) = delete;
  std::ostringstream out;
};

/// A value that does something while it is printed.
struct Acting {
  void (*act)(std::ostream&);
};
std::ostream& operator<<(std::ostream& out, Acting const& value) {
  value.act(out);
  return out;
}

TEST(TextTrace, AStatementThatIsOffEvaluatesNoValue) {
  int evaluated = 0;
  PROBE_BOTH(5, 1, "value ", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  TraceCapture const capture({4, 6}, "Probe");
  PROBE_BOTH(5, 2, "value ", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(capture.lines(), Lines{});
}

// Sink and coverage stream for every state of the two flags and of the stream.
TEST(TextTrace, SpeaksWhenFacilityAndLevelAreOnOrACoverageStreamIsSet) {
  for (unsigned state = 0; state < 8; ++state) {
    SCOPED_TRACE(state);
    bool const facilityOn = (state & 1U) != 0;
    bool const levelOn = (state & 2U) != 0;
    bool const covered = (state & 4U) != 0;
    TraceCapture const capture({3}, "Probe");
    Nox::traceEnabledIs("Probe", facilityOn);
    Nox::traceLevelsIs("Probe", levelOn ? Nox::traceLevels({3}) : Nox::kAllTraceLevels - Nox::traceLevels({3}));
    Coverage const coverage;
    if (!covered) Nox::coverageStream_ = nullptr;

    PROBE(3, 44, "line\n", 7);

    bool const enabled = facilityOn && levelOn;
    EXPECT_EQ(capture.lines(), enabled ? Lines{"3 44 line\\n7"} : Lines{});
    std::string const line = std::string("Probe 3 ProbeFile:44 TestBody ") + (enabled ? "1" : "0") + " line\\n7\n";
    EXPECT_EQ(coverage.out.str(), covered ? line : "");
  }
}

TEST(TextTrace, TheHelperIsGivenEverythingThatTheStatementKnows) {
  TraceCapture const on({7}, "Probe");
  int messages = 0;
  Nox::TraceSink const before = Nox::traceSinkIs([&messages](Nox::TraceMessage const& message) {
    ++messages;
    EXPECT_EQ(message.facility, "Probe");
    EXPECT_EQ(message.context.view(), "<unknown>");
    EXPECT_EQ(message.text, "Client ver=3");
    EXPECT_EQ(message.level, 7);
    EXPECT_TRUE(message.enabled);
    EXPECT_STREQ(message.file, "ProbeFile");
    EXPECT_EQ(message.line, 249);
    EXPECT_STREQ(message.function, "TestBody");
  });
  PROBE(7, 249, "Client ver=", 3U);
  Nox::traceSinkIs(before);
  EXPECT_EQ(messages, 1);
}

TEST(TextTrace, PrintsPiecesInOrder) {
  TraceCapture const capture({1}, "Probe");
  char const* const none = nullptr;
  char changeable[] = "array";
  PROBE(1, 1, "literal");
  PROBE(
      1, 2, Nox::Name("name"), " ", Nox::String8("text"), " ", std::string("string"), " ", changeable, "<", none, ">");
  PROBE(1, 3, true, " ", false, " ", 4294967295U, " ", std::numeric_limits<std::int64_t>::min());
  PROBE(1, 4, 1.0 / 3, " ", 1234567890123.0);
  EXPECT_EQ(capture.lines(),
            (Lines{"1 1 literal",
                   "1 2 name text string array<>",
                   "1 3 1 0 4294967295 -9223372036854775808",
                   "1 4 0.333333333333 1.23456789012e+12"}));
}

TEST(TextTrace, APrintedValueLeavesNothingBehindForTheNextStatement) {
  TraceCapture const capture({1}, "Probe");
  PROBE(1, 1, Acting{[](std::ostream& out) {
          out << std::hex << std::showbase << std::setprecision(2) << std::setfill('*') << 255 << std::setw(9);
        }});
  PROBE(1, 2, 255, " ", 1.0 / 3, Nox::Name("n"), Acting{[](std::ostream& out) { out << std::setw(3) << 1; }});
  EXPECT_THROW(PROBE(1, 3, "lost", Acting{[](std::ostream& out) {
                       out.setstate(std::ios_base::failbit);
                       throw std::runtime_error("unprintable");
                     }}),
               std::runtime_error);
  PROBE(1, 4, "whole");
  EXPECT_EQ(capture.lines(), (Lines{"1 1 0xff", "1 2 255 0.333333333333n  1", "1 4 whole"}));
}

void printInner(std::ostream& out) {
  PROBE(3, 3, "inner");
  out << "i";
}
void printMiddle(std::ostream& out) {
  PROBE(2, 2, "middle ", Acting{printInner});
  out << "m";
}

TEST(TextTrace, AValueMayTraceWhileItIsPrinted) {
  TraceCapture const capture({1, 2, 3}, "Probe");
  for (int round = 0; round < 2; ++round) PROBE(1, 1, "outer ", Acting{printMiddle}, Acting{printInner}, ".");
  Lines const once{"3 3 inner", "2 2 middle i", "3 3 inner", "1 1 outer mi."};
  Lines twice = once;
  twice.insert(twice.end(), once.begin(), once.end());
  EXPECT_EQ(capture.lines(), twice);
}

TEST(TextTrace, ComesBeforeTheRingBuffer) {
  TraceCapture const capture({1}, "Probe");
  RingCapture ring;
  int described = -1;
  Nox::TraceSink const before = Nox::traceSinkIs([&](Nox::TraceMessage const&) { described = ring.file().messages(); });
  int evaluated = 0;
  PROBE_BOTH(1, 12, "value ", ++evaluated);
  Nox::traceSinkIs(before);
  EXPECT_EQ(described, 0);
  EXPECT_EQ(ring.messages(), Lines{"1 12 value 2"});  // the value of the text channel was 1
}

TEST(TraceHandle, FollowsWhatIsSetFromOutsideBeforeAndAfterItIsMade) {
  Nox::traceLevelsIs("Later", Nox::traceLevels({1, 3, 4, 5}));
  Nox::traceEnabledIs("Later", true);
  Nox::TraceHandle handle("Later", false);
  EXPECT_TRUE(handle.enabled());
  for (int level = Nox::kMinTraceLevel; level <= Nox::kMaxTraceLevel; ++level)
    EXPECT_EQ(handle.wants(level), level == 1 || (level >= 3 && level <= 5)) << level;

  Nox::traceLevelsIs("Later", Nox::traceLevels({8}));
  EXPECT_TRUE(handle.wants(8));
  EXPECT_FALSE(handle.wants(1));
  Nox::traceEnabledIs("Later", false);
  EXPECT_TRUE(handle.levelEnabled(8));
  EXPECT_FALSE(handle.wants(8));

  Nox::TraceHandle const second("Later", true);
  EXPECT_FALSE(second.enabled());
  Nox::TraceHandle const other("Untouched", true);
  EXPECT_TRUE(other.enabled());
  EXPECT_FALSE(other.levelEnabled(8));
  EXPECT_EQ(other.name().view(), "Untouched");
}

TEST(TraceHandle, IsForgottenWhenItGoes) {
  { Nox::TraceHandle const gone("Gone", false); }
  Nox::traceEnabledIs("Gone", true);  // must not write to the handle that has gone
  Nox::TraceHandle const next("Gone", false);
  EXPECT_TRUE(next.enabled());
}

}  // namespace

}  // namespace TraceTest
