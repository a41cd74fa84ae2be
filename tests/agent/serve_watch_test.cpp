// Watches of the running program: whatever the load, paces, losses and ends, each reader has the tree in the end.
#include <gmock/gmock.h>

#include <deque>
#include <random>
#include <thread>

#include "agent/document/scenario.h"
#include "agent/store/sqlite_store.h"
#include "support/event_reader.h"
#include "support/random_history.h"
#include "support/rounds.h"
#include "support/served.h"

namespace Agent::ServeWatchTest {
namespace {

using namespace std::chrono_literals;
using Test::Api;
using Test::EventReader;
using Test::sampled;
using Test::sampleSeed;
using Test::Served;
using testing::HasSubstr;

using Texts = std::map<std::string, std::string>;

/// The documents of `all` whose paths begin with the prefix.
Texts withPrefix(Texts const& all, std::string const& prefix) {
  Texts some;
  for (auto const& [path, text] : all)
    if (path.starts_with(prefix)) some[path] = text;
  return some;
}

Texts stored(std::string const& state) {
  Texts texts;
  SqliteStore(state).load([&](DocumentChange const& document) { texts[document.path] = *document.text; });
  return texts;
}

/// Writes that are random in what they do and how they are sent.
void writeAtRandom(std::string const& url, unsigned seed, int count) {
  RandomHistory history(seed);
  std::mt19937 random(seed);
  Api api(url);
  for (int n = 0; n < count; ++n) {
    if (random() % 4 == 0) {
      std::string lines;
      for (auto line = random() % 10; line > 0; --line) lines += history.next() + "\n";
      int const status = api.post(lines, random() % 2 == 0 ? "?atomic=1" : "").status;
      // What would come and go in one turn is refused.
      EXPECT_TRUE(status == 200 || status == 422) << status << lines;
    } else {
      Operation const operation = parseOperation(history.next());
      std::string const path = toText(operation.path);
      auto const response = operation.isPut() ? api.put(path, operation.value->dump()) : api.remove(path);
      EXPECT_EQ(response.status, 200) << path << response.body;
    }
  }
}

/// A reader in a thread of its own, with losses at random moments, until it has been told of the last write.
class LosingReader {
 public:
  LosingReader(std::string prefix, unsigned seed) : random_(seed), reader_(std::move(prefix), 0) {}

  /// The last write under its prefix puts `text` at `path`.
  void start(std::uint16_t port, std::string const& path, std::string const& text) {
    thread_ = std::thread([=, this] {
      auto const hasEnded = [&] {
        auto const last = mirror().documents().find(path);
        return mirror().isWhole() && last != mirror().documents().end() && last->second == text;
      };
      while (!hasEnded()) {
        EXPECT_THAT(reader_.connect(port), HasSubstr(" 200 "));
        for (auto pieces = random_() % 20; pieces > 0 && !hasEnded(); --pieces)
          if (!reader_.read()) break;
      }
    });
  }
  void join() { thread_.join(); }
  Test::Mirror const& mirror() const { return reader_.mirror(); }

 private:
  std::mt19937 random_;
  EventReader reader_;
  std::thread thread_;
};

TEST(ServeWatch, TreeStreamAndStoreAgree) {
  // The last write under each prefix; those that follow change nothing under it.
  std::vector<std::pair<std::string, std::string>> const ends{
      {"mount/", "mount/ready/end"}, {"registration/", "registration/z/end"}, {"", "heartbeat/02:00:00:aa:00:ff"}};
  int resyncs = 0;
  // Of two that follow each other, one has a short history.
  unsigned const first = sampleSeed(0);
  for (unsigned seed = first; seed < first + std::max<std::size_t>(2, sampled(4)); ++seed) {
    Folder const folder;
    std::string const state = folder / "state";
    Served served({"--state", state, "--heartbeat-ttl", "0", "--history", seed % 2 == 0 ? "10" : "1000"});
    std::deque<LosingReader> readers;
    for (unsigned n = 0; n < 6; ++n) readers.emplace_back(ends[n % ends.size()].first, 10 * seed + n);
    for (std::string const end : {"true", "false"}) {
      for (std::size_t n = 0; n < readers.size(); ++n)
        readers[n].start(served.port(), ends[n % ends.size()].second, end);
      std::thread other([&] { writeAtRandom(served.url(), 100 + 2 * seed, 100); });
      writeAtRandom(served.url(), 101 + 2 * seed, 100);
      other.join();
      Api api(served);
      for (auto const& [prefix, path] : ends) ASSERT_EQ(api.put(path, end).status, 200);
      Texts const documents = api.documents();
      for (LosingReader& reader : readers) {
        reader.join();
        EXPECT_EQ(reader.mirror().documents(), withPrefix(documents, reader.mirror().prefix()))
            << "seed " << seed << ", prefix " << reader.mirror().prefix();
        resyncs += reader.mirror().resyncs();
      }
      served.kill();
      EXPECT_EQ(stored(state), documents) << "seed " << seed;
      served.start();
    }
  }
  EXPECT_GT(resyncs, 0);
}

/// Reads whatever there is for any of the readers, until all have been told of the revision.
void readAllTo(Revision revision, std::deque<EventReader>& readers, std::size_t from, std::vector<std::string>& texts) {
  std::size_t left = 0;
  do {
    left = 0;
    for (std::size_t n = from; n < readers.size(); ++n) {
      if (readers[n].mirror().told() >= revision) continue;
      ++left;
      if (!readers[n].isReadable()) continue;
      ASSERT_TRUE(readers[n].read());
      texts[n] += readers[n].piece();
    }
  } while (left > 0);
}

// Of ten, one does not read at all, one only later.
TEST(ServeWatch, AThousandWatchersOfWhichSomeNeverRead) {
  constexpr std::size_t kReaders = sampled(1000);
  constexpr std::size_t kSilent = kReaders / 10;
  constexpr std::size_t kSlow = kReaders / 10;
  constexpr int kWrites = 30;
  Served served({"--memory", "--history-bytes", "4000000"}, {{"ASAN_OPTIONS", "quarantine_size_mb=4"}});
  Api api(served);
  Revision last = api.health()["revision"];
  std::deque<EventReader> readers;
  std::vector<std::string> texts(kReaders);
  for (std::size_t n = 0; n < kReaders; ++n) {
    readers.emplace_back("registration/", last, n < kSilent + kSlow ? 4096 : 0);
    ASSERT_THAT(readers.back().connect(served.port()), HasSubstr(" 200 "));
  }
  EXPECT_EQ(api.health()["watches"], kReaders);

  auto const write = [](Api& to, int n, std::size_t size) {
    auto const response = to.put("registration/a/n" + std::to_string(n % kWrites),
                                 "[" + std::to_string(n) + ",\"" + std::string(size, 'x') + "\"]");
    EXPECT_EQ(response.status, 200);
    return response.status == 200 ? revisionOf(response) : Revision{0};
  };
  std::thread writer([&] {
    Api own(served);
    for (int n = 0; n < kWrites; ++n) write(own, n, 100);
  });
  readAllTo(last + kWrites, readers, kSilent + kSlow, texts);
  writer.join();
  Texts const documents = api.documents("registration/");
  for (std::size_t n = kSilent + kSlow; n < kReaders; ++n) {
    ASSERT_EQ(readers[n].mirror().documents(), documents);
    ASSERT_EQ(texts[n], texts.back());
  }

  // Far more than the system keeps for a connection, and than the history holds.
  std::size_t const before = served.residentBytes();
  for (int n = 0; n < 40; ++n) last = write(api, kWrites * n + n % 4, 400'000);
  std::size_t const after = served.residentBytes();
  EXPECT_LT(after, before + 150'000'000) << "before " << before;
  RecordProperty("grownBytes", std::to_string(after - std::min(after, before)));
  Texts const later = api.documents("registration/");
  for (std::size_t n = kSilent; n < kSilent + 5; ++n) {
    ASSERT_TRUE(readers[n].readTo(last));
    EXPECT_TRUE(readers[n].mirror().documents() == later);
    EXPECT_GT(readers[n].mirror().resyncs(), 0);
  }
  EXPECT_EQ(served.stop(), 0) << served.log();
}

}  // namespace
}  // namespace Agent::ServeWatchTest
