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

void RequestQueue::add(Urgency urgency, bool mayInterrupt, std::function<void()> task) {
  lines_[static_cast<std::size_t>(urgency)][mayInterrupt ? 0 : 1].push_back({std::move(task), added_++});
  runLater();
}

std::function<void()> RequestQueue::runs(bool RequestQueue::*isDue) {
  return [self = std::weak_ptr(self_), isDue] {
    auto const queue = self.lock();
    if (!queue) return;
    (**queue).*isDue = false;
    (**queue).run();
  };
}

void RequestQueue::runLater() {
  if (!std::exchange(isPosted_, true)) loop_.post(runs(&RequestQueue::isPosted_));
}

// A task may breathe, so that this is called within it.
void RequestQueue::run() {
  auto const end = loop_.now() + kTurn;
  for (Line* line = next(); line != nullptr; line = loop_.now() < end ? next() : nullptr) {
    auto const task = std::move(line->front().task);
    line->pop_front();
    if (!isEmpty()) runLater();
    task();
  }
  if (isEmpty()) return;
  if (!isInTask_()) {
    runLater();
  } else if (!std::exchange(isTimed_, true)) {
    // What may not interrupt waits for the end of the task.
    loop_.at(loop_.now() + kTurn, runs(&RequestQueue::isTimed_));
  }
}

bool RequestQueue::isEmpty() const {
  return std::all_of(lines_.begin(), lines_.end(), [](auto const& two) { return two[0].empty() && two[1].empty(); });
}

/// The line whose first task is next; null if none may run.
RequestQueue::Line* RequestQueue::next() {
  std::size_t const kinds = isInTask_() ? 1 : 2;
  bool const isOldestWanted = kinds == 2 && ran_ % kOldest == kOldest - 1;
  Line* found = nullptr;
  for (auto& two : lines_) {
    for (std::size_t kind = 0; kind < kinds; ++kind)
      if (!two[kind].empty() && (found == nullptr || two[kind].front().number < found->front().number))
        found = &two[kind];
    if (found != nullptr && !isOldestWanted) break;
  }
  if (found != nullptr && kinds == 2) ++ran_;
  return found;
}

}  // namespace Agent
