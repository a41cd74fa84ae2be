// The one thread on which everything happens: what is to be done next, and what later.
#pragma once

#include <chrono>
#include <functional>

namespace Agent {

/// What runs on the event thread runs to its end before the next begins, unless it breathes. All calls but `post()` are
/// made on that thread.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;

  EventLoop() = default;
  EventLoop(EventLoop const&) = delete;
  EventLoop& operator=(EventLoop const&) = delete;
  virtual ~EventLoop() = default;

  virtual Clock::time_point now() const = 0;
  /// For how long the process was stopped since the last call.
  virtual Clock::duration stoodStill() = 0;
  /// Runs `task` behind all that is ready to run now. Where a loop says so, any thread may call it.
  virtual void post(std::function<void()> task) = 0;
  /// Called within a task that takes long, as often as that wants. Now and then it runs what is ready, within the call.
  virtual void breathe() = 0;
  /// Runs `task` at that time or soon after; at once if it has passed.
  virtual void at(Clock::time_point time, std::function<void()> task) = 0;
};

}  // namespace Agent
