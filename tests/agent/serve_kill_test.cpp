// Ends of the program under load: no end loses what was answered.
#include <gmock/gmock.h>

#include <filesystem>
#include <random>
#include <thread>

#include "agent/store/sqlite_store.h"
#include "agent/tree/library_path.h"
#include "agent/tree/live_tree.h"
#include "support/recording_writer.h"
#include "support/rounds.h"
#include "support/served.h"

namespace Agent::ServeKillTest {
namespace {

using namespace std::chrono_literals;
using Test::Api;
using Test::RecordingWriter;
using Test::sampled;
using Test::sampleSeed;
using Test::Served;

using Texts = std::map<std::string, std::string>;

/// What a fresh registry makes of the documents in a state file. It works on a copy, its log included.
Texts loaded(std::string const& state) {
  Folder const folder;
  for (char const* part : {"", "-wal", "-witness"})
    if (std::filesystem::exists(state + part))
      std::filesystem::copy_file(state + part, folder / (std::string("s") + part));
  SqliteStore store(folder / "s");
  Nox::Library const library(libraryPath(std::nullopt));
  TreeDocuments found = readDocuments(store);
  LiveTree const tree(library, found);
  Texts texts;
  for (auto const& [path, document] : found.documents) texts[path] = *document.text;
  return texts;
}

/// Clients that write at the same time.
class Load {
 public:
  void start(std::string const& url) {
    for (RecordingWriter& writer : writers_) threads_.emplace_back([&writer, url] { writer.run(url); });
  }
  /// Waits until the program's end has ended them all.
  void join() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }
  void check(Texts const& documents) {
    for (RecordingWriter& writer : writers_) writer.check(documents);
  }
  std::size_t answers() const {
    std::size_t sum = 0;
    for (RecordingWriter const& writer : writers_) sum += writer.answers();
    return sum;
  }
  Revision revision() const {
    Revision last = 0;
    for (RecordingWriter const& writer : writers_) last = std::max(last, writer.answeredRevision());
    return last;
  }

 private:
  std::vector<RecordingWriter> writers_{RecordingWriter(1), RecordingWriter(2), RecordingWriter(3), RecordingWriter(4)};
  std::vector<std::thread> threads_;
};

void enableController(Api& api) {
  ASSERT_EQ(api.put("controller/config", R"({"enabled": true})").status, 200);
  ASSERT_EQ(
      api.put("service/config/routing", R"({"enabled": true, "versionConfig": {"version": {"1": "one"}}})").status,
      200);
}

TEST(ServeKill, NothingAnsweredIsLostAtAnyInstant) {
  Folder const folder;
  std::string const state = folder / "state";
  Served served({"--state", state});
  {
    Api api(served);
    enableController(api);
  }
  Load load;
  std::mt19937 random(sampleSeed(1));
  for (std::size_t round = 0; round < sampled(100); ++round) {
    load.start(served.url());
    std::this_thread::sleep_for(std::chrono::microseconds(10'000 + random() % 80'000));
    served.kill();
    load.join();
    Texts const expected = loaded(state);
    // Sometimes it is killed again before it has come up.
    if (round % 4 == 0) {
      served.launch();
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 40'000));
      served.kill();
    }
    served.start();
    ASSERT_TRUE(served.runs()) << served.log();
    Api api(served);
    ASSERT_EQ(api.documents(), expected) << "round " << round;
    ASSERT_GE(api.health()["revision"].get<Revision>(), load.revision());
    load.check(expected);
    ASSERT_FALSE(testing::Test::HasFailure()) << "round " << round;
    if (round % 10 != 0) continue;
    served.kill();
    served.start();
    ASSERT_EQ(Api(served).documents(), expected) << "round " << round;
  }
  EXPECT_GT(load.answers(), sampled(100));
}

TEST(ServeKill, AStopUnderLoadLosesNothingAnswered) {
  Folder const folder;
  Served served({"--state", folder / "state"});
  {
    Api api(served);
    enableController(api);
  }
  Load load;
  std::mt19937 random(2);
  for (int round = 0; round < 10; ++round) {
    load.start(served.url());
    std::this_thread::sleep_for(std::chrono::microseconds(10'000 + random() % 80'000));
    EXPECT_EQ(served.stop(round % 2 == 0 ? SIGTERM : SIGINT), 0) << served.log();
    load.join();
    // The log has gone into the file.
    EXPECT_EQ(folder.files(), 1);
    served.start();
    Api api(served);
    load.check(api.documents());
    ASSERT_FALSE(testing::Test::HasFailure()) << "round " << round;
  }
  EXPECT_GT(load.answers(), 100u);
}

}  // namespace
}  // namespace Agent::ServeKillTest
