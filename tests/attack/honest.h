// Clients that ask for what they need, at times that do not depend on the answers.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "bench/connections.h"
#include "tests/attack/attacks.h"
#include "tests/attack/responses.h"

namespace Attack {

/// What a kind of request is called, how often it is made, and by when it should be answered.
struct KindRow {
  char const* name;
  /// In a second; that of renewals follows from how long a heartbeat lives.
  double rate;
  /// Enough that an answer that is late delays no other; each switch has one for its renewals.
  std::size_t connections;
  /// In milliseconds, of 99.9 %.
  double bar;
};
inline constexpr std::array<KindRow, kKinds> kKindRows{{
    {"health", 100, 20, 20},
    {"renewals", 0, 0, 20},
    {"GET", 100, 100, 100},
    {"PUT", 50, 50, 100},
    {"new connections", 10, 0, 100},
}};

/// All of them, on one thread. Each time counts from when its request is due, sent or not.
class Honest {
 public:
  using Clock = ServeLoad::Connections::Clock;

  struct Answers {
    /// In milliseconds.
    std::vector<double> times;
    std::size_t refused = 0;
  };

  /// Of so many switches, which have enrolled with heartbeats that live for so many seconds.
  Honest(std::uint16_t port, std::size_t switches, std::size_t timeToLive, std::uint32_t seed);

  /// How many connections are held for so many switches.
  static std::size_t connections(std::size_t switches);

  /// Renews all heartbeats, and learns their revisions.
  void begin();
  /// Asks for so many seconds.
  void ask(double seconds);
  /// Waits for the answers that are missing. Throws a std::runtime_error if one does not come.
  void finish();

  Answers& answers(Kind kind) { return answers_[static_cast<std::size_t>(kind)]; }
  /// Heartbeats that died though they were renewed in time, and those that had time left.
  std::size_t lost() const { return lost_; }
  /// By how many seconds one that was not renewed outlived its time, at most; nothing if none had to die. A time in
  /// which the server was stopped is none of theirs.
  std::optional<double> latestDeath(double stopped) const;
  /// By how much the clients themselves were late, at most, in milliseconds.
  double ownDelay() const { return ownDelay_; }

 private:
  /// What a connection waits for.
  struct Expected {
    std::optional<Kind> kind;
    Clock::time_point due;
    std::size_t subject;
  };
  struct Heartbeat {
    Clock::time_point sent{};
    std::size_t revision = 0;
  };
  /// A heartbeat that is put once.
  struct Mortal {
    Clock::time_point sent;
    Clock::time_point asked{};
    std::optional<Clock::time_point> answered{};
    std::optional<Clock::time_point> gone{};
  };

  std::size_t connect();
  std::size_t opened(std::size_t& connection);
  void sendOn(std::size_t connection, Expected const& expected, std::string const& bytes);
  void take(std::size_t connection, std::string& bytes);
  void takeAnswer(Expected const& expected, Response const& response);
  void takeRenewal(std::size_t index, Response const& response);
  void takeMortal(std::size_t index, Response const& response);
  void sendDue(Kind kind, Clock::time_point due);
  void renew(std::size_t index, Clock::time_point due);
  void askMortals(Clock::time_point now);
  void sweepNewcomers();
  std::size_t waiting() const;

  ServeLoad::Connections connections_;
  std::size_t switches_;
  std::size_t timeToLive_;
  std::mt19937 random_;
  std::array<std::vector<std::size_t>, kKinds> of_;
  std::array<std::size_t, kKinds> sent_{};
  std::size_t mortalsConnection_ = 0;
  /// By connection.
  std::deque<std::deque<Expected>> expected_;
  std::vector<std::size_t> newcomersDone_;
  std::array<Answers, kKinds> answers_;
  std::vector<Heartbeat> heartbeats_;
  std::vector<Mortal> mortals_;
  Clock::time_point end_;
  std::size_t lost_ = 0;
  double ownDelay_ = 0;
};

}  // namespace Attack
