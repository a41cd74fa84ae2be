// Switches that are played: what they write, and which of them are there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Agent {

/// Which fleet; the same settings play the same.
struct FleetSettings {
  std::size_t switches = 8;
  /// What the names start with; a number from 1 follows.
  std::string prefix = "leaf-";
  std::uint64_t seed = 1;
  /// A round, in which each switch gives one sign of life, is made of so many steps.
  std::size_t steps = 10;
};

/// Writes scenario lines for a fleet of switches, step by step.
class Fleet {
 public:
  explicit Fleet(FleetSettings const& settings);

  std::size_t size() const { return switches_.size(); }
  /// Counted from 0.
  std::string const& name(std::size_t index) const { return switches_[index].name; }
  std::string const& systemId(std::size_t index) const { return switches_[index].systemId; }
  bool isThere(std::size_t index) const { return switches_[index].absentFor == 0; }

  /// All that the switches that are there have written, one text of whole lines for each.
  std::vector<std::string> everything();

  /// What happens in the next step: one text of whole lines for each switch whose turn it is. Those that are there
  /// give a sign of life, or write everything if that is to be done anew; if `isMoving`, one may leave now and then,
  /// and comes back after a few rounds with its next generation.
  std::vector<std::string> step(bool isMoving);

  /// What was written may be lost: every switch writes everything anew when it is its turn.
  void startAnew();

  /// Deletes all that the switches wrote.
  std::vector<std::string> farewell() const;

 private:
  struct Switch {
    std::string name;
    std::string systemId;
    std::uint32_t generation = 1;
    /// Whether everything is to be written at its next turn.
    bool isNew = true;
    /// Rounds until it comes back; 0 if it is there.
    std::size_t absentFor = 0;
  };

  std::string enrolment(std::size_t index) const;
  std::string signOfLife(Switch const& of) const;
  std::string departure(Switch const& of) const;

  FleetSettings settings_;
  std::vector<Switch> switches_;
  std::mt19937_64 random_;
  std::size_t step_ = 0;
};

}  // namespace Agent
