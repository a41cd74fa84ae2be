// Turn after turn: applied, kept in groups, told.
#include "agent/service.h"

#include <algorithm>

namespace Agent {
namespace {

constexpr auto kTick = std::chrono::milliseconds(100);
/// A tick that comes later than this comes late because the agent, or its machine, stood still.
constexpr auto kLongestTick = std::chrono::milliseconds(500);
constexpr auto kTries = std::chrono::seconds(1);
constexpr auto kSignsOfLife = std::chrono::seconds(15);

std::chrono::milliseconds inMilliseconds(EventLoop::Clock::duration duration) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration);
}

/// A task that does nothing once its service has gone.
std::function<void()> later(std::weak_ptr<Service*> self, void (Service::*work)()) {
  return [self = std::move(self), work] {
    if (auto const service = self.lock()) ((**service).*work)();
  };
}

}  // namespace

Service::Service(EventLoop& loop, Nox::Library const& library, Store& store, ServiceOptions const& options,
                 EventLog& log)
    : loop_(loop),
      library_(library),
      store_(store),
      options_(options),
      log_(log),
      lastTick_(loop.now()),
      nextSign_(loop.now() + kSignsOfLife) {
  load();
  store_.foreignTurnsIs([this] { loop_.post(later(self_, &Service::takeForeignTurns)); });
  tick();
}

Service::~Service() {
  store_.foreignTurnsIs(nullptr);
  if (watches_) watches_->detach();
}

void Service::load() {
  tree_.reset();
  tree_ = std::make_unique<LiveTree>(library_, store_);
  CommittedTurn const& first = tree_->firstTurn();
  Revision const kept = first.changes.empty() ? tree_->revision() : tree_->revision() - 1;
  if (watches_)
    watches_->restart(*tree_, kept);
  else
    watches_ = std::make_shared<WatchHub>(options_.history, *tree_, kept);
  // Whoever was alive gets one full time to live: what ended was the agent, not the switches.
  lifetimes_ = Lifetimes();
  renewAll();
  if (!first.changes.empty()) keepTurn(first);
}

void Service::renewAll() {
  constexpr std::string_view kPrefix = "heartbeat/";
  auto const [begin, end] = withPrefix(documents(), kPrefix);
  for (auto at = begin; at != end; ++at) lifetimes_.renew(at->first, at->second.timeToLive);
}

std::size_t Service::switches() const {
  constexpr std::string_view kPrefix = "controller/switch/";
  auto const [begin, end] = withPrefix(documents(), kPrefix);
  return static_cast<std::size_t>(std::distance(begin, end));
}

TurnResult Service::apply(std::span<Operation const> operations, std::optional<TimeToLive> timeToLive,
                          std::size_t* refused) {
  std::optional<std::chrono::milliseconds> const ttl = timeToLive ? timeToLive->value : options_.heartbeatTtl;
  if (problem_ && !isRefresh(operations, ttl)) {
    if (isFull_) throw StoreFull(*problem_);
    throw StoreError(*problem_);
  }
  TurnResult result = tree_->apply(operations, ttl, refused);
  if (result.failure) log_.error("handler_failed", {{"reason", *result.failure}});
  for (Operation const& operation : operations) {
    if (!std::holds_alternative<At::Heartbeat>(operation.path)) continue;
    std::string const path = toText(operation.path);
    if (operation.isPut())
      lifetimes_.renew(path, ttl);
    else
      lifetimes_.forget(path);
  }
  if (!result.turn.changes.empty()) keepTurn(result.turn);
  return result;
}

// Without a store, a heartbeat may still say what it said before: it keeps its switch alive, and changes nothing.
bool Service::isRefresh(std::span<Operation const> operations,
                        std::optional<std::chrono::milliseconds> timeToLive) const {
  return std::all_of(operations.begin(), operations.end(), [&](Operation const& operation) {
    if (!operation.value || !std::holds_alternative<At::Heartbeat>(operation.path)) return false;
    auto const known = documents().find(toText(operation.path));
    return known != documents().end() && *known->second.text == operation.value->dump() &&
           known->second.timeToLive == timeToLive;
  });
}

void Service::keepTurn(CommittedTurn const& turn) {
  turns_.push_back(turn);
  if (turns_.size() > 1) return;
  // Behind whatever is ready to be read now, and once more behind what that makes ready: all of it shares one commit.
  loop_.post([&loop = loop_, commit = later(self_, &Service::commit)] { loop.post(commit); });
}

void Service::whenKept(std::function<void(StoreError const* problem)> done) {
  if (turns_.empty() || problem_)
    done(nullptr);
  else
    waiting_.push_back(std::move(done));
}

void Service::commit() {
  if (turns_.empty() || problem_) return;
  try {
    store_.commit(turns_);
  } catch (StoreError const& problem) {
    return fail(problem);
  }
  for (CommittedTurn& turn : std::exchange(turns_, {})) tell(std::move(turn));
  for (auto const& done : std::exchange(waiting_, {})) done(nullptr);
}

// What the registry did cannot be taken back one by one: it starts anew from what is kept, as after any other end.
void Service::fail(StoreError const& problem) {
  isFull_ = dynamic_cast<StoreFull const*>(&problem) != nullptr;
  problem_ = problem.what();
  log_.error(isFull_ ? "disk_full" : "store_failed", {{"reason", *problem_}});
  turns_.clear();
  auto const waiting = std::exchange(waiting_, {});
  load();
  for (auto const& done : waiting) done(&problem);
}

// What others wrote is like what was there before: the registry finds it at its first passes.
void Service::takeForeignTurns() {
  log_.info("state_changed_by_others", {});
  turns_.clear();
  auto const waiting = std::exchange(waiting_, {});
  load();
  StoreError const problem("the state was changed by others at the same time; nothing was done");
  for (auto const& done : waiting) done(&problem);
}

// A time to live is kept, and nobody's business.
void Service::tell(CommittedTurn turn) {
  std::erase_if(turn.changes, [&](DocumentChange const& change) { return change.isRenewal; });
  if (turn.changes.empty()) return;
  for (DocumentChange const& change : turn.changes) log_.changed(change);
  watches_->add(std::move(turn));
}

void Service::tick() {
  auto const now = loop_.now();
  EventLoop::Clock::duration const late = now - lastTick_;
  EventLoop::Clock::duration const passed = late > kLongestTick ? kTick : late;
  lifetimes_.pass(inMilliseconds(passed));
  // What is less than a millisecond is not lost.
  lastTick_ = now - (passed - inMilliseconds(passed));
  tryStore(now);
  // Behind what has come in already: a renewal may be among it.
  loop_.post(later(self_, &Service::expire));
  if (now >= nextSign_) {
    nextSign_ = now + kSignsOfLife;
    watches_->keepAlive();
  }
  loop_.at(now + kTick, later(self_, &Service::tick));
}

// While the store takes nothing, the dead wait for it.
void Service::expire() {
  if (problem_) return;
  for (std::string const& path : lifetimes_.takeExpired()) {
    log_.warning("heartbeat_expired", {{"path", path}});
    Operation const operation{parsePath(path), std::nullopt};
    apply({&operation, 1});
  }
}

void Service::tryStore(EventLoop::Clock::time_point now) {
  if (!problem_ || now < nextTry_) return;
  nextTry_ = now + kTries;
  try {
    store_.checkRoom();
  } catch (StoreError const&) {
    return;
  }
  problem_ = std::nullopt;
  log_.info("store_recovered", {});
  // Who said something new meanwhile was turned away: that is not held against anybody.
  renewAll();
  commit();
}

void Service::stop() {
  commit();
  watches_->close();
}

}  // namespace Agent
