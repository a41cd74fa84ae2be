// Requests that are to be answered, the most urgent first.
#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>

#include "agent/net/event_loop.h"

namespace Agent {

/// How long a request may wait, the most urgent first: whether the agent is well, heartbeats, what switches say of
/// themselves, what operators ask and want, and what is much at a time.
enum class Urgency { kHealth, kHeartbeat, kSwitch, kOperator, kBulk };

/// Runs tasks on the loop, one after the other, and lets what has come in meanwhile be read every millisecond. Of those
/// that wait, the most urgent runs first, and of equally urgent ones that which came first; but every 16th is the one
/// that has waited longest, so that none waits for ever. All on the loop's thread; the loop outlives it.
class RequestQueue {
 public:
  /// As long as `isInTask` says that the loop breathes within a task that takes long, only tasks run that may interrupt
  /// one.
  RequestQueue(EventLoop& loop, std::function<bool()> isInTask) : loop_(loop), isInTask_(std::move(isInTask)) {}

  /// Runs `task` later, unless the queue has gone by then. It may add others, and may not end the queue.
  void add(Urgency urgency, bool mayInterrupt, std::function<void()> task);

 private:
  struct Waiting {
    std::function<void()> task;
    /// Counts all tasks.
    std::size_t number;
  };
  using Line = std::deque<Waiting>;

  static constexpr std::size_t kUrgencies = static_cast<std::size_t>(Urgency::kBulk) + 1;

  /// What runs the queue, which is not due that way any longer: of each way there is one at most.
  std::function<void()> runs(bool RequestQueue::*isDue);
  void runLater();
  void run();
  Line* next();
  bool isEmpty() const;

  EventLoop& loop_;
  std::function<bool()> isInTask_;
  /// Those that may interrupt, and those that may not.
  std::array<std::array<Line, 2>, kUrgencies> lines_;
  std::size_t added_ = 0;
  std::size_t ran_ = 0;
  bool isPosted_ = false;
  bool isTimed_ = false;
  /// Tasks on the loop hold it weakly.
  std::shared_ptr<RequestQueue*> self_ = std::make_shared<RequestQueue*>(this);
};

}  // namespace Agent
