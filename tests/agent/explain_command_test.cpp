// What `enrolix explain` prints of a switch.
#include <gmock/gmock.h>

#include "support/client_world.h"

namespace Agent::ExplainCommandTest {
namespace {

std::string condition(std::string const& name, std::string const& isTrue, std::string const& reason,
                      std::string const& remedy = "") {
  return R"({"condition": ")" + name + R"(", "true": )" + isTrue + R"(, "reason": ")" + reason +
         R"(", "sentence": "so it is with )" + reason +
         R"(", "since": {"revision": 3, "time": "2026-11-22T23:51:53.120Z"})" + remedy + "}";
}

constexpr char kRemedy[] = R"(, "advice": "do this", "command": "enrolix do")";

std::string const view =
    R"({"switch": "leaf-1", "systemId": "02:00:00:00:00:01", "ready": false, "reason": "Gone",
  "since": {"revision": 3, "time": "2026-11-22T23:51:53.120Z"}, "conditions": [)" +
    condition("Heard", "false", "Gone", kRemedy) + "," + condition("Other", "null", "Dim") + "," +
    condition("Ready", "false", "Gone", kRemedy) + R"(], "services": [{"service": "s\u0007", "conditions": [)" +
    condition("Negotiated", "true", "Agreed") + "," + condition("Published", "false", "Left", kRemedy) + "]}]}";

ExplainOptions of(std::optional<std::string> service = std::nullopt) {
  ExplainOptions options;
  options.name = "leaf-1";
  options.service = std::move(service);
  return options;
}

TEST(ExplainCommand, SaysWhyThenWhatElseThenAll) {
  ClientWorld world;
  world.answer(200, view);
  EXPECT_EQ(world.run(of()), 0);
  EXPECT_EQ(world.asked(0), "GET /v1/switches/leaf-1");
  EXPECT_EQ(world.printed, R"(leaf-1 is not ready since 2026-11-22 23:51:53 UTC: so it is with Gone.
    What clears it: do this.
      enrolix do

Not as it should be, or not known:
  Other: so it is with Dim.
  s\u0007 Published: so it is with Left.
    What clears it: do this.
      enrolix do

no       Heard               2026-11-22 23:51:53 UTC  Gone: so it is with Gone
unknown  Other               2026-11-22 23:51:53 UTC  Dim: so it is with Dim
no       Ready               2026-11-22 23:51:53 UTC  Gone: so it is with Gone
yes      s\u0007 Negotiated  2026-11-22 23:51:53 UTC  Agreed: so it is with Agreed
no       s\u0007 Published   2026-11-22 23:51:53 UTC  Left: so it is with Left
)");
}

TEST(ExplainCommand, MaySpeakOfOneService) {
  ClientWorld world;
  for (int time = 0; time < 3; ++time) world.answer(200, view);
  EXPECT_EQ(world.run(of("s\x07")), 0);
  EXPECT_THAT(world.printed, testing::StartsWith("Not as it should be, or not known:\n  s\\u0007 Published: "));
  EXPECT_THAT(world.printed, testing::Not(testing::HasSubstr("Heard")));
  EXPECT_EQ(world.run(of("other")), 4);
}

TEST(ExplainCommand, TellsThatThereIsNoSuchSwitch) {
  ClientWorld world;
  world.refuse(404, R"({"status": 404, "reason": "there is no registration of \"leaf-1\""})");
  world.answer(200, "{}");
  EXPECT_EQ(world.run(of()), 4);
  EXPECT_EQ(world.run(of()), 3) << "an answer that is none";
}

}  // namespace
}  // namespace Agent::ExplainCommandTest
