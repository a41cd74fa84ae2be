// Backups: copies of a state that goes on, what is refused as one, and states that are made of them.
#include "agent/server/backup.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "agent/program/state_commands.h"
#include "agent/server/api_call.h"
#include "agent/store/backup_reader.h"
#include "agent/store/sqlite_store.h"
#include "support/mirror.h"
#include "support/program.h"
#include "support/random_history.h"
#include "support/rounds.h"
#include "support/service_world.h"
#include "support/store_model.h"

namespace Agent::BackupTest {
namespace {

using namespace std::chrono_literals;
using Test::firstSeed;
using Test::Mirror;
using Test::repeats;
using Test::rounds;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// The state that a whole backup holds.
StoreModel modelOf(std::string const& backup) {
  StoreModel model;
  BackupReader reader(
      [&](DocumentChange const& document) { model.documents[document.path] = StoreModel::stored(document); });
  reader.feed(backup);
  reader.finish();
  model.revision = reader.revision();
  return model;
}

StoreModel modelOf(Service const& service) {
  StoreModel model;
  model.revision = service.kept().revision;
  for (auto const& [path, document] : service.kept().documents)
    model.documents[path] = StoreModel::stored({path, document.text, document.revision, document.timeToLive});
  return model;
}

std::string readAll(BodySource& source) {
  std::string all;
  while (auto const piece = source.next()) all += *piece;
  return all;
}

void fill(ServiceWorld& world, unsigned count) {
  for (unsigned n = 0; n < count; ++n)
    world.put("registration/a/n" + std::to_string(n), '"' + std::string(2'000, 'x') + '"');
}

TEST(Backup, HoldsTheDocumentsAsTheyWereWhenItBeganWhateverHappensMeanwhile) {
  std::size_t changedMeanwhile = 0;
  for (std::uint32_t seed = firstSeed(); seed < firstSeed() + rounds(8); ++seed) {
    SCOPED_TRACE(repeats(seed));
    std::mt19937 random(seed);
    ServiceWorld world;
    fill(world, 120);
    for (std::string const& line : enrolment("b", "02:00:00:aa:00:01")) world.apply(line);
    StoreModel const expected = modelOf(*world.service);
    auto const source = world.service->backup();
    std::string backup;
    while (auto const piece = source->next()) {
      EXPECT_LT(piece->size(), 70'000u);
      backup += *piece;
      for (unsigned n = 0; n < 10; ++n) {
        std::string const path = "registration/a/n" + std::to_string(random() % 140);
        bool const isFailing = random() % 8 == 0;
        world.memory->isFullIs(isFailing);
        try {
          if (random() % 3 == 0)
            world.remove(path);
          else
            world.put(path, std::to_string(random()));
          changedMeanwhile += isFailing ? 0 : 1;
        } catch (StoreError const&) {
          EXPECT_TRUE(isFailing);
        }
        world.memory->isFullIs(false);
        if (isFailing) world.loop.pass(2s);
      }
    }
    ASSERT_EQ(modelOf(backup), expected);
    ASSERT_NE(modelOf(*world.service), expected);
  }
  EXPECT_GT(changedMeanwhile, 100u);
}

TEST(Backup, IsBrokenOffWhenTheStateIsReplaced) {
  ServiceWorld world;
  fill(world, 120);
  auto const source = world.service->backup();
  EXPECT_TRUE(source->next());
  MemoryStore other(world.memory);
  commitOne(other, {world.service->kept().revision, {}});
  world.loop.run();
  EXPECT_THROW(readAll(*source), std::runtime_error);
}

// Of 60 copies each comes to keep 5 documents of 1 MB, and of 10 that have read most of it one: 310 MB, and there is
// room for 268.
TEST(Backup, TheCopiesThatKeepTheMostAreBrokenOffWhenTheyHaveNoMoreRoom) {
  ServiceWorld world;
  auto const putAll = [&](char letter) {
    for (int n = 0; n < 5; ++n)
      world.put("registration/a/n" + std::to_string(n), '"' + std::string(1'000'000, letter) + '"');
  };
  putAll('a');
  StoreModel const expected = modelOf(*world.service);
  struct Copy {
    std::unique_ptr<BodySource> source;
    std::string text;
  };
  std::vector<Copy> copies(70);
  for (std::size_t copy = 0; copy < copies.size(); ++copy) {
    copies[copy].source = world.service->backup();
    while (copy < 10 && copies[copy].text.size() < 3'500'000) copies[copy].text += *copies[copy].source->next();
  }
  putAll('b');
  std::size_t broken = 0;
  for (std::size_t copy = 0; copy < copies.size(); ++copy) {
    try {
      copies[copy].text += *copies[copy].source->next();
    } catch (std::runtime_error const& error) {
      EXPECT_STREQ(error.what(), "the state changes faster than the copy is read");
      EXPECT_GE(copy, 10U);
      ++broken;
      copies[copy].source = nullptr;
    }
  }
  EXPECT_EQ(broken, 9U);
  auto const left =
      std::find_if(copies.rbegin(), copies.rend(), [](Copy const& copy) { return copy.source != nullptr; });
  for (Copy* const copy : {&copies.front(), &*left}) EXPECT_EQ(modelOf(copy->text + readAll(*copy->source)), expected);
}

TEST(Backup, IsRefusedIfOneByteOfItIsMissingOrAnother) {
  ServiceWorld world;
  for (std::string const& line : enrolment("b", "02:00:00:aa:00:01")) world.apply(line);
  std::string const whole = readAll(*world.service->backup());
  ASSERT_EQ(modelOf(whole), modelOf(*world.service));
  for (std::size_t at = 0; at < whole.size(); ++at) {
    EXPECT_THROW(modelOf(whole.substr(0, at)), InputError) << "cut at " << at;
    for (char const mask : {'\x01', '\x20', '\x7f'}) {
      std::string changed = whole;
      changed[at] = static_cast<char>(changed[at] ^ mask);
      EXPECT_THROW(modelOf(changed), std::runtime_error) << "changed at " << at;
    }
  }
  EXPECT_THROW(modelOf(whole + "{}\n"), InputError);
}

TEST(Backup, BecomesAStateOfAnotherHistory) {
  Folder folder;
  ServiceWorld world;
  world.put("controller/config", R"({"enabled": true})");
  for (std::string const& line : enrolment("b", "02:00:00:aa:00:01")) world.apply(line);
  std::string const file = folder.write("backup", readAll(*world.service->backup()));
  std::ostringstream out;
  EXPECT_EQ(restoreState({file, folder / "state"}, out), 0);
  EXPECT_EQ(folder.files(), 2) << "the backup and the state";
  EXPECT_THAT(out.str(),
              StartsWith((folder / "state") + ": revision " + std::to_string(world.service->kept().revision)));
  {
    SqliteStore store(folder / "state");
    EXPECT_EQ(contents(store), modelOf(*world.service));
    EXPECT_NE(store.history(), world.store->history());
  }
  std::ostringstream checked;
  EXPECT_EQ(checkStateFile({folder / "state"}, checked), 0);
  EXPECT_THAT(checked.str(), HasSubstr("history "));
  // What is there already is not replaced, nor is a state made where the rest of another one would be taken for its
  // own.
  for (std::string const taken : {"state", "other-wal", "third-witness"}) {
    if (taken != "state") folder.write(taken, "x");
    std::string const state = folder / taken.substr(0, taken.find('-'));
    EXPECT_THROW(restoreState({file, state}, out), FileError) << taken;
  }
  std::string damaged = folder.read("backup");
  damaged.resize(damaged.size() - 40);
  EXPECT_THROW(restoreState({folder.write("damaged", damaged), folder / "fourth"}, out), StoreError);
  EXPECT_FALSE(std::filesystem::exists(folder / "fourth"));
  EXPECT_EQ(folder.files(), 5) << "nothing is left of it";
}

// A backup of these lines, with the checksum that belongs to them.
std::string handmade(std::string const& history, std::vector<std::string> const& lines, std::string const& revision) {
  std::string text = R"({"enrolix":"backup","format":1,"history":")" + history + R"(","revision":)" + revision + "}\n";
  for (std::string const& line : lines) text += line + "\n";
  RunningChecksum checksum;
  checksum.add(text);
  return text + R"({"documents":)" + std::to_string(lines.size()) + R"(,"checksum":")" + checksum.value().text() +
         "\"}\n";
}

TEST(Backup, OfWhatNoStateCanHoldMakesNoState) {
  constexpr char kHistory[] = "0123456789abcdef";
  std::string const good = R"({"path":"mount/ready/x","revision":1,"value":true})";
  struct {
    std::string backup;
    std::string reason;
  } const cases[] = {
      {handmade(kHistory, {good}, "1"), ""},
      {handmade("0123", {good}, "1"), "history: expected 16 hexadecimal digits"},
      {handmade(kHistory, {good}, "18446744073709551615"), "revision: expected a whole number"},
      {handmade(kHistory, {good}, "0"), "revision: is behind that of the backup"},
      {handmade(kHistory, {R"({"path":"controller/config","revision":1,"value":{"enabled":3}})"}, "1"),
       "controller/config: enabled: expected true or false"},
      {handmade(kHistory, {R"({"path":"registration/x","revision":1,"value":{}})"}, "1"), "has no document"},
      {handmade(kHistory, {R"({"path":"mount/ready/x","revision":1,"ttl":5,"value":true})"}, "1"),
       "ttl: only a heartbeat has a time to live"},
      {handmade(kHistory, {R"({"path":"heartbeat/02:00:00:aa:00:01","revision":1,"ttl":0,"value":1})"}, "1"),
       "ttl: expected a whole number from 1"},
  };
  for (auto const& [backup, reason] : cases) {
    Folder folder;
    std::ostringstream out;
    std::string said;
    try {
      restoreState({folder.write("backup", backup), folder / "state"}, out);
    } catch (StoreError const& error) {
      said = error.what();
    }
    EXPECT_THAT(said, HasSubstr(reason)) << backup;
    EXPECT_EQ(said.empty(), reason.empty()) << backup;
    EXPECT_EQ(std::filesystem::exists(folder / "state"), reason.empty()) << backup;
  }
}

// However slowly the readers read.
TEST(Backup, ALongDocumentIsToldInShortPieces) {
  ServiceWorld world;
  for (std::size_t const size : {1, 65'000, 65'536, 131'072, 1'000'000})
    world.put("registration/a/" + std::to_string(size), '"' + std::string(size, 'x') + '"');
  auto const source = world.service->backup();
  EXPECT_EQ(world.service->backups(), 1u);
  std::string all;
  while (auto const piece = source->next()) {
    EXPECT_LT(piece->size(), 66'000u);
    all += *piece;
  }
  EXPECT_EQ(modelOf(all), modelOf(*world.service));
}

TEST(Backup, ADrillFindsEveryWriteThatWasAnsweredBeforeIt) {
  Folder folder;
  std::string const command = std::string("cd '") + (folder / "") + "' && ENROLIX=" + ENROLIX_PROGRAM + " " +
                              ENROLIX_SCRIPTS + "/drill --switches 20 --seconds 1 >said 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0) << folder.read("said");
  EXPECT_THAT(folder.read("said"), HasSubstr("writes that were answered before the backup are there"));
}

/// A reader that loses its connection, and resumes at whatever server there is.
class Reader {
 public:
  explicit Reader(std::string prefix) : mirror_(std::move(prefix), 0) {}

  void connect(ServiceWorld& world) {
    mirror_.lose();
    ServerWatches& hub = world.service->watches();
    source_ = hub.watch(mirror_.prefix(), parseEventId(mirror_.id(), hub.history(), "id"));
  }
  /// Takes so many pieces at most.
  void read(unsigned pieces) {
    for (; pieces > 0; --pieces) {
      auto const piece = source_->next();
      if (!piece || piece->empty()) return;
      mirror_.take(*piece);
    }
  }
  Mirror const& mirror() const { return mirror_; }

 private:
  Mirror mirror_;
  std::unique_ptr<BodySource> source_;
};

// Readers of the state that was lost come to one that was made of its backup, which has gone on otherwise: each must
// come to know what stands there, and not go on from what it knew.
TEST(Backup, ReadersOfALostStateAreNeverMistakenAboutTheRestoredOne) {
  unsigned resyncs = 0;
  for (std::uint32_t seed = firstSeed(); seed < firstSeed() + rounds(40); ++seed) {
    SCOPED_TRACE(repeats(seed));
    std::mt19937 random(seed);
    RandomHistory history(seed);
    RandomHistory otherHistory(seed + 1'000'000);
    ServiceWorld lost;
    std::vector<Reader> readers;
    for (char const* prefix : {"", "registration/", "mount/"}) readers.emplace_back(prefix);
    auto const live = [&](ServiceWorld& world, RandomHistory& operations, unsigned count) {
      for (unsigned n = 0; n < count; ++n) {
        world.apply(operations.next());
        for (Reader& reader : readers)
          if (random() % 3 == 0) reader.read(random() % 3);
      }
    };
    for (Reader& reader : readers) reader.connect(lost);
    live(lost, history, random() % 30);
    std::string const backup = readAll(*lost.service->backup());
    live(lost, history, random() % 30);

    ServiceWorld restored;
    restored.memory = std::make_shared<Memory>();
    CommittedTurn turn{0, {}};
    BackupReader reader([&](DocumentChange const& document) { turn.changes.push_back(document); });
    reader.feed(backup);
    turn.revision = reader.revision();
    {
      MemoryStore store(restored.memory);
      commitOne(store, turn);
    }
    restored.restart();
    // Sometimes the restored state comes to the very revision that was lost.
    live(restored, otherHistory, random() % 2 == 0 ? 0 : random() % 30);
    for (Reader& one : readers) {
      one.connect(restored);
      one.read(1 + random() % 3);
    }
    live(restored, otherHistory, random() % 10);
    for (Reader& one : readers) {
      if (random() % 2 == 0) one.connect(restored);
      one.read(10'000);
      std::map<std::string, std::string> expected;
      auto const [begin, end] = withPrefix(restored.service->kept().documents, one.mirror().prefix());
      for (auto at = begin; at != end; ++at) expected[at->first] = *at->second.text;
      ASSERT_EQ(one.mirror().documents(), expected) << "prefix " << one.mirror().prefix();
      resyncs += static_cast<unsigned>(one.mirror().resyncs());
    }
  }
  EXPECT_GE(resyncs, rounds(40) * 2) << "most readers knew another state";
}

}  // namespace
}  // namespace Agent::BackupTest
