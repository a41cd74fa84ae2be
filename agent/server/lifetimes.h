// How long heartbeats have left to live.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// Deadlines, in time in which the agent was awake: what a switch could not say while the agent stood still is not held
/// against it.
class Lifetimes {
 public:
  using Time = std::chrono::milliseconds;

  /// `path` lives for `timeToLive` from now; for ever if absent.
  void renew(std::string const& path, std::optional<Time> timeToLive) {
    forget(path);
    if (!timeToLive) return;
    deadlines_.emplace(path, now_ + *timeToLive);
    order_.emplace(now_ + *timeToLive, path);
  }
  void forget(std::string const& path) {
    auto const known = deadlines_.find(path);
    if (known == deadlines_.end()) return;
    order_.erase({known->second, path});
    deadlines_.erase(known);
  }
  bool has(std::string const& path) const { return deadlines_.contains(path); }

  /// So much time has passed in which the agent was awake.
  void pass(Time time) { now_ += time; }

  /// Takes out and returns those whose time is up, the one that has been dead for longest first.
  std::vector<std::string> takeExpired() {
    std::vector<std::string> expired;
    while (!order_.empty() && order_.begin()->first <= now_) {
      expired.push_back(order_.begin()->second);
      forget(expired.back());
    }
    return expired;
  }

 private:
  Time now_{0};
  std::map<std::string, Time> deadlines_;
  std::set<std::pair<Time, std::string>> order_;
};

}  // namespace Agent
