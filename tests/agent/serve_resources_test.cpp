// The program `enrolix serve` where the system gives it less than it wants, or takes its log away.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <chrono>
#include <deque>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/raw_connection.h"
#include "support/served.h"

namespace Agent::ServeResourcesTest {
namespace {

using Test::Api;
using Test::await;
using Test::RawConnection;
using Test::Served;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

std::string document(int n) { return "[" + std::to_string(n) + ",\"" + std::string(20'000, 'x') + "\"]"; }
std::string path(int n) { return "registration/full/n" + std::to_string(n); }

TEST(ServeResources, AFileThatMayNotGrowIsAFullDisk) {
  Folder const folder;
  Served served({"--state", folder / "state"});
  Api api(served);
  int count = 0;
  for (int round = 0; round < 2; ++round) {
    served.limit(RLIMIT_FSIZE, 256 * 1024);
    int status = 200;
    for (; count < 1000; ++count)
      if (status = api.put(path(count), document(count)).status; status != 200) break;
    ASSERT_EQ(status, 507) << served.log();
    EXPECT_EQ(api.put("mount/ready/x", "true").status, 507);
    EXPECT_EQ(api.send("GET", "/readyz").status, 503);
    for (int n = 0; n < count; ++n) EXPECT_EQ(api.text(path(n)), document(n));
    EXPECT_EQ(api.documents("registration/full/").size(), static_cast<std::size_t>(count));

    served.limit(RLIMIT_FSIZE, RLIM_INFINITY);
    await([&] { return api.send("GET", "/readyz").status == 200; });
    EXPECT_EQ(api.put(path(count), document(count)).status, 200);
    ++count;
  }
  EXPECT_EQ(served.stop(), 0);
  EXPECT_THAT(served.log(), HasSubstr("disk_full"));
  EXPECT_THAT(served.log(), HasSubstr("store_recovered"));
}

TEST(ServeResources, WhatTheLogHasNoRoomForIsCountedAndBreaksNoOtherLine) {
  Served served({"--memory"});
  Api api(served);
  served.limit(RLIMIT_FSIZE, served.log().size() + 10);
  EXPECT_EQ(api.post(kOneSwitch).status, 200);
  EXPECT_EQ(api.remove("heartbeat/02:00:00:aa:00:01").status, 200);
  served.limit(RLIMIT_FSIZE, RLIM_INFINITY);
  EXPECT_EQ(served.stop(), 0);
  std::vector<std::string> lines;
  std::istringstream log(served.log());
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  EXPECT_THAT(lines,
              ElementsAre(HasSubstr(" info started "),
                          SizeIs(10),
                          EndsWith(" info stopping signal=15 lost=4"),
                          HasSubstr(" info stopped ")));
}

/// The time that the process has worked.
std::chrono::milliseconds workOf(pid_t process) {
  std::string const stat = readFile("/proc/" + std::to_string(process) + "/stat");
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string skipped;
  long user = 0;
  long system = 0;
  for (int n = 0; n < 11; ++n) fields >> skipped;
  fields >> user >> system;
  return std::chrono::milliseconds((user + system) * 1000 / ::sysconf(_SC_CLK_TCK));
}

std::ptrdiff_t descriptorsOf(pid_t process) {
  using Iterator = std::filesystem::directory_iterator;
  return std::distance(Iterator("/proc/" + std::to_string(process) + "/fd"), Iterator());
}

std::deque<RawConnection> askingClients(Served const& served, int count) {
  std::deque<RawConnection> clients;
  for (int n = 0; n < count; ++n)
    clients.emplace_back(served.port()).send("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n");
  return clients;
}

TEST(ServeResources, ConnectionsLeaveDescriptorsToTheAgentAndThoseWhoWaitAreServed) {
  constexpr rlim_t kMost = 40;
  constexpr std::ptrdiff_t kOwn = 16;
  Folder const folder;
  Served served({"--state", folder / "state"});
  Api api(served);
  ASSERT_EQ(api.put("mount/ready/x", "true").status, 200);
  served.limit(RLIMIT_NOFILE, kMost);
  auto clients = askingClients(served, 60);
  await([&] { return served.log().find("accepting_paused") != std::string::npos; });
  EXPECT_LE(descriptorsOf(served.process()), static_cast<std::ptrdiff_t>(kMost) - kOwn + 1);

  auto const before = workOf(served.process());
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(workOf(served.process()) - before, std::chrono::milliseconds(250)) << "the loop spins";

  // Clients that are connected are served, and the agent can open what it needs.
  EXPECT_EQ(api.put("mount/ready/y", "true").status, 200);
  std::filesystem::rename(served.logFile(), folder / "log");
  served.signal(SIGHUP);
  await([&] { return served.log().find("hangup log=") != std::string::npos; });

  for (std::size_t n = 0; !clients.empty(); ++n, clients.pop_front())
    ASSERT_EQ(clients.front().response().status, 200) << n;
  await([&] { return served.log().find("accepting_resumed") != std::string::npos; });
  EXPECT_EQ(served.stop(), 0);
}

TEST(ServeResources, OneConnectionIsTakenHoweverFewDescriptorsThereAre) {
  Served served({"--memory"});
  auto const own = static_cast<rlim_t>(descriptorsOf(served.process()));
  // One for a connection, one to look for another, and a pipe that the sanitizer of undefined behaviour opens now and
  // then: without it, it takes good objects for bad ones.
  served.limit(RLIMIT_NOFILE, own + 4);
  for (auto clients = askingClients(served, 5); !clients.empty(); clients.pop_front())
    ASSERT_EQ(clients.front().response().status, 200);
  EXPECT_EQ(served.stop(), 0);
}

TEST(ServeHangup, TheLogGoesOnInAFileOfItsName) {
  Folder const folder;
  Served served({"--memory"});
  for (std::string const& moved : {folder / "1", folder / "2"}) {
    std::filesystem::rename(served.logFile(), moved);
    served.signal(SIGHUP);
    await([&] { return served.log().find(" hangup log=" + served.logFile()) != std::string::npos; });
    EXPECT_EQ(Api(served).put("mount/ready/x", "true").status, 200);
  }
  EXPECT_THAT(folder.read("1"), Not(HasSubstr("hangup")));
  Api(served).post(kOneSwitch);
  EXPECT_EQ(served.stop(), 0);
  EXPECT_THAT(served.log(), HasSubstr("switch_ready switch=a"));
  EXPECT_THAT(served.log(), HasSubstr(" stopped "));
  EXPECT_THAT(folder.read("2"), Not(HasSubstr("switch_ready")));
}

TEST(ServeHangup, TheLogGoesOnWhereItWasIfThereCanBeNoOther) {
  Folder const folder;
  Served served({"--memory"});
  std::filesystem::rename(served.logFile(), folder / "moved");
  std::filesystem::create_directory(served.logFile());
  served.signal(SIGHUP);
  await([&] { return folder.read("moved").find("reason=\"Is a directory\"") != std::string::npos; });
  EXPECT_EQ(served.stop(), 0);
  EXPECT_THAT(folder.read("moved"), HasSubstr(" stopped "));
}

}  // namespace
}  // namespace Agent::ServeResourcesTest
