// The program `enrolix serve` as its user sees it: a switch's life, options, files, signals and log lines.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "agent/program/serve.h"
#include "agent/store/sqlite_store.h"
#include "support/event_reader.h"
#include "support/raw_connection.h"
#include "support/served.h"

namespace Agent::ServeTest {
namespace {

using Test::Api;
using Test::await;
using Test::EventReader;
using Test::RawConnection;
using Test::RawResponse;
using Test::Served;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kId[] = "02:00:00:aa:00:01";

/// The events of a log in JSON, those of one name if it is given; every line must parse.
std::vector<Json> events(Served const& served, std::string const& name = "") {
  std::vector<Json> all;
  std::istringstream lines(served.log());
  for (std::string line; std::getline(lines, line);) {
    Json const event = Json::parse(line, nullptr, false);
    EXPECT_TRUE(event.is_object()) << line;
    if (event.is_object() && (name.empty() || event["event"] == name)) all.push_back(event);
  }
  return all;
}

TEST(Serve, AStopOfTheProcessKillsNoHeartbeat) {
  Served served({"--memory"});
  Api api(served);
  std::string const path = std::string("heartbeat/") + kId;
  EXPECT_EQ(api.put(path + "?ttl=2", "{}").status, 200);
  served.signal(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::seconds(3));
  served.signal(SIGCONT);
  EXPECT_EQ(api.text(path), "{}");
  await([&] { return api.text(path) == "nothing"; });
}

TEST(Serve, SaysThatItIsUnprotectedWhereOthersReachIt) {
  Served open({"--memory", "--log-format", "json", "--listen", "0.0.0.0:0"});
  EXPECT_THAT(Api(open).health().value("warning", ""), HasSubstr("any client"));
  EXPECT_EQ(events(open, "unprotected").size(), 1u);
  Served closed({"--memory", "--log-format", "json"});
  EXPECT_FALSE(Api(closed).health().contains("warning"));
  EXPECT_EQ(events(closed, "unprotected").size(), 0u);
}

TEST(Serve, IsReachedUnderTheNamesThatItWasGiven) {
  Served served({"--memory", "--allow-host", "one.example", "--allow-host", "two.example"});
  Api api(served);
  auto const statusAt = [&](std::string const& host) {
    RawConnection connection(served.port());
    connection.send("GET /healthz HTTP/1.1\r\nConnection: close\r\nHost: " + host + "\r\n\r\n");
    RawResponse const answer = connection.response();
    EXPECT_THAT(answer.head, AllOf(HasSubstr("Cache-Control: no-store"), HasSubstr("X-Content-Type-Options: nosniff")));
    return answer.status;
  };
  EXPECT_EQ(statusAt("one.example"), 200);
  EXPECT_EQ(statusAt("two.example:80"), 200);
  EXPECT_EQ(statusAt("three.example"), 421);
}

TEST(Serve, ASwitchEnrolsIsAnsweredFallsSilentReturnsAndLeaves) {
  Served served({"--memory", "--log-format", "json"});
  Api api(served);
  EXPECT_EQ(api.post(kOneSwitch, "?ttl=0").status, 200);
  std::string const row = std::string("controller/switch/") + kId;
  std::string const ready = R"({"switchConfig":"a","switchStatus":"a","registeredSwitch":true})";
  EXPECT_EQ(api.text(row), ready);
  Json const answer = Json::parse(api.text("registration/a/status"));
  EXPECT_EQ(answer["registrationGenId"], 3);
  EXPECT_EQ(answer["clientShutdownAck"], false);

  // It lives shortly from now on, and is not heard again.
  EXPECT_EQ(api.put(std::string("heartbeat/") + kId + "?ttl=0.05", "{}").status, 200);
  await([&] { return api.text(std::string("heartbeat/") + kId) == "nothing"; });
  EXPECT_NE(api.text(row), ready);
  EXPECT_EQ(Json::parse(api.text("registration/a/status"))["clientShutdownAck"], true);

  EXPECT_EQ(api.put(std::string("heartbeat/") + kId, "{}").status, 200);
  EXPECT_EQ(api.text(row), ready);
  EXPECT_EQ(api.remove("registration/a").status, 200);
  EXPECT_EQ(api.documents("registration/"), (std::map<std::string, std::string>()));
  EXPECT_EQ(served.stop(), 0);

  std::vector<std::string> names;
  for (Json const& event : events(served)) {
    names.push_back(event["event"]);
    EXPECT_THAT(event["time"].get<std::string>(), StartsWith("20"));
    EXPECT_FALSE(event["level"].get<std::string>().empty());
  }
  EXPECT_THAT(names,
              ElementsAre("started",
                          "switch_not_ready",
                          "switch_not_ready",
                          "switch_ready",
                          "heartbeat_expired",
                          "switch_not_ready",
                          "switch_ready",
                          "switch_not_ready",
                          "stopping",
                          "stopped"));
  EXPECT_EQ(events(served, "switch_ready")[0]["switch"], "a");
  EXPECT_EQ(events(served, "switch_ready")[0]["systemId"], kId);
  EXPECT_EQ(events(served, "heartbeat_expired")[0]["path"], std::string("heartbeat/") + kId);
  std::vector<std::string> reasons;
  for (Json const& event : events(served, "switch_not_ready")) reasons.push_back(event["reason"]);
  EXPECT_THAT(reasons, ElementsAre("NoStatus", "NeverHeard", "HeartbeatExpired", "RegistrationDeleted"));
}

TEST(Serve, LogsManySwitchesTogether) {
  Served served({"--memory", "--log-format", "json", "--heartbeat-ttl", "0"});
  Api api(served);
  EXPECT_EQ(api.put("controller/config", R"({"enabled": true})").status, 200);
  std::string lines;
  for (int number = 10; number < 30; ++number) {
    std::string const id = "02:00:00:aa:00:" + std::to_string(number);
    std::string const name = "registration/leaf-" + std::to_string(number);
    lines += R"({"put": "heartbeat/)" + id + R"(", "value": 1})" + "\n";
    lines += R"({"put": ")" + name + R"(/config", "value": {"systemId": ")" + id + R"(", "enabled": true}})" + "\n";
    lines += R"({"put": ")" + name + R"(/status", "value": {}})" + "\n";
  }
  EXPECT_EQ(api.post(lines).status, 200);
  EXPECT_EQ(api.put("controller/config", R"({"enabled": false})").status, 200);
  EXPECT_EQ(api.put("registration/twin/config", R"({"systemId": "02:00:00:aa:00:10"})").status, 200);
  EXPECT_EQ(served.stop(), 0);
  std::map<std::string, std::vector<Json>> ends;
  for (Json const& event : events(served)) {
    if (event.contains("switch") && event["reason"] == "AgentDisabled") ends["alone"].push_back(event["switch"]);
    if (event.contains("count") && event["reason"] == "AgentDisabled") ends["together"].push_back(event);
    if (event["event"] == "identity_conflict") ends["conflict"].push_back(event["switch"]);
  }
  EXPECT_THAT(ends["alone"], ElementsAre("leaf-10", "leaf-11", "leaf-12", "leaf-13", "leaf-14"));
  EXPECT_THAT(ends["conflict"], ElementsAre("leaf-10", "twin"));
  ASSERT_EQ(ends["together"].size(), 1u);
  EXPECT_EQ(ends["together"][0]["event"], "switch_not_ready");
  EXPECT_EQ(ends["together"][0]["count"], 15) << "a number";
  EXPECT_EQ(ends["together"][0]["first"], "leaf-15, leaf-16, leaf-17, leaf-18, leaf-19");
}

TEST(Serve, LogsOneLineAnEvent) {
  Served served({"--memory"});
  Api(served).post(kOneSwitch);
  EXPECT_EQ(served.stop(SIGINT), 0);
  std::vector<std::string> lines;
  std::istringstream log(served.log());
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  EXPECT_THAT(lines,
              ElementsAre(AllOf(HasSubstr(" info started url=http://127.0.0.1:"), HasSubstr(" state=memory")),
                          HasSubstr(" info switch_not_ready switch=a systemId=02:00:00:aa:00:01 reason=NoStatus"),
                          HasSubstr(" info switch_not_ready switch=a systemId=02:00:00:aa:00:01 reason=NeverHeard"),
                          HasSubstr(" info switch_ready switch=a systemId=02:00:00:aa:00:01 reason=RowThere"),
                          HasSubstr(" info stopping signal=2"),
                          HasSubstr(" info stopped revision=")));
}

TEST(Serve, ATimeToLiveIsTheOptionsUnlessThePutSays) {
  Served served({"--memory", "--heartbeat-ttl", "0.05"});
  Api api(served);
  std::string const other = "heartbeat/02:00:00:aa:00:02";
  EXPECT_EQ(api.put(other + "?ttl=1000", "{}").status, 200);
  EXPECT_EQ(api.put(std::string("heartbeat/") + kId, "{}").status, 200);
  await([&] { return api.text(std::string("heartbeat/") + kId) == "nothing"; });
  EXPECT_EQ(api.text(other), "{}");
}

TEST(Serve, KeepsItsStateWhereTheUserKeepsState) {
  Folder const folder;
  std::string const home = folder / "home";
  struct Case {
    Served::Environment environment;
    std::string file;
  };
  for (auto const& [environment, file] :
       {Case{{{"XDG_STATE_HOME", folder / "state"}, {"HOME", home}}, folder / "state/enrolix/state.db"},
        Case{{{"XDG_STATE_HOME", ""}, {"HOME", home}}, home + "/.local/state/enrolix/state.db"}}) {
    Served served({}, environment);
    ASSERT_TRUE(served.runs()) << served.log();
    Api(served).put("mount/ready/x", "true");
    EXPECT_TRUE(std::filesystem::is_regular_file(file));
    served.kill();
    served.start();
    EXPECT_EQ(Api(served).text("mount/ready/x"), "true");
  }
  Served const homeless({}, {{"XDG_STATE_HOME", ""}, {"HOME", ""}});
  EXPECT_EQ(homeless.status(), 1);
  EXPECT_EQ(homeless.log(),
            "no place for the state: there is no home directory; name a file with --state, or use --memory\n");
}

TEST(Serve, InMemoryNothingIsKept) {
  Folder const folder;
  Served served({"--memory"}, {{"XDG_STATE_HOME", folder / "state"}});
  Revision const before = revisionOf(Api(served).put("mount/ready/x", "true"));
  served.kill();
  served.start();
  EXPECT_EQ(Api(served).text("mount/ready/x"), "nothing");
  // A reader that comes back with a revision of the earlier run is never taken for one of this.
  EXPECT_GT(Api(served).health()["revision"].get<Revision>(), before);
  EXPECT_EQ(folder.files(), 0);
}

TEST(Serve, TellsWatchersThatItStops) {
  for (int const signal : {SIGTERM, SIGINT}) {
    Served served({"--memory"});
    EventReader reader("", 0);
    reader.connect(served.port());
    ASSERT_TRUE(reader.readTo(Api(served).health()["revision"]));
    served.signal(signal);
    while (reader.read()) continue;
    EXPECT_EQ(reader.mirror().events().back(), "shutdown");
    reader.disconnect();
    EXPECT_EQ(served.stopped(), 0);
  }
}

struct Refused {
  char const* name;
  Served::Options options;
  int status;
  char const* reason;
};

void PrintTo(Refused const& refused, std::ostream* out) { *out << refused.name; }

class RefusedOption : public testing::TestWithParam<Refused> {};

INSTANTIATE_TEST_SUITE_P(
    Serve, RefusedOption,
    testing::Values(
        Refused{"NoPort", {"--memory", "--listen", "127.0.0.1"}, 2, "--listen: expected ADDRESS:PORT"},
        Refused{"WrongPort", {"--memory", "--listen", "127.0.0.1:65536"}, 2, "--listen: expected ADDRESS:PORT"},
        Refused{"NoAddress", {"--memory", "--listen", ":7400"}, 2, "--listen: expected ADDRESS:PORT"},
        Refused{"BareSixth", {"--memory", "--listen", "::1:7400"}, 2, "--listen: expected ADDRESS:PORT"},
        Refused{"NameForAddress", {"--memory", "--listen", "localhost:0"}, 1, "expected an IP address"},
        Refused{"OthersAddress", {"--memory", "--listen", "192.0.2.1:0"}, 1, "cannot listen on 192.0.2.1 port 0: "},
        Refused{"StateAndMemory", {"--memory", "--state", "x"}, 2, "--state excludes --memory"},
        Refused{"EmptyState", {"--state", ""}, 2, "--state: empty file name"},
        Refused{"StateInNoFolder", {"--state", "/dev/null/x"}, 1, "/dev/null/x: "},
        Refused{"NegativeTime", {"--memory", "--heartbeat-ttl", "-1"}, 2, "--heartbeat-ttl: "},
        Refused{"NoTimeAtAll", {"--memory", "--idle-timeout", "0"}, 2, "--idle-timeout: "},
        Refused{"NoConnections", {"--memory", "--max-connections", "0"}, 2, "--max-connections: "},
        Refused{"NoNumber", {"--memory", "--max-body", "many"}, 2, "--max-body"},
        Refused{"LongerThanCanBeStored", {"--memory", "--max-body", "134217729"}, 2, "--max-body: "},
        Refused{"OtherLog", {"--memory", "--log-format", "xml"}, 2, "--log-format: "}),
    [](auto const& refused) { return refused.param.name; });

TEST_P(RefusedOption, IsToldInALine) {
  Served const served(GetParam().options);
  EXPECT_EQ(served.status(), GetParam().status);
  EXPECT_THAT(served.log(), HasSubstr(GetParam().reason));
  std::string const log = served.log();
  // A wrong command line is followed by a word on help.
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), GetParam().status) << log;
}

TEST(Serve, RefusesAPortThatIsInUseAndLeavesTheStateAlone) {
  Folder const folder;
  Served const first({"--memory"});
  Served const second({"--listen", first.url().substr(7), "--state", folder / "state"});
  EXPECT_EQ(second.status(), 1);
  EXPECT_EQ(second.log(),
            "cannot listen on 127.0.0.1 port " + std::to_string(first.port()) + ": Address already in use\n");
  EXPECT_EQ(folder.files(), 0);
}

TEST(Serve, RefusesAStateFileThatItCannotUseAndLeavesItAsItIs) {
  Folder const folder;
  auto const change = [&](std::string const& name, std::size_t at, std::string const& bytes) {
    {
      SqliteStore store(folder / name);
      store.prepare();
      CommittedTurn const turn{1, {{"mount/ready/x", std::make_shared<std::string const>("true"), 1, std::nullopt}}};
      store.commit({&turn, 1});
    }
    std::fstream file(folder / name, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(at));
    file << bytes;
  };
  change("newer", 60, std::string("\0\0\0\3", 4));
  change("foreign", 68, std::string("\0\0\0\2", 4));
  change("damaged", 4096, std::string(3000, 'x'));
  folder.write("text", "I am no state file.\n");
  {
    // A store that no agent wrote.
    SqliteStore store(folder / "nonsense");
    store.prepare();
    CommittedTurn const turn{1, {{"no/such/path", std::make_shared<std::string const>("{}"), 1, std::nullopt}}};
    store.commit({&turn, 1});
  }
  for (auto const& [name, reason] : std::map<std::string, std::string>{{"newer", "was written by a newer version: "},
                                                                       {"foreign", "is no state file: "},
                                                                       {"damaged", "is damaged: "},
                                                                       {"nonsense", "damaged: no/such/path: "},
                                                                       {"text", "is no state file: "}}) {
    std::string const before = folder.read(name);
    auto const files = folder.files();
    Served const served({"--state", folder / name});
    EXPECT_EQ(served.status(), 1) << name;
    std::string const log = served.log();
    EXPECT_THAT(log, AllOf(StartsWith(folder / name + ": "), HasSubstr(reason)));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_EQ(folder.read(name), before) << name;
    EXPECT_EQ(folder.files(), files) << name;
  }
}

TEST(Serve, NothingThatADamagedStateHoldsActsOnTheTerminal) {
  InputError error(memberField("value", "\x1B[31m"), "no such field");
  error.pathIs("no/such\x1B[2J\npath\xC2\x9B");
  EXPECT_EQ(damagedLine("state\n\x1B", error),
            "state\\n\\u001b: damaged: no/such\\u001b[2J\\npath\\u009b: value[\"\\u001b[31m\"]: no such field");
}

TEST(Serve, HasItsStateFileForItself) {
  Folder const folder;
  Served const first({"--state", folder / "state"});
  Api(first).put("mount/ready/x", "true");
  Served const second({"--state", folder / "state"});
  EXPECT_EQ(second.status(), 1);
  EXPECT_EQ(second.log(), folder / "state" + ": is in use by another process\n");
  EXPECT_EQ(Api(first).put("mount/ready/x", "false").status, 200);
}

}  // namespace
}  // namespace Agent::ServeTest
