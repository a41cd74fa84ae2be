// What the client commands ask a server, print, and leave with.
#include "agent/program/client_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/client_world.h"
#include "support/program.h"

namespace Agent::ClientCommandsTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

template <class Command>
Command inJson(Command options) {
  options.common.format = OutputFormat::kJson;
  return options;
}

GetOptions get(std::string const& path) {
  GetOptions options;
  options.path = path;
  return options;
}

TEST(ClientCommands, GetPrintsADocument) {
  ClientWorld world;
  world.answer(200, R"({"enabled": true, "list": [1]})");
  world.answer(200, R"({"enabled": true})", "12");
  EXPECT_EQ(world.run(get("controller/config")), 0);
  EXPECT_EQ(world.run(inJson(get("controller/config"))), 0);
  EXPECT_EQ(world.printed,
            "{\n  \"enabled\": true,\n  \"list\": [\n    1\n  ]\n}\n"
            R"({"revision":12,"path":"controller/config","value":{"enabled":true}})"
            "\n");
  EXPECT_EQ(world.asked(0), "GET /v1/tree/controller/config");
}

TEST(ClientCommands, PathsAreEncodedSegmentBySegment) {
  struct {
    std::string path;
    std::string target;
  } const cases[] = {
      {"heartbeat/02:00:00:00:00:01", "heartbeat/02:00:00:00:00:01"},
      {"registration/a b?&#%/config", "registration/a%20b%3F%26%23%25/config"},
      {"registration/t\xC3\xAAte/x", "registration/t%C3%AAte/x"},
      {"registration/../..", "registration/%2E%2E/%2E%2E"},
      {"registration/./.x", "registration/%2E/.x"},
      {"registration/..x/...", "registration/..x/..."},
  };
  for (auto const& [path, target] : cases) EXPECT_EQ(documentTarget(path), "/v1/tree/" + target);
  EXPECT_EQ(queryValue("a/b c&d=\xFF"), "a/b%20c%26d%3D%FF");
}

TEST(ClientCommands, PutSendsTheDocumentFromWhereItIs) {
  Folder folder;
  ClientWorld world;
  for (int i = 0; i < 3; ++i) world.answer(200, R"({"revision": 9})");
  PutOptions options;
  options.path = "heartbeat/x";
  options.value = "{\"n\": 1}";
  options.timeToLive = "0.5";
  options.ifMatch = 3;
  EXPECT_EQ(world.run(options), 0);
  options = {};
  options.path = "heartbeat/x";
  options.file = folder.write("f", "[2]\n");
  EXPECT_EQ(world.run(inJson(options)), 0);
  options.file = folder / "missing";
  EXPECT_EQ(world.run(options), 1);
  EXPECT_EQ(world.asked(0), "PUT /v1/tree/heartbeat/x?ttl=0.5 If-Match: \"3\"");
  EXPECT_EQ(world.requests[0].body, "{\"n\": 1}");
  EXPECT_EQ(world.asked(1), "PUT /v1/tree/heartbeat/x");
  EXPECT_EQ(world.requests[1].body, "[2]\n");
  EXPECT_EQ(world.requests.size(), 2u);
  EXPECT_EQ(world.printed, "revision 9\n{\"revision\":9,\"path\":\"heartbeat/x\"}\n");
  EXPECT_THAT(world.notes, ElementsAre(folder / "missing: No such file or directory"));
}

TEST(ClientCommands, DeleteAsksOnce) {
  ClientWorld world;
  world.answer(200, R"({"revision": 5})");
  DeleteOptions options;
  options.path = "registration/a";
  EXPECT_EQ(world.run(options), 0);
  EXPECT_EQ(world.asked(0), "DELETE /v1/tree/registration/a");
}

TEST(ClientCommands, DeleteSaysWhetherSomethingWasThere) {
  struct {
    char const* answer;
    bool isIfExists;
    int exit;
  } const cases[] = {{R"({"revision": 5, "existed": true})", false, 0},
                     {R"({"revision": 5, "existed": false})", false, 4},
                     {R"({"revision": 5, "existed": false})", true, 0}};
  for (auto const& c : cases) {
    ClientWorld world;
    world.answer(200, c.answer);
    DeleteOptions options;
    options.path = "registration/a";
    options.isIfExists = c.isIfExists;
    EXPECT_EQ(world.run(options), c.exit) << c.answer;
    EXPECT_EQ(world.printed, c.exit == 0 ? "revision 5\n" : "") << c.answer;
  }
}

TEST(ClientCommands, LeaveWithWhatTheServerSaid) {
  struct {
    int status;
    std::string body;
    int exit;
    std::string note;
  } const cases[] = {
      {404, R"({"error": {"status": 404, "reason": "nothing there"}})", 4, "a/b: not found"},
      {412, R"({"error": {"status": 412, "path": "a/b", "reason": "revision is 4"}})", 5, "a/b: revision is 4"},
      {422,
       R"({"error": {"status": 422, "path": "a/b", "field": "enabled", "reason": "expected true or false, found 3"}})",
       1,
       "a/b: enabled: expected true or false, found 3"},
      {400, R"({"error": {"status": 400, "reason": "no such path"}})", 1, "no such path"},
      {507, R"({"error": {"status": 507, "reason": "no room"}})", 1, "no room"},
      {400, "{\"error\": {\"reason\": \"two\\nlines\\u001b\"}}", 1, "two\\nlines\\u001b"},
      {502, "<html>\nBad", 1, "the server answered 502: <html>"},
      {502, "", 1, "the server answered 502"},
      {500, "{\"error\": 5}", 1, "the server answered 500: {\"error\": 5}"},
      {200, "no JSON", 3, "the server's answer cannot be understood: "},
  };
  for (auto const& [status, body, exit, note] : cases) {
    ClientWorld world;
    world.answer(status, body);
    EXPECT_EQ(world.run(get("a/b")), exit) << body;
    ASSERT_EQ(world.notes.size(), 1u);
    EXPECT_THAT(world.notes[0], testing::StartsWith(note));
    EXPECT_EQ(world.printed, "");
  }
}

TEST(ClientCommands, LeaveWithThreeWithoutAnswerAndWithTwoWithoutServer) {
  auto const expectStatuses = [](auto options) {
    ClientWorld world;
    EXPECT_EQ(world.run(options), 3);
    EXPECT_THAT(world.notes, ElementsAre("server:1: no connection"));
    options.common.server = "nonsense";
    EXPECT_EQ(world.run(options), 2);
    EXPECT_THAT(world.notes.back(), HasSubstr("--server: expected http://HOST:PORT"));
  };
  PutOptions put;
  put.value = "1";
  expectStatuses(put);
  expectStatuses(get("a"));
  expectStatuses(DeleteOptions());
  expectStatuses(WatchOptions());
  expectStatuses(DumpOptions());
  expectStatuses(ApplyOptions());
  expectStatuses(SwitchesOptions());
  expectStatuses(FleetOptions());
}

TEST(ClientCommands, DumpPrintsTheTreeAsReplayDoes) {
  std::string const tree = "{\n\"a/b\": {\"x\":[1,{}]},\n\"c\\\"\\u00ea\": true\n}\n";
  std::string const expected =
      "{\n  \"a/b\": {\n    \"x\": [\n      1,\n      {}\n    ]\n  },\n  \"c\\\"\xC3\xAA\": true\n}\n";
  for (std::size_t size = 1; size <= tree.size(); ++size) {
    ClientWorld world;
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < tree.size(); at += size) pieces.push_back(tree.substr(at, size));
    world.stream(pieces);
    DumpOptions options;
    options.prefix = "a b";
    EXPECT_EQ(world.run(options), 0);
    EXPECT_EQ(world.printed, expected) << size;
    EXPECT_EQ(world.asked(0), "GET /v1/tree?prefix=a%20b");
  }
  ClientWorld world;
  world.stream({tree});
  EXPECT_EQ(world.run(inJson(DumpOptions())), 0);
  EXPECT_EQ(world.printed,
            "{\"path\":\"a/b\",\"value\":{\"x\":[1,{}]}}\n{\"path\":\"c\\\"\xC3\xAA\",\"value\":true}\n");
}

TEST(ClientCommands, DumpTakesNothingForATreeThatIsNone) {
  for (char const* text : {"{\n\"a\": 1,\n",
                           "{\n\"a\": 1\n",
                           "",
                           "{\n\"a\": \n}\n",
                           "{\n\"a\n}\n",
                           "[]\n",
                           "{\n}\n\"a\": 1\n",
                           "{\n\"a\" 1\n}\n"}) {
    ClientWorld world;
    world.stream({text});
    EXPECT_EQ(world.run(DumpOptions()), 3) << text;
    EXPECT_THAT(world.notes, ElementsAre(HasSubstr("cannot be understood: "))) << text;
  }
  for (char const* empty : {"{\n}\n", "{}\n", "{}"}) {
    ClientWorld world;
    world.stream({empty});
    EXPECT_EQ(world.run(DumpOptions()), 0) << empty;
    EXPECT_EQ(world.printed, "{}\n");
  }
  ClientWorld refusing;
  refusing.refuse(412, R"({"reason": "no"})");
  EXPECT_EQ(refusing.run(DumpOptions()), 5);
}

// JSON leaves some controls in strings as they are.
TEST(ClientCommands, NothingThatTheServerSendsActsOnTheTerminal) {
  std::string const text =
      "\x7F \xC2\x9B"
      "31m \xE2\x80\xA8 \xC3\xAA \xE2\x80\x93";
  std::string const shown = "\\u007f \\u009b31m \\u2028 \xC3\xAA \xE2\x80\x93";
  std::string const document = "{\"" + text + "\":\"" + text + "\"}";
  std::string const change =
      "event: change\nid: 8\ndata: {\"revision\":8,\"path\":\"a\",\"value\":" + document + "}\n\n";
  auto const expectEscapes = [&](auto options, Scripted const& answer) {
    for (OutputFormat const format : {OutputFormat::kTable, OutputFormat::kJson}) {
      options.common.format = format;
      ClientWorld world;
      world.answers.push_back(answer);
      world.run(options);
      EXPECT_THAT(world.printed, HasSubstr("\"" + shown + "\""));
      EXPECT_EQ(world.printed.find_first_of("\x7F\x9B\xA8"), std::string::npos) << world.printed;
    }
  };
  HttpFields const fields = {{"Enrolix-Revision", "7"}};
  expectEscapes(get("a"), {200, fields, {document}});
  expectEscapes(DumpOptions(), {200, fields, {"{\n\"a\": " + document + "\n}\n"}});
  expectEscapes(WatchOptions(), {200, fields, {change}});
}

TEST(ClientCommands, SwitchesPrintTheTable) {
  std::string const tree =
      "{\n\"controller/config\": {\"enabled\":false},\n\"mount/ready/x\": true,\n"
      "\"registration/a/config\": {\"systemId\":\"02:00:00:00:00:01\",\"enabled\":true,\"registrationGenId\":3},\n"
      "\"registration/a/status\": {\"registrationGenId\":2}\n}\n";
  ClientWorld world;
  for (int i = 0; i < 3; ++i) world.stream({tree});
  EXPECT_EQ(world.run(SwitchesOptions()), 0);
  EXPECT_EQ(world.printed,
            "SWITCH  SYSTEM ID          STATE           GENERATION asked/answered\n"
            "a       02:00:00:00:00:01  agent disabled  3/2\n");
  world.isTerminal = true;
  EXPECT_EQ(world.run(SwitchesOptions()), 0);
  EXPECT_THAT(world.printed, HasSubstr("\x1B[33magent disabled\x1B[0m"));
  EXPECT_EQ(world.run(inJson(SwitchesOptions())), 0);
  EXPECT_THAT(world.printed, HasSubstr("{\"switch\":\"a\","));
}

TEST(ClientCommands, SwitchesAreWatched) {
  auto const change = [](int revision, std::string const& path, std::string const& value) {
    std::string const id = std::to_string(revision);
    return "event: change\nid: " + id + "\ndata: {\"revision\":" + id + ",\"path\":\"" + path +
           "\",\"value\":" + value + "}\n\n";
  };
  ClientWorld world;
  // A table for each piece that changes it, once everything is known; none for what shows nothing.
  world.stream({change(1, "registration/a/config", "{}"),
                change(7, "registration/b/config", "{}"),
                change(8, "mount/ready/x", "true"),
                change(9, "registration/a/config", "null"),
                "event: resync\ndata: {\"revision\":12}\n\n",
                "event: change\ndata: {\"revision\":12,\"path\":\"registration/c/config\",\"value\":{}}\n\n",
                "event: synced\nid: 12\ndata: {\"revision\":12}\n\n"});
  SwitchesOptions options;
  options.isWatched = true;
  EXPECT_EQ(world.run(options), 0);
  EXPECT_EQ(world.asked(0), "GET /v1/watch?prefix=&after=0");
  std::string const heading = "SWITCH  SYSTEM ID  STATE                    GENERATION asked/answered\n";
  auto const row = [](std::string const& name) { return name + "                  incomplete: no \"status\"  -/-\n"; };
  EXPECT_EQ(world.printed,
            heading + row("a") + row("b") + "\n" + heading + row("b") + "\n" + heading + row("c") + "\n");
}

TEST(ClientCommands, ColoursAreForThoseWhoWantThem) {
  for (bool const isTerminal : {false, true}) {
    for (bool const areWelcome : {false, true}) {
      ClientWorld world;
      world.isTerminal = isTerminal;
      world.areColoursWelcome = areWelcome;
      ClientCommonOptions options;
      EXPECT_EQ(isColoured(options, world.surroundings()), isTerminal && areWelcome);
      options.colour = ColourChoice::kAlways;
      EXPECT_TRUE(isColoured(options, world.surroundings()));
      options.colour = ColourChoice::kNever;
      EXPECT_FALSE(isColoured(options, world.surroundings()));
    }
  }
}

}  // namespace
}  // namespace Agent::ClientCommandsTest
