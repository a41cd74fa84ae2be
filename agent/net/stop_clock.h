// Tells for how long the process was stopped.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Agent {

/// A thread that does nothing but wake up on time. Where it is late, the whole process was stopped, or had no
/// processor: a thread that is busy makes no other one late. Time in which the machine is suspended does not pass at
/// all.
class StopClock {
 public:
  using Clock = std::chrono::steady_clock;

  StopClock();
  ~StopClock();
  StopClock(StopClock const&) = delete;
  StopClock& operator=(StopClock const&) = delete;

  /// For how long the process was stopped since the last call. Any thread may call it.
  Clock::duration take();

 private:
  void note();
  void run();

  std::mutex mutex_;
  std::condition_variable ended_;
  bool isEnding_ = false;
  /// When the thread is to wake up.
  Clock::time_point due_ = Clock::now();
  Clock::duration stopped_{0};
  std::thread thread_;
};

}  // namespace Agent
