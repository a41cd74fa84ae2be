// A state on a simulated disk, and what it must hold after each end of the process or the machine.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "agent/store/sqlite_store.h"
#include "support/faulty_disk.h"
#include "support/store_model.h"

namespace Agent {

inline constexpr char kState[] = "/folder/state";
inline constexpr char kLog[] = "/folder/state-wal";
inline constexpr char kWitness[] = "/folder/state-witness";

inline std::unique_ptr<SqliteStore> openState(Test::FaultyDisk const& disk,
                                              std::optional<Revision> acceptedLoss = std::nullopt) {
  return std::make_unique<SqliteStore>(kState, StateFileOptions{.acceptedLoss = acceptedLoss, .vfs = disk.name()});
}

/// What a state must hold: all that was answered, and perhaps the one commit that was not.
struct Kept {
  StoreModel sure;
  std::vector<CommittedTurn> perhaps;

  StoreModel withAll() const {
    StoreModel all = sure;
    all.commit(perhaps);
    return all;
  }
  bool allows(StoreModel const& found) const { return found == sure || (!perhaps.empty() && found == withAll()); }
  /// It is known now.
  void settle(StoreModel found) {
    sure = std::move(found);
    perhaps.clear();
  }
};

/// Makes turns at random: several at a time, with several changes, deletions, heartbeats, and texts of up to 30 kB.
class TurnMaker {
 public:
  explicit TurnMaker(std::mt19937& random, unsigned documents = 60) : random_(random), documents_(documents) {}

  std::vector<CommittedTurn> next(Revision last) {
    std::vector<CommittedTurn> turns;
    for (std::size_t count = 1 + random_() % 3; turns.size() < count;) {
      CommittedTurn& turn = turns.emplace_back(CommittedTurn{++last, {}});
      for (std::size_t changes = random_() % 5; turn.changes.size() < changes;) turn.changes.push_back(change(last));
    }
    return turns;
  }

 private:
  DocumentChange change(Revision revision) {
    unsigned const number = random_() % documents_;
    if (number % 6 == 0) {
      DocumentChange heartbeat = put("heartbeat/" + std::to_string(number), "{}", revision);
      heartbeat.timeToLive.emplace(random_() % 100'000);
      return heartbeat;
    }
    std::string const path = "switch/" + std::to_string(number);
    if (random_() % 4 == 0) return remove(path, revision);
    // As many texts of a few bytes as of many thousands.
    std::size_t const size = std::min<std::size_t>(10U << random_() % 12, 15'000) + random_() % 15;
    std::string text = std::to_string(revision) + " ";
    while (text.size() < size) text.append(text, 0, size - text.size());
    return put(path, std::move(text), revision);
  }

  std::mt19937& random_;
  unsigned documents_;
};

/// One line that says whose file it is.
inline void expectOneLine(std::string const& error) {
  EXPECT_TRUE(error.starts_with(std::string(kState) + ": ")) << error;
  EXPECT_TRUE(std::none_of(error.begin(), error.end(), [](unsigned char one) { return one < ' '; })) << error;
}

}  // namespace Agent
