// A disk that is really full under the running program: writes are refused, all else goes on, nothing answered is lost.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "support/event_reader.h"
#include "support/served.h"

namespace Agent::ServeFullDiskTest {
namespace {

using Test::Api;
using Test::await;
using Test::EventReader;
using Test::Served;

constexpr int kNoVolume = 77;

/// Runs `test` in another process with a small volume of its own, which ends with it.
int withVolume(std::function<void(std::string const& volume)> const& test) {
  Folder const folder;
  std::string const volume = folder / "volume";
  std::filesystem::create_directory(volume);
  pid_t const process = ::fork();
  if (process == 0) {
    if (::unshare(CLONE_NEWNS) != 0) ::_exit(kNoVolume);
    ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    if (::mount("none", volume.c_str(), "tmpfs", 0, "size=2m") != 0) ::_exit(kNoVolume);
    test(volume);
    std::cout << std::flush;
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ::waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string document(int n) { return "[" + std::to_string(n) + ",\"" + std::string(20'000, 'x') + "\"]"; }

constexpr char kHeartbeat[] = "heartbeat/02:00:00:aa:00:01";

/// Writes until there is no room, while a switch is heard; how many documents there are then.
int fill(Api& api, std::string const& volume, int first) {
  std::ofstream(volume + "/ballast") << std::string(1'000'000, 'x') << std::flush;
  for (int n = first;; ++n) {
    EXPECT_EQ(api.put(kHeartbeat, "{}").status, 200);
    auto const response = api.put("registration/full/n" + std::to_string(n), document(n));
    if (response.status == 200) continue;
    EXPECT_EQ(response.status, 507) << response.body;
    EXPECT_EQ(Json::parse(response.body)["error"]["status"], 507);
    return n;
  }
}

void check(Api& api, int count) {
  for (int n = 0; n < count; ++n) EXPECT_EQ(api.text("registration/full/n" + std::to_string(n)), document(n)) << n;
  EXPECT_EQ(api.documents("registration/full/").size(), static_cast<std::size_t>(count));
}

void liveThroughIt(std::string const& volume) {
  Served served({"--state", volume + "/state", "--heartbeat-ttl", "600"});
  auto api = std::make_unique<Api>(served);
  ASSERT_EQ(api->post(kOneSwitch).status, 200);
  EventReader reader("registration/full/", 0);
  reader.connect(served.port());
  int count = 0;
  for (int round = 0; round < 2; ++round) {
    count = fill(*api, volume, count);
    // A client that says what it said before is heard.
    EXPECT_EQ(api->put(kHeartbeat, "{}").status, 200);
    EXPECT_EQ(api->post(R"({"put": "heartbeat/02:00:00:aa:00:01", "value": {}})").status, 200);
    EXPECT_EQ(api->put("mount/ready/x", "true").status, 507);
    EXPECT_EQ(api->post(R"({"put": "mount/ready/x", "value": true})").status, 507);
    EXPECT_EQ(api->remove("registration/full/n0").status, 507);
    EXPECT_EQ(api->send("GET", "/healthz").status, 200);
    EXPECT_EQ(api->send("GET", "/readyz").status, 503);
    check(*api, count);
    EventReader late("registration/full/", 0);
    late.connect(served.port());
    ASSERT_TRUE(late.readTo(api->health()["revision"]));
    EXPECT_EQ(late.mirror().documents(), api->documents("registration/full/"));

    std::filesystem::remove(volume + "/ballast");
    await([&] { return api->send("GET", "/readyz").status == 200; });
    auto const response = api->put("registration/full/n" + std::to_string(count), document(count));
    ASSERT_EQ(response.status, 200) << response.body;
    ++count;
    ASSERT_TRUE(reader.readTo(revisionOf(response)));
    EXPECT_EQ(reader.mirror().documents(), api->documents("registration/full/"));
    check(*api, count);
  }
  EXPECT_EQ(api->text("controller/switch/02:00:00:aa:00:01"),
            R"({"switchConfig":"a","switchStatus":"a","registeredSwitch":true})");

  // It is killed while there is no room, and comes up all the same.
  count = fill(*api, volume, count);
  served.kill();
  served.start();
  ASSERT_TRUE(served.runs()) << served.log();
  api = std::make_unique<Api>(served);
  check(*api, count);
  EXPECT_EQ(api->put(kHeartbeat, "{}").status, 200);
  EXPECT_EQ(api->put("registration/full/n0", document(-1)).status, 507);
  std::filesystem::remove(volume + "/ballast");
  await([&] { return api->put("mount/ready/x", "true").status == 200; });
  EXPECT_EQ(served.stop(), 0) << served.log();
}

TEST(ServeFullDisk, RefusesWritesAndNothingElseAndRecovers) {
  int const status = withVolume(liveThroughIt);
  if (status == kNoVolume) GTEST_SKIP() << "this process may not make a volume";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace Agent::ServeFullDiskTest
