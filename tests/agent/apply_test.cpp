// Scenarios reach the server whole, in pieces, and what is refused is found in its file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "agent/document/scenario_pieces.h"
#include "agent/program/client_commands.h"
#include "support/client_world.h"
#include "support/program.h"

namespace Agent::ApplyTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

/// Gives a text in reads of a few bytes.
class Text : public ByteSource {
 public:
  Text(std::string text, std::size_t most) : text_(std::move(text)), most_(most) {}
  std::size_t read(char* to, std::size_t room) override {
    std::size_t const size = std::min({room, most_, text_.size() - at_});
    std::copy_n(text_.data() + at_, size, to);
    at_ += size;
    return size;
  }

 private:
  std::string text_;
  std::size_t most_;
  std::size_t at_ = 0;
};

TEST(ScenarioPieces, TogetherAreTheFileAndKeepTheirBounds) {
  std::mt19937 random(3);
  for (int round = 0; round < 300; ++round) {
    std::string text;
    std::size_t const lines = random() % 12;
    for (std::size_t i = 0; i < lines; ++i) text += std::string(random() % 30, 'x') + (random() % 3 ? "\n" : "\r\n");
    bool const isCut = random() % 3 == 0 && !text.empty();
    if (isCut) text += "last";
    PieceLimits const limits{1 + random() % 40, 1 + random() % 4};
    bool const isMarked = random() % 2 == 0;
    ScenarioPieces pieces(std::make_unique<Text>((isMarked ? "\xEF\xBB\xBF" : "") + text, 1 + random() % 9), limits);
    std::string together;
    std::size_t line = 1;
    while (auto const piece = pieces.next()) {
      EXPECT_EQ(piece->firstLine, line);
      EXPECT_EQ(piece->lines, static_cast<std::size_t>(std::count(piece->text.begin(), piece->text.end(), '\n')));
      EXPECT_EQ(piece->text.back(), '\n');
      EXPECT_LE(piece->lines, limits.lines);
      EXPECT_TRUE(piece->lines == 1 || piece->text.size() <= limits.bytes);
      together += piece->text;
      line += piece->lines;
    }
    EXPECT_EQ(together, isCut ? text + "\n" : text);
    EXPECT_EQ(pieces.line(), line - 1);
  }
}

TEST(ScenarioPieces, LeaveOutOneByteOrderMarkAtTheVeryStart) {
  std::string const mark = "\xEF\xBB\xBF";
  ScenarioPieces pieces(std::make_unique<Text>(mark + mark + "a\nb\n" + mark + "c\n", 2), {10, 1});
  EXPECT_EQ(pieces.next()->text, mark + mark + "a\n");
  EXPECT_EQ(pieces.next()->text, "b\n");
  EXPECT_EQ(pieces.next()->text, mark + mark + "c\n");
}

TEST(ScenarioPieces, RefuseALineWithoutEnd) {
  ScenarioPieces pieces(std::make_unique<Text>("{}\n" + std::string(kMaximumLineBytes + 64 * 1024, 'x'), 1u << 20u),
                        {10, 1});
  EXPECT_EQ(pieces.next()->text, "{}\n");
  EXPECT_THROW(pieces.next(), InputError);
  EXPECT_EQ(pieces.line(), 2u);
}

ApplyOptions apply(std::vector<std::string> files) {
  ApplyOptions options;
  options.files = std::move(files);
  return options;
}

std::string manyLines(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += "# line\n";
  return text;
}

TEST(Apply, SendsFilesInPiecesAndSumsUp) {
  Folder folder;
  ClientWorld world;
  world.answer(200, R"({"applied": 1000, "revision": 1000})");
  world.answer(200, R"({"applied": 500, "revision": 1500})");
  world.answer(200, R"({"applied": 1, "revision": 1501})");
  ApplyOptions options = apply({folder.write("a", manyLines(1500)), folder.write("b", "one")});
  options.timeToLive = "0";
  EXPECT_EQ(world.run(options), 0);
  EXPECT_EQ(world.printed, "1501 operations applied, revision 1501\n");
  ASSERT_THAT(world.requests, SizeIs(3));
  EXPECT_EQ(world.asked(0), "POST /v1/tree?ttl=0");
  EXPECT_EQ(world.requests[0].body, manyLines(1000));
  EXPECT_EQ(world.requests[1].body, manyLines(500));
  EXPECT_EQ(world.requests[2].body, "one\n");
}

TEST(Apply, SendsAllAtOnceIfAtomic) {
  Folder folder;
  ClientWorld world;
  world.answer(200, R"({"applied": 2, "revision": 8})");
  ApplyOptions options = apply({folder.write("a", manyLines(1500)),
                                folder.write("b",
                                             "\xEF\xBB\xBF"
                                             "b"),
                                folder.write("c", "c\n")});
  options.isAtomic = true;
  options.timeToLive = "2.5";
  options.ifMatch = 7;
  options.common.format = OutputFormat::kJson;
  EXPECT_EQ(world.run(options), 0);
  EXPECT_EQ(world.printed, "{\"applied\":2,\"revision\":8}\n");
  EXPECT_EQ(world.asked(0), "POST /v1/tree?atomic=1&ttl=2.5 If-Match: \"7\"");
  EXPECT_EQ(world.requests[0].body, manyLines(1500) + "b\nc\n");
}

TEST(Apply, NobodyElseMayChangeAnythingBetweenThePieces) {
  Folder folder;
  ClientWorld world;
  world.answer(200, R"({"applied": 1000, "revision": 42})");
  world.refuse(412, R"({"status": 412, "reason": "the revision is 43"})");
  std::string const file = folder.write("a", manyLines(1001));
  ApplyOptions options = apply({file});
  options.ifMatch = 40;
  EXPECT_EQ(world.run(options), 5);
  EXPECT_EQ(world.asked(0), "POST /v1/tree If-Match: \"40\"");
  EXPECT_EQ(world.asked(1), "POST /v1/tree If-Match: \"42\"");
  EXPECT_THAT(world.notes, ElementsAre(file + ": the revision is 43"));
}

TEST(Apply, NamesTheLineOfTheFile) {
  Folder folder;
  std::string const a = folder.write("a", manyLines(1200));
  std::string const b = folder.write("b", manyLines(10));
  auto const refusal = [](std::size_t line) {
    return R"({"path": "heartbeat/x", "field": "value", "reason": "bad", "line": )" + std::to_string(line) + "}";
  };
  {
    ClientWorld world;
    world.answer(200, R"({"applied": 0, "revision": 1})");
    world.refuse(422, refusal(200));
    EXPECT_EQ(world.run(apply({a, b})), 1);
    EXPECT_THAT(world.notes, ElementsAre(a + ":1200: heartbeat/x: value: bad"));
    EXPECT_THAT(world.requests, SizeIs(2));
  }
  for (auto const& [line, place] : {std::pair<std::size_t, std::string>(1000, a + ":1000"),
                                    {1001, a + ":1001"},
                                    {1200, a + ":1200"},
                                    {1201, b + ":1"},
                                    {1210, b + ":10"}}) {
    ClientWorld world;
    world.refuse(422, refusal(line));
    ApplyOptions options = apply({a, b});
    options.isAtomic = true;
    EXPECT_EQ(world.run(options), 1);
    EXPECT_THAT(world.notes, ElementsAre(place + ": heartbeat/x: value: bad"));
  }
}

TEST(Apply, SaysWhatElseCanGoWrong) {
  Folder folder;
  std::string const empty = folder.write("empty", "");
  {
    ClientWorld world;
    world.answer(200, R"({"applied": 0, "revision": 3})");
    EXPECT_EQ(world.run(apply({empty})), 0);
    EXPECT_EQ(world.printed, "0 operations applied, revision 3\n");
  }
  ClientWorld world;
  EXPECT_EQ(world.run(apply({folder / "missing"})), 1);
  EXPECT_THAT(world.notes.back(), HasSubstr("missing: No such file or directory"));
  world.refuse(413, R"({"reason": "too large"})");
  EXPECT_EQ(world.run(apply({folder.write("a", "x")})), 1);
  EXPECT_THAT(world.notes.back(), HasSubstr("a: too large"));
  world.answer(200, "{}");
  EXPECT_EQ(world.run(apply({folder.write("a", "x")})), 3);
  EXPECT_THAT(world.notes.back(), HasSubstr("cannot be understood"));
}

}  // namespace
}  // namespace Agent::ApplyTest
