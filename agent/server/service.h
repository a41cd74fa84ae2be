// The registry as a service: turns that are kept before they are answered, heartbeats that expire, watches.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "agent/conditions/switch_conditions.h"
#include "agent/document/breath.h"
#include "agent/net/event_loop.h"
#include "agent/server/backup.h"
#include "agent/server/event_log.h"
#include "agent/server/lifetimes.h"
#include "agent/server/prepared_turn.h"
#include "agent/server/server_watches.h"
#include "agent/server/transition_log.h"
#include "agent/server/work_thread.h"
#include "agent/store/store.h"
#include "agent/tree/live_tree.h"

namespace Agent {

/// No time that is given in seconds is longer: ten years, more than any agent runs, and far from what a clock counts.
inline constexpr std::int64_t kLongestSeconds = std::int64_t{10} * 366 * 24 * 3600;

struct ServiceOptions {
  /// How long a heartbeat lives whose put does not say; absent for ever.
  std::optional<std::chrono::milliseconds> heartbeatTtl = std::chrono::seconds(30);
  HistoryLimits history = {};
  StoredLimits stored = {};
  /// The store is used on a thread of its own, behind the constructor; then the loop's `post()` may be called on any
  /// thread. Without it every commit is waited for.
  bool hasStoreThread = false;
};

/// The state tree on a store. Every turn runs when it is asked for, and is kept together with those that are waiting
/// then; neither its writer nor any reader is told of it before it is. All on the loop's thread; the library,
/// the loop and the store outlive it.
class Service {
 public:
  /// Loads what is stored. Throws what the tree throws then, and a StoreError if it cannot be read. A service whose
  /// store takes no turns from the start, because the disk is full for instance, shows what is stored.
  Service(EventLoop& loop, Nox::Library const& library, Store& store, ServiceOptions const& options, EventLog& log);
  ~Service();
  Service(Service const&) = delete;
  Service& operator=(Service const&) = delete;

  /// What every reader sees: all of it is kept.
  TreeDocuments const& kept() const noexcept { return kept_; }
  /// What a writer writes to: ahead of what is kept by the turns that are not yet.
  TreeDocuments const& latest() const noexcept { return latest_; }
  /// Switches that are kept.
  std::size_t switches() const noexcept { return switches_; }

  /// Applies the operations in one turn; heartbeats get this time to live, or the default. Throws an InputError, with
  /// its path, for what the tree does not take, and a StoreError while the store takes no writes; then nothing has
  /// happened; `refused`, if given, receives which operation it was. A heartbeat that says what it said before needs no
  /// store.
  struct TimeToLive {
    std::optional<std::chrono::milliseconds> value;
  };
  TurnResult apply(std::span<Operation const> operations, std::optional<TimeToLive> timeToLive = std::nullopt,
                   std::size_t* refused = nullptr);

  /// Calls `done` when `latest()` is kept as it is now: at once if it is already. If it could not be kept, or it is
  /// not known whether it is, `problem` is why; then the documents are those that were kept before.
  void whenKept(std::function<void(StoreError const* problem)> done);

  /// As long as it lives, a task that takes long is interrupted often, and others run in the middle of it. All that
  /// reads, checks and applies operations does so within one.
  class LongTask {
   public:
    explicit LongTask(Service& service) : service_(service), breath_([&service] { service.breathe(); }) {}
    ~LongTask();

   private:
    Service& service_;
    Breath breath_;
  };
  /// A long task is interrupted by what calls this. Everything may be read; no operations may be applied but a refresh.
  bool isApplying() const noexcept { return isApplying_; }
  /// Whether the operations say of heartbeats what is known, so that nothing changes.
  bool isRefresh(std::span<Operation const> operations, std::optional<TimeToLive> timeToLive) const {
    return isRefresh(operations, timeToLive ? timeToLive->value : options_.heartbeatTtl);
  }

  /// Why the store takes no writes; nothing if it does.
  std::optional<std::string> const& storeProblem() const noexcept { return problem_; }

  ServerWatches& watches() noexcept { return *watches_; }

  /// The conditions of the switches that are kept.
  SwitchConditions const& conditions() const noexcept { return conditions_; }
  /// A switch as it is kept, and an explanation for each of its conditions.
  struct ExplainedSwitch {
    JudgedSwitch judged;
    std::vector<Explanation> explanations;
  };
  /// Nothing if there is no such switch. Not in the middle of a turn.
  std::optional<ExplainedSwitch> explain(std::string const& name) const;

  /// Does what was due in the middle of a task that took long. Called before another begins.
  void catchUp() {
    if (!isApplying_ && std::exchange(isDue_, false)) goOn();
  }

  /// All documents that are kept now, as the body of a response.
  std::unique_ptr<BodySource> backup();
  /// Backups that are being read.
  std::size_t backups() const noexcept { return backups_->copies(); }

  /// Keeps what waits, and ends the watches.
  void stop();

 private:
  /// Turns that go to the store together, and what waits for them.
  struct Group {
    std::vector<CommittedTurn> turns;
    std::vector<std::function<void(StoreError const*)>> waiting;
  };

  /// A task that does nothing once the service has gone.
  std::function<void()> later(void (Service::*work)()) const;
  bool isStoreBusy() const { return isApplying_ || isTelling_ || deferred_ || (thread_ && thread_->isBusy()); }
  TurnResult applyToTree(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive,
                         std::size_t* refused);
  void breathe();
  void goOn();
  void inStore(std::function<void()> work, WorkThread::Done done);
  void start(std::optional<std::map<std::string, std::chrono::milliseconds>> const& left);
  void keptIs(TreeDocuments documents);
  void keepTurn(TurnResult const& result);
  void commit();
  void committed(std::exception_ptr const& thrown);
  void goOnTelling();
  bool tellSome(std::size_t most);
  void tellAll() {
    while (tellSome(SIZE_MAX)) continue;
  }
  void fail(StoreError const& problem);
  void storeProblemIs(StoreError const& problem);
  std::vector<std::function<void(StoreError const*)>> undo();
  void show(PreparedTurn& prepared, CommittedTurn const& turn);
  void takeForeignTurns();
  void restartFrom(TreeDocuments documents);
  void tell(CommittedTurn turn);
  void advance();
  void tick();
  void keepAlive();
  void expire();
  void tryStore(EventLoop::Clock::time_point now);
  void tried(std::exception_ptr const& thrown, std::shared_ptr<TreeDocuments> const& found);
  bool isRefresh(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive) const;
  void renew(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive);
  CommittedTurn takeRenewed();
  SwitchConditions::Registry registry();
  static Since since(Revision revision);
  void beginConditions(Revision revision);
  void judge(CommittedTurn const& turn);
  void conditionsKept(Revision revision);

  EventLoop& loop_;
  Nox::Library const& library_;
  Store& store_;
  ServiceOptions options_;
  EventLog& log_;
  TreeDocuments kept_;
  TreeDocuments latest_;
  std::size_t switches_ = 0;
  /// The registry on the latest documents; none while the store takes no writes.
  std::unique_ptr<LiveTree> tree_;
  SwitchConditions conditions_;
  TransitionLog transitions_{log_};
  std::shared_ptr<ServerWatches> watches_;
  std::shared_ptr<BackupHub> backups_;
  Lifetimes lifetimes_;
  /// Up to when the lifetimes have been told the time.
  EventLoop::Clock::time_point advanced_;
  EventLoop::Clock::time_point lastTick_;
  /// Behind a late tick, when renewals have been read.
  EventLoop::Clock::time_point nextExpiry_;
  EventLoop::Clock::time_point nextTry_;
  /// For how long the agent has been awake, and for how long that matters to the heartbeats that it found.
  std::chrono::milliseconds awake_{0};
  std::chrono::milliseconds awakeMatters_{0};
  /// Heartbeats that were put for the first time since the start, which is not yet kept.
  std::set<std::string> renewed_;
  /// Turns that the store has not got yet, those that it has now, and those that are kept and on their way to readers:
  /// so many turns have been told, and so many writers answered.
  Group open_;
  Group committing_;
  Group telling_;
  bool isTelling_ = false;
  std::size_t told_ = 0;
  std::size_t answered_ = 0;
  std::optional<PreparedTurn> preparing_;
  /// What the last turn replaced, which is given back piece by piece.
  std::vector<std::optional<Document>> replaced_;
  bool isApplying_ = false;
  bool isExpiring_ = false;
  bool hasBreathed_ = false;
  bool isDue_ = false;
  bool hasForeignTurns_ = false;
  /// What the store's thread came to in the middle of a task, and is looked at behind it.
  std::function<void()> deferred_;
  /// How long the agent has been awake, where the store is to be told of it.
  std::optional<std::chrono::milliseconds> awakeDue_;
  /// Turns of which it is not known whether they are kept.
  std::vector<CommittedTurn> doubtful_;
  std::optional<std::string> problem_;
  bool isFull_ = false;
  /// Tasks on the loop hold it weakly, and do nothing when the service has gone.
  std::shared_ptr<Service*> self_ = std::make_shared<Service*>(this);
  /// Ends first.
  std::unique_ptr<WorkThread> thread_;
};

}  // namespace Agent
