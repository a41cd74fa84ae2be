// Applies turns, and lets heartbeats expire.
#include "agent/server/service.h"

#include <algorithm>

#include "agent/server/input_rules.h"

namespace Agent {
namespace {

constexpr auto kTick = std::chrono::milliseconds(100);
/// Behind a tick that comes later than this, renewals wait to be read; so long they are given.
constexpr auto kLongestTick = std::chrono::milliseconds(500);
constexpr auto kReading = std::chrono::milliseconds(400);

std::chrono::milliseconds inMilliseconds(EventLoop::Clock::duration duration) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration);
}

}  // namespace

Service::Service(EventLoop& loop, Nox::Library const& library, Store& store, ServiceOptions const& options,
                 EventLog& log)
    : loop_(loop),
      library_(library),
      store_(store),
      options_(options),
      log_(log),
      backups_(std::make_shared<BackupHub>(kept_)),
      advanced_(loop.now()),
      lastTick_(loop.now()) {
  std::map<std::string, std::chrono::milliseconds> left;
  keptIs(readDocuments(store_, &left));
  watches_ = std::make_shared<ServerWatches>(options_.history, kept_, store_.history());
  // Documents that no tree can have had end it here, before anything is written.
  start(left);
  try {
    store_.prepare();
  } catch (StoreError const& problem) {
    fail(problem);
  }
  // The first reader sees what the first passes came to.
  commit();
  tellAll();
  store_.foreignTurnsIs([this] { loop_.post(later(&Service::takeForeignTurns)); });
  if (options_.hasStoreThread) thread_ = std::make_unique<WorkThread>(loop_);
  tick();
}

std::function<void()> Service::later(void (Service::*work)()) const {
  return [self = std::weak_ptr(self_), work] {
    if (auto const service = self.lock()) ((**service).*work)();
  };
}

Service::~Service() {
  thread_.reset();
  store_.foreignTurnsIs(nullptr);
  watches_->detach();
  backups_->detach();
}

// A heartbeat has `left` to live, or all of its time if that is absent: what ended was the agent, not the switch.
void Service::start(std::optional<std::map<std::string, std::chrono::milliseconds>> const& left) {
  tree_ = std::make_unique<LiveTree>(library_, latest_, options_.stored);
  // What loading took is no time of theirs.
  advance();
  lifetimes_ = Lifetimes();
  auto const [begin, end] = withPrefix(kept_.documents, Place("heartbeat/<systemId>").prefix());
  for (auto at = begin; at != end; ++at) {
    Breath::take();
    std::optional<std::chrono::milliseconds> time = at->second.timeToLive;
    if (left)
      if (auto const found = left->find(at->first); found != left->end()) time = found->second;
    lifetimes_.renew(at->first, time);
    if (time) awakeMatters_ = std::max(awakeMatters_, awake_ + *time);
  }
  TurnResult first = tree_->firstTurn();
  beginConditions(first.turn.changes.empty() ? latest_.revision : first.turn.revision);
  if (first.turn.changes.empty()) conditionsKept(latest_.revision);
  keepTurn(first);
}

TurnResult Service::apply(std::span<Operation const> operations, std::optional<TimeToLive> timeToLive,
                          std::size_t* refused) {
  std::optional<std::chrono::milliseconds> const ttl = timeToLive ? timeToLive->value : options_.heartbeatTtl;
  if ((problem_ || isApplying_) && !isRefresh(operations, ttl)) {
    if (!problem_) throw StoreError("another turn is being applied");
    if (isFull_) throw StoreFull(*problem_);
    throw StoreError(*problem_);
  }
  if (!tree_ || isApplying_) {
    renew(operations, ttl);
    return {{latest_.revision, {}}, std::nullopt};
  }
  TurnResult result = applyToTree(operations, ttl, refused);
  if (result.failure) log_.error("handler_failed", {{"reason", *result.failure}});
  judge(result.turn);
  renew(operations, ttl);
  keepTurn(result);
  return result;
}

void Service::renew(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive) {
  for (Operation const& operation : operations) {
    if (!operation.path.place.expires()) continue;
    std::string const path = toText(operation.path);
    if (!operation.isPut()) {
      lifetimes_.forget(path);
      continue;
    }
    advance();
    lifetimes_.renew(path, timeToLive);
    auto const known = latest_.documents.find(path);
    if (known == latest_.documents.end() || !timeToLive || std::exchange(known->second.isRenewed, true)) continue;
    renewed_.insert(path);
  }
}

// What a heartbeat has left at the next start depends on it; nothing else does, so that no request waits for it.
CommittedTurn Service::takeRenewed() {
  CommittedTurn turn{latest_.revision, {}};
  for (std::string const& path : std::exchange(renewed_, {})) {
    auto const known = latest_.documents.find(path);
    if (known == latest_.documents.end()) continue;
    Document const& document = known->second;
    turn.changes.push_back({path, document.text, document.revision, document.timeToLive, true});
  }
  judge(turn);
  return turn;
}

// Without a store, a heartbeat may still say what it said before: it keeps its switch alive, and changes nothing.
bool Service::isRefresh(std::span<Operation const> operations,
                        std::optional<std::chrono::milliseconds> timeToLive) const {
  return std::all_of(operations.begin(), operations.end(), [&](Operation const& operation) {
    if (!operation.value || !operation.path.place.expires()) return false;
    auto const known = latest_.documents.find(toText(operation.path));
    return known != latest_.documents.end() && *known->second.text == operation.value->dump() &&
           known->second.timeToLive == timeToLive;
  });
}

TurnResult Service::applyToTree(std::span<Operation const> operations,
                                std::optional<std::chrono::milliseconds> timeToLive, std::size_t* refused) {
  LongTask const task(*this);
  for (std::size_t at = 0; at < operations.size(); ++at) {
    if (refused != nullptr) *refused = at;
    requireInput(operations[at]);
  }
  return tree_->apply(operations, timeToLive, refused);
}

// What begins in the middle is ended behind the task, and not behind one that runs in the middle of it.
Service::LongTask::~LongTask() {
  if (service_.isApplying_ || !std::exchange(service_.hasBreathed_, false)) return;
  service_.isDue_ = true;
  service_.loop_.post(service_.later(&Service::catchUp));
}

// What runs meanwhile leaves the tree and the latest documents alone.
void Service::breathe() {
  isApplying_ = hasBreathed_ = true;
  loop_.breathe();
  isApplying_ = false;
}

void Service::goOn() {
  if (std::exchange(hasForeignTurns_, false)) takeForeignTurns();
  if (auto const work = std::exchange(deferred_, nullptr)) work();
  if (!open_.turns.empty()) return commit();
  for (auto& done : std::exchange(open_.waiting, {})) whenKept(std::move(done));
}

void Service::keepTurn(TurnResult const& result) {
  if (result.turn.changes.empty()) return;
  open_.turns.push_back(result.turn);
  if (open_.turns.size() > 1 || isStoreBusy()) return;
  // Behind whatever is ready to be read now, and once more behind what that makes ready: all of it shares one commit.
  loop_.post([&loop = loop_, commit = later(&Service::commit)] { loop.post(commit); });
}

void Service::whenKept(std::function<void(StoreError const* problem)> done) {
  if (Group* const last = !open_.turns.empty() || isApplying_ ? &open_
                          : !committing_.turns.empty()        ? &committing_
                          : isTelling_                        ? &telling_
                                                              : nullptr)
    last->waiting.push_back(std::move(done));
  else
    done(nullptr);
}

// What the agent does itself counts: under load the dead go in time, too. Called before a deadline is set as well, lest
// one that is set behind a long turn be measured with that turn.
void Service::advance() {
  auto const now = loop_.now();
  EventLoop::Clock::duration const whole = now - advanced_;
  EventLoop::Clock::duration const passed = whole - std::min(whole, loop_.stoodStill());
  lifetimes_.pass(inMilliseconds(passed));
  awake_ += inMilliseconds(passed);
  // What is less than a millisecond is not lost.
  advanced_ = now - (passed - inMilliseconds(passed));
}

void Service::tick() {
  auto const now = loop_.now();
  // What has to be done is done at the next one, which is late and knows it.
  if (isApplying_) return loop_.at(now + kTick, later(&Service::tick));
  advance();
  transitions_.tick(now);
  // Once all heartbeats that were found at the start have been put again or have gone, nothing depends on it.
  if (awake_ <= awakeMatters_) awakeDue_ = awake_;
  tryStore(now);
  if (open_.turns.empty()) commit();
  // Behind what has come in already: a renewal may be among it.
  if (now - std::exchange(lastTick_, now) > kLongestTick) {
    nextExpiry_ = now + kReading;
    loop_.at(nextExpiry_, later(&Service::expire));
  } else if (now >= nextExpiry_) {
    loop_.post(later(&Service::expire));
  }
  keepAlive();
  loop_.at(now + kTick, later(&Service::tick));
}

// What else has come in goes between.
void Service::keepAlive() {
  if (watches_->keepAlive(loop_.now())) loop_.post(later(&Service::keepAlive));
}

// While the store takes nothing, the dead wait for it.
void Service::expire() {
  if (problem_ || isApplying_) return;
  LongTask const task(*this);
  for (std::string const& path : lifetimes_.takeExpired()) {
    // It was put again in the middle of an earlier turn.
    if (lifetimes_.has(path)) continue;
    log_.warning("heartbeat_expired", {{"path", path}});
    Operation const operation{parsePath(path), std::nullopt};
    struct Expiring {
      bool& is;
      ~Expiring() { is = false; }
    } const expiring{isExpiring_ = true};
    apply({&operation, 1});
  }
}

std::unique_ptr<BodySource> Service::backup() { return backups_->copy(watches_->history()); }

void Service::stop() {
  // What the store has now, and what waits behind it.
  for (int commits = 0; commits < 2; ++commits) {
    tellAll();
    commit();
    if (thread_) thread_->finish();
  }
  tellAll();
  transitions_.tick(loop_.now(), true);
  watches_->close();
}

}  // namespace Agent
