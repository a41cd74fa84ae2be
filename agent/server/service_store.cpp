// The service and its store: what is committed, shown and told, and what becomes of it when a commit fails.
#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#include "agent/server/service.h"

namespace Agent {
namespace {

constexpr auto kTries = std::chrono::seconds(1);

/// So much is shown and told at a time, in changes, readers and answers; then others have their turn.
constexpr std::size_t kTold = 512;

/// What the paths of the switches' rows begin with.
constexpr std::string_view kSwitches = Place("controller/switch/<systemId>").prefix();

/// Whether they are the same documents, whatever their times to live.
bool isSame(TreeDocuments const& left, TreeDocuments const& right) {
  return left.revision == right.revision && std::equal(left.documents.begin(),
                                                       left.documents.end(),
                                                       right.documents.begin(),
                                                       right.documents.end(),
                                                       [](auto const& one, auto const& other) {
                                                         Breath::take();
                                                         return one.first == other.first &&
                                                                one.second.revision == other.second.revision &&
                                                                *one.second.text == *other.second.text;
                                                       });
}

}  // namespace

void Service::keptIs(TreeDocuments documents) {
  TreeDocuments copy{{}, documents.revision};
  for (auto const& [path, document] : documents.documents) {
    Breath::take();
    copy.documents.emplace_hint(copy.documents.end(), path, document);
  }
  kept_ = std::move(documents);
  latest_ = std::move(copy);
  auto const [begin, end] = withPrefix(kept_.documents, kSwitches);
  switches_ = static_cast<std::size_t>(std::distance(begin, end));
}

void Service::inStore(std::function<void()> work, WorkThread::Done done) {
  if (thread_) return thread_->start(std::move(work), std::move(done));
  std::exception_ptr thrown;
  try {
    work();
  } catch (StoreError const&) {
    thrown = std::current_exception();
  }
  done(thrown);
}

// What is asked for while the store is at work goes to it together, as soon as it has done.
void Service::commit() {
  if (isStoreBusy()) return;
  if (tree_) {
    LongTask const task(*this);
    CommittedTurn renewed = takeRenewed();
    if (!renewed.changes.empty()) open_.turns.push_back(std::move(renewed));
    // What waits without a turn waits for one that is being applied.
    if (!open_.turns.empty()) committing_ = std::exchange(open_, {});
  }
  auto const awake = std::exchange(awakeDue_, std::nullopt);
  if (committing_.turns.empty() && !awake) return;
  inStore(
      [this, awake] {
        if (awake) store_.awakeIs(*awake);
        if (!committing_.turns.empty()) store_.commit(committing_.turns);
      },
      [this](std::exception_ptr const& thrown) { committed(thrown); });
}

void Service::committed(std::exception_ptr const& thrown) {
  // The registry is at work.
  if (thrown && isApplying_) {
    deferred_ = [this, thrown] { committed(thrown); };
    return;
  }
  try {
    if (thrown) std::rethrow_exception(thrown);
  } catch (StoreError const& problem) {
    return fail(problem);
  }
  telling_ = std::exchange(committing_, {});
  isTelling_ = true;
  goOnTelling();
}

void Service::goOnTelling() {
  if (tellSome(kTold)) return loop_.post(later(&Service::goOnTelling));
  if (!open_.turns.empty()) commit();
}

// Turn by turn: it is looked up in the documents, shown, and told to the readers that wait. The writers hear last. Does
// so much of that; false if nothing is left.
bool Service::tellSome(std::size_t most) {
  for (std::size_t done = 0; isTelling_ && done < most; ++done) {
    // The turn that was shown last comes to its end first.
    if (watches_->wakeNext()) continue;
    if (!replaced_.empty()) {
      replaced_.pop_back();
    } else if (told_ < telling_.turns.size()) {
      CommittedTurn& turn = telling_.turns[told_];
      if (!preparing_) preparing_.emplace(kept_, turn);
      if (preparing_->findNext()) continue;
      show(*preparing_, turn);
      preparing_.reset();
      ++told_;
      tell(std::move(turn));
    } else if (answered_ < telling_.waiting.size()) {
      std::exchange(telling_.waiting[answered_++], nullptr)(nullptr);
    } else {
      telling_ = {};
      told_ = answered_ = 0;
      isTelling_ = false;
    }
  }
  return isTelling_;
}

// What the registry did cannot be taken back one by one: it ends here, and another one starts when the store works
// again. Until then there is no other state than what is known to be kept.
void Service::fail(StoreError const& problem) {
  if (dynamic_cast<OutcomeUnknown const*>(&problem) != nullptr) doubtful_ = committing_.turns;
  auto const waiting = undo();
  storeProblemIs(problem);
  log_.error(isFull_ ? "disk_full" : "store_failed", {{"reason", *problem_}});
  tree_.reset();
  renewed_.clear();
  nextTry_ = loop_.now() + kTries;
  for (auto const& done : waiting) done(&problem);
}

void Service::storeProblemIs(StoreError const& problem) {
  isFull_ = dynamic_cast<StoreFull const*>(&problem) != nullptr;
  problem_ = problem.what();
}

// Takes back what is not kept; returns what waited for it.
std::vector<std::function<void(StoreError const*)>> Service::undo() {
  std::vector<std::function<void(StoreError const*)>> waiting;
  for (Group& group : {std::ref(committing_), std::ref(open_)}) {
    for (CommittedTurn const& turn : group.turns)
      for (DocumentChange const& change : turn.changes) {
        auto const kept = kept_.documents.find(change.path);
        if (kept != kept_.documents.end())
          latest_.documents[change.path] = kept->second;
        else
          latest_.documents.erase(change.path);
      }
    std::move(group.waiting.begin(), group.waiting.end(), std::back_inserter(waiting));
    group = {};
  }
  latest_.revision = kept_.revision;
  conditions_.undo();
  transitions_.undo();
  return waiting;
}

// What others wrote is like what was there before: the registry finds it at its first passes.
void Service::takeForeignTurns() {
  hasForeignTurns_ = isApplying_;
  if (hasForeignTurns_) return;
  log_.info("state_changed_by_others", {});
  tellAll();
  LongTask const task(*this);
  auto const waiting = undo();
  tree_.reset();
  restartFrom(readDocuments(store_));
  if (!problem_) start(std::nullopt);
  StoreError const problem("the state was changed by others at the same time; nothing was done");
  for (auto const& done : waiting) done(&problem);
}

// Another state than the one that was told of: all readers are told so.
void Service::restartFrom(TreeDocuments documents) {
  conditions_ = {};
  keptIs(std::move(documents));
  watches_->restart(store_.history());
  backups_->detach();
  backups_ = std::make_shared<BackupHub>(kept_);
}

void Service::show(PreparedTurn& prepared, CommittedTurn const& turn) {
  conditionsKept(turn.revision);
  replaced_ = prepared.apply();
  std::vector<DocumentBefore> before;
  for (std::size_t at = 0; at < replaced_.size(); ++at) {
    DocumentChange const& change = turn.changes[at];
    if (change.path.starts_with(kSwitches)) switches_ = switches_ + (change.text ? 1 : 0) - (replaced_[at] ? 1 : 0);
    if (backups_->copies() > 0) before.push_back({change.path, replaced_[at]});
  }
  backups_->changed(before);
}

// A time to live is kept, and told to no reader.
void Service::tell(CommittedTurn turn) {
  std::erase_if(turn.changes, [&](DocumentChange const& change) { return change.isRenewal; });
  if (!turn.changes.empty()) watches_->add(std::move(turn));
}

void Service::tryStore(EventLoop::Clock::time_point now) {
  if (!problem_ || now < nextTry_ || isStoreBusy()) return;
  nextTry_ = now + kTries;
  auto const found = std::make_shared<TreeDocuments>();
  inStore(
      [this, found] {
        store_.prepare();
        *found = readDocuments(store_);
      },
      [this, found](std::exception_ptr const& thrown) { tried(thrown, found); });
}

void Service::tried(std::exception_ptr const& thrown, std::shared_ptr<TreeDocuments> const& found) {
  // A client's document is being read, for what is known now.
  if (isApplying_) {
    deferred_ = [this, thrown, found] { tried(thrown, found); };
    return;
  }
  LongTask const task(*this);
  try {
    if (thrown) std::rethrow_exception(thrown);
  } catch (StoreError const& problem) {
    return storeProblemIs(problem);
  }
  auto const doubtful = std::exchange(doubtful_, {});
  bool const wasKept = !doubtful.empty() && found->revision == doubtful.back().revision;
  bool const isKnown = doubtful.empty() || doubtful.back().revision == kept_.revision;
  // Told only when the store has said that it is there for good.
  if (wasKept)
    for (CommittedTurn const& turn : doubtful) {
      PreparedTurn prepared(kept_, turn);
      while (prepared.findNext()) continue;
      show(prepared, turn);
    }
  if (!isSame(*found, kept_) || store_.history() != watches_->history()) {
    log_.warning("state_replaced", {{"revision", found->revision}});
    restartFrom(std::move(*found));
  } else {
    keptIs(std::move(*found));
    if (wasKept)
      for (CommittedTurn const& turn : doubtful) {
        tell(turn);
        while (watches_->wakeNext()) continue;
      }
  }
  problem_ = std::nullopt;
  log_.info("store_recovered",
            {{"revision", kept_.revision},
             {"unknown",
              isKnown   ? "none"
              : wasKept ? "kept"
                        : "not kept"}});
  // A client that wanted to put something new meanwhile was turned away, which is held against no heartbeat.
  start(std::nullopt);
  commit();
}

}  // namespace Agent
