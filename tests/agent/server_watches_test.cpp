// Watches: every change to every reader, or an explicit word that some are gone.
#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <random>

#include "agent/server/api_call.h"
#include "support/mirror.h"
#include "support/random_history.h"
#include "support/rounds.h"
#include "support/service_world.h"
#include "support/store_model.h"

namespace Agent::ServerWatchesTest {
namespace {

using namespace std::chrono_literals;
using Test::sampled;
using Test::sampledRounds;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

/// A reader that keeps the tree as the events tell it.
class Reader {
 public:
  Reader(ServerWatches& hub, std::string prefix, Revision after) : hub_(hub), mirror_(std::move(prefix), after) {
    reconnect();
  }

  /// Takes one piece; false if there was none.
  bool read() {
    auto const piece = source_->next();
    if (!piece || piece->empty()) return false;
    pieceBytes_ = piece->size();
    mirror_.take(*piece);
    return true;
  }
  void readAll() {
    while (read()) {
    }
  }
  /// Loses the connection, and comes back with what it was told last.
  void reconnect() {
    mirror_.lose();
    source_ = hub_.watch(mirror_.prefix(), parseEventId(mirror_.id(), hub_.history(), "id"));
  }

  /// From now on it reads whatever it is woken for, at once. Each waking must be for something.
  void readWhenWoken() {
    readAll();
    source_->wakeIs([this] {
      EXPECT_TRUE(read());
      readWhenWoken();
    });
  }

  std::map<std::string, std::string> const& documents() const { return mirror_.documents(); }
  std::vector<std::string> const& events() const { return mirror_.events(); }
  std::string const& prefix() const { return mirror_.prefix(); }
  Revision told() const { return mirror_.told(); }
  int resyncs() const { return mirror_.resyncs(); }
  /// Of the piece that was read last.
  std::size_t pieceBytes() const { return pieceBytes_; }

 private:
  ServerWatches& hub_;
  std::unique_ptr<BodySource> source_;
  Test::Mirror mirror_;
  std::size_t pieceBytes_ = 0;
};

std::map<std::string, std::string> documentsOf(ServiceWorld const& world, std::string const& prefix) {
  std::map<std::string, std::string> all;
  auto const [begin, end] = withPrefix(world.service->kept().documents, prefix);
  for (auto at = begin; at != end; ++at) all[at->first] = *at->second.text;
  return all;
}

TEST(ServerWatches, TellsEachChangedDocumentOfATurnOnceAndItsRevisionWithTheLast) {
  ServiceWorld world;
  auto const source = world.service->watches().watch("controller/", world.service->kept().revision);
  EXPECT_EQ(source->next(), "");
  int wakes = 0;
  source->wakeIs([&] { ++wakes; });
  world.put("controller/config", R"({"enabled": true})");
  EXPECT_EQ(wakes, 1);
  EXPECT_EQ(source->next(),
            "event: change\n"
            "data: {\"revision\":2,\"path\":\"controller/config\",\"value\":{\"enabled\":true}}\n\n"
            "event: change\n"
            "id: 2@" +
                world.store->history() +
                "\n"
                "data: {\"revision\":2,\"path\":\"controller/status\",\"value\":"
                "{\"controllerUUID\":\"\",\"enabled\":true}}\n\n");
  world.put("mount/ready/x", "true");
  EXPECT_EQ(source->next(), "");
}

TEST(ServerWatches, TellsNothingBeforeItIsKept) {
  ServiceWorld world;
  auto const source = world.service->watches().watch("", world.service->kept().revision);
  Operation const operation = parseOperation(R"({"put": "mount/ready/x", "value": true})");
  world.service->apply({&operation, 1});
  EXPECT_EQ(source->next(), "");
  world.loop.run();
  EXPECT_THAT(*source->next(), HasSubstr("mount/ready/x"));
}

TEST(ServerWatches, FromTheBeginningItTellsTheWholePrefix) {
  ServiceWorld world;
  world.put("mount/ready/x", "true");
  world.put("mount/ready/y", "true");
  Reader byHistory(world.service->watches(), "mount/", 0);
  byHistory.readAll();
  EXPECT_EQ(byHistory.documents(), documentsOf(world, "mount/"));
  EXPECT_EQ(byHistory.resyncs(), 0);
  world.restart();
  Reader byTree(world.service->watches(), "mount/", 0);
  byTree.readAll();
  EXPECT_EQ(byTree.documents(), documentsOf(world, "mount/"));
  EXPECT_THAT(byTree.events(), ElementsAre("resync", "change", "change", "synced"));
}

TEST(ServerWatches, ARevisionThatHasNotBeenIsAnsweredWithAResync) {
  ServiceWorld world;
  Reader reader(world.service->watches(), "", world.service->kept().revision + 5);
  reader.readAll();
  EXPECT_EQ(reader.resyncs(), 1);
  EXPECT_EQ(reader.told(), world.service->kept().revision);
}

TEST(ServerWatches, SaysWhenThePastHasBeenTold) {
  ServiceWorld world;
  world.put("mount/ready/x", "true");
  world.put("controller/config", R"({"enabled": true})");
  auto const source = world.service->watches().watch("mount/", 1);
  std::string const told = *source->next();
  std::string const history = world.store->history();
  EXPECT_THAT(told, HasSubstr("id: 2@" + history + "\ndata: "));
  EXPECT_THAT(told, ::testing::EndsWith("}\n\nid: 3@" + history + "\n\n"));
  EXPECT_EQ(source->next(), "");
  EXPECT_EQ(*world.service->watches().watch("mount/", 2)->next(), "id: 3@" + history + "\n\n");
}

TEST(ServerWatches, GivesASignOfLifeThatMovesThePlaceToResumeFrom) {
  ServiceWorld world;
  Reader reader(world.service->watches(), "mount/", world.service->kept().revision);
  reader.readAll();
  world.put("controller/config", R"({"enabled": true})");
  reader.readAll();
  EXPECT_EQ(reader.told(), 1u);
  world.loop.pass(16s);
  EXPECT_TRUE(reader.read());
  EXPECT_EQ(reader.told(), 2u);
  EXPECT_THAT(reader.events(), ElementsAre());
}

// What it knew was forgotten at the first word, and is not there again before the last.
TEST(ServerWatches, AReaderThatIsLostInAResyncGetsAllOfTheNextOne) {
  ServiceWorld world;
  for (int i = 0; i < 20; ++i) world.put("registration/a/" + std::to_string(i), '"' + std::string(10'000, 'x') + '"');
  Reader reader(world.service->watches(), "registration/", 0);
  reader.readAll();
  // All begins anew at the revision that it has been told.
  MemoryStore other(world.memory);
  commitOne(other, {world.service->kept().revision, {}});
  world.loop.run();
  ASSERT_TRUE(reader.read());
  ASSERT_EQ(reader.resyncs(), 1);
  ASSERT_LT(reader.documents().size(), 20u);
  reader.reconnect();
  reader.readAll();
  EXPECT_EQ(reader.documents(), documentsOf(world, "registration/"));
  EXPECT_EQ(reader.told(), world.service->kept().revision);
}

// A reader that does not read holds up one piece, whatever there is to tell.
TEST(ServerWatches, ALongDocumentIsToldInShortPieces) {
  ServiceWorld world;
  for (std::size_t const size : {1, 65'000, 65'400, 65'536, 65'600, 131'072, 1'000'000})
    world.put("registration/a/" + std::to_string(size), '"' + std::string(size, 'x') + '"');
  Reader reader(world.service->watches(), "registration/", 0);
  std::size_t longest = 0;
  while (reader.read()) longest = std::max(longest, reader.pieceBytes());
  EXPECT_LT(longest, 66'000u);
  EXPECT_EQ(reader.documents(), documentsOf(world, "registration/"));
  // An event that has begun comes to its end, whatever happens.
  world.put("registration/a/1000000", "\"" + std::string(1'000'000, 'y') + "\"");
  reader.read();
  world.service->stop();
  reader.readAll();
  EXPECT_EQ(reader.documents(), documentsOf(world, "registration/"));
  EXPECT_EQ(reader.events().back(), "shutdown");
}

TEST(ServerWatches, IsToldWhenTheAgentStops) {
  ServiceWorld world;
  auto const source = world.service->watches().watch("", world.service->kept().revision);
  EXPECT_EQ(source->next(), "");
  world.service->stop();
  EXPECT_EQ(source->next(), "event: shutdown\ndata: {}\n\n");
  EXPECT_EQ(source->next(), std::nullopt);
}

TEST(ServerWatches, IsToldTheRestBeforeTheAgentStops) {
  ServiceWorld world;
  auto const source = world.service->watches().watch("mount/", world.service->kept().revision);
  EXPECT_EQ(source->next(), "");
  Operation const operation = parseOperation(R"({"put": "mount/ready/x", "value": true})");
  world.service->apply({&operation, 1});
  world.service->stop();
  EXPECT_THAT(*source->next(),
              ::testing::AllOf(HasSubstr("mount/ready/x"), ::testing::EndsWith("shutdown\ndata: {}\n\n")));
}

TEST(ServerWatches, AWholePrefixIsThatWhichIsKept) {
  ServiceWorld world;
  world.put("mount/ready/x", "true");
  world.put("mount/ready/y", "true");
  world.restart();
  for (char const* line : {R"({"put": "mount/ready/x", "value": false})", R"({"delete": "mount/ready/y"})"}) {
    Operation const operation = parseOperation(line);
    world.service->apply({&operation, 1});
  }
  Reader reader(world.service->watches(), "mount/", 0);
  reader.readAll();
  EXPECT_THAT(reader.events(), ElementsAre("resync", "change", "change", "synced"));
  EXPECT_EQ(reader.told(), world.service->kept().revision);
  world.loop.run();
  reader.readAll();
  EXPECT_THAT(reader.events(), ElementsAre("resync", "change", "change", "synced", "change", "change"));
  EXPECT_EQ(reader.documents(), documentsOf(world, "mount/"));
  EXPECT_EQ(reader.told(), world.service->kept().revision);
}

TEST(ServerWatches, ATimeToLiveIsNobodysBusiness) {
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  for (int i = 1; i < 9; ++i)
    world.put("heartbeat/02:00:00:aa:00:01", "{}", Service::TimeToLive{std::chrono::hours(i)});
  Reader reader(world.service->watches(), "", 0);
  reader.readAll();
  EXPECT_EQ(reader.documents(), documentsOf(world, ""));
  EXPECT_EQ(reader.resyncs(), 0);
}

TEST(ServerWatches, ALongDocumentComesInPiecesAndIsSharedByItsReaders) {
  ServiceWorld world;
  Revision const before = world.service->kept().revision;
  world.put("registration/a/blob", '"' + std::string(1'000'000, 'x') + '"');
  auto const source = world.service->watches().watch("", before);
  std::size_t pieces = 0;
  for (auto piece = source->next(); piece && !piece->empty(); piece = source->next(), ++pieces)
    EXPECT_LE(piece->size(), 80'000u);
  EXPECT_GT(pieces, 10u);
  Reader reader(world.service->watches(), "", before);
  reader.readAll();
  EXPECT_EQ(reader.documents().at("registration/a/blob").size(), 1'000'002u);
}

// The past that it did not keep up with has nothing for it.
TEST(ServerWatches, AReaderThatNothingConcernsFallsBehindNothing) {
  ServiceOptions options;
  options.history.changes = 4;
  ServiceWorld world(options);
  for (bool const isWoken : {true, false}) {
    Reader reader(world.service->watches(), "mount/", world.service->kept().revision);
    reader.readAll();
    for (int i = 0; i < 50; ++i) world.put("registration/a/note", std::to_string(i));
    if (isWoken) world.put("mount/ready/x", "true");
    reader.readAll();
    EXPECT_THAT(reader.events(), ElementsAreArray(std::vector<std::string>(isWoken ? 1 : 0, "change")));
  }
}

TEST(ServerWatches, ASlowReaderKeepsNothingAlive) {
  ServiceOptions options;
  options.history.changes = 4;
  ServiceWorld world(options);
  Reader slow(world.service->watches(), "mount/", world.service->kept().revision);
  for (int i = 0; i < 50; ++i) world.put("mount/ready/x" + std::to_string(i % 7), i % 2 != 0 ? "true" : "false");
  slow.readAll();
  EXPECT_EQ(slow.resyncs(), 1);
  EXPECT_EQ(slow.documents(), documentsOf(world, "mount/"));
}

// What of it has been told is no place to resume from, and a document that has begun comes to its end.
TEST(ServerWatches, ATurnThatLeavesTheHistoryWhileItIsToldEndsInAResync) {
  ServiceOptions options;
  options.history = {1, 1};
  for (int pieces = 1; pieces <= 7; ++pieces) {
    ServiceWorld world(options);
    Revision const before = world.service->kept().revision;
    std::vector<Operation> turn;
    for (int note = 1000; note < 1300; ++note)
      turn.push_back(parseOperation(R"({"put": "registration/a/)" + std::to_string(note) + R"(", "value": ")" +
                                    std::string(note == 1150 ? 200'000 : 1'000, 'x') + "\"}"));
    Reader reader(world.service->watches(), "registration/", before);
    world.service->apply(turn);
    world.loop.run();
    for (int piece = 0; piece < pieces; ++piece) ASSERT_TRUE(reader.read());
    EXPECT_EQ(reader.resyncs(), 0);
    EXPECT_EQ(reader.told(), before);
    world.put("registration/a/1150", "1");
    reader.readAll();
    EXPECT_EQ(reader.resyncs(), 1);
    EXPECT_EQ(reader.documents(), documentsOf(world, "registration/"));
    EXPECT_EQ(reader.told(), world.service->kept().revision);
  }
}

// Whatever the paces, losses and ends: when a reader has read all, it has the tree.
TEST(ServerWatches, EveryReaderEndsWithTheTree) {
  std::vector<std::string> const prefixes{"",
                                          "reg",
                                          "registration/",
                                          "registration/a",
                                          "registration/a/",
                                          "registration/a/status",
                                          "registration/a/status/x",
                                          "controller/",
                                          "service/status/"};
  int resyncs = 0;
  for (unsigned const seed : sampledRounds(30)) {
    std::mt19937 random(seed);
    ServiceOptions options;
    options.history.changes = seed % 3 == 0 ? 3 : 60;
    ServiceWorld world(options);
    RandomHistory history(seed);
    std::vector<Reader> readers;
    // However short the history is, these are told all that concerns them.
    std::deque<Reader> prompt;
    for (std::string const& prefix : prefixes) prompt.emplace_back(world.service->watches(), prefix, 0).readWhenWoken();
    for (int i = 0; i < 200; ++i) {
      if (i % 20 == 0)
        readers.emplace_back(
            world.service->watches(), prefixes[random() % prefixes.size()], random() % 2 == 0 ? 0 : 1000);
      Operation const operation = parseOperation(history.next());
      world.service->apply({&operation, 1}, Service::TimeToLive{std::chrono::hours(1 + random() % 2)});
      if (random() % 3 == 0) world.loop.run();
      if (random() % 40 == 0) {
        // A commit fails: all that waited is as if it had not been.
        world.memory->isFullIs(true);
        world.loop.run();
        world.memory->isFullIs(false);
        world.loop.pass(2s);
      }
      for (std::size_t reader = 0; reader < readers.size(); ++reader) {
        if (random() % (reader + 2) == 0) readers[reader].read();
        if (random() % 50 == 0) readers[reader].reconnect();
      }
    }
    world.loop.run();
    for (Reader& reader : readers) {
      reader.readAll();
      resyncs += reader.resyncs();
    }
    for (std::string const& prefix : prefixes) {
      Reader late(world.service->watches(), prefix, 0);
      late.readAll();
      ASSERT_EQ(late.documents(), documentsOf(world, prefix));
    }
    for (Reader const& reader : prompt) {
      ASSERT_EQ(reader.resyncs(), 0) << "seed " << seed;
      ASSERT_EQ(reader.documents(), documentsOf(world, reader.prefix())) << "seed " << seed;
    }
    for (Reader const& reader : readers) {
      ASSERT_LE(reader.told(), world.service->kept().revision);
      ASSERT_EQ(reader.documents(), documentsOf(world, reader.prefix())) << "seed " << seed;
    }
  }
  EXPECT_GT(resyncs, int(sampled(30)));
}

}  // namespace
}  // namespace Agent::ServerWatchesTest
