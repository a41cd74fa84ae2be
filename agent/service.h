// The registry as a service: turns that are kept before they are answered, heartbeats that expire, watches.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/event_log.h"
#include "agent/event_loop.h"
#include "agent/lifetimes.h"
#include "agent/live_tree.h"
#include "agent/store.h"
#include "agent/watch.h"

namespace Agent {

struct ServiceOptions {
  /// How long a heartbeat lives whose put does not say; absent for ever.
  std::optional<std::chrono::milliseconds> heartbeatTtl = std::chrono::seconds(30);
  HistoryLimits history;
};

/// The state tree on a store. Every turn runs when it is asked for, and is kept together with those that are waiting
/// then; nobody is told of it, neither who wrote it nor who reads, before it is. All on the loop's thread; the library,
/// the loop and the store outlive it.
class Service {
 public:
  /// Loads what is stored. Throws what the tree throws then.
  Service(EventLoop& loop, Nox::Library const& library, Store& store, ServiceOptions const& options, EventLog& log);
  ~Service();
  Service(Service const&) = delete;
  Service& operator=(Service const&) = delete;

  Documents const& documents() const noexcept { return tree_->documents(); }
  Revision revision() const noexcept { return tree_->revision(); }
  std::size_t switches() const;

  /// Applies the operations in one turn; heartbeats get this time to live, or the default. Throws an InputError, with
  /// its path, for what the tree does not take, and a StoreError while the store takes no writes; then nothing has
  /// happened; `refused`, if given, receives which operation it was. A heartbeat that says what it said before needs no
  /// store.
  struct TimeToLive {
    std::optional<std::chrono::milliseconds> value;
  };
  TurnResult apply(std::span<Operation const> operations, std::optional<TimeToLive> timeToLive = std::nullopt,
                   std::size_t* refused = nullptr);

  /// Calls `done` when all that is visible now is kept: at once if it is already. If it could not be kept, `problem` is
  /// why; then the tree is that of the store again.
  void whenKept(std::function<void(StoreError const* problem)> done);

  /// Why the store takes no writes; nothing if it does.
  std::optional<std::string> const& storeProblem() const noexcept { return problem_; }

  WatchHub& watches() noexcept { return *watches_; }

  /// Keeps what waits, and ends the watches.
  void stop();

 private:
  void load();
  void renewAll();
  void keepTurn(CommittedTurn const& turn);
  void commit();
  void fail(StoreError const& problem);
  void takeForeignTurns();
  void tell(CommittedTurn turn);
  void tick();
  void expire();
  void tryStore(EventLoop::Clock::time_point now);
  bool isRefresh(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive) const;

  EventLoop& loop_;
  Nox::Library const& library_;
  Store& store_;
  ServiceOptions options_;
  EventLog& log_;
  std::unique_ptr<LiveTree> tree_;
  std::shared_ptr<WatchHub> watches_;
  Lifetimes lifetimes_;
  EventLoop::Clock::time_point lastTick_;
  EventLoop::Clock::time_point nextSign_;
  EventLoop::Clock::time_point nextTry_;
  /// Turns that are not yet kept, and who waits for them.
  std::vector<CommittedTurn> turns_;
  std::vector<std::function<void(StoreError const*)>> waiting_;
  std::optional<std::string> problem_;
  bool isFull_ = false;
  /// Tasks on the loop hold it weakly, and do nothing when the service has gone.
  std::shared_ptr<Service*> self_ = std::make_shared<Service*>(this);
};

}  // namespace Agent
