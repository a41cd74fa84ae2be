// Which of the requests that wait is answered first.
#include <gmock/gmock.h>

#include <algorithm>

#include <random>

#include "agent/server/request_queue.h"
#include "agent/server/tree_api.h"
#include "support/documents.h"
#include "support/service_world.h"

namespace Agent::RequestQueueTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::StartsWith;

constexpr Urgency kAll[] = {
    Urgency::kHealth, Urgency::kHeartbeat, Urgency::kSwitch, Urgency::kOperator, Urgency::kBulk};

TEST(RequestQueue, RunsTheMostUrgentFirstAndEqualsInTheirOrder) {
  FakeLoop loop;
  RequestQueue queue(loop, [] { return false; });
  std::vector<std::pair<Urgency, int>> ran;
  for (int i = 0; i < 3; ++i)
    for (std::size_t at = std::size(kAll); at-- > 0;)
      queue.add(kAll[at], false, [&ran, urgency = kAll[at], i] { ran.emplace_back(urgency, i); });
  EXPECT_TRUE(ran.empty());
  loop.run();
  EXPECT_EQ(ran.size(), 3 * std::size(kAll));
  EXPECT_TRUE(std::is_sorted(ran.begin(), ran.end()));
}

TEST(RequestQueue, LetsNothingWaitForEverAndWhatComesInBeReadEveryMillisecond) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  FakeLoop loop;
  RequestQueue queue(loop, [] { return false; });
  std::size_t ran = 0;
  std::size_t bulk = 0;
  std::size_t read = 0;
  // Each request is followed by another of its kind, as those of a client are.
  std::function<void(Urgency)> const ask = [&](Urgency urgency) {
    queue.add(urgency, false, [&, urgency] {
      if (++ran == 10'000) return;
      if (ran > 10'000) return;
      if (urgency == Urgency::kBulk) ++bulk;
      if (random() % 10 == 0) loop.isBusy(1ms);
      ask(urgency);
    });
  };
  ask(Urgency::kBulk);
  for (int i = 0; i < 20; ++i) ask(kAll[random() % 4]);
  std::function<void()> const reader = [&] {
    ++read;
    if (ran < 10'000) loop.post(reader);
  };
  loop.post(reader);
  loop.run();
  // The oldest of 21 is this one's turn once in 21 times, and every 16th is the oldest.
  EXPECT_GT(bulk, 10'000u / 16 / 21 / 2);
  EXPECT_GT(read, 10'000u / 10 / 2);
}

// A task that breathes leaves two ways for the queue to go on: behind what is ready, and when a time is up.
TEST(RequestQueue, LetsWhatComesInBeReadEveryMillisecondAfterTasksThatBreathed) {
  FakeLoop loop;
  bool isInTask = false;
  RequestQueue queue(loop, [&] { return isInTask; });
  int left = 200;
  int sinceRead = 0;
  int mostSinceRead = 0;
  std::function<void()> const ask = [&] {
    queue.add(Urgency::kBulk, false, [&] {
      mostSinceRead = std::max(mostSinceRead, ++sinceRead);
      if (--left <= 0) return;
      ask();
      isInTask = left > 100;
      if (isInTask) loop.breathe();
      isInTask = false;
      loop.isBusy(1ms);
    });
  };
  ask();
  ask();
  std::function<void()> const reader = [&] {
    sinceRead = 0;
    if (left > 0) loop.post(reader);
  };
  loop.post(reader);
  loop.run();
  EXPECT_LE(left, 0);
  // One of each way.
  EXPECT_LE(mostSinceRead, 2);
}

TEST(RequestQueue, EndsWithWhatWaits) {
  FakeLoop loop;
  bool hasRun = false;
  auto queue = std::make_unique<RequestQueue>(loop, [] { return false; });
  queue->add(Urgency::kBulk, false, [&] { hasRun = true; });
  queue.reset();
  loop.run();
  EXPECT_FALSE(hasRun);
}

TEST(UrgentRequests, AreAnsweredBeforeTheNextPieceOfABatch) {
  ServiceWorld world;
  TreeApi api{world.loop, *world.service, {}};
  std::vector<std::string> answered;
  auto const send = [&](std::string const& name, char const* method, std::string const& target, std::string body) {
    api.handle({method, target, {}, std::move(body)}, [&answered, name](HttpResponse const& response) {
      answered.push_back(name + std::to_string(response.status));
    });
  };
  std::string lines;
  for (int i = 0; i < 2000; ++i)
    lines += R"({"put": "registration/a/)" + std::to_string(i) +
             R"(", "value": 1})"
             "\n";
  send("batch ", "POST", "/v1/tree", lines);
  send("atomic ", "POST", "/v1/tree?atomic=1", lines);
  send("long ", "PUT", "/v1/tree/heartbeat/02:00:00:aa:00:02", '"' + std::string(100'000, 'x') + '"');
  send("operator ", "PUT", "/v1/tree/controller/config", R"({"enabled": true})");
  send("switch ", "GET", "/v1/tree/registration/a/config", "");
  send("heartbeat ", "PUT", "/v1/tree/heartbeat/02:00:00:aa:00:01", "{}");
  send("health ", "GET", "/healthz", "");
  world.loop.run();
  ASSERT_EQ(answered.size(), 7u);
  std::sort(answered.begin() + 5, answered.end());
  EXPECT_THAT(
      answered,
      ElementsAre("health 200", "switch 404", "heartbeat 200", "operator 200", "long 200", "atomic 200", "batch 200"));
}

TEST(Sources, AreThoseOfTheDocuments) {
  auto const rows = tableRows(documentNamed("docs/state-tree.md"), "## Paths");
  std::size_t found = 0;
  for (PathPattern const& pattern : kPathPatterns) {
    for (TableRow const& row : rows) {
      if (row.at(0) != "`" + std::string(pattern.text) + "`") continue;
      ++found;
      constexpr std::array kNames{"operator", "registry", "switch", "heartbeat source", "mount source"};
      EXPECT_THAT(row.at(2), StartsWith(kNames.at(static_cast<std::size_t>(pattern.source)))) << pattern.text;
    }
  }
  // All but the folder of a registration.
  EXPECT_EQ(found, kPathPatterns.size() - 1);
}

}  // namespace
}  // namespace Agent::RequestQueueTest
