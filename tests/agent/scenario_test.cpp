// Which lines of a scenario are operations, which are skipped, and what the others are told.
#include "agent/document/scenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "agent/document/utf8.h"
#include "support/rounds.h"

namespace Agent::ScenarioTest {
namespace {

using Test::sampled;
using Test::sampledRounds;

// A scenario in memory, handed out in pieces of at most `step` bytes.
class Text : public ByteSource {
 public:
  explicit Text(std::string text, std::size_t step = 1 << 20) : text_(std::move(text)), step_(step) {}
  std::size_t read(char* to, std::size_t room) override {
    std::size_t const size = std::min({room, step_, text_.size() - at_});
    std::memcpy(to, text_.data() + at_, size);
    at_ += size;
    return size;
  }

 private:
  std::string text_;
  std::size_t step_;
  std::size_t at_ = 0;
};

// A source of `size` times `filling` between two texts, which is never in memory as a whole.
class LongLine : public ByteSource {
 public:
  LongLine(std::string before, std::size_t size, char filling, std::string after)
      : before_(std::move(before)), size_(size), filling_(filling), after_(std::move(after)) {}
  std::size_t read(char* to, std::size_t room) override {
    if (std::size_t const size = before_.read(to, room)) return size;
    if (size_ == 0) return after_.read(to, room);
    std::size_t const size = std::min(room, size_);
    std::memset(to, filling_, size);
    size_ -= size;
    return size;
  }

 private:
  Text before_;
  std::size_t size_;
  char filling_;
  Text after_;
};

// One line of text for each operation or refusal: "LINE put PATH DOCUMENT", "LINE delete PATH", or the error line.
std::vector<std::string> readAll(std::unique_ptr<ByteSource> source) {
  ScenarioReader reader(std::move(source));
  std::vector<std::string> lines;
  while (true) {
    try {
      auto const operation = reader.next();
      if (!operation) return lines;
      std::string line = std::to_string(reader.line());
      line += operation->isPut() ? " put " : " delete ";
      line += toText(operation->path);
      if (operation->isPut()) line += " " + operation->value->dump();
      lines.push_back(line);
    } catch (InputError const& error) {
      lines.push_back(errorLine("f", reader.line(), error));
    }
  }
}

using Lines = std::vector<std::string>;

Lines readAll(std::string text, std::size_t step = 1 << 20) {
  return readAll(std::make_unique<Text>(std::move(text), step));
}

std::string put(std::string const& document) {
  return R"({"put":"heartbeat/02:00:00:aa:00:01","value":)" + document + "}";
}

TEST(Scenario, YieldsOperationsAndSkipsBlanksAndComments) {
  std::string const text =
      "# the controller\n"
      "{\"put\": \"controller/status\", \"value\": {\"controllerUUID\": \"b9a7\"}}\n"
      "\n"
      "  \t \r\n"
      "  # {\"delete\": \"nowhere\"}\r\n"
      "#\xFF\xFE\n"
      "\t{\"value\": [1, {\"b\": 2, \"a\": 1.5}], \"put\": \"heartbeat/02:00:00:AA:00:01\"} \r\n"
      "{\"delete\": \"registration/leaf-1\"}";
  Lines const expected = {
      R"(2 put controller/status {"controllerUUID":"b9a7"})",
      R"(7 put heartbeat/02:00:00:aa:00:01 [1,{"b":2,"a":1.5}])",
      "8 delete registration/leaf-1",
  };
  for (std::size_t const step : {1, 2, 3, 7, 1000}) EXPECT_EQ(readAll(text, step), expected) << step;
}

TEST(Scenario, MayBeEmptyOrEndAnywhere) {
  for (std::string const text : {"", "\n", "\n\n", " ", "#", "# x", "\r\n", "\r", "\xEF\xBB\xBF", "\xEF\xBB\xBF\n#"}) {
    EXPECT_EQ(readAll(text), Lines{}) << text;
    EXPECT_EQ(readAll(text, 1), Lines{}) << text;
  }
}

TEST(Scenario, AByteOrderMarkIsSkippedAtTheVeryStartAlone) {
  std::string const mark = "\xEF\xBB\xBF";
  std::string const line = "{\"delete\":\"registration/a\"}\n";
  Lines const expected = {"1 delete registration/a",
                          "f:2: not valid JSON at byte 1: a byte order mark in front of the value"};
  std::string const markedLine = mark + line;
  for (std::size_t const step : {1, 2, 3, 4, 1000}) EXPECT_EQ(readAll(markedLine + markedLine, step), expected);
  EXPECT_EQ(readAll(mark + "# comment\n" + line), Lines{"2 delete registration/a"});
}

TEST(Scenario, SaysWhyALineIsNoOperation) {
  struct {
    std::string line;
    std::string error;
  } const cases[] = {
      {"7", "expected {\"put\": PATH, \"value\": DOCUMENT} or {\"delete\": PATH}, found the number 7"},
      {"[]", "expected {\"put\": PATH, \"value\": DOCUMENT} or {\"delete\": PATH}, found an array"},
      {"{}", "neither put nor delete, expected one of them"},
      {R"({"value":{}})", "neither put nor delete, expected one of them"},
      {R"({"put":"controller/config"})", "controller/config: value: missing: a put needs the document to be put"},
      {R"({"delete":"registration/a","value":{}})", "registration/a: value: a delete has no value"},
      {R"({"delete":"registration/a","value":null})", "registration/a: value: a delete has no value"},
      {R"({"put":"registration/a","delete":"registration/b"})",
       "registration/a: put and delete in one operation, expected one of them"},
      {R"({"put":"controller/config","value":{},"comment":"x"})",
       "controller/config: comment: no part of an operation, which has put and value, or delete"},
      {R"({"Delete":"registration/a"})", "Delete: no part of an operation, which has put and value, or delete"},
      {R"({"put":1,"value":{}})", "put: expected a string, found the number 1"},
      {R"({"delete":null})", "delete: expected a string, found null"},
      {R"({"delete":"a/b"})",
       "a/b: no such path; paths start with controller/, registration/, heartbeat/, service/ or mount/"},
      {R"({"delete":"heartbeat/x\ny"})",
       "heartbeat/x\\ny: expected a system id like 02:00:00:aa:00:01, found \"x\\ny\""},
      {R"({"put":"controller/config","value":{"a":1,"a":2}})",
       "controller/config: value.a: the same field twice in one object"},
      {R"({"put":"controller/config","put":"controller/status","value":{}})",
       "controller/config: put: the same field twice in one object"},
      {R"({"put":"controller/config","value":{"enabled":yes}})",
       "controller/config: value.enabled: not valid JSON at byte 47: expected a value, found \"yes\""},
      {R"({"delete":"registration/a"} x)", "not valid JSON at byte 29: expected nothing more, found \"x\""},
      {put(std::string(63, '[') + std::string(63, ']')), ""},
      {put(std::string(64, '[') + std::string(64, ']')),
       "heartbeat/02:00:00:aa:00:01: value: nested deeper than 64 objects and arrays"},
      {put(std::string(10'000, '[') + std::string(10'000, ']')),
       "heartbeat/02:00:00:aa:00:01: value: nested deeper than 64 objects and arrays"},
      {std::string("{\"delete\":\"registration/a\"}\0", 28), "not valid JSON at byte 28: a zero byte"},
  };
  for (auto const& [line, error] : cases) {
    Lines const lines = readAll(line + "\n" + R"({"delete":"registration/next"})");
    ASSERT_EQ(lines.size(), 2u) << line;
    std::string const first = error.empty() ? "1 put heartbeat/02:00:00:aa:00:01" : "f:1: " + error;
    EXPECT_EQ(lines[0].substr(0, first.size()), first);
    if (!error.empty()) {
      EXPECT_EQ(lines[0], first);
    }
    EXPECT_EQ(lines[1], "2 delete registration/next");
  }
}

TEST(Scenario, ALineHoldsSixteenMebibytes) {
  std::string const tooLong = "f:1: the line is longer than 16777216 bytes";
  std::string const before = put("\"");
  std::size_t const around = before.size() + 1;
  struct {
    std::size_t size;
    std::string lineBreak;
    bool isTaken;
  } const cases[] = {{kMaximumLineBytes, "\n", true},
                     {kMaximumLineBytes, "\r\n", true},
                     {kMaximumLineBytes, "", true},
                     {kMaximumLineBytes, "\r", true},
                     {kMaximumLineBytes, "\r\r\n", false},
                     {kMaximumLineBytes + 1, "\n", false},
                     {kMaximumLineBytes + 1, "\r\n", false},
                     {kMaximumLineBytes + 2, "\n", false},
                     {kMaximumLineBytes + 1, "", false},
                     {100u * 1024 * 1024, "\n", false}};
  for (auto const round : sampledRounds(std::size(cases), 4)) {
    auto const& [size, lineBreak, isTaken] = cases[round];
    auto const source = [&, size = size, lineBreak = lineBreak] {
      return std::make_unique<LongLine>(before.substr(0, before.size() - 1), size - around, 'x', "\"}" + lineBreak);
    };
    Lines const lines = readAll(source());
    ASSERT_EQ(lines.size(), 1u) << size;
    EXPECT_EQ(lines[0] != tooLong, isTaken) << size << " " << lines[0].substr(0, 200);
  }
}

TEST(Scenario, BlankLinesAndCommentsHaveAnyLength) {
  std::string const next = "\n{\"delete\":\"registration/a\"}\n";
  for (auto const& [before, filling] : {std::pair("# ", 'x'), std::pair("", ' '), std::pair(" \t#", '\xFF')}) {
    EXPECT_EQ(readAll(std::make_unique<LongLine>(before, 40u * 1024 * 1024, filling, next)),
              Lines{"2 delete registration/a"});
  }
}

TEST(Scenario, ReadingGoesOnBehindALineThatIsTooLong) {
  auto source = std::make_unique<LongLine>("{", 40u * 1024 * 1024, ' ', "}\n{\"delete\":\"registration/a\"}\n");
  EXPECT_EQ(readAll(std::move(source)),
            (Lines{"f:1: the line is longer than 16777216 bytes", "2 delete registration/a"}));
}

TEST(Scenario, FilesThatCannotBeReadAreNamed) {
  auto const reason = [](std::string const& file) {
    try {
      ScenarioReader(openScenario(file)).next();
      return std::string("read");
    } catch (FileError const& error) {
      return std::string(error.what());
    }
  };
  EXPECT_EQ(reason("/no/such/file"), "/no/such/file: No such file or directory");
  EXPECT_EQ(reason("/"), "/: Is a directory");
  EXPECT_EQ(reason("/dev/null"), "read");
}

TEST(Scenario, FilesAreRead) {
  std::string const file = testing::TempDir() + "scenario_test.jsonl";
  std::FILE* const written = std::fopen(file.c_str(), "w");
  ASSERT_NE(written, nullptr);
  std::fputs("{\"delete\":\"registration/a\"}\n", written);
  std::fclose(written);
  EXPECT_EQ(readAll(openScenario(file)), Lines{"1 delete registration/a"});
  std::remove(file.c_str());
}

// One random edit: a byte changed, inserted or removed, a piece doubled, or the rest cut off.
void mutate(std::string& line, std::mt19937& random) {
  constexpr std::string_view kTelling = "{}[]\":,\\/#0-.eE \t\r\x01\x7F\x80\xC0\xED\xFF";
  std::size_t const at = random() % (line.size() + 1);
  bool const isTelling = random() % 2 == 0;
  char const byte = isTelling ? kTelling[random() % kTelling.size()] : static_cast<char>(random());
  switch (random() % 5) {
    case 0:
      if (at < line.size()) line[at] = byte;
      break;
    case 1:
      line.insert(at, 1, byte);
      break;
    case 2:
      line.erase(at, random() % 4);
      break;
    case 3:
      line.insert(random() % (line.size() + 1), line.substr(at, random() % 30));
      break;
    default:
      if (random() % 4 == 0) line.resize(at);
      break;
  }
}

TEST(Scenario, AnyMutatedLineIsAnOperationOrGetsExactlyOneLine) {
  std::string const valid[] = {
      R"({"put":"controller/status","value":{"controllerUUID":"b9a7…"}})",
      R"({"put":"registration/leaf-1/config","value":{"systemId":"02:00:00:aa:00:01","serviceConfig":{"topology":{"enabled":true,"versionConfig":{"version":{"1":"first","2":""}}}},"enabled":true,"registrationGenId":4294967295}})",
      R"({"put":"heartbeat/02:00:00:aa:00:01","value":[null,-1.5e+3,"\u00e4\ud83d\ude00\"",{"":{}}]})",
      R"({"delete":"service/override/topology"})",
  };
  std::size_t operations = 0;
  std::size_t refusals = 0;
  for (unsigned const seed : sampledRounds(40'000)) {
    std::mt19937 random(seed);
    std::string line = valid[random() % std::size(valid)];
    for (auto edits = 1 + random() % 4; edits > 0; --edits) mutate(line, random);
    std::replace(line.begin(), line.end(), '\n', ' ');
    // The line behind it shows that nothing of the bad one is left over.
    Lines lines = readAll(line + "\n{\"delete\":\"registration/next\"}", 1 + random() % 100);
    ASSERT_FALSE(lines.empty()) << line;
    ASSERT_EQ(lines.back(), "2 delete registration/next") << line;
    lines.pop_back();
    std::size_t const first = line.find_first_not_of(" \t\r");
    bool const isSkipped = first == std::string::npos || line[first] == '#';
    ASSERT_EQ(lines.size(), isSkipped ? 0u : 1u) << line;
    if (isSkipped) continue;
    ASSERT_EQ(findInvalidUtf8(lines[0]), std::string::npos) << line;
    bool const isRefusal = lines[0].substr(0, 4) == "f:1:";
    ++(isRefusal ? refusals : operations);
    if (!isRefusal) continue;
    ASSERT_LT(lines[0].size(), 2000u);
    for (char const byte : lines[0]) ASSERT_FALSE(static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) << lines[0];
  }
  EXPECT_GT(operations, sampled(1000));
  EXPECT_GT(refusals, sampled(10'000));
}

}  // namespace
}  // namespace Agent::ScenarioTest
