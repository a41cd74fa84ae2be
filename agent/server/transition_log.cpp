// Chooses the transitions that are worth a line, and sums up where they are many.
#include "agent/server/transition_log.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace Agent {
namespace {

constexpr std::chrono::seconds kPeriod(1);
/// So many of a kind have a line of their own in a period; of the others so many are named.
constexpr std::size_t kSingle = 5;
constexpr std::size_t kNamed = 5;

/// The name of a transition in the log; empty if it has none.
std::string_view eventOf(Judgement const& judgement) {
  bool const isTrue = judgement.reason->truth == Truth::kTrue;
  if (judgement.condition == Condition("Ready")) return isTrue ? "switch_ready" : "switch_not_ready";
  if (judgement.condition == Condition("IdentityUnique") && judgement.reason->truth == Truth::kFalse)
    return "identity_conflict";
  return {};
}

}  // namespace

void TransitionLog::add(std::vector<Transition> transitions) {
  for (Transition& transition : transitions)
    if (!eventOf(transition.judgement).empty()) waiting_.push_back(std::move(transition));
}

void TransitionLog::keptIs(Revision revision, EventLoop::Clock::time_point now) {
  auto const end = std::find_if(
      waiting_.begin(), waiting_.end(), [&](Transition const& one) { return one.since.revision > revision; });
  if (end == waiting_.begin()) return;
  if (sums_.empty()) begun_ = now;
  std::for_each(waiting_.begin(), end, [this](Transition const& one) { write(one); });
  waiting_.erase(waiting_.begin(), end);
}

void TransitionLog::write(Transition const& transition) {
  Key const key{eventOf(transition.judgement), transition.judgement.reason->code};
  Sum& sum = sums_[key];
  if (++sum.count > kSingle) {
    if (sum.count <= kSingle + kNamed) sum.first.append(sum.first.empty() ? "" : ", ").append(transition.name);
    return;
  }
  Json const id = transition.systemId ? Json(transition.systemId->stringValue().view()) : Json();
  log_.info(key.event, {{"switch", transition.name}, {"systemId", id}, {"reason", key.reason}});
}

void TransitionLog::tick(EventLoop::Clock::time_point now, bool isLast) {
  if (sums_.empty() || (!isLast && now - begun_ < kPeriod)) return;
  for (auto const& [key, sum] : std::exchange(sums_, {}))
    if (sum.count > kSingle)
      log_.info(key.event, {{"count", sum.count - kSingle}, {"reason", key.reason}, {"first", sum.first}});
}

}  // namespace Agent
