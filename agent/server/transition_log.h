// What becomes of switches, as lines of the log.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "agent/conditions/switch_conditions.h"
#include "agent/net/event_loop.h"
#include "agent/server/event_log.h"

namespace Agent {

/// Writes a line for each switch that becomes ready, is no longer, or has a reason for it that it did not have; and for
/// each whose identity another takes. Where many do so within a second, the first have lines of their own, and the
/// others one together. Nothing is written before it is kept.
class TransitionLog {
 public:
  explicit TransitionLog(EventLog& log) : log_(log) {}

  void add(std::vector<Transition> transitions);
  /// The turns up to this revision are kept.
  void keptIs(Revision revision, EventLoop::Clock::time_point now);
  /// What is not kept has not happened.
  void undo() { waiting_.clear(); }
  /// Writes what has been summed up for a second; `isLast`: whatever is there.
  void tick(EventLoop::Clock::time_point now, bool isLast = false);

 private:
  struct Sum {
    /// In this second, with those that have a line of their own.
    std::size_t count = 0;
    std::string first;
  };
  struct Key {
    std::string_view event;
    std::string_view reason;
    auto operator<=>(Key const&) const = default;
  };

  void write(Transition const& transition);

  EventLog& log_;
  std::deque<Transition> waiting_;
  std::map<Key, Sum> sums_;
  EventLoop::Clock::time_point begun_;
};

}  // namespace Agent
