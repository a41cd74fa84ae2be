// Applies turns, gives them to the store in groups, and tells them to watches when they are kept.
#include "agent/server/service.h"

#include <algorithm>

#include "agent/server/input_rules.h"

namespace Agent {
namespace {

constexpr auto kTick = std::chrono::milliseconds(100);
/// Behind a tick that comes later than this, renewals wait to be read; so long they are given.
constexpr auto kLongestTick = std::chrono::milliseconds(500);
constexpr auto kReading = std::chrono::milliseconds(400);
constexpr auto kTries = std::chrono::seconds(1);

std::chrono::milliseconds inMilliseconds(EventLoop::Clock::duration duration) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration);
}

/// A task that does nothing once its service has gone.
std::function<void()> later(std::weak_ptr<Service*> self, void (Service::*work)()) {
  return [self = std::move(self), work] {
    if (auto const service = self.lock()) ((**service).*work)();
  };
}

/// Whether they are the same documents, whatever their times to live.
bool isSame(TreeDocuments const& left, TreeDocuments const& right) {
  return left.revision == right.revision && std::equal(left.documents.begin(),
                                                       left.documents.end(),
                                                       right.documents.begin(),
                                                       right.documents.end(),
                                                       [](auto const& one, auto const& other) {
                                                         return one.first == other.first &&
                                                                one.second.revision == other.second.revision &&
                                                                *one.second.text == *other.second.text;
                                                       });
}

/// Applies what a turn changed; returns what stood before.
std::vector<DocumentBefore> applyTo(TreeDocuments& to, CommittedTurn const& turn) {
  std::vector<DocumentBefore> before;
  for (DocumentChange const& change : turn.changes) {
    auto const known = to.documents.find(change.path);
    before.push_back({change.path, known != to.documents.end() ? std::optional(known->second) : std::nullopt});
    if (change.text)
      to.documents[change.path] = {change.text, change.revision, change.timeToLive, false};
    else if (known != to.documents.end())
      to.documents.erase(known);
  }
  to.revision = turn.revision;
  return before;
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
  kept_ = readDocuments(store_, &left);
  watches_ = std::make_shared<ServerWatches>(options_.history, kept_, store_.history());
  // Documents that no tree can have had end it here, before anything is written.
  start(left);
  try {
    store_.prepare();
  } catch (StoreError const& problem) {
    fail(problem);
  }
  store_.foreignTurnsIs([this] { loop_.post(later(self_, &Service::takeForeignTurns)); });
  tick();
}

Service::~Service() {
  store_.foreignTurnsIs(nullptr);
  watches_->detach();
  backups_->detach();
}

// A heartbeat has `left` to live, or all of its time if that is absent: what ended was the agent, not the switch.
void Service::start(std::optional<std::map<std::string, std::chrono::milliseconds>> const& left) {
  Revision const revision = kept_.revision;
  tree_ = std::make_unique<LiveTree>(library_, kept_);
  // What loading took is no time of theirs.
  advance();
  lifetimes_ = Lifetimes();
  auto const [begin, end] = withPrefix(documents(), Place("heartbeat/<systemId>").prefix());
  for (auto at = begin; at != end; ++at) {
    std::optional<std::chrono::milliseconds> time = at->second.timeToLive;
    if (left)
      if (auto const found = left->find(at->first); found != left->end()) time = found->second;
    lifetimes_.renew(at->first, time);
    if (time) awakeMatters_ = std::max(awakeMatters_, awake_ + *time);
  }
  TurnResult first = tree_->firstTurn();
  revisionBefore_ = revision;
  keepTurn(first);
}

std::size_t Service::switches() const {
  auto const [begin, end] = withPrefix(documents(), Place("controller/switch/<systemId>").prefix());
  return static_cast<std::size_t>(std::distance(begin, end));
}

TurnResult Service::apply(std::span<Operation const> operations, std::optional<TimeToLive> timeToLive,
                          std::size_t* refused) {
  std::optional<std::chrono::milliseconds> const ttl = timeToLive ? timeToLive->value : options_.heartbeatTtl;
  if (problem_ && !isRefresh(operations, ttl)) {
    if (isFull_) throw StoreFull(*problem_);
    throw StoreError(*problem_);
  }
  if (!tree_) {
    renew(operations, ttl);
    return {{revision(), {}}, {}, std::nullopt};
  }
  for (std::size_t at = 0; at < operations.size(); ++at) {
    if (refused != nullptr) *refused = at;
    requireInput(operations[at]);
  }
  Revision const before = revision();
  TurnResult result = tree_->apply(operations, ttl, refused);
  if (result.failure) log_.error("handler_failed", {{"reason", *result.failure}});
  renew(operations, ttl);
  if (turns_.empty()) revisionBefore_ = before;
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
    auto const known = kept_.documents.find(path);
    if (known == kept_.documents.end() || !timeToLive || std::exchange(known->second.isRenewed, true)) continue;
    renewed_.insert(path);
  }
}

// What a heartbeat has left at the next start depends on it; nothing else does, so that no request waits for it.
CommittedTurn Service::takeRenewed() {
  CommittedTurn turn{revision(), {}};
  for (std::string const& path : std::exchange(renewed_, {})) {
    auto const known = kept_.documents.find(path);
    if (known == kept_.documents.end()) continue;
    Document const& document = known->second;
    turn.changes.push_back({path, document.text, document.revision, document.timeToLive, true});
  }
  return turn;
}

// Without a store, a heartbeat may still say what it said before: it keeps its switch alive, and changes nothing.
bool Service::isRefresh(std::span<Operation const> operations,
                        std::optional<std::chrono::milliseconds> timeToLive) const {
  return std::all_of(operations.begin(), operations.end(), [&](Operation const& operation) {
    if (!operation.value || !operation.path.place.expires()) return false;
    auto const known = documents().find(toText(operation.path));
    return known != documents().end() && *known->second.text == operation.value->dump() &&
           known->second.timeToLive == timeToLive;
  });
}

void Service::keepTurn(TurnResult& result) {
  if (result.turn.changes.empty()) return;
  backups_->changed(result.before);
  before_.insert(before_.end(), result.before.begin(), result.before.end());
  turns_.push_back(result.turn);
  if (turns_.size() > 1) return;
  // Behind whatever is ready to be read now, and once more behind what that makes ready: all of it shares one commit.
  loop_.post([&loop = loop_, commit = later(self_, &Service::commit)] { loop.post(commit); });
}

void Service::whenKept(std::function<void(StoreError const* problem)> done) {
  if (turns_.empty())
    done(nullptr);
  else
    waiting_.push_back(std::move(done));
}

void Service::commit() {
  if (!tree_ || (turns_.empty() && renewed_.empty())) return;
  CommittedTurn renewed = takeRenewed();
  if (!renewed.changes.empty()) turns_.push_back(std::move(renewed));
  if (turns_.empty()) return;
  try {
    store_.commit(turns_);
  } catch (StoreError const& problem) {
    return fail(problem);
  }
  before_.clear();
  for (CommittedTurn& turn : std::exchange(turns_, {})) tell(std::move(turn));
  for (auto const& done : std::exchange(waiting_, {})) done(nullptr);
}

// What the registry did cannot be taken back one by one: it ends here, and another one starts when the store works
// again. Until then everybody sees what is known to be kept.
void Service::fail(StoreError const& problem) {
  if (dynamic_cast<OutcomeUnknown const*>(&problem) != nullptr) doubtful_ = turns_;
  undo();
  isFull_ = dynamic_cast<StoreFull const*>(&problem) != nullptr;
  problem_ = problem.what();
  log_.error(isFull_ ? "disk_full" : "store_failed", {{"reason", *problem_}});
  tree_.reset();
  renewed_.clear();
  nextTry_ = loop_.now() + kTries;
  for (auto const& done : std::exchange(waiting_, {})) done(&problem);
}

void Service::undo() {
  for (std::size_t at = before_.size(); at-- > 0;) {
    DocumentBefore& one = before_[at];
    if (one.document)
      kept_.documents[one.path] = *std::move(one.document);
    else
      kept_.documents.erase(one.path);
  }
  if (!before_.empty()) kept_.revision = revisionBefore_;
  before_.clear();
  turns_.clear();
  watches_->undone();
}

// What others wrote is like what was there before: the registry finds it at its first passes.
void Service::takeForeignTurns() {
  log_.info("state_changed_by_others", {});
  auto const waiting = std::exchange(waiting_, {});
  undo();
  tree_.reset();
  restartFrom(readDocuments(store_));
  if (!problem_) start(std::nullopt);
  StoreError const problem("the state was changed by others at the same time; nothing was done");
  for (auto const& done : waiting) done(&problem);
}

// Another state than the one that was told of: all readers are told so.
void Service::restartFrom(TreeDocuments documents) {
  kept_ = std::move(documents);
  watches_->restart(store_.history());
  backups_->detach();
  backups_ = std::make_shared<BackupHub>(kept_);
}

// A time to live is kept, and told to no reader.
void Service::tell(CommittedTurn turn) {
  std::erase_if(turn.changes, [&](DocumentChange const& change) { return change.isRenewal; });
  if (turn.changes.empty()) return;
  for (DocumentChange const& change : turn.changes) log_.changed(change);
  watches_->add(std::move(turn));
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
  advance();
  // Once all heartbeats that were found at the start have been put again or have gone, nothing depends on it.
  if (awake_ <= awakeMatters_) store_.awakeIs(awake_);
  tryStore(now);
  if (turns_.empty()) commit();
  // Behind what has come in already: a renewal may be among it.
  if (now - std::exchange(lastTick_, now) > kLongestTick) {
    nextExpiry_ = now + kReading;
    loop_.at(nextExpiry_, later(self_, &Service::expire));
  } else if (now >= nextExpiry_) {
    loop_.post(later(self_, &Service::expire));
  }
  keepAlive();
  loop_.at(now + kTick, later(self_, &Service::tick));
}

// What else has come in goes between.
void Service::keepAlive() {
  if (watches_->keepAlive(loop_.now())) loop_.post(later(self_, &Service::keepAlive));
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
  TreeDocuments found;
  try {
    store_.prepare();
    found = readDocuments(store_);
  } catch (StoreError const& problem) {
    isFull_ = dynamic_cast<StoreFull const*>(&problem) != nullptr;
    problem_ = problem.what();
    return;
  }
  auto const doubtful = std::exchange(doubtful_, {});
  bool const wasKept = !doubtful.empty() && found.revision == doubtful.back().revision;
  bool const isKnown = doubtful.empty() || doubtful.back().revision == kept_.revision;
  // Told only when the store has said that it is there for good.
  if (wasKept)
    for (CommittedTurn const& turn : doubtful) backups_->changed(applyTo(kept_, turn));
  if (!isSame(found, kept_) || store_.history() != watches_->history()) {
    log_.warning("state_replaced", {{"revision", std::to_string(found.revision)}});
    restartFrom(std::move(found));
  } else {
    kept_ = std::move(found);
    if (wasKept)
      for (CommittedTurn const& turn : doubtful) tell(turn);
  }
  problem_ = std::nullopt;
  log_.info("store_recovered",
            {{"revision", std::to_string(kept_.revision)},
             {"unknown",
              isKnown   ? "none"
              : wasKept ? "kept"
                        : "not kept"}});
  // A client that wanted to put something new meanwhile was turned away, which is held against no heartbeat.
  start(std::nullopt);
  commit();
}

std::unique_ptr<BodySource> Service::backup() { return backups_->copy(store_.history()); }

void Service::stop() {
  commit();
  watches_->close();
}

}  // namespace Agent
