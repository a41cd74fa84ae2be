// Watches that wait: which are woken, by what, and how many at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "support/service_world.h"

namespace Agent::WaitingWatchesTest {
namespace {

using namespace std::chrono_literals;

// A reader is asked about a turn only if the turn changed something that it reads.
TEST(WaitingWatches, AReaderIsAskedForWhatConcernsItAlone) {
  ServiceWorld world;
  std::map<std::string, int> asked;
  std::deque<std::unique_ptr<BodySource>> sources;
  auto const wait = [&](std::string const& prefix) {
    BodySource& source = *sources.emplace_back(world.service->watches().watch(prefix, world.service->kept().revision));
    EXPECT_EQ(source.next(), "");
    source.wakeIs([&asked, prefix] { ++asked[prefix]; });
  };
  for (int n = 0; n < 1000; ++n) wait("registration/leaf-" + std::to_string(n) + "/");
  for (char const* prefix :
       {"", "mount/", "registration/leaf-99", "registration/leaf-990/note", "registration/leaf-990/x"})
    wait(prefix);
  world.put("registration/leaf-990/note", "[]");
  EXPECT_EQ(
      asked,
      (std::map<std::string, int>{
          {"", 1}, {"registration/leaf-99", 1}, {"registration/leaf-990/", 1}, {"registration/leaf-990/note", 1}}));
}

// What is woken may wait again at once, and take with it readers that would have been woken next.
TEST(WaitingWatches, ReadersComeAndGoWhileTheyAreWoken) {
  ServiceWorld world;
  std::deque<std::unique_ptr<BodySource>> sources;
  int woken = 0;
  std::function<void()> const wait = [&] {
    BodySource& source =
        *sources.emplace_back(world.service->watches().watch("mount/", world.service->kept().revision));
    EXPECT_EQ(source.next(), "");
    source.wakeIs([&] {
      ++woken;
      while (!source.next()->empty()) continue;
      for (auto& other : sources)
        if (other.get() != &source) other.reset();
      wait();
    });
  };
  for (int n = 0; n < 10; ++n) wait();
  world.put("mount/ready/x", "true");
  EXPECT_EQ(woken, 1);
  EXPECT_EQ(world.service->watches().watches(), 2u);
  world.put("mount/ready/x", "false");
  EXPECT_EQ(woken, 2);
  EXPECT_EQ(world.service->watches().watches(), 2u);
}

// Each has its own, 15 s behind that before, and no turn of the loop has more than some hundred.
TEST(WaitingWatches, SignsOfLifeComeInSlices) {
  ServiceWorld world;
  std::vector<int> signs(1000);
  std::vector<std::unique_ptr<BodySource>> sources;
  for (int& count : signs) {
    auto& source = sources.emplace_back(world.service->watches().watch("", world.service->kept().revision));
    EXPECT_EQ(source->next(), "");
    source->wakeIs([&] { ++count; });
  }
  auto const now = world.loop.now() + 20s;
  int slices = 0;
  while (world.service->watches().keepAlive(now)) {
    EXPECT_LE(std::accumulate(signs.begin(), signs.end(), 0), 300 * ++slices);
    if (slices == 2) sources.erase(sources.begin() + 600, sources.begin() + 700);
  }
  EXPECT_GT(slices, 2);
  EXPECT_EQ(std::count(signs.begin(), signs.end(), 1), 900);
  EXPECT_FALSE(world.service->watches().keepAlive(now + 14s));
}

}  // namespace
}  // namespace Agent::WaitingWatchesTest
