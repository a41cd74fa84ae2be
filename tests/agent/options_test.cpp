// What command lines ask for, and what wrong ones are told.
#include <gtest/gtest.h>

#include "agent/program/replay.h"
#include "agent/program/ring_command.h"
#include "support/parsed.h"

namespace Agent::OptionsTest {
namespace {

using Arguments = std::vector<std::string>;

ReplayOptions replay(Arguments arguments) {
  arguments.insert(arguments.begin(), "replay");
  return parsed<ReplayOptions>(arguments);
}

TEST(Options, ReplayTakesScenariosAlone) {
  ReplayOptions const options = replay({"a.jsonl", "-", "b.jsonl"});
  EXPECT_EQ(options.scenarios, (Arguments{"a.jsonl", "-", "b.jsonl"}));
  EXPECT_TRUE(options.trace.none());
  EXPECT_FALSE(options.ring || options.output || options.isKeptGoing || options.isTable || options.isStats);
}

TEST(Options, ReplayTakesEveryOptionInAnyPlace) {
  ReplayOptions const options =
      replay({"a", "--trace", "1,3-5", "--ring", "r", "--output=o", "b", "--keep-going", "--table", "--stats"});
  EXPECT_EQ(options.scenarios, (Arguments{"a", "b"}));
  EXPECT_EQ(options.trace.to_string(), "0000111010");
  EXPECT_EQ(options.ring, "r");
  EXPECT_EQ(options.output, "o");
  EXPECT_TRUE(options.isKeptGoing && options.isTable && options.isStats);
}

TEST(Options, NamesThatStartWithADashFollowTwoDashes) {
  EXPECT_EQ(replay({"--table", "--", "--c", "-d"}).scenarios, (Arguments{"--c", "-d"}));
}

TEST(Options, TraceLevelsAreListsOfLevelsAndRanges) {
  struct {
    std::string levels;
    std::string bits;
  } const cases[] = {{"1", "0000000010"},
                     {"9", "1000000000"},
                     {"all", "1111111110"},
                     {"1-9", "1111111110"},
                     {"3-3,3,2", "0000001100"},
                     {"9,1-2", "1000000110"}};
  for (auto const& [levels, bits] : cases)
    EXPECT_EQ(replay({"--trace", levels, "f"}).trace.to_string(), bits) << levels;
  for (std::string const levels :
       {"", "0", "10", "1,", ",1", "1-", "-1", "5-3", "1-2-3", "1 2", "1, 2", "ALL", "x", "1-all"}) {
    Answer const wrong = answered({"replay", "--trace", levels, "f"});
    EXPECT_EQ(wrong.exitStatus, 2) << levels;
    EXPECT_NE(wrong.text.find("--trace"), std::string::npos) << wrong.text;
  }
}

TEST(Options, RingTakesOneFile) { EXPECT_EQ(parsed<RingOptions>({"ring", "trace.bin"}).file, "trace.bin"); }

TEST(Options, HelpAndVersionAreAnswers) {
  EXPECT_EQ(answered({"--version"}).text, "enrolix 1.2.3\n");
  EXPECT_EQ(answered({"--version"}).exitStatus, 0);
  for (Arguments const& arguments : {Arguments{"--help"}, Arguments{"-h"}, Arguments{"replay", "--help"}}) {
    Answer const help = answered(arguments);
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_NE(help.text.find("replay"), std::string::npos) << help.text;
  }
  EXPECT_NE(answered({"replay", "--help"}).text.find("--keep-going"), std::string::npos);
}

TEST(Options, AWrongCommandLineIsToldWhatIsWrong) {
  struct {
    Arguments arguments;
    std::string text;
  } const cases[] = {
      {{}, "A command, serve or watch for instance, is required"},
      {{"nonsense"}, "nonsense"},
      {{"replay"}, "SCENARIO"},
      {{"replay", "--nonsense", "f"}, "--nonsense"},
      {{"replay", "--output"}, "--output"},
      {{"replay", "--output", "", "f"}, "--output"},
      {{"replay", "--output", "a", "--output", "b", "f"}, "--output"},
      {{"replay", "--keep-going=maybe", "f"}, "--keep-going"},
      {{"replay", ""}, "empty file name"},
      {{"replay", "-", "a", "-"}, "standard input can be read only once"},
      {{"replay", "f", "ring", "g", "--trace", "1", "-x"}, "-x"},
      {{"ring"}, "FILE"},
      {{"ring", "a", "b"}, "b"},
      {{"ring", "--trace", "1", "a"}, "--trace"},
  };
  for (auto const& [arguments, text] : cases) {
    Answer const wrong = answered(arguments);
    EXPECT_EQ(wrong.exitStatus, 2) << wrong.text;
    EXPECT_EQ(wrong.text.substr(0, 9), "enrolix: ");
    EXPECT_EQ(wrong.text.back(), '\n');
    EXPECT_NE(wrong.text.find(text), std::string::npos) << "wanted " << text << " in " << wrong.text;
  }
}

}  // namespace
}  // namespace Agent::OptionsTest
