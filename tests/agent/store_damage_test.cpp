// The state file with damage to any of its parts, and with files beside it that do not belong to it.
#include <gmock/gmock.h>

#include <map>
#include <random>
#include <regex>
#include <set>

#include "support/damage.h"
#include "support/rounds.h"
#include "support/store_disk.h"

namespace Agent::StoreDamageTest {
namespace {

using Test::FaultyDisk;
using Test::firstSeed;
using Test::Parts;
using Test::Range;
using Test::repeats;
using Test::rounds;
using testing::HasSubstr;

/// What a record of the witness ends in, before the digits.
constexpr std::string_view kChecksum = "checksum ";

/// All files with their bytes. One without content is as good as none.
std::map<std::string, std::string> allBytes(FaultyDisk const& disk) {
  std::map<std::string, std::string> files;
  for (std::string const& name : disk.names())
    if (!disk.bytes(name).empty()) files[name] = disk.bytes(name);
  return files;
}

/// What opening the state ended with.
struct Outcome {
  /// Empty if it opened.
  std::string error;
  bool isLoss = false;
};

class StoreDamage : public testing::Test {
 protected:
  /// A state of some hundred documents, which is closed, then in use and killed; `model_` is what was answered.
  void SetUp() override {
    make(disk_, 1, 160);
    closed_ = disk_.snapshot();
    closedModel_ = model_;
    auto store = openState(disk_);
    store->prepare();
    for (int n = 0; n < 40; ++n) {
      if (n == 20) earlier_ = disk_.snapshot();
      Revision const revision = model_.revision + 1;
      CommittedTurn turn = turnOf(revision, {path(n * 3)}, std::string(n % 10 == 0 ? 5000 : 100, 'n'));
      turn.changes.push_back(remove(path(n * 3 + 1), revision));
      commit(*store, {turn});
    }
    disk_.kill();
    store.reset();
    disk_.restart();
    killed_ = disk_.snapshot();
  }

  static std::string path(int number) { return "switch/" + std::to_string(1000 + number) + "/registration"; }

  void commit(Store& store, std::vector<CommittedTurn> const& turns) {
    store.commit(turns);
    model_.commit(turns);
  }

  /// A state on an empty disk, with pages of all kinds.
  void make(FaultyDisk& disk, Revision first, int documents) {
    auto const store = openState(disk);
    store->prepare();
    CommittedTurn turn{first, {}};
    for (int n = 0; n < documents; ++n) {
      std::string const text = "{\"number\": " + std::to_string(n) + ", \"text\": \"" +
                               std::string(n % 10 == 0 ? 5'000 : n * 7 % 300, static_cast<char>('a' + n % 26)) + "\"}";
      turn.changes.push_back(put(path(n), text, first));
    }
    commit(*store, {turn});
    CommittedTurn removal{first + 1, {}};
    for (int n = 0; n < documents; n += 20) removal.changes.push_back(remove(path(n), first + 1));
    commit(*store, {removal});
  }

  Outcome open(std::optional<Revision> acceptedLoss = std::nullopt) {
    try {
      auto const store = openState(disk_, acceptedLoss);
    } catch (StateLoss const& loss) {
      return {loss.what(), true};
    } catch (StoreError const& error) {
      return {error.what()};
    }
    return {};
  }

  /// The state as it lies there is refused in one line and stays as it is, or holds `answered`.
  Outcome check(StoreModel const& answered, bool isThorough = true) {
    auto const before = allBytes(disk_);
    Outcome outcome;
    try {
      auto const store = openState(disk_);
      EXPECT_EQ(contents(*store), answered);
      if (!isThorough) return {};
      store->prepare();
      EXPECT_EQ(contents(*store), answered);
    } catch (StateLoss const& loss) {
      outcome = {loss.what(), true};
    } catch (StoreError const& error) {
      outcome = {error.what()};
    }
    if (outcome.error.empty()) {
      EXPECT_EQ(contents(*openState(disk_)), answered) << "at the next start";
      return outcome;
    }
    expectOneLine(outcome.error);
    EXPECT_TRUE(allBytes(disk_) == before) << "it was changed: " << outcome.error;
    if (!isThorough) return outcome;
    try {
      checkState(kState, disk_.name());
      ADD_FAILURE() << "the check found nothing of: " << outcome.error;
    } catch (StoreError const& error) {
      EXPECT_EQ(error.what(), outcome.error);
    }
    EXPECT_TRUE(allBytes(disk_) == before) << "the check has changed it";
    if (outcome.isLoss) goOn(outcome.error);
    return outcome;
  }

  /// Goes on with what a refused state holds, which the refusal tells.
  void goOn(std::string const& refusal) {
    std::smatch said;
    static std::regex const form(
        "what it holds is revision (\\d+) with (\\d+) documents?: enrolix serve --accept-loss (\\d+) ");
    ASSERT_TRUE(std::regex_search(refusal, said, form)) << refusal;
    ASSERT_EQ(said[1], said[3]);
    Revision const revision = std::stoull(said[1]);
    for (Revision const other : {revision + 1, revision - 1}) EXPECT_EQ(open(other).error, refusal);
    StoreModel held;
    HistoryId history;
    {
      auto const store = openState(disk_, revision);
      EXPECT_TRUE(store->isLossAccepted());
      history = store->history();
      EXPECT_TRUE(histories_.insert(history).second) << "another history begins";
      held = contents(*store);
      EXPECT_EQ(held.revision, revision);
      EXPECT_EQ(std::to_string(held.documents.size()), said[2]);
      store->prepare();
      CommittedTurn const turn = turnOf(revision + 1, {"more"}, "more");
      commitOne(*store, turn);
      held.commit(std::span(&turn, 1));
      // Half of them end in the middle.
      if (revision % 2 == 0) disk_.kill();
    }
    disk_.restart();
    auto const store = openState(disk_);
    EXPECT_FALSE(store->isLossAccepted());
    EXPECT_EQ(store->history(), history);
    EXPECT_EQ(contents(*store), held);
  }

  /// The files of one state among those of another.
  void take(FaultyDisk::Snapshot const& from, std::vector<std::string> const& names) {
    FaultyDisk other;
    other.restoreTo(from);
    for (std::string const& name : names) disk_.setBytes(name, other.bytes(name));
  }

  FaultyDisk disk_;
  StoreModel model_;
  FaultyDisk::Snapshot closed_, earlier_, killed_;
  StoreModel closedModel_;
  std::set<HistoryId> histories_;
};

TEST_F(StoreDamage, IsRefusedOrHarmless) {
  std::map<std::string, std::pair<int, int>> tally;
  for (bool const isKilled : {false, true}) {
    disk_.restoreTo(isKilled ? killed_ : closed_);
    Parts parts;
    addPages(parts, kState, disk_.bytes(kState));
    if (isKilled) {
      addFrames(parts, kLog, disk_.bytes(kLog));
      parts["witness"] = {{kWitness, 0, disk_.bytes(kWitness).size()}};
      parts["records of the witness"] = {{kWitness, 0, 300}, {kWitness, 4096, 4396}, {kWitness, 8192, 8492}};
    }
    std::vector<std::string> kinds;
    for (auto const& [kind, ranges] : parts) kinds.push_back(kind);
    EXPECT_EQ(kinds.size(), isKilled ? 16U : 7U) << testing::PrintToString(kinds);
    std::uint32_t const first = firstSeed();
    for (std::uint32_t seed = first; seed < first + rounds(500) && !HasFailure(); ++seed) {
      SCOPED_TRACE(repeats(seed));
      std::mt19937 random(seed);
      std::string const& kind = kinds[seed % kinds.size()];
      Range const range = parts[kind][random() % parts[kind].size()];
      disk_.restoreTo(isKilled ? killed_ : closed_);
      std::string bytes = disk_.bytes(range.file);
      std::size_t const firstRecord = bytes.find(kChecksum) + kChecksum.size() + 32;
      SCOPED_TRACE(kind + ": " + damage(bytes, range, random));
      // An empty file is a new state, if nothing beside it tells otherwise.
      if (!isKilled && bytes.empty()) continue;
      disk_.setBytes(range.file, bytes);
      auto& [hits, refusals] = tally[kind];
      ++hits;
      std::string const error = check(isKilled ? model_ : closedModel_, random() % 6 == 0).error;
      // A witness that is cut off in its first record has none left.
      if (range.file == kWitness && bytes.size() < firstRecord)
        EXPECT_THAT(error, HasSubstr("its witness /folder/state-witness is missing or damaged"));
      else if (!error.empty())
        ++refusals;
    }
  }
  for (auto const& [kind, counts] : tally) {
    RecordProperty(kind, std::to_string(counts.second) + " of " + std::to_string(counts.first) + " refused");
    EXPECT_GE(counts.first, static_cast<int>(rounds(20))) << kind;
    if (kind.find("commit") != std::string::npos || kind == "log header")
      EXPECT_EQ(counts.second, counts.first) << kind;
    else if (kind.find("witness") != std::string::npos)
      EXPECT_EQ(counts.second, 0) << kind;
    else
      EXPECT_GT(counts.second, 0) << kind;
  }
}

// The text of a table is told as it stands in the file.
TEST_F(StoreDamage, IsToldInOneLineWhateverItIs) {
  for (char const other : {'\n', '\x1b', '\xff'}) {
    disk_.restoreTo(closed_);
    std::string bytes = disk_.bytes(kState);
    bytes[bytes.find("PRIMARY KEY CHECK (id = 1), history") + 3] = other;
    disk_.setBytes(kState, bytes);
    EXPECT_THAT(check(closedModel_).error, HasSubstr("is damaged: "));
  }
}

/// Files that do not belong together, and what is said of them; nothing if they are harmless.
struct Mixture {
  char const* name;
  std::function<void()> make;
  std::string said;
};

TEST_F(StoreDamage, IsSeenInFilesThatDoNotBelongTogether) {
  StoreModel const answered = model_;
  FaultyDisk other;
  make(other, 500, 120);
  FaultyDisk::Snapshot const otherClosed = other.snapshot();
  auto store = openState(other);
  store->prepare();
  commit(*store, {turnOf(900, {"a"}, "b")});
  other.kill();
  store.reset();
  other.restart();
  FaultyDisk::Snapshot const otherKilled = other.snapshot();

  for (Mixture const& mixture : std::vector<Mixture>{
           {"all as it was", [] {}, ""},
           {"without its log", [&] { disk_.remove(kLog); }, "its log /folder/state-wal is missing: 40 commits"},
           {"with an empty log", [&] { disk_.setBytes(kLog, ""); }, "its log /folder/state-wal is missing: 40 commits"},
           {"without its witness", [&] { disk_.remove(kWitness); }, "its witness /folder/state-witness is missing"},
           {"alone",
            [&] {
              disk_.remove(kLog);
              disk_.remove(kWitness);
            },
            "its log /folder/state-wal and its witness /folder/state-witness are missing or damaged"},
           {"without its log and with a damaged witness",
            [&] {
              disk_.remove(kLog);
              disk_.setBytes(kWitness, "what");
            },
            "its log /folder/state-wal and its witness /folder/state-witness are missing or damaged"},
           {"empty beside its log and witness",
            [&] { disk_.setBytes(kState, ""); },
            "it is empty, and its witness /folder/state-witness tells of revision 42 with "},
           {"missing beside its log",
            [&] {
              disk_.remove(kState);
              disk_.remove(kWitness);
            },
            "it is empty, and its log /folder/state-wal is not"},
           {"with an earlier log", [&] { take(earlier_, {kLog}); }, "is cut short or damaged: 20 commits"},
           {"with an earlier witness", [&] { take(earlier_, {kWitness}); }, ""},
           {"an earlier copy beside a later witness",
            [&] {
              take(closed_, {kState});
              disk_.remove(kLog);
            },
            "its log /folder/state-wal is missing: 40 commits"},
           {"an earlier copy beside a later log and witness", [&] { take(closed_, {kState}); }, ""},
           {"with the witness of another state", [&] { take(otherKilled, {kWitness}); }, "belongs to another state"},
           {"with the log of another state", [&] { take(otherKilled, {kLog}); }, " "},
           {"another state, closed, beside its log and witness", [&] { take(otherClosed, {kState}); }, " "},
           {"another state, in use, beside its log and witness", [&] { take(otherKilled, {kState}); }, " "},
           {"another state, in use, with its log beside the witness",
            [&] {
              take(otherKilled, {kState, kLog});
            },
            "belongs to another state"},
       }) {
    SCOPED_TRACE(mixture.name);
    disk_.restoreTo(killed_);
    mixture.make();
    Outcome const outcome = check(answered);
    EXPECT_EQ(outcome.error.empty(), mixture.said.empty()) << outcome.error;
    EXPECT_THAT(outcome.error, HasSubstr(mixture.said));
    RecordProperty(mixture.name, outcome.error.substr(0, 100));
  }
}

}  // namespace
}  // namespace Agent::StoreDamageTest
