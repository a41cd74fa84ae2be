// Long work is interrupted in each of its phases.
#include "agent/document/breath.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "agent/conditions/judge.h"
#include "agent/document/json_text.h"
#include "agent/tree/stored_size.h"
#include "agent/tree/written_documents.h"
#include "support/tree_world.h"

namespace Agent::BreathTest {
namespace {

using ::testing::Each;
using ::testing::Ge;

/// How often `work` is interrupted.
template <class Work>
int breathsOf(Work const& work) {
  int count = 0;
  Breath const breath([&count] { ++count; });
  work();
  return count;
}

void doPieces() {
  for (int i = 0; i < 1000; ++i) Breath::take();
}

/// `count` members, of a value each, as an object.
std::string members(int count, std::string const& value) {
  std::string text;
  for (int i = 0; i < count; ++i) text += (i == 0 ? "{" : ",") + ("\"" + std::to_string(i)) + "\":" + value;
  return text + "}";
}

struct LongDocument {
  std::string path;
  std::string text;
  /// What it is replaced by.
  std::string other;
};

std::vector<LongDocument> longDocuments() {
  constexpr int kMembers = 2000;
  std::string numbers = "[0";
  for (int i = 0; i < 20 * kMembers; ++i) numbers += ",1";
  std::string nested = "1";
  for (int i = 0; i < 60; ++i) nested = "{\"a\":" + nested + "}";
  std::string escapes;
  for (int i = 0; i < 130'000; ++i) escapes += "\\u00e9\\n";
  std::string const config = R"({"systemId":"02:00:00:aa:00:01","serviceConfig":)";
  return {
      {"registration/a/numbers", numbers + "]", "0"},
      {"registration/a/nested", members(kMembers / 10, nested), "0"},
      {"registration/a/text", "\"" + std::string(1'000'000, 'x') + "\"", "0"},
      {"registration/a/escapes", "\"" + escapes + "\"", "0"},
      {"registration/a/config", config + members(kMembers, R"({"enabled":true})") + "}", config + "{}}"},
      {"mount/offer/02:00:00:aa:00:01", R"({"publishedMount":)" + members(kMembers, "{}") + "}", "{}"},
      {"service/config/routing",
       R"({"versionConfig":{"version":)" + members(kMembers, "\"v\"") + "}}",
       R"({"versionConfig":{"version":{}}})"},
  };
}

TEST(Breath, InterruptsWhatIsDoneWithinItAlone) {
  EXPECT_GT(breathsOf(doPieces), 10);
  int count = 0;
  {
    Breath const breath([&count] { ++count; });
  }
  doPieces();
  EXPECT_EQ(count, 0);
}

TEST(Breath, IsNotInterruptedItself) {
  int depth = 0;
  int deepest = 0;
  Breath const breath([&] {
    deepest = std::max(deepest, ++depth);
    Breath const within([&] { ++deepest; });
    doPieces();
    --depth;
  });
  doPieces();
  EXPECT_EQ(deepest, 1);
}

TEST(Breath, ChangesNothingWithinAnother) {
  int inner = 0;
  EXPECT_GT(breathsOf([&] {
              {
                Breath const within([&] { ++inner; });
              }
              doPieces();
            }),
            10);
  EXPECT_EQ(inner, 0);
}

TEST(Breath, IsTakenInEachPhaseOfALongDocument) {
  for (LongDocument const& document : longDocuments()) {
    TreeWorld world;
    Path const path = parsePath(document.path);
    Json json;
    Json const other = readJson(document.other);
    std::vector<int> breaths;
    auto const phase = [&](auto const& work) { breaths.push_back(breathsOf(work)); };
    phase([&] { json = readJson(document.text); });
    phase([&] { jsonText(json); });
    phase([&] { world.tree.put(path, json); });
    EXPECT_EQ(*world.tree.text(path), jsonText(*world.tree.read(path)));
    // What no record stands for is kept as its text, and the reader gets the same one.
    if (path.place != Place("registration/<switch>/<entry>")) {
      phase([&] { StateTree::check(path, &json); });
      phase([&] { world.tree.text(path); });
      phase([&] { world.tree.put(path, other); });
    }
    EXPECT_THAT(breaths, Each(Ge(10))) << document.path;
  }
}

TEST(Breath, IsTakenWhileASwitchIsJudged) {
  TreeWorld world;
  world.put("registration/a/config",
            R"({"systemId": "02:00:00:aa:00:01", "serviceConfig": )" + members(2000, "{}") + "}");
  world.put("registration/a/status", "{}");
  world.put("mount/offer/02:00:00:aa:00:01", R"({"publishedMount": )" + members(2000, "{}") + "}");
  EXPECT_GE(breathsOf([&] { judge(SwitchRecords(world.tables, "a"), {}); }), 60);
}

// Each switch watches each service of the controller, and most have nothing to write because of it.
TEST(Breath, IsTakenWhileReactorsAreNotifiedThatWriteNothing) {
  TreeWorld world;
  for (int i = 0; i < 1000; ++i) {
    std::string const name = "registration/" + std::to_string(i);
    world.put(name + "/config", "{}");
    world.put(name + "/status", "{}");
  }
  world.put("controller/config", R"({"enabled": true})");
  WrittenDocuments const written(world.tree);
  EXPECT_GE(breathsOf([&] { world.put("service/config/x", "{}"); }), 10);
}

TEST(Breath, IsTakenWhileABatchIsAddedUp) {
  std::vector<Operation> operations;
  for (int i = 0; i < 2000; ++i) operations.push_back({parsePath("mount/ready/" + std::to_string(i)), Json(true)});
  std::size_t at = 0;
  StoredSize const size({}, {.bytes = 1'000'000});
  EXPECT_GE(breathsOf([&] { size.require(operations, {}, at); }), 10);
}

}  // namespace
}  // namespace Agent::BreathTest
