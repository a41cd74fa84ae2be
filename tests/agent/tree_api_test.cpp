// The HTTP interface without HTTP: every route, status and limit.
#include <gmock/gmock.h>

#include "support/api_world.h"

namespace Agent::TreeApiTest {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class TreeApiTest : public ApiWorld {};

TEST_F(TreeApiTest, ADocumentIsPutReadAndDeleted) {
  Reply const made = put("mount/ready/x", " true ");
  EXPECT_EQ(made.status, 200);
  EXPECT_EQ(made.body, "{\"revision\":2}\n");
  EXPECT_EQ(made.field("enrolix-revision"), "2");
  put("mount/ready/y", "false");
  Reply const read = get("/v1/tree/mount/ready/x");
  EXPECT_EQ(read.status, 200);
  EXPECT_EQ(read.body, "true\n");
  EXPECT_EQ(read.field("ETag"), "\"2\"");
  EXPECT_EQ(read.field("Content-Type"), "application/json");
  EXPECT_EQ(put("mount/ready/x", "true").json()["revision"], 2);
  EXPECT_EQ(ask("DELETE", "/v1/tree/mount/ready/x").body, "{\"revision\":4,\"existed\":true}\n");
  EXPECT_EQ(ask("DELETE", "/v1/tree/mount/ready/x").body, "{\"revision\":4,\"existed\":false}\n");
  EXPECT_EQ(get("/v1/tree/mount/ready/x").status, 404);
}

TEST_F(TreeApiTest, PathsMayBeEncoded) {
  EXPECT_EQ(put("service/config/a%20b%3F%25", "{}").status, 200);
  EXPECT_EQ(world.read("service/config/a b?%").substr(0, 1), "{");
  EXPECT_EQ(get("/v1/tree/service/config/a%20b%3f%25").status, 200);
  EXPECT_EQ(get("/v1/tree/service/config/a%2").status, 400);
  EXPECT_EQ(get("/v1/tree/service/config%2fa").status, 400);
  EXPECT_EQ(get("/v1/tree/heartbeat/02:00:00:AA:00:01").json()["error"]["path"], "heartbeat/02:00:00:aa:00:01");
}

TEST_F(TreeApiTest, RefusalsSayWhereWhatAndWhatWasExpected) {
  struct Case {
    char const* method;
    char const* target;
    char const* body;
    int status;
    char const* path;
    char const* field;
    char const* reason;
  };
  Case const cases[] = {
      {"PUT",
       "/v1/tree/controller/config",
       R"({"enabled": 3})",
       422,
       "controller/config",
       "enabled",
       "found the number 3"},
      {"PUT", "/v1/tree/controller/config", R"({"enabled": )", 400, "controller/config", "enabled", "not valid JSON"},
      {"PUT", "/v1/tree/controller/config", "", 400, "controller/config", nullptr, "not valid JSON"},
      {"PUT",
       "/v1/tree/controller/switch/02:00:00:aa:00:01",
       "{}",
       403,
       "controller/switch/02:00:00:aa:00:01",
       nullptr,
       "registry's own"},
      {"DELETE", "/v1/tree/controller/config", "", 403, "controller/config", nullptr, "always there"},
      {"PUT", "/v1/tree/registration/a", "{}", 403, "registration/a", nullptr, "has no document"},
      {"GET", "/v1/tree/registration/a/b/c", "", 400, "registration/a/b/c", nullptr, "no such path"},
      {"PUT",
       "/v1/tree/registration/a/status",
       R"({"clientShutdownAck": true})",
       422,
       "registration/a/status",
       "clientShutdownAck",
       "the registry's own"},
      {"PUT", "/v1/tree/registration/a/config", "{}", 422, "registration/a/config", "systemId", "missing"},
      {"PUT", "/v1/tree/registration/%2e%2e/note", "1", 422, "registration/../note", nullptr, "is no name"},
      {"PUT", "/v1/tree/service/config/.", "{}", 422, "service/config/.", nullptr, "is no name"},
      {"PUT",
       "/v1/tree/registration/a/config",
       R"({"systemId": "02:00:00:aa:00:01", "serviceConfig": {"a\u202eb": {}}})",
       422,
       "registration/a/config",
       R"(serviceConfig["a\u202eb"])",
       "\"a\\u202eb\" is no name"},
      {"GET", "/v1/tree/mount/ready/x", "", 404, "mount/ready/x", nullptr, "no document"},
      {"GET", "/v1/nothing", "", 404, nullptr, nullptr, "no such resource"},
      {"POST", "/v1/tree/mount/ready/x", "true", 405, nullptr, nullptr, "GET, HEAD, PUT, DELETE"},
      {"PUT", "/v1/tree", "", 405, nullptr, nullptr, "GET, HEAD, POST"},
      {"DELETE", "/v1/watch", "", 405, nullptr, nullptr, "GET, HEAD"},
      {"POST", "/healthz", "", 405, nullptr, nullptr, "GET, HEAD"},
      {"PUT", "/v1/tree/mount/ready/x?ttl=3", "true", 400, nullptr, nullptr, "\"ttl\" means nothing here"},
      {"PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01?ttl=-1", "1", 400, nullptr, nullptr, "ttl: expected seconds"},
      {"PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01?ttl=nan", "1", 400, nullptr, nullptr, "ttl: expected seconds"},
      {"PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01?ttl=1&ttl=2", "1", 400, nullptr, nullptr, "comes twice"},
      {"GET", "/v1/tree?what=1", "", 400, nullptr, nullptr, "\"what\" means nothing here"},
      {"POST", "/v1/tree?atomic=yes", "", 400, nullptr, nullptr, "atomic: expected 0 or 1"},
      {"GET", "/v1/watch?after=-1", "", 400, nullptr, nullptr, "after: expected a revision"},
  };
  std::string const before = world.text();
  for (Case const& c : cases) {
    Reply const reply = ask(c.method, c.target, c.body);
    EXPECT_EQ(reply.status, c.status) << c.method << " " << c.target;
    Json const error = reply.json()["error"];
    EXPECT_EQ(error["status"], c.status);
    EXPECT_EQ(error.value("path", "-"), c.path != nullptr ? c.path : "-");
    EXPECT_EQ(error.value("field", "-"), c.field != nullptr ? c.field : "-");
    EXPECT_THAT(error["reason"].get<std::string>(), HasSubstr(c.reason)) << c.target;
    EXPECT_EQ(reply.field("Allow") != "-", c.status == 405);
  }
  EXPECT_EQ(world.text(), before);
}

TEST_F(TreeApiTest, IfMatchIsTheRevisionThatIsMeant) {
  struct Case {
    char const* method;
    char const* target;
    char const* match;
    int status;
  };
  put("mount/ready/x", "true");  // revision 2
  put("mount/ready/y", "true");  // revision 3
  Case const cases[] = {{"GET", "/v1/tree/mount/ready/x", "2", 200},
                        {"GET", "/v1/tree/mount/ready/x", "\"2\"", 200},
                        {"GET", "/v1/tree/mount/ready/x", "*", 200},
                        {"GET", "/v1/tree/mount/ready/x", "\"3\"", 412},
                        {"GET", "/v1/tree/mount/ready/z", "*", 412},
                        {"GET", "/v1/tree/mount/ready/x", "two", 400},
                        {"PUT", "/v1/tree/mount/ready/x", "3", 412},
                        {"PUT", "/v1/tree/mount/ready/z", "1", 412},
                        {"DELETE", "/v1/tree/mount/ready/x", "1", 412},
                        {"DELETE", "/v1/tree/mount/ready/z", "0", 200},
                        {"GET", "/v1/tree?prefix=mount", "2", 412},
                        {"GET", "/v1/tree?prefix=mount", "3", 200},
                        {"POST", "/v1/tree", "2", 412},
                        {"POST", "/v1/tree?atomic=1", "2", 412},
                        {"PUT", "/v1/tree/mount/ready/z", "0", 200},
                        {"PUT", "/v1/tree/mount/ready/z", "0", 412},
                        {"DELETE", "/v1/tree/mount/ready/x", "2", 200}};
  for (Case const& c : cases) {
    std::string const body = std::string(c.method) == "PUT" ? "false" : "";
    EXPECT_EQ(ask(c.method, c.target, body, {{"If-Match", c.match}}).status, c.status)
        << c.method << c.target << c.match;
  }
}

TEST_F(TreeApiTest, IfNoneMatchLetsAWriteMakeSomethingNew) {
  auto const put = [&](char const* none) {
    return ask("PUT", "/v1/tree/mount/ready/x", "true", {{"If-None-Match", none}}).status;
  };
  EXPECT_EQ(put("*"), 200);
  EXPECT_EQ(put("*"), 412);
  EXPECT_EQ(put("\"2\""), 400);
}

TEST_F(TreeApiTest, WhatIsReadIsKeptAndWhatAWriterFindsIsToldWhenItIs) {
  put("mount/ready/x", "true");
  world.memory->isFullIs(true);
  std::vector<int> statuses;
  auto const answer = [&](HttpResponse const& response) { statuses.push_back(response.status); };
  api.handle({"DELETE", "/v1/tree/mount/ready/x", {}, ""}, answer);
  api.handle({"PUT", "/v1/tree/mount/ready/x", {{"If-Match", "2"}}, "true"}, answer);
  api.handle({"GET", "/v1/tree/mount/ready/x", {}, ""}, answer);
  api.handle({"GET", "/v1/tree/mount/ready/x", {{"If-Match", "1"}}, ""}, answer);
  api.handle({"GET", "/v1/tree/mount/ready/x", {{"If-Match", "2"}}, ""}, answer);
  world.loop.run();
  // The condition holds again once the deletion could not be kept, and then the store takes nothing.
  EXPECT_EQ(statuses, (std::vector<int>{200, 412, 200, 507, 507}));
}

TEST_F(TreeApiTest, ThePrefixOfTheTreeIsOneObject) {
  put("mount/ready/x", "true");
  put("mount/ready/y", "false");
  Reply const reply = get("/v1/tree?prefix=mount/");
  EXPECT_EQ(reply.body, "{\n\"mount/ready/x\": true,\n\"mount/ready/y\": false\n}\n");
  EXPECT_EQ(reply.field("Enrolix-Revision"), "3");
  EXPECT_EQ(get("/v1/tree").json().size(), world.service->kept().documents.size());
  EXPECT_EQ(get("/v1/tree?prefix=nothing").json(), Json::object());
}

TEST_F(TreeApiTest, ABatchIsATurnALine) {
  Reply const all = post("", {kPut, "", "# so far", kDrop, kPut});
  EXPECT_EQ(all.body, "{\"applied\":3,\"revision\":4}\n");
  Reply const some = post("", {kDrop, "", kBad, kPut});
  EXPECT_EQ(some.status, 422);
  EXPECT_EQ(some.json()["applied"], 1);
  EXPECT_EQ(some.json()["error"]["line"], 3);
  EXPECT_EQ(some.json()["error"]["path"], "mount/ready/x");
  EXPECT_EQ(world.read("mount/ready/x"), "nothing");
  Reply const broken = post("", {kPut, "{"});
  EXPECT_EQ(broken.status, 400);
  EXPECT_EQ(broken.json()["applied"], 1);
  EXPECT_EQ(broken.json()["error"]["line"], 2);
  EXPECT_EQ(world.read("mount/ready/x"), "true");
}

TEST_F(TreeApiTest, AnAtomicBatchIsOneTurnOrNothing) {
  Reply const all = post("?atomic=1", {kPut, R"({"put": "mount/ready/y", "value": true})"});
  EXPECT_EQ(all.body, "{\"applied\":2,\"revision\":2}\n");
  Reply const none = post("?atomic=1", {kDrop, "", kBad});
  EXPECT_EQ(none.status, 422);
  EXPECT_EQ(none.json()["applied"], 0);
  EXPECT_EQ(none.json()["error"]["line"], 3);
  EXPECT_EQ(post("?atomic=1", {kDrop, "{"}).status, 400);
  EXPECT_EQ(world.read("mount/ready/x"), "true");
  Reply const comeback = post("?atomic=1",
                              {R"({"put": "registration/a/status", "value": {}})",
                               R"({"delete": "registration/a"})",
                               R"({"put": "registration/a/status", "value": {}})"});
  EXPECT_EQ(comeback.status, 422);
  EXPECT_EQ(comeback.json()["error"]["line"], 3);
}

TEST_F(TreeApiTest, AHeartbeatMaySayHowLongItLives) {
  EXPECT_EQ(ask("PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01?ttl=1.5", "1").status, 200);
  EXPECT_EQ(ask("PUT", "/v1/tree/heartbeat/02:00:00:aa:00:02?ttl=0", "1").status, 200);
  EXPECT_EQ(post("?ttl=100", {R"({"put": "heartbeat/02:00:00:aa:00:03", "value": 1})"}).status, 200);
  put("heartbeat/02:00:00:aa:00:04", "1");
  auto const alive = [&] { return get("/v1/tree?prefix=heartbeat/").json().size(); };
  EXPECT_EQ(alive(), 4u);
  world.loop.pass(2s);
  EXPECT_EQ(alive(), 3u);
  world.loop.pass(30s);
  EXPECT_EQ(alive(), 2u);
  world.loop.pass(1h);
  EXPECT_EQ(get("/v1/tree?prefix=heartbeat/").body, "{\n\"heartbeat/02:00:00:aa:00:02\": 1\n}\n");
}

TEST_F(TreeApiTest, AWatchResumesBehindWhatItWasTold) {
  put("mount/ready/x", "true");
  put("mount/ready/y", "true");
  Reply const from = get("/v1/watch?prefix=mount/&after=2");
  EXPECT_EQ(from.field("Content-Type"), "text/event-stream");
  std::string const id = "3@" + from.field("Enrolix-History");
  EXPECT_THAT(from.body, StartsWith("event: change\nid: " + id + "\n"));
  EXPECT_EQ(ask("GET", "/v1/watch?after=0", "", {{"Last-Event-ID", id}}).body, "");
  EXPECT_EQ(get("/v1/watch").body, "");
  EXPECT_EQ(get("/v1/watch").status, 429);
  sources.clear();
  EXPECT_EQ(get("/v1/watch").status, 200);
}

TEST_F(TreeApiTest, APageOfAnotherSiteMayAskForNothing) {
  HttpFields const page{{"origin", "http://example.org"}};
  EXPECT_EQ(ask("PUT", "/v1/tree/mount/ready/x", "true", page).status, 403);
  EXPECT_EQ(ask("POST", "/v1/tree", kPut, page).status, 403);
  EXPECT_EQ(world.read("mount/ready/x"), "nothing");
  EXPECT_EQ(ask("GET", "/v1/tree", "", page).status, 403);
  EXPECT_EQ(ask("GET", "/v1/watch", "", page).status, 403);
}

TEST_F(TreeApiTest, AFullDiskRefusesWritesAndIsNoHealthProblem) {
  put("heartbeat/02:00:00:aa:00:01", "1");
  EXPECT_EQ(get("/readyz").status, 200);
  world.memory->isFullIs(true);
  EXPECT_EQ(put("mount/ready/x", "true").status, 507);
  Reply const refused = post("", {R"({"put": "heartbeat/02:00:00:aa:00:01", "value": 1})", kPut});
  EXPECT_EQ(refused.status, 507);
  EXPECT_EQ(refused.json()["applied"], 1);
  EXPECT_EQ(refused.field("Retry-After"), "1");
  EXPECT_EQ(put("heartbeat/02:00:00:aa:00:01", "1").status, 200);
  EXPECT_EQ(get("/v1/tree").status, 200);
  EXPECT_EQ(get("/v1/watch").status, 200);
  EXPECT_EQ(get("/healthz").status, 200);
  EXPECT_EQ(get("/readyz").status, 503);
  world.memory->isFullIs(false);
  world.loop.pass(2s);
  EXPECT_EQ(get("/readyz").status, 200);
  EXPECT_EQ(put("mount/ready/x", "true").status, 200);
}

TEST_F(TreeApiTest, ABatchThatCannotBeKeptSaysHowMuchOfItStands) {
  std::vector<std::string> lines;
  for (int i = 0; i < 10; ++i)
    lines.push_back(R"({"put": "mount/ready/x)" + std::to_string(i) + R"(", "value": true})");
  post("", lines);
  std::string const before = world.text();
  world.memory->isFullIs(true);
  for (char const* query : {"", "?atomic=1"}) {
    Reply const reply = post(query, {R"({"delete": "mount/ready/x1"})", R"({"delete": "mount/ready/x2"})"});
    EXPECT_EQ(reply.status, 507) << query;
    EXPECT_EQ(reply.json()["applied"], 0) << query;
    EXPECT_EQ(world.text(), before) << query;
    // The first one hits the disk, the next one would be refused for being late.
    world.memory->isFullIs(false);
    world.loop.pass(2s);
    world.memory->isFullIs(true);
  }
}

TEST_F(TreeApiTest, AReaderDoesNotWaitForWhatCannotBeKept) {
  put("mount/ready/x", "true");
  world.memory->isFullIs(true);
  std::vector<int> statuses;
  std::string body;
  api.handle({"PUT", "/v1/tree/mount/ready/x", {}, "false"},
             [&](HttpResponse const& r) { statuses.push_back(r.status); });
  api.handle({"GET", "/v1/tree/mount/ready/x", {}, ""}, [&](HttpResponse const& r) {
    statuses.push_back(r.status);
    body = r.body;
  });
  world.loop.run();
  EXPECT_EQ(statuses, (std::vector<int>{200, 507}));
  EXPECT_EQ(body, "true\n");
}

TEST_F(TreeApiTest, AStoppingAgentSaysSo) {
  api.stop();
  EXPECT_EQ(put("mount/ready/x", "true").status, 503);
}

}  // namespace
}  // namespace Agent::TreeApiTest
