// What is told of switches over the HTTP interface: which are listed, why they are as they are, and since when.
#include <gmock/gmock.h>

#include "support/api_world.h"
#include "support/documents.h"
#include "support/gated_store.h"

namespace Agent::SwitchesApiTest {
namespace {

using testing::HasSubstr;

class SwitchesApi : public ApiWorld {
 protected:
  SwitchesApi() {
    put("controller/config", R"({"enabled": true})");
    for (int number = 1; number <= 3; ++number) enrol("leaf-" + std::to_string(number), number);
  }

  static std::string idOf(int number) { return "02:00:00:00:00:0" + std::to_string(number); }
  void enrol(std::string const& name, int number) {
    for (std::string const& line : enrolment(name, idOf(number))) world.apply(line);
  }
  std::vector<std::string> names(std::string const& query) {
    std::vector<std::string> names;
    Json const answer = get("/v1/switches" + query).json();
    for (Json const& row : answer["switches"]) names.push_back(row["switch"]);
    return names;
  }
  /// "Heard" of a switch: its reason.
  std::string reason(std::string const& name, std::string const& condition) {
    Json const answer = get("/v1/switches/" + name).json();
    for (Json const& one : answer["conditions"])
      if (one["condition"] == condition) return one["reason"];
    return "none";
  }
};

TEST_F(SwitchesApi, ListsWhatTheParametersSay) {
  put("registration/leaf-2/config",
      R"({"systemId": "02:00:00:00:00:02", "serviceConfig": {"telemetry": {"enabled": true}}})");
  struct {
    char const* query;
    std::vector<std::string> names;
  } const cases[] = {
      {"", {"leaf-1", "leaf-2", "leaf-3"}},
      {"?ready=1", {"leaf-1", "leaf-3"}},
      {"?ready=0", {"leaf-2"}},
      {"?reason=NotEnabled", {"leaf-2"}},
      {"?reason=EnabledBySwitch&name=*-3", {"leaf-3"}},
      {"?service=telemetry", {"leaf-2"}},
      {"?service=tele", {}},
      {"?name=leaf-[12]", {"leaf-1", "leaf-2"}},
      {"?systemId=02:00:00:00:00:03", {"leaf-3"}},
      {"?limit=2", {"leaf-1", "leaf-2"}},
      {"?limit=2&after=leaf-2", {"leaf-3"}},
      {"?limit=0", {}},
  };
  for (auto const& [query, expected] : cases) EXPECT_EQ(names(query), expected) << query;
  Json const body = get("/v1/switches?limit=1&ready=1").json();
  EXPECT_EQ(body["total"], 3);
  EXPECT_EQ(body["matching"], 2);
  EXPECT_EQ(body["more"], true);
  EXPECT_EQ(body["reasons"].dump(), R"({"NotEnabled":1,"RowThere":2})");
  EXPECT_EQ(get("/v1/switches?limit=2&after=leaf-1").json()["more"], false);
  for (char const* const query : {"?reason=Bad", "?limit=x", "?ready=yes", "?other=1"})
    EXPECT_EQ(get("/v1/switches" + std::string(query)).status, 400) << query;
  EXPECT_EQ(get("/v1/switches/leaf-9").status, 404);
}

// A long answer is made in pieces, however few of the switches it tells of.
TEST_F(SwitchesApi, SwitchesThatAreNotWantedAreSkippedInPieces) {
  for (int number = 0; number < 1200; ++number) world.put("registration/s" + std::to_string(number) + "/status", "{}");
  std::size_t const before = sources.size();
  Reply const reply = get("/v1/switches?ready=1");
  EXPECT_EQ(reply.json()["total"], 1203);
  EXPECT_EQ(reply.json()["switches"].size(), 3u);
  ASSERT_EQ(sources.size(), before + 1);
  EXPECT_THAT(reply.body, HasSubstr("  ")) << "pieces without a row have a blank";
}

TEST_F(SwitchesApi, AHeartbeatThatExpiredIsToldFromOneThatWasDeleted) {
  EXPECT_EQ(ask("PUT", "/v1/tree/heartbeat/" + idOf(1) + "?ttl=3", "1").status, 200);
  EXPECT_EQ(reason("leaf-1", "Heard"), "HeartbeatThere");
  world.loop.pass(std::chrono::seconds(5));
  EXPECT_EQ(reason("leaf-1", "Heard"), "HeartbeatExpired");
  EXPECT_EQ(reason("leaf-1", "Ready"), "HeartbeatExpired");
  world.remove("heartbeat/" + idOf(2));
  EXPECT_EQ(reason("leaf-2", "Heard"), "HeartbeatDeleted");
  world.put("heartbeat/" + idOf(1), "1");
  EXPECT_EQ(reason("leaf-1", "Ready"), "RowThere");
  enrol("leaf-4", 4);
  world.put("registration/leaf-5/config", R"({"systemId": "02:00:00:00:00:05", "enabled": true})");
  EXPECT_EQ(reason("leaf-5", "Heard"), "NeverHeard");
}

TEST_F(SwitchesApi, SinceIsWhenTheReasonCame) {
  auto const since = [&] { return get("/v1/switches?name=leaf-1").json()["switches"][0]["since"]; };
  Json const first = since();
  EXPECT_THAT(first["time"].get<std::string>(), testing::MatchesRegex("20..-..-..T..:..:..\\....Z"));
  world.put("registration/leaf-2/note", "1");
  world.put("registration/leaf-1/config",
            R"({"systemId": "02:00:00:00:00:01", "enabled": true, "registrationGenId": 9})");
  EXPECT_EQ(since(), first) << "it is ready for the same reason";
  Revision const revision =
      world.put("registration/leaf-1/config", R"({"systemId": "02:00:00:00:00:01"})").turn.revision;
  EXPECT_EQ(since()["revision"], revision);
}

TEST_F(SwitchesApi, WhetherASwitchIsHeardIsNotKnownBetweenAStartAndTheFirstRenewal) {
  auto const heard = [&](Service& service) {
    return std::string(service.conditions().find("leaf-1")->reasonOf("Heard")->code);
  };
  Service::TimeToLive const ttl{std::chrono::seconds(60)};
  world.put("heartbeat/" + idOf(1), "1", ttl);
  world.restart();
  EXPECT_EQ(heard(*world.service), "NotHeardSinceStart");
  EXPECT_EQ(world.service->conditions().find("leaf-1")->reasonOf("Ready")->code, "RowThere");
  world.put("heartbeat/" + idOf(1), "1", ttl);
  world.loop.pass(std::chrono::seconds(1));
  EXPECT_EQ(heard(*world.service), "HeartbeatThere");
}

// What is not kept is not told, and has not been if it cannot be kept.
class SwitchesOfASlowStore : public GatedWorld {
 protected:
  void put(std::string const& path, std::string const& document) {
    Operation const operation{parsePath(path), Json::parse(document)};
    service.apply({&operation, 1});
    loop.run();
  }
  std::string ready() {
    auto const* const found = service.conditions().find("leaf-1");
    return found != nullptr ? std::string(found->reasonOf("Ready")->code) : "gone";
  }
  /// Begins what is kept only when the gate opens.
  void enrolBehindTheGate() {
    put("controller/config", R"({"enabled": true})");
    put("registration/leaf-1/status", "{}");
    runUntil([this] { return ready() == "NoConfig"; });
    store.isOpenIs(false);
    put("registration/leaf-1/config", R"({"systemId": "02:00:00:00:00:01", "enabled": true})");
    awaitCommit();
    put("heartbeat/02:00:00:00:00:01", "1");
    EXPECT_EQ(ready(), "NoConfig");
  }
};

TEST_F(SwitchesOfASlowStore, AreToldAsTheyAreKept) {
  enrolBehindTheGate();
  store.isOpenIs(true);
  runUntil([this] { return ready() == "RowThere"; });
  EXPECT_EQ(ready(), "RowThere");
}

// A heartbeat that says what it said before changes nothing, and keeps nothing that others wrote.
TEST_F(SwitchesOfASlowStore, AreNotToldEarlierBecauseOfAHeartbeat) {
  put("heartbeat/02:00:00:00:00:09", "1");
  enrolBehindTheGate();
  put("heartbeat/02:00:00:00:00:09", "1");
  EXPECT_EQ(ready(), "NoConfig");
  EXPECT_EQ(service.explain("leaf-1")->explanations.front().sentence, "registration/leaf-1/config does not exist");
  put("registration/leaf-2/config", "{\"systemId\": \"02:00:00:00:00:02\"}");
  put("heartbeat/02:00:00:00:00:09", "1");
  EXPECT_FALSE(service.explain("leaf-2"));
  store.isOpenIs(true);
  runUntil([this] { return ready() == "RowThere"; });
  EXPECT_TRUE(service.explain("leaf-2"));
}

TEST_F(SwitchesOfASlowStore, AreAsTheyWereWhenACommitFails) {
  enrolBehindTheGate();
  memory->isFullIs(true);
  store.isOpenIs(true);
  runUntil([this] { return service.storeProblem().has_value(); });
  EXPECT_EQ(ready(), "NoConfig");
  memory->isFullIs(false);
  loop.pass(std::chrono::seconds(3));
  runUntil([this] { return !service.storeProblem(); });
  EXPECT_EQ(ready(), "NoConfig");
  put("registration/leaf-1/config", R"({"systemId": "02:00:00:00:00:01"})");
  runUntil([this] { return ready() == "NotEnabled"; });
  EXPECT_EQ(ready(), "NotEnabled");
}

}  // namespace

TEST(Troubleshooting, HasEachConditionAndEachReason) {
  std::string const document = documentNamed("docs/troubleshooting.md");
  std::vector<TableRow> conditions;
  for (ConditionRow const& row : kConditions)
    conditions.push_back({"`" + std::string(row.name) + "`",
                          row.isOfService ? "a service of a switch" : "a switch",
                          std::string(row.meaning)});
  EXPECT_THAT(tableRows(document, "## Conditions"), testing::ElementsAreArray(conditions));
  std::vector<TableRow> reasons;
  for (ReasonRow const& row : kReasons) {
    std::string of(row.conditions);
    for (std::size_t at = of.find(' '); at != std::string::npos; at = of.find(' ', at + 2)) of.replace(at, 1, ", ");
    std::string const command = row.command.empty() ? "" : ": `" + std::string(row.command) + "`";
    reasons.push_back({"`" + std::string(row.code) + "`",
                       of,
                       row.truth == Truth::kTrue    ? "yes"
                       : row.truth == Truth::kFalse ? "no"
                                                    : "unknown",
                       std::string(row.sentence),
                       std::string(row.advice) + command});
  }
  EXPECT_THAT(tableRows(document, "## Reasons"), testing::ElementsAreArray(reasons));
}

}  // namespace Agent::SwitchesApiTest
