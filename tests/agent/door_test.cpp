// Which requests the service lets in, and which names it takes from clients.
#include "agent/server/door.h"

#include <gmock/gmock.h>

#include "agent/server/api_call.h"
#include "agent/server/input_rules.h"
#include "support/service_world.h"

namespace Agent::DoorTest {
namespace {

using testing::HasSubstr;

/// The status that the door refuses a request with; 0 if it lets it in.
int statusOf(Door const& door, std::string const& method, HttpFields const& fields,
             std::string_view path = "/v1/tree") {
  HttpRequest request;
  request.method = method;
  request.fields = fields;
  try {
    door.require(request, path);
    return 0;
  } catch (HttpProblem const& problem) {
    EXPECT_NE(problem.error().reason(), "");
    return problem.status();
  }
}

TEST(Door, TakesAddressesLoopbackNamesAndTheNamesThatItWasGiven) {
  Door const door({"controller.example:7400", "other."});
  for (std::string const host : {"127.0.0.1",
                                 "127.0.0.1:7400",
                                 "10.1.2.3:80",
                                 "[::1]",
                                 "[::1]:7400",
                                 "[fe80::1]:7400",
                                 "localhost",
                                 "LocalHost:7400",
                                 "localhost.",
                                 "a.localhost:1",
                                 "controller.example:7400",
                                 "Controller.Example.",
                                 "other"})
    EXPECT_EQ(statusOf(door, "GET", {{"Host", host}}), 0) << host;
  for (std::string const host : {"evil.example",
                                 "evil.example:7400",
                                 "localhost.evil.example",
                                 "evillocalhost",
                                 "evil.example/.localhost",
                                 "evil.example?.localhost",
                                 "127.0.0.1.evil.example",
                                 "controller.example.evil.example",
                                 "a.controller.example",
                                 "",
                                 ":7400",
                                 "[evil.example]",
                                 "127.0.0.1:evil",
                                 "2130706433",
                                 "0x7f.1",
                                 "127.1",
                                 "other:80:80",
                                 "::1:x"})
    EXPECT_EQ(statusOf(door, "GET", {{"Host", host}}), 421) << host;
  EXPECT_EQ(statusOf(door, "GET", {}), 0) << "HTTP/1.0";
  EXPECT_EQ(statusOf(Door(), "GET", {{"Host", "controller.example"}}), 421);
}

TEST(Door, TakesRequestsFromNoPageButTheAgentsOwn) {
  struct Case {
    char const* method;
    HttpFields fields;
    int status;
  };
  HttpFields::value_type const host{"Host", "localhost:7400"};
  std::vector<Case> const cases{
      {"PUT", {host}, 0},
      {"PUT", {host, {"Origin", "http://localhost:7400"}}, 0},
      {"PUT", {host, {"Origin", "https://LOCALHOST:7400"}}, 0},
      {"PUT", {host, {"Origin", "http://localhost"}}, 403},
      {"DELETE", {host, {"Origin", "http://localhost:7401"}}, 403},
      {"POST", {host, {"Origin", "http://evil.example"}}, 403},
      {"POST", {host, {"Origin", "null"}}, 403},
      {"POST", {host, {"Origin", "file://localhost:7400"}}, 403},
      {"POST", {{"Origin", "http://"}}, 403},
      {"GET", {host, {"Origin", "http://evil.example"}}, 403},
      {"GET", {host, {"Origin", "http://localhost:7400"}}, 0},
      {"GET", {host, {"Sec-Fetch-Site", "none"}}, 0},
      {"GET", {host, {"Sec-Fetch-Site", "same-origin"}}, 0},
      {"GET", {host, {"Sec-Fetch-Site", "cross-site"}}, 403},
      {"GET", {host, {"Sec-Fetch-Site", "Same-Site"}}, 403},
      {"HEAD", {host, {"Sec-Fetch-Site", "same-site"}}, 403},
      {"PUT", {host, {"Sec-Fetch-Site", "cross-site"}}, 403},
      {"PUT", {host, {"Sec-Fetch-Site", "none"}, {"Sec-Fetch-Site", "cross-site"}}, 403},
      {"PUT", {host, {"Sec-Fetch-Site", "cross-site, none"}}, 403},
      {"GET", {host, {"Sec-Fetch-Site", "cross-site"}, {"Sec-Fetch-Mode", "navigate"}}, 403},
  };
  for (Case const& c : cases)
    EXPECT_EQ(statusOf(Door(), c.method, c.fields), c.status) << c.method << " " << c.fields.back().second;
}

TEST(Door, LetsAPageOfAnotherSiteLinkToTheFirstPageAlone) {
  HttpFields visit{{"Host", "localhost"}, {"Sec-Fetch-Site", "cross-site"}, {"Sec-Fetch-Mode", "navigate"}};
  EXPECT_EQ(statusOf(Door(), "GET", visit, "/"), 0);
  EXPECT_EQ(statusOf(Door(), "POST", visit, "/"), 403);
  visit.back().second = "no-cors";
  EXPECT_EQ(statusOf(Door(), "GET", visit, "/"), 403);
}

TEST(Door, KnowsWhichAddressesAreOfItsOwnMachine) {
  for (char const* const address : {"127.0.0.1", "127.9.9.9", "::1", "::ffff:127.0.0.1"})
    EXPECT_TRUE(isLoopback(address)) << address;
  for (char const* const address : {"0.0.0.0", "::", "10.0.0.1", "128.0.0.1", "::ffff:10.0.0.1", "localhost", ""})
    EXPECT_FALSE(isLoopback(address)) << address;
}

/// Why the service refuses this put; empty if it takes it.
std::string refusalOf(std::string const& path, Json const& document) {
  try {
    requireInput({parsePath(path), document});
    return "";
  } catch (InputError const& error) {
    return placedReason(error);
  }
}

TEST(InputRules, RefuseNamesThatLookLikeOthers) {
  for (char const* const character : {"\u202E", "\u2066", "\u200F", "\u061C", "\u2028"}) {
    std::string const name = std::string("a") + character + "b";
    EXPECT_THAT(refusalOf("registration/" + name + "/note", 1), HasSubstr("is no name"));
    EXPECT_THAT(refusalOf("registration/a/" + name, 1), HasSubstr("is no name"));
    EXPECT_THAT(refusalOf("mount/ready/" + name, true), HasSubstr("\\u"));
    EXPECT_THAT(refusalOf("service/config/x", {{"versionConfig", {{name, 1}}}}), HasSubstr("is no name"));
    EXPECT_EQ(refusalOf("registration/a/note", {{name, 1}}), "") << "the registry does not read it";
    EXPECT_EQ(printable(name, 100).find(character), std::string::npos);
  }
  EXPECT_THAT(refusalOf("registration/./note", 1), HasSubstr("is no name"));
  EXPECT_THAT(refusalOf("service/override/..", Json::object()), HasSubstr("is no name"));
  EXPECT_EQ(refusalOf("registration/.../note", 1), "");
  auto const mount = [](char const* service) { return Json{{"publishedMount", {{"/x", {{"service", service}}}}}}; };
  EXPECT_THAT(refusalOf("mount/offer/02:00:00:aa:00:01", mount("..")),
              HasSubstr(": publishedMount./x.service: \"..\" is no name"));
  EXPECT_THAT(refusalOf("mount/offer/02:00:00:aa:00:01", mount("a\u202Eb")), HasSubstr("is no name"));
  EXPECT_EQ(refusalOf("mount/offer/02:00:00:aa:00:01", mount("routing")), "");
  EXPECT_EQ(refusalOf("registration/größe ✓/note", 1), "");
}

TEST(InputRules, LetWhatIsStoredBeDeletedAndLoaded) {
  std::string const path = "registration/a\u202Eb/config";
  EXPECT_NO_THROW(requireInput({parsePath(path), std::nullopt}));
  ServiceWorld world;
  auto const text = std::make_shared<std::string const>(R"({"enabled":true})");
  std::vector<CommittedTurn> const turns{
      {world.service->kept().revision + 1, {{path, text, world.service->kept().revision + 1}}}};
  world.service.reset();
  MemoryStore(world.memory).commit(turns);
  world.restart();
  EXPECT_THAT(world.read(path), HasSubstr(R"("enabled":true)"));
  Operation const gone{parsePath(path), std::nullopt};
  world.service->apply({&gone, 1});
  world.loop.run();
  EXPECT_EQ(world.read(path), "nothing");
}

TEST(InputRules, AConfigurationSaysWhichSwitchItIs) {
  EXPECT_THAT(refusalOf("registration/a/config", Json::object()),
              HasSubstr("registration/a/config: systemId: missing"));
  EXPECT_EQ(refusalOf("registration/a/config", {{"systemId", "00:00:00:00:00:00"}}), "");
  EXPECT_EQ(refusalOf("registration/a/status", Json::object()), "");
}

}  // namespace
}  // namespace Agent::DoorTest
