// A watch is followed over all that can happen to its connection.
#include "agent/client/follow_changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "support/client_world.h"

namespace Agent::FollowChangesTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string change(int revision, std::string const& path, std::string const& value, bool isLast = true) {
  std::string const number = std::to_string(revision);
  return "event: change\n" + (isLast ? "id: " + number + "\n" : "") + "data: {\"revision\":" + number + ",\"path\":\"" +
         path + "\",\"value\":" + value + "}\n\n";
}

WatchOptions watch(std::optional<std::string> after, bool isOnce = false) {
  WatchOptions options;
  options.after = std::move(after);
  options.isOnce = isOnce;
  return options;
}

TEST(FollowChanges, PrintsALineAChange) {
  ClientWorld world;
  world.stream({change(8, "a/b", "{\"x\": 1}", false) + change(8, "c", "null"),
                "event: resync\ndata: {\"revision\":9}\n\n" + change(9, "d", "true", false) +
                    "event: synced\nid: 9\ndata: {\"revision\":9}\n\n",
                "event: later\ndata: {}\n\n",
                "event: shutdown\ndata: {}\n\n"});
  world.run(watch("7"));
  EXPECT_EQ(world.printed, "8  a/b  {\"x\":1}\n8  c  deleted\n9  resync\n9  d  true\n9  synced\n-  shutdown\n");
  world.printed.clear();
  world.stream(
      {change(8, "a/b", "{\"x\": 1}") + "event: resync\ndata: {\"revision\":9}\n\n", "event: shutdown\ndata: {}\n\n"});
  WatchOptions options = watch("7");
  options.common.format = OutputFormat::kJson;
  world.sleeps.clear();
  world.run(options);
  EXPECT_EQ(world.printed,
            "{\"revision\":8,\"path\":\"a/b\",\"value\":{\"x\":1}}\n{\"event\":\"resync\",\"revision\":9}\n"
            "{\"event\":\"shutdown\"}\n");
}

TEST(FollowChanges, PathsAreColoured) {
  ClientWorld world;
  world.isTerminal = true;
  world.stream({change(8, "a", "1")});
  world.run(watch("7"));
  EXPECT_EQ(world.printed, "8  \x1B[36ma\x1B[0m  1\n");
}

TEST(FollowChanges, GoesOnBehindTheLastIdAfterABreak) {
  ClientWorld world;
  // What came without an id behind it is told again.
  world.stream({change(8, "a", "1"), change(9, "b", "2", false)}, "7", true);
  world.stream({change(9, "b", "2", false), change(9, "c", "3"), "id: 15\n\n"});
  world.stream({"event: shutdown\ndata: {}\n\n"}, "15");
  EXPECT_EQ(world.run(watch("3")), 0);
  EXPECT_EQ(world.asked(0), "GET /v1/watch?prefix=&after=3");
  EXPECT_EQ(world.asked(1), "GET /v1/watch?prefix=&after=3 Last-Event-ID: 8");
  EXPECT_EQ(world.asked(2), "GET /v1/watch?prefix=&after=3 Last-Event-ID: 15");
  EXPECT_EQ(world.asked(3), "GET /v1/watch?prefix=&after=3 Last-Event-ID: 15");
  // Each break is noted once, however often it takes to come back; the pauses grow, up to a bound.
  EXPECT_THAT(world.notes,
              ElementsAre("server:1: broken; trying again",
                          "the server ended the watch; trying again",
                          "the server stops; trying again"));
  ASSERT_THAT(world.sleeps, SizeIs(20));
  EXPECT_THAT(std::vector<long>(world.sleeps.begin(), world.sleeps.begin() + 5), ElementsAre(200, 200, 200, 400, 800));
  EXPECT_EQ(world.sleeps.back(), 5000);
}

TEST(FollowChanges, FromNowOnStaysThatNowAfterABreak) {
  ClientWorld world;
  world.stream({}, "41", true);
  world.stream({}, "50");
  world.run(watch(std::nullopt));
  EXPECT_EQ(world.asked(0), "GET /v1/watch?prefix=");
  EXPECT_EQ(world.asked(1), "GET /v1/watch?prefix= Last-Event-ID: 41");
}

TEST(FollowChanges, OnceEndsWithWhatStoodAtTheBeginning) {
  struct {
    std::vector<std::string> pieces;
    std::string after;
    std::string printed;
  } const cases[] = {
      {{change(5, "a", "1"), change(7, "b", "2", false), change(7, "c", "3"), change(8, "d", "4")},
       "0",
       "5  a  1\n7  b  2\n7  c  3\n"},
      // The last turns may have nothing under the prefix.
      {{change(5, "a", "1"), "id: 7\n\n", change(8, "d", "4")}, "0", "5  a  1\n"},
      {{"event: resync\ndata: {\"revision\":9}\n\n" + change(9, "a", "1", false) +
            "event: synced\nid: 9\ndata: {\"revision\":9}\n\n",
        change(10, "b", "2")},
       "0",
       "9  resync\n9  a  1\n9  synced\n"},
      {{change(8, "a", "1")}, "7", ""},
      {{"event: resync\nid: 0\ndata: {\"revision\":7}\n\nevent: synced\nid: 7\ndata: {\"revision\":7}\n\n"},
       "9",
       "7  resync\n7  synced\n"},
  };
  for (auto const& [pieces, after, printed] : cases) {
    ClientWorld world;
    world.stream(pieces);
    EXPECT_EQ(world.run(watch(after, true)), 0);
    EXPECT_EQ(world.printed, printed);
    EXPECT_THAT(world.notes, IsEmpty());
    EXPECT_THAT(world.requests, SizeIs(1));
  }
}

TEST(FollowChanges, ARefusalEndsItUnlessItPasses) {
  ClientWorld world;
  world.refuse(400, R"({"reason": "no such prefix"})");
  EXPECT_EQ(world.run(watch("0")), 1);
  EXPECT_THAT(world.notes, ElementsAre("no such prefix"));
  world.refuse(429, R"({"reason": "too many watchers"})");
  EXPECT_EQ(world.run(watch("0")), 1);
  world.notes.clear();
  world.stream({});
  world.refuse(503, R"({"reason": "stopping"})");
  world.stream({});
  world.refuse(400, R"({"reason": "no such prefix"})");
  EXPECT_EQ(world.run(watch("0")), 1);
  EXPECT_THAT(
      world.notes,
      ElementsAre(
          "the server ended the watch; trying again", "the server ended the watch; trying again", "no such prefix"));
}

TEST(FollowChanges, WhatCannotBeUnderstoodEndsIt) {
  for (char const* event : {"event: change\ndata: {}\n\n",
                            "event: change\ndata: nonsense\n\n",
                            "id: x\n\n",
                            "event: change\ndata: {\"revision\":1,\"path\":2,\"value\":3}\n\n",
                            "event: change\ndata: {\"revision\":1e80,\"path\":\"a\",\"value\":3}\n\n",
                            "event: resync\ndata: {\"revision\":-1}\n\n",
                            "event: synced\ndata: [1]\n\n"}) {
    ClientWorld world;
    world.stream({event});
    EXPECT_EQ(world.run(watch("0")), 3) << event;
    EXPECT_THAT(world.notes, ElementsAre(HasSubstr("cannot be understood"))) << event;
  }
  ClientWorld world;
  world.answers.push_back({200, {}, {}, false});
  EXPECT_EQ(world.run(watch("0")), 3);
}

}  // namespace
}  // namespace Agent::FollowChangesTest
