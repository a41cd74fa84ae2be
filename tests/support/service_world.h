// A service without sockets and files: its loop runs when a test says so, and its clock with it.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "agent/server/service.h"
#include "agent/store/memory_store.h"
#include "agent/tree/library_path.h"

namespace Agent {

/// An event loop whose time passes only when it is told to.
class FakeLoop final : public EventLoop {
 public:
  Clock::time_point now() const override { return now_; }
  Clock::duration stoodStill() override { return std::exchange(stoodStill_, {}); }
  /// Any thread may call it.
  void post(std::function<void()> task) override {
    std::scoped_lock const lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  /// Runs what is ready at the call, and what that makes ready, twice.
  void breathe() override {
    if (inBreath) inBreath();
    for (int again = 0; again < 3; ++again)
      for (std::size_t left = ready(); left > 0; --left)
        if (auto const task = next()) task();
  }
  void at(Clock::time_point time, std::function<void()> task) override { timers_.emplace(time, std::move(task)); }

  /// Is done first whenever the loop breathes.
  std::function<void()> inBreath;
  /// Runs all that is ready, timers too that are due.
  void run() {
    while (auto const task = next()) task();
  }
  /// Lets time pass, timer by timer.
  void pass(Clock::duration time) {
    auto const end = now_ + time;
    run();
    while (!timers_.empty() && timers_.begin()->first <= end) {
      now_ = std::max(now_, timers_.begin()->first);
      run();
    }
    now_ = end;
  }
  /// Time passes while nothing runs, as on a machine that stands still.
  void standStill(Clock::duration time) {
    now_ += time;
    stoodStill_ += time;
  }
  /// Time passes while something else runs.
  void isBusy(Clock::duration time) { now_ += time; }

 private:
  std::size_t ready() {
    std::scoped_lock const lock(mutex_);
    return tasks_.size();
  }
  std::function<void()> next() {
    for (; !timers_.empty() && timers_.begin()->first <= now_; timers_.erase(timers_.begin()))
      post(std::move(timers_.begin()->second));
    std::scoped_lock const lock(mutex_);
    if (tasks_.empty()) return nullptr;
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  Clock::time_point now_{};
  std::mutex mutex_;
  Clock::duration stoodStill_{};
  std::deque<std::function<void()>> tasks_;
  std::multimap<Clock::time_point, std::function<void()>> timers_;
};

/// ServiceWorld world; world.put("controller/config", R"({"enabled": true})"); EXPECT_EQ(world.read(…), …);
class ServiceWorld {
 public:
  explicit ServiceWorld(ServiceOptions const& options = {}) : options_(options) { start(); }

  /// Begins anew on what has been kept, as after any end.
  void restart() {
    service.reset();
    start();
  }
  void start() {
    store = std::make_unique<MemoryStore>(memory);
    service = std::make_unique<Service>(loop, library, *store, options_, log);
    loop.run();
  }

  TurnResult apply(std::string const& line, std::optional<Service::TimeToLive> ttl = std::nullopt) {
    Operation const operation = parseOperation(line);
    TurnResult result = service->apply({&operation, 1}, ttl);
    loop.run();
    return result;
  }
  TurnResult put(std::string const& path, std::string const& document,
                 std::optional<Service::TimeToLive> ttl = std::nullopt) {
    return apply(R"({"put": ")" + path + R"(", "value": )" + document + "}", ttl);
  }
  TurnResult remove(std::string const& path) { return apply(R"({"delete": ")" + path + "\"}"); }

  /// The document at a path on one line; "nothing" if there is none.
  std::string read(std::string const& path) const {
    auto const found = service->kept().documents.find(path);
    return found != service->kept().documents.end() ? *found->second.text : "nothing";
  }
  /// Every document, a line each.
  std::string text() const { return textOf(service->kept().documents); }
  static std::string textOf(Documents const& documents) {
    std::string all;
    for (auto const& [path, document] : documents) all += path + " " + *document.text + "\n";
    return all;
  }
  /// What the store holds, a line each.
  std::string stored() const {
    std::string all;
    MemoryStore(memory).load(
        [&](DocumentChange const& document) { all += document.path + " " + *document.text + "\n"; });
    return all;
  }

  std::shared_ptr<Memory> memory = std::make_shared<Memory>();
  FakeLoop loop;
  EventLog log;
  Nox::Library library{libraryPath(std::nullopt)};
  std::unique_ptr<MemoryStore> store;
  std::unique_ptr<Service> service;

 private:
  ServiceOptions options_;
};

/// A switch that enrols: the lines of a scenario.
inline std::vector<std::string> enrolment(std::string const& name, std::string const& systemId) {
  return {R"({"put": "registration/)" + name + R"(/config", "value": {"systemId": ")" + systemId +
              R"(", "enabled": true, "registrationGenId": 1, "serviceConfig": {"routing": {"enabled": true,
              "versionConfig": {"version": {"1": "one", "2": "two"}}}}}})",
          R"({"put": "registration/)" + name + R"(/status", "value": {}})",
          R"({"put": "heartbeat/)" + systemId + R"(", "value": {}})"};
}

}  // namespace Agent
