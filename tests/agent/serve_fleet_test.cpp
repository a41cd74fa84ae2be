// Many switches at a running program: all enrol, and all stay alive as long as they are heard.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "support/rounds.h"
#include "support/served.h"

namespace Agent::ServeFleetTest {
namespace {

using namespace std::chrono_literals;
using Test::Api;
using Test::await;
using Test::sampled;
using Test::Served;
using testing::HasSubstr;
using testing::Not;

std::string systemId(int n) {
  std::array<char, 18> text;
  std::snprintf(text.data(), text.size(), "02:00:00:00:%02x:%02x", n / 256, n % 256);
  return text.data();
}

TEST(ServeFleet, ThreeThousandSwitchesEnrolAndStayAlive) {
  constexpr int kSwitches = sampled(3000);
  constexpr int kInBatch = 300;
  Folder const folder;
  Served served({"--state", folder / "state"});
  Api api(served);
  ASSERT_EQ(api.put("controller/config", R"({"enabled": true})").status, 200);
  std::vector<std::string> heartbeats;
  for (int first = 0; first < kSwitches; first += kInBatch) {
    std::string lines;
    std::string& beats = heartbeats.emplace_back();
    for (int n = first; n < first + kInBatch; ++n) {
      std::string const begin = R"({"put": "registration/s)" + std::to_string(n);
      lines += begin + R"(/config", "value": {"systemId": ")" + systemId(n) +
               R"(", "enabled": true, "registrationGenId": 1}})"
               "\n";
      lines += begin + R"(/status", "value": {}})"
                       "\n";
      beats += R"({"put": "heartbeat/)" + systemId(n) +
               R"(", "value": {}})"
               "\n";
    }
    auto const response = api.post(lines + beats);
    ASSERT_EQ(response.status, 200) << response.body;
  }
  EXPECT_EQ(api.health()["switches"], kSwitches);

  // From now on they live for two seconds only, unless they are heard.
  Revision const enrolled = api.health()["revision"];
  auto const end = std::chrono::steady_clock::now() + 6s;
  while (std::chrono::steady_clock::now() < end) {
    for (std::string const& beats : heartbeats) {
      auto const response = api.post(beats, "?ttl=2");
      ASSERT_EQ(response.status, 200) << response.body;
    }
    std::this_thread::sleep_for(200ms);
  }
  EXPECT_EQ(api.health()["revision"], enrolled);
  EXPECT_THAT(served.log(), Not(HasSubstr("heartbeat_expired")));
  EXPECT_EQ(api.documents("heartbeat/").size(), std::size_t{kSwitches});

  // And then they fall silent, all of them.
  await([&] { return api.documents("heartbeat/").empty(); });
  auto const status = Json::parse(api.text("registration/s" + std::to_string(kSwitches - 1) + "/status"));
  EXPECT_EQ(status["clientShutdownAck"], true);
  EXPECT_EQ(served.stop(), 0);
}

// An end of the agent is not held against the switches, however long it lasts.
TEST(ServeFleet, ARestartGivesEverySwitchItsWholeTimeToLive) {
  Folder const folder;
  Served served({"--state", folder / "state"});
  ASSERT_EQ(Api(served).post(kOneSwitch, "?ttl=1").status, 200);
  for (int n = 0; n < 3; ++n) {
    served.kill();
    std::this_thread::sleep_for(1200ms);
    served.start();
    EXPECT_EQ(Api(served).text("heartbeat/02:00:00:aa:00:01"), "{}");
  }
  await([&] { return Api(served).text("heartbeat/02:00:00:aa:00:01") == "nothing"; });
}

}  // namespace
}  // namespace Agent::ServeFleetTest
