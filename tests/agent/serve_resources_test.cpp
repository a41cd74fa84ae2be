// The program `enrolix serve` where the system gives it less than it wants.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <sstream>

#include "support/served.h"

namespace Agent {
namespace {

using Test::Api;
using Test::await;
using Test::Served;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
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
                          EndsWith(" info stopping signal=15 lost=2"),
                          HasSubstr(" info stopped ")));
}

}  // namespace
}  // namespace Agent
