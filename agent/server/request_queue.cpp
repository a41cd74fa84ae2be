// Chooses among the requests that wait.
#include "agent/server/request_queue.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace Agent {
namespace {

/// So long others are not read.
constexpr std::chrono::milliseconds kTurn(1);
/// One of so many is the oldest.
constexpr std::size_t kOldest = 16;

}  // namespace

void RequestQueue::add(Urgency urgency, std::function<void()> task) {
  lines_[static_cast<std::size_t>(urgency)].push_back({std::move(task), added_++});
  if (waiting_++ == 0) runLater();
}

void RequestQueue::runLater() {
  loop_.post([self = std::weak_ptr(self_)] {
    if (auto const queue = self.lock()) (**queue).run();
  });
}

// A task may add others.
void RequestQueue::run() {
  auto const end = loop_.now() + kTurn;
  do {
    Line& line = next();
    auto const task = std::move(line.front().task);
    line.pop_front();
    // The last one is still counted, so that what it adds does not begin another turn.
    task();
  } while (--waiting_ > 0 && loop_.now() < end);
  if (waiting_ > 0) runLater();
}

RequestQueue::Line& RequestQueue::next() {
  auto const waits = [](Line const& line) { return !line.empty(); };
  if (++ran_ % kOldest != 0) return *std::find_if(lines_.begin(), lines_.end(), waits);
  return *std::min_element(lines_.begin(), lines_.end(), [](Line const& one, Line const& other) {
    return !one.empty() && (other.empty() || one.front().number < other.front().number);
  });
}

}  // namespace Agent
