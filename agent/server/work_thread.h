// A thread for work that may have to wait, for a disk for instance.
#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "agent/net/event_loop.h"

namespace Agent {

/// Does one piece of work at a time on a thread of its own. All calls are made on the loop's thread; the loop, whose
/// `post()` can be called on any thread, outlives it.
class WorkThread {
 public:
  /// Receives what the work threw; null if it came to its end.
  using Done = std::function<void(std::exception_ptr const& thrown)>;

  explicit WorkThread(EventLoop& loop);
  /// Waits for the work that has begun, and tells nothing of it.
  ~WorkThread();
  WorkThread(WorkThread const&) = delete;
  WorkThread& operator=(WorkThread const&) = delete;

  /// From `start()` until `done` is called.
  bool isBusy() const noexcept { return done_ != nullptr; }
  /// Begins `work`, unless it is busy; `done` is called on the loop's thread later.
  void start(std::function<void()> work, Done done);
  /// Waits until the work has ended, and calls `done`, until that has started nothing more.
  void finish();

 private:
  void run();
  void tell();

  EventLoop& loop_;
  Done done_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::function<void()> work_;
  std::exception_ptr thrown_;
  bool hasEnded_ = false;
  bool isStopping_ = false;
  /// Tasks on the loop hold it weakly, and do nothing when the thread has gone.
  std::shared_ptr<WorkThread*> self_ = std::make_shared<WorkThread*>(this);
  std::thread thread_;
};

}  // namespace Agent
