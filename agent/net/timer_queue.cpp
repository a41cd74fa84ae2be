// Keeps tasks in a heap by their time.
#include "agent/net/timer_queue.h"

#include <algorithm>
#include <utility>

namespace Agent {

bool TimerQueue::later(Entry const& left, Entry const& right) {
  return left.time != right.time ? left.time > right.time : left.order > right.order;
}

void TimerQueue::add(Clock::time_point time, std::function<void()> task) {
  entries_.push_back({time, added_++, std::move(task)});
  std::push_heap(entries_.begin(), entries_.end(), later);
}

std::optional<TimerQueue::Clock::time_point> TimerQueue::next() const {
  if (entries_.empty()) return std::nullopt;
  return entries_.front().time;
}

void TimerQueue::run(Clock::time_point now) {
  while (!entries_.empty() && entries_.front().time <= now) {
    std::pop_heap(entries_.begin(), entries_.end(), later);
    auto const task = std::move(entries_.back().task);
    entries_.pop_back();
    task();
  }
}

}  // namespace Agent
