// Sleeps in short steps, and adds up how late it wakes.
#include "agent/net/stop_clock.h"

#include <utility>

namespace Agent {
namespace {

constexpr std::chrono::milliseconds kStep(100);
/// A thread that shares its processor may be as late as this without a stop.
constexpr std::chrono::milliseconds kOrdinary(100);

}  // namespace

StopClock::StopClock() : thread_([this] { run(); }) {}

StopClock::~StopClock() {
  {
    std::lock_guard const lock(mutex_);
    isEnding_ = true;
  }
  ended_.notify_one();
  thread_.join();
}

StopClock::Clock::duration StopClock::take() {
  std::lock_guard const lock(mutex_);
  // After a stop the caller may run before the thread does.
  note();
  return std::exchange(stopped_, Clock::duration::zero());
}

void StopClock::note() {
  auto const now = Clock::now();
  if (now - due_ <= kOrdinary) return;
  stopped_ += now - due_;
  due_ = now;
}

void StopClock::run() {
  std::unique_lock lock(mutex_);
  while (!isEnding_) {
    note();
    due_ = Clock::now() + kStep;
    ended_.wait_until(lock, due_);
  }
}

}  // namespace Agent
