// Trees as files: what a dump prints is put again, and the registry answers it as it did.
#include <gmock/gmock.h>

#include <filesystem>
#include <set>

#include "agent/program/client_commands.h"
#include "agent/program/tree_members.h"
#include "agent/tree/state_tree.h"
#include "support/client_world.h"
#include "support/served.h"

namespace Agent::ApplyTreeTest {
namespace {

using Test::Api;
using Test::Served;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

ApplyOptions trees(std::vector<std::string> files) {
  ApplyOptions options;
  options.files = std::move(files);
  options.isTree = true;
  return options;
}

TEST(TreeMembers, AreTheSameHoweverTheTreeIsLaidOutAndCut) {
  for (std::string const tree :
       {R"({"a/b": {"x":[1,{"}":"],{\"\\"}]}, "c\"\u00ea" : true,"d":"," , "e": -1.5})",
        "\r\n {\n\t\"a/b\" :\n{\"x\":\n[1,{\"}\":\"],{\\\"\\\\\"}]}\n,\n\"c\\\"\xC3\xAA\":true\n,"
        "\"d\":\n\",\",\"e\":-1.5}\n "}) {
    for (std::size_t size = 1; size <= tree.size(); ++size) {
      std::string text;
      TreeMembers members(
          [](std::string const& path) { return path != "d"; },
          [&](std::string const& path, Json const& document) { text += path + "=" + document.dump() + ";"; });
      for (std::size_t at = 0; at < tree.size(); at += size) members.feed(std::string_view(tree).substr(at, size));
      members.finish();
      EXPECT_EQ(text, "a/b={\"x\":[1,{\"}\":\"],{\\\"\\\\\"}]};c\"\xC3\xAA=true;e=-1.5;") << size;
    }
  }
}

TEST(ApplyTree, SendsTheInputsInPiecesRegistrationsLast) {
  Folder const folder;
  std::string const file = folder.write("tree", R"({
  "controller/config": {"enabled": true},
  "controller/status": {"controllerUUID": "u", "enabled": true},
  "controller/switch/02:00:00:aa:00:01": {"switchConfig": "a", "switchStatus": "a", "registeredSwitch": true},
  "heartbeat/02:00:00:AA:00:01": {"via": 1e2},
  "registration/a/config": {"enabled": true},
  "registration/a/status": {"controllerUUID": "u", "clientShutdownAck": false, "serviceStatus": {"s": {}}},
  "registration/a/zone": [null],
  "service/config/s": {"enabled": true},
  "service/status/a/s": {}
})");
  ClientWorld world;
  world.answer(200, R"({"applied": 7, "revision": 9})");
  ApplyOptions options = trees({file});
  options.timeToLive = "0";
  EXPECT_EQ(world.run(options), 0) << testing::PrintToString(world.notes);
  EXPECT_EQ(world.printed, "7 documents applied, 2 of the registry's own left out, revision 9\n");
  EXPECT_EQ(world.asked(0), "POST /v1/tree?ttl=0");
  EXPECT_EQ(world.requests[0].body, R"({"put":"controller/config","value":{"enabled":true}}
{"put":"controller/status","value":{"controllerUUID":"u"}}
{"put":"heartbeat/02:00:00:aa:00:01","value":{"via":100.0}}
{"put":"service/config/s","value":{"enabled":true}}
{"put":"registration/a/zone","value":[null]}
{"put":"registration/a/config","value":{"enabled":true}}
{"put":"registration/a/status","value":{}}
)");

  std::string large = "{";
  for (int n = 0; n < 2500; ++n)
    large += (n > 0 ? ",\n\"" : "\n\"") + ("mount/ready/" + std::to_string(n)) + "\": true";
  std::string const second = folder.write("large", large + "}");
  for (bool const isAtomic : {false, true}) {
    ClientWorld other;
    for (int n = 0; n < 4; ++n) other.answer(200, R"({"applied": 1, "revision": 9})");
    options = trees({second, file});
    options.isAtomic = isAtomic;
    options.common.format = OutputFormat::kJson;
    EXPECT_EQ(other.run(options), 0);
    EXPECT_THAT(other.requests, SizeIs(isAtomic ? 1 : 4));
    EXPECT_EQ(
        other.printed,
        isAtomic ? "{\"applied\":1,\"revision\":9,\"leftOut\":2}\n" : "{\"applied\":4,\"revision\":9,\"leftOut\":2}\n");
  }
  // What the server refuses is found again: line 1 of the file has no member.
  ClientWorld refusing;
  refusing.refuse(422, R"({"path": "mount/ready/41", "field": "x", "reason": "bad", "line": 42})");
  EXPECT_EQ(refusing.run(trees({second})), 1);
  EXPECT_THAT(refusing.notes, ElementsAre(second + ":43: mount/ready/41: x: bad"));
}

TEST(ApplyTree, SendsNothingOfATreeThatIsNone) {
  struct {
    std::string tree;
    std::string reason;
  } const cases[] = {
      {"", ":1: the tree breaks off"},
      {"[]", ":1: expected an object from path to document, found \"[\""},
      {"{\"mount/ready/x\": true\n", ":1: the tree breaks off"},
      {"{\"mount/ready/x\": true,}", ":1: expected a path, found \"}\""},
      {"{\"mount/ready/x\": true}\n}", ":2: expected nothing behind the tree, found \"}\""},
      {"{\n\n\"mount/ready/x\" true}", ":3: expected a colon behind the path, found \"t\""},
      {"{\"mount/ready/x\": true,\n\"mount/ready/y\": 1}", ":2: mount/ready/y: expected true or false"},
      {"{\"mount/ready/x\": true,\n\"mount/ready/y\": tru}", ":2: mount/ready/y: not valid JSON"},
      {"{\"mount/ready/x\": true,\n\"mount/ready/x\": true}", ":2: mount/ready/x: the same path twice in one tree"},
      {"{\"heartbeat/02:00:00:aa:00:01\": 1,\n\"heartbeat/02:00:00:AA:00:01\": 1}",
       ":2: heartbeat/02:00:00:AA:00:01: the same path twice in one tree"},
      {"{\"nowhere\": 1}", ":1: nowhere: no such path"},
      {"{\"registration/a\": {}}", ":1: registration/a: a registration has no document"},
      {"{\"controller/config\": {\"enabled\": 1}}", ":1: controller/config: enabled: expected true or false"},
      {"{\"registration/a/status\": {\"what\": 1}}", ":1: registration/a/status: what: no such field here"},
  };
  Folder const folder;
  for (auto const& [tree, reason] : cases) {
    std::string const file = folder.write("tree", tree);
    ClientWorld world;
    EXPECT_EQ(world.run(trees({file})), 1) << tree;
    EXPECT_THAT(world.notes, ElementsAre(HasSubstr(file + reason)));
    EXPECT_THAT(world.requests, SizeIs(0));
  }
}

/// The dump of a server, and the inputs in it.
struct Dump {
  std::map<std::string, std::string> documents;
  std::map<std::string, std::string> inputs;

  explicit Dump(Served const& served) : documents(Api(served).documents()) {
    for (auto const& [path, text] : documents)
      if (auto const input = StateTree::inputOf(parsePath(path), Json::parse(text))) inputs[path] = input->dump();
  }
};

// What is answered tells of the past too, so a network is first answered by its present; that is the same every time.
TEST(ApplyTree, OfADumpMakesTheSameNetwork) {
  Folder const folder;
  std::size_t switches = 0;
  for (auto const& example : std::filesystem::directory_iterator(ENROLIX_EXAMPLES)) {
    if (example.path().extension() != ".jsonl") continue;
    SCOPED_TRACE(example.path());
    auto const run = [&](Served const& served, std::string const& arguments) {
      Outcome const outcome = runProgram(folder, arguments + " --server " + served.url());
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      return outcome.out;
    };
    Served const first({"--memory"});
    run(first, "apply --ttl 0 " + example.path().string());
    Served const second({"--memory"});
    folder.write("dump", run(first, "dump"));
    run(second, "apply --tree --ttl 0 dump");
    EXPECT_EQ(Dump(second).inputs, Dump(first).inputs);

    folder.write("dump", run(second, "dump"));
    folder.write("lines", Api(second).send("GET", "/v1/tree").body);
    for (std::string const arguments :
         {"apply --tree --ttl 0 dump", "apply --tree --atomic --ttl 0 dump", "apply --tree --ttl 0 - <lines"}) {
      Served const third({"--memory"});
      run(third, arguments);
      EXPECT_EQ(Dump(third).documents, Dump(second).documents) << arguments;
    }
    switches += Api(second).documents("controller/switch/").size();
  }
  EXPECT_GT(switches, 10u);
}

}  // namespace
}  // namespace Agent::ApplyTreeTest
