// The program from the outside: example scenarios and their trees, exit statuses, messages and options.
#include "agent/program/replay.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "agent/document/json_reader.h"
#include "support/program.h"

namespace Agent::ReplayTest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr char kEnable[] = R"({"put": "controller/config", "value": {"enabled": true}})"
                           "\n";
constexpr char kBad[] = R"({"put": "controller/config", "value": {"enabled": 1}})"
                        "\n";
class Example : public testing::TestWithParam<std::filesystem::path> {};

std::vector<std::filesystem::path> examples() {
  std::vector<std::filesystem::path> scenarios;
  for (auto const& file : std::filesystem::directory_iterator(ENROLIX_EXAMPLES))
    if (file.path().extension() == ".jsonl") scenarios.push_back(file.path());
  return scenarios;
}

TEST_P(Example, EndsWithTheTreeBesideIt) {
  Folder folder;
  Outcome const run = runProgram(folder, "replay " + GetParam().string());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  std::filesystem::path tree = GetParam();
  EXPECT_EQ(run.out, readFile(tree.replace_extension(".tree.json")));
}

INSTANTIATE_TEST_SUITE_P(Replay, Example, testing::ValuesIn(examples()), [](auto const& example) {
  std::string name = example.param.stem();
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

TEST(Replay, PrintsTheTreeOfAFreshRegistryForAnEmptyScenario) {
  Folder folder;
  Outcome const run = runProgram(folder, "replay - </dev/null");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "{\n  \"controller/config\": {\n    \"enabled\": false\n  },\n"
            "  \"controller/status\": {\n    \"controllerUUID\": \"\",\n    \"enabled\": false\n  }\n}\n");
}

TEST(Replay, PrintsPathsAndTextsUnescapedWhereJsonAllows) {
  Folder folder;
  std::string const file = folder.write("s", R"({"put": "registration/é\"\\/x", "value": ["é\n", [], {}]})");
  Outcome const run = runProgram(folder, "replay s");
  EXPECT_THAT(run.out, HasSubstr("  \"registration/é\\\"\\\\/x\": [\n    \"é\\n\",\n    [],\n    {}\n  ]\n}\n"));
  EXPECT_EQ(readJson(run.out)["registration/é\"\\/x"][0], "é\n");
}

TEST(Replay, AppliesScenariosInOrderAndReadsStandardInput) {
  Folder folder;
  folder.write("1", "{\"put\": \"registration/a/x\", \"value\": 1}\n");
  folder.write("2", "{\"put\": \"registration/a/x\", \"value\": 2}\n");
  EXPECT_THAT(runProgram(folder, "replay 1 2").out, HasSubstr("\"registration/a/x\": 2"));
  EXPECT_THAT(runProgram(folder, "replay 2 1").out, HasSubstr("\"registration/a/x\": 1"));
  EXPECT_THAT(runProgram(folder, "replay 1 - <2").out, HasSubstr("\"registration/a/x\": 2"));
  EXPECT_THAT(runProgram(folder, "replay - 1 <2").out, HasSubstr("\"registration/a/x\": 1"));
}

TEST(Replay, StopsAtARefusedOperationWithoutATree) {
  Folder folder;
  folder.write("s", std::string("# comment\n\n") + kBad + kBad);
  folder.write("t", kBad);
  Outcome const run = runProgram(folder, "replay s t");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "s:3: controller/config: value.enabled: expected true or false, found the number 1\n");
}

TEST(Replay, KeepsGoingWhenAsked) {
  Folder folder;
  folder.write("s", std::string(kBad) + "{\n" + kEnable);
  folder.write("t", "{\"delete\": \"nowhere\"}\n");
  Outcome const run = runProgram(folder, "replay --keep-going s t");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("\"controller/config\": {\n    \"enabled\": true\n  }"));
  EXPECT_THAT(
      run.err,
      MatchesRegex("s:1: controller/config: value.enabled: [^\n]*\ns:2: not valid JSON[^\n]*\nt:1: nowhere: [^\n]*\n"));
}

TEST(Replay, TellsOfAFileThatCannotBeRead) {
  Folder folder;
  folder.write("s", kEnable);
  Outcome run = runProgram(folder, "replay s missing.jsonl");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "missing.jsonl: No such file or directory\n");
  run = runProgram(folder, "replay --keep-going .");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, ".: Is a directory\n");
}

TEST(Replay, AWrongCommandLineLeavesWith2) {
  Folder folder;
  for (char const* arguments :
       {"", "replay", "replay --trace 0 s", "replay --unknown s", "play s", "ring", "replay - -"}) {
    Outcome const run = runProgram(folder, arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_THAT(run.err, testing::StartsWith("enrolix: ")) << arguments;
  }
  EXPECT_EQ(runProgram(folder, "--help").status, 0);
  EXPECT_THAT(runProgram(folder, "--version").out, MatchesRegex("enrolix [0-9.]+\n"));
}

TEST(Replay, PrintsTraceMessagesOfTheLevelsAsked) {
  Folder folder;
  folder.write("s", kOneSwitch);
  Outcome const run = runProgram(folder, "replay --trace 1,3-5 s");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, runProgram(folder, "replay s").out);
  EXPECT_THAT(run.err, HasSubstr("\n1 128 handleSwitchConfig reflecting genid:3\n"));
  std::istringstream lines(run.err);
  for (std::string line; std::getline(lines, line);) EXPECT_THAT(line, MatchesRegex("[1345] [0-9]+ .*"));
  EXPECT_THAT(runProgram(folder, "replay --trace all s").err, HasSubstr("\n8 "));
}

TEST(Replay, TracesEachMessageOnOneLine) {
  Folder folder;
  folder.write(
      "s",
      std::string(R"({"put": "controller/status", "value": {"controllerUUID": "a\nb\u001b"}})") + "\n" + kOneSwitch);
  EXPECT_THAT(runProgram(folder, "replay --trace 3 s").err, HasSubstr("sending uuid to switch: a\\nb\\x1B\n"));
}

TEST(Replay, KeepsTheRingTraceInAFile) {
  Folder folder;
  folder.write("s", kOneSwitch);
  EXPECT_EQ(runProgram(folder, "replay --ring trace s").status, 0);
  Outcome const ring = runProgram(folder, "ring trace");
  EXPECT_EQ(ring.status, 0);
  EXPECT_THAT(ring.out, HasSubstr(" handleSwitchConfig reflecting genid:3\n"));
  std::istringstream lines(ring.out);
  for (std::string line; std::getline(lines, line);)
    EXPECT_THAT(line, MatchesRegex("[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z [1-9] [0-9]+ .*"));

  EXPECT_EQ(runProgram(folder, "replay --ring missing/trace s").err, "missing/trace: No such file or directory\n");
  Outcome const none = runProgram(folder, "ring s");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "s: not a ring trace file\n");
  EXPECT_EQ(runProgram(folder, "ring missing").err, "missing: No such file or directory\n");
}

TEST(Replay, RingPrintsWhatIsNoPlainTextAsEscapes) {
  Folder folder;
  folder.write("s",
               R"({"put": "controller/status", "value": {"controllerUUID": "12345678"}})"
               "\n" +
                   std::string(kOneSwitch));
  EXPECT_EQ(runProgram(folder, "replay --ring trace s").status, 0);
  std::string trace = readFile(folder / "trace");
  std::size_t const at = trace.find("12345678");
  ASSERT_NE(at, std::string::npos);
  folder.write("trace", trace.replace(at, 8, "\xff\xe2\x80\xa8\xc3\xa9\x1b\n"));
  EXPECT_THAT(runProgram(folder, "ring trace").out,
              HasSubstr("sending uuid to switch: \\xff\\u2028\xc3\xa9\\x1B\\n\n"));
}

TEST(Replay, WritesTheTreeToAFileOnlyWhenItIsComplete) {
  Folder folder;
  folder.write("good", kEnable);
  folder.write("bad", kBad);
  Outcome run = runProgram(folder, "replay --output tree good");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  std::string const tree = folder.read("tree");
  EXPECT_EQ(tree, runProgram(folder, "replay good").out);

  run = runProgram(folder, "replay --output tree bad");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(folder.read("tree"), tree) << "what stood there stays";
  EXPECT_EQ(runProgram(folder, "replay --output tree --keep-going bad").status, 1);
  EXPECT_THAT(folder.read("tree"), HasSubstr("\"enabled\": false")) << "a tree that was asked for is written";
  EXPECT_EQ(folder.files(), 3) << "no temporary file is left";
}

TEST(Replay, OutputFollowsLinksAndReachesWhatIsNoFile) {
  Folder folder;
  folder.write("s", kEnable);
  folder.write("place", "old");
  std::filesystem::create_symlink("place", folder / "link");
  EXPECT_EQ(runProgram(folder, "replay --output link s").status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(folder.read("place"), runProgram(folder, "replay --output /dev/stdout s").out);
}

TEST(Replay, TellsOfOutputThatFails) {
  Folder folder;
  folder.write("s", kEnable);
  struct {
    char const* arguments;
    char const* err;
  } const cases[] = {
      {"replay --output missing/tree s", "missing/tree: No such file or directory\n"},
      {"replay --output . s", ".: Is a directory\n"},
      {"replay --output /dev/full s", "/dev/full: No space left on device\n"},
      {"replay s >/dev/full", "standard output: No space left on device\n"},
      {"replay s >&-", "standard output: Bad file descriptor\n"},
      {"--help >/dev/full", "standard output: No space left on device\n"},
      {"replay - <&-", "-: Bad file descriptor\n"},
  };
  for (auto const& [arguments, err] : cases) {
    Outcome const run = runProgram(folder, arguments);
    EXPECT_EQ(run.status, 1) << arguments;
    EXPECT_EQ(run.err, err) << arguments;
  }
}

TEST(Replay, TellsOfAReaderThatHasGone) {
  Folder folder;
  folder.write("s", kEnable);
  // The pipe's reader ends before the program starts, so that the write meets no one.
  Outcome const run = runProgram(
      folder, "ring missing 2>/dev/null; { sleep 0.2; " ENROLIX_PROGRAM " replay s; echo status $? >&2; } | true");
  EXPECT_EQ(run.err, "standard output: Broken pipe\nstatus 1\n");
}

TEST(Replay, ShowsTheSwitchesAsATable) {
  Folder folder;
  folder.write("s", R"({"put": "controller/config", "value": {"enabled": true}}
{"put": "registration/no-status/config", "value": {}}
{"put": "registration/no-config/status", "value": {}}
{"put": "registration/neither/x", "value": 1}
{"put": "registration/off/config", "value": {"systemId": "02:00:00:00:00:01"}}
{"put": "registration/off/status", "value": {}}
{"put": "registration/silent/config", "value": {"systemId": "02:00:00:00:00:02", "enabled": true}}
{"put": "registration/silent/status", "value": {}}
{"put": "heartbeat/02:00:00:00:00:03", "value": {}}
{"put": "registration/tête/config", "value": {"systemId": "02:00:00:00:00:03", "enabled": true, "registrationGenId": 12}}
{"put": "registration/tête/status", "value": {}}
{"put": "registration/twin/config", "value": {"systemId": "02:00:00:00:00:03", "enabled": true, "registrationGenId": 5}}
{"put": "registration/twin/status", "value": {}}
)");
  EXPECT_EQ(runProgram(folder, "replay --table s").out,
            "SWITCH     SYSTEM ID          STATE                      GENERATION asked/answered\n"
            "neither    -                  incomplete: no \"config\"    -/-\n"
            "no-config  -                  incomplete: no \"config\"    -/0\n"
            "no-status  00:00:00:00:00:00  incomplete: no \"status\"    0/-\n"
            "off        02:00:00:00:00:01  not enabled                0/0\n"
            "silent     02:00:00:00:00:02  no heartbeat               0/0\n"
            "twin       02:00:00:00:00:03  ready                      5/5\n"
            "tête       02:00:00:00:00:03  system id taken by \"twin\"  12/12\n");
  folder.write("off", "{\"put\": \"controller/config\", \"value\": {}}\n");
  EXPECT_THAT(runProgram(folder, "replay --table s off").out,
              HasSubstr("\ntwin       02:00:00:00:00:03  agent disabled"));
}

TEST(Replay, ShowsUnderEachSwitchWhatBecameOfItsServices) {
  Folder folder;
  std::string const services = R"({"both": {"enabled": true, "versionConfig": {"version": {"1": "x", "2": "two"}}}, )"
                               R"("apart": {"enabled": true, "versionConfig": {"version": {"1": "", "2": ""}}}, )"
                               R"("off": {"enabled": true}, "ours": {}, "unknown": {"enabled": true}, )"
                               R"("pinned": {"enabled": true, "versionConfig": {"version": {"1": ""}}}})";
  folder.write(
      "s",
      R"({"put": "service/config/both", "value": {"enabled": true, "versionConfig": {"version": {"2": "", "3": ""}}}}
{"put": "service/config/apart", "value": {"enabled": true, "versionConfig": {"version": {"3": ""}}}}
{"put": "service/config/off", "value": {"versionConfig": {"version": {"1": ""}}}}
{"put": "service/config/ours", "value": {"enabled": true}}
{"put": "service/config/pinned", "value": {"enabled": true, "versionConfig": {"version": {"1": ""}}}}
{"put": "service/override/pinned", "value": {"enabled": true, "versionConfig": {"version": {"7": ""}}}}
{"put": "heartbeat/02:00:00:00:00:01", "value": {}}
{"put": "registration/a/status", "value": {}}
{"put": "registration/a/config", "value": {"enabled": true, "systemId": "02:00:00:00:00:01", "serviceConfig": )" +
          services + R"(}}
{"put": "controller/config", "value": {"enabled": true}}
)");
  EXPECT_THAT(runProgram(folder, "replay --table s").out,
              HasSubstr("\n"
                        "    apart    switch offers 1,2; controller 3\n"
                        "    both     version 2 (two)\n"
                        "    off      disabled by the controller\n"
                        "    ours     disabled by the switch\n"
                        "    pinned   switch offers 1; override 7\n"
                        "    unknown  not known to the controller\n"));
}

TEST(Replay, ExplainsNoOutcomeWithInputsThatAreYoungerThanItIs) {
  Folder folder;
  auto const service = [](char const* path, bool enabled, char const* versions) {
    return std::string(R"({"put": "service/)") + path + R"(", "value": {"enabled": )" + (enabled ? "true" : "false") +
           R"(, "versionConfig": {"version": )" + versions + "}}}\n";
  };
  auto const enrol = [](std::string const& config) {
    return std::string(R"({"put": "registration/a/config", "value": {"enabled": true, "systemId": )"
                       R"("02:00:00:00:00:01", "serviceConfig": {"s": )") +
           config + "}}}\n";
  };
  std::string const apart = service("config/s", true, R"({"3": ""})");
  std::string const common = service("config/s", true, R"({"2": "theirs", "3": ""})");
  std::string const old = "not negotiated since its inputs changed";
  std::string const offers = R"({"enabled": true, "versionConfig": {"version": {"1": "", "2": "two"}}})";
  struct {
    std::string before, after, outcome;
  } const cases[] = {
      {apart, "", "switch offers 1,2; controller 3"},
      {apart, common, old},
      {apart, service("config/s", true, R"({"4": ""})"), "switch offers 1,2; controller 4"},
      {apart, service("override/s", true, R"({"1": ""})"), old},
      {apart, service("override/s", false, R"({"1": ""})"), old},
      {apart, service("config/s", false, R"({"3": ""})"), "disabled by the controller"},
      {apart, "{\"delete\": \"service/config/s\"}\n", "not known to the controller"},
      {common, "", "version 2 (two)"},
      {common, apart, "version 2 (two), " + old},
      {common, service("override/s", true, R"({"1": ""})"), "version 2 (two), " + old},
      {common, "{\"delete\": \"service/config/s\"}\n", "version 2 (two), " + old},
      {common,
       enrol(R"({"enabled": true, "versionConfig": {"version": {"1": "", "2": "zwei"}}})"),
       "version 2 (two), " + old},
      {common,
       enrol(R"({"enabled": true, "versionConfig": {"version": {"1": "", "2": "two", "3": ""}}})"),
       "version 2 (two), " + old},
      {common, enrol(R"({"versionConfig": {"version": {"1": "", "2": "two"}}})"), "disabled by the switch"},
      {"", "", "not known to the controller"},
      {"", apart, old},
      {"", common, old},
  };
  for (auto const& [before, after, outcome] : cases) {
    folder.write("s",
                 R"({"put": "heartbeat/02:00:00:00:00:01", "value": {}}
{"put": "registration/a/status", "value": {}}
{"put": "controller/config", "value": {"enabled": true}}
)" + before + enrol(offers) +
                     after);
    EXPECT_THAT(runProgram(folder, "replay --table s").out, HasSubstr("\n    s  " + outcome + "\n")) << before << after;
  }
}

TEST(Replay, WritesOverNothingThatItReadsOrWritesOtherwise) {
  Folder folder;
  std::string const scenario = "{\"delete\": \"heartbeat/02:00:00:00:00:01\"}\n";
  folder.write("s", scenario);
  std::filesystem::create_symlink("s", folder / "link");
  for (char const* arguments :
       {"--ring s s", "--output s s", "--ring link s", "--output link s", "--ring r --output r s"}) {
    Outcome const outcome = runProgram(folder, std::string("replay ") + arguments);
    EXPECT_EQ(outcome.status, 1) << arguments;
    EXPECT_THAT(outcome.err, HasSubstr(": is named twice, and would be written over\n")) << arguments;
    EXPECT_EQ(folder.read("s"), scenario) << arguments;
  }
}

TEST(Replay, ShowsWhatIsPublishedToEachSwitchPerService) {
  Folder folder;
  folder.write("s", R"({"put": "controller/config", "value": {"enabled": true}}
{"put": "heartbeat/02:00:00:00:00:01", "value": {}}
{"put": "mount/ready/b", "value": true}
{"put": "mount/offer/02:00:00:00:00:01", "value": {"publishedMount": {"y": {"service": "b"}, "x/z": {"service": "b"}}}}
{"put": "registration/s/status", "value": {}}
{"put": "registration/s/config", "value": {"enabled": true, "systemId": "02:00:00:00:00:01", "serviceConfig": {"a": {}}}}
{"put": "mount/ready/a", "value": true}
{"put": "mount/ready/a", "value": false}
)");
  EXPECT_THAT(runProgram(folder, "replay --table s").out,
              HasSubstr("\n"
                        "    a  not known to the controller   no mounts (not ready)\n"
                        "    b  not configured by the switch  mounts x/z, y (ready)\n"));
}

TEST(Replay, LeavesTheCallersTraceAsItWas) {
  Folder folder;
  ReplayOptions options;
  options.trace.set(1);
  options.output = folder / "tree";
  options.scenarios = {folder.write("s", kOneSwitch)};
  std::ostringstream problems;
  EXPECT_EQ(replay(options, problems), 0);
  EXPECT_THAT(problems.str(), HasSubstr("1 128 handleSwitchConfig reflecting genid:3\n"));
  options.trace.reset();
  problems.str("");
  EXPECT_EQ(replay(options, problems), 0);
  EXPECT_THAT(problems.str(), IsEmpty());
}

}  // namespace
}  // namespace Agent::ReplayTest
