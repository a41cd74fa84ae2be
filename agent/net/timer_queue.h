// Tasks that wait for their time.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "agent/net/event_loop.h"

namespace Agent {

/// Any number of them over one timer. Used by one thread.
class TimerQueue {
 public:
  using Clock = EventLoop::Clock;

  void add(Clock::time_point time, std::function<void()> task);
  /// When the next task is due, if there is one.
  std::optional<Clock::time_point> next() const;
  /// Runs what is due at `now`, in the order of time and, at one time, of coming. A task may add others; what it adds
  /// at `now` or before runs too.
  void run(Clock::time_point now);

 private:
  struct Entry {
    Clock::time_point time;
    std::uint64_t order;
    std::function<void()> task;
  };
  static bool later(Entry const& left, Entry const& right);

  // A heap whose first entry is the next.
  std::vector<Entry> entries_;
  std::uint64_t added_ = 0;
};

}  // namespace Agent
