// Writes events: a reader's place is a revision in the history, or a path in the tree while it gets the whole prefix.
#include "agent/server/server_watches.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include "framework/memory/assertion.h"

namespace Agent {
namespace {

std::size_t bytesOf(DocumentChange const& change) {
  return change.path.size() + (change.text ? change.text->size() : 0);
}
std::size_t bytesOf(CommittedTurn const& turn) {
  std::size_t bytes = 0;
  for (DocumentChange const& change : turn.changes) bytes += bytesOf(change);
  return bytes;
}

constexpr auto kSignsOfLife = std::chrono::seconds(15);
constexpr std::size_t kSignsAtOnce = 256;

/// Ends the data of a change, behind the value.
constexpr std::string_view kChangeEnd = "}\n\n";

std::string revisionData(Revision revision) { return "data: {\"revision\":" + std::to_string(revision) + "}\n\n"; }

}  // namespace

/// One reader.
class ServerWatch final : public BodySource {
 public:
  ServerWatch(std::shared_ptr<ServerWatches> hub, std::string prefix, std::optional<Revision> after)
      : hub_(std::move(hub)),
        prefix_(std::move(prefix)),
        told_(after.value_or(0)),
        idTold_(after.value_or(0)),
        era_(after ? hub_->era_ : 0),
        signDue_(hub_->now_ + kSignsOfLife),
        inSigns_(hub_->signs_.insert(hub_->signs_.end(), this)) {}
  ~ServerWatch() override {
    hub_->signs_.erase(inSigns_);
    stopWaiting(told_);
    hub_->woken_.erase(this);
  }

  std::optional<std::string> next() override;
  /// There is something to tell.
  void goOn() { wake(); }
  EventLoop::Clock::time_point signDue() const { return signDue_; }
  /// Gives a sign of life, if there has been nothing else to tell; the next is due at that time.
  void giveSign(EventLoop::Clock::time_point next) {
    signDue_ = next;
    if (!waits_) return;
    isSignWanted_ = true;
    wake();
  }
  /// It need not wait any longer. Of the turns meanwhile, those up to `told` did not concern it.
  void stopWaiting(Revision told) {
    if (!waits_) return;
    hub_->waiting_.erase(*std::exchange(waits_, std::nullopt));
    told_ = std::max(told_, told);
  }

 private:
  /// Whether its place is gone, so that nothing can go on from there.
  bool isLost() const { return era_ != hub_->era_ || (!toldPath_ && !hub_->reachesBackTo(told_)); }
  bool tellTurn(std::string& to);
  void tellPrefix(std::string& to);
  void beginPrefix(std::string& to);
  void tellSynced(std::string& to);
  void tellChange(std::string& to, std::string_view path, DocumentText const& text, Revision revision, bool isLast);
  void beginWaiting();
  /// Makes `told_` the place to resume from.
  std::string idLine();

  std::shared_ptr<ServerWatches> hub_;
  std::string prefix_;
  /// Its place among those that wait.
  std::optional<ServerWatches::Waiting::iterator> waits_;
  /// All turns up to this one have been told.
  Revision told_;
  /// The revision that was the last one's to resume from.
  Revision idTold_;
  std::size_t era_;
  /// How many changes of the next turn have been told.
  std::size_t changesTold_ = 0;
  /// The path behind which the whole prefix goes on, while that is being told.
  std::optional<std::string> toldPath_;
  /// The revision with which the whole prefix has been told: turns up to this one came meanwhile, and follow. Before
  /// that, what has been told is no state that ever was, and no place to resume from.
  std::optional<Revision> syncedAt_;
  /// That of the document that is being told.
  TextInPieces text_;
  EventLoop::Clock::time_point signDue_;
  std::list<ServerWatch*>::iterator inSigns_;
  bool isCaughtUp_ = false;
  bool isSignWanted_ = false;
  bool isFarewellSaid_ = false;
};

std::optional<std::string> ServerWatch::next() {
  if (isFarewellSaid_) return std::nullopt;
  stopWaiting(hub_->passed_);
  std::string piece;
  while (piece.size() < kPieceBytes) {
    if (text_.isTelling()) {
      text_.goOn(piece, kChangeEnd);
      continue;
    }
    if (hub_->tree_ == nullptr) return std::nullopt;
    if (isLost()) {
      beginPrefix(piece);
    } else if (toldPath_) {
      tellPrefix(piece);
    } else if (syncedAt_ && told_ >= *syncedAt_) {
      tellSynced(piece);
    } else if (!tellTurn(piece)) {
      if (hub_->isClosed_) {
        piece += "event: shutdown\ndata: {}\n\n";
        isFarewellSaid_ = true;
        return piece;
      }
      // A reader that comes to the end of the past is told so, also when the last of it was not below its prefix.
      bool const isSignDue = piece.empty() && std::exchange(isSignWanted_, false);
      bool const isEndDue = !std::exchange(isCaughtUp_, true) && idTold_ != told_;
      if (isSignDue || isEndDue) piece += idLine() + "\n";
      break;
    }
  }
  if (piece.empty()) beginWaiting();
  return piece;
}

// It has been told all turns.
void ServerWatch::beginWaiting() { waits_ = hub_->waiting_.emplace(prefix_, this); }

// Tells what is left of a turn, or of it what there is room for; false if all turns have been told.
bool ServerWatch::tellTurn(std::string& to) {
  if (told_ == hub_->last_) return false;
  CommittedTurn const& turn = hub_->turns_[hub_->turns_.size() - static_cast<std::size_t>(hub_->last_ - told_)];
  auto const& changes = turn.changes;
  auto const isNext = [&](DocumentChange const& change) { return change.path.starts_with(prefix_); };
  std::size_t at = changesTold_;
  while (at < changes.size() && !isNext(changes[at])) ++at;
  while (at < changes.size() && to.size() < kPieceBytes) {
    DocumentChange const& change = changes[at];
    do ++at;
    while (at < changes.size() && !isNext(changes[at]));
    tellChange(to, change.path, change.text, turn.revision, at == changes.size());
  }
  changesTold_ = at;
  if (at < changes.size()) return true;
  told_ = turn.revision;
  changesTold_ = 0;
  return true;
}

// Documents that changed later than the prefix was begun are left to the history, which then has them.
void ServerWatch::beginPrefix(std::string& to) {
  era_ = hub_->era_;
  told_ = hub_->last_;
  changesTold_ = 0;
  toldPath_ = "";
  syncedAt_ = std::nullopt;
  // What was known before is forgotten, and the whole prefix is not there yet: a reader that loses the connection now
  // begins at the beginning.
  idTold_ = 0;
  to += "event: resync\nid: 0\n" + revisionData(told_);
}

void ServerWatch::tellPrefix(std::string& to) {
  Documents const& documents = hub_->tree_->documents;
  auto at = toldPath_->empty() ? documents.lower_bound(prefix_) : documents.upper_bound(*toldPath_);
  for (; at != documents.end() && at->first.starts_with(prefix_) && to.size() < kPieceBytes; ++at) {
    toldPath_ = at->first;
    if (at->second.revision <= told_) tellChange(to, at->first, at->second.text, at->second.revision, false);
  }
  if (text_.isTelling() || (at != documents.end() && at->first.starts_with(prefix_))) return;
  toldPath_ = std::nullopt;
  syncedAt_ = hub_->tree_->revision;
}

void ServerWatch::tellSynced(std::string& to) {
  syncedAt_ = std::nullopt;
  to += "event: synced\n" + idLine() + revisionData(told_);
}

std::string ServerWatch::idLine() {
  idTold_ = told_;
  return "id: " + std::to_string(told_) + "@" + hub_->history_ + "\n";
}

// Only the last event of a turn carries its revision as the place to resume from: a reader that loses the connection in
// the middle of a turn gets all of it again.
void ServerWatch::tellChange(std::string& to, std::string_view path, DocumentText const& text, Revision revision,
                             bool isLast) {
  to += "event: change\n";
  if (isLast) told_ = revision;
  if (isLast && !syncedAt_) to += idLine();

  to += "data: {\"revision\":" + std::to_string(revision) + ",\"path\":" + Json(path).dump() + ",\"value\":";
  if (text)
    text_.begin(text, to, kChangeEnd, hub_->heldTexts_);
  else
    to.append("null").append(kChangeEnd);
}

void ServerWatches::add(CommittedTurn turn) {
  NOX_ASSERT(turn.revision == last_ + 1 && passed_ == last_, "turns are told one after the other");
  last_ = turn.revision;
  changes_ += turn.changes.size();
  bytes_ += bytesOf(turn);
  turns_.push_back(std::move(turn));
  while (turns_.size() > 1 && (changes_ > limits_.changes || bytes_ > limits_.bytes)) {
    changes_ -= turns_.front().changes.size();
    bytes_ -= bytesOf(turns_.front());
    turns_.pop_front();
  }
}

// A reader that begins to wait meanwhile has been told of the turn, and is woken in vain at most.
bool ServerWatches::wakeNext() {
  if (passed_ != last_) {
    if (!waiting_.empty() && changesPassed_ < turns_.back().changes.size()) {
      takeOffAlong(turns_.back().changes[changesPassed_++].path);
      return true;
    }
    passed_ = last_;
    changesPassed_ = 0;
  }
  // Each has been taken off before it is woken: it may wait again at once. Those that go meanwhile take themselves out.
  if (woken_.empty()) return false;
  woken_.extract(woken_.begin()).value()->goOn();
  return true;
}

void ServerWatches::restart(HistoryId history) {
  last_ = passed_ = tree_->revision;
  changesPassed_ = 0;
  history_ = std::move(history);
  turns_.clear();
  changes_ = 0;
  bytes_ = 0;
  ++era_;
  wakeAll();
}

void ServerWatches::close() {
  isClosed_ = true;
  wakeAll();
}

void ServerWatches::detach() {
  tree_ = nullptr;
  wakeAll();
}

// What waits with a prefix of the path stands before the path, the longest prefix last. Between them stands what shares
// only a part with the path: what is longer than that part need not be looked at.
void ServerWatches::takeOffAlong(std::string_view path) {
  for (auto at = waiting_.upper_bound(path); at != waiting_.begin(); at = waiting_.upper_bound(path)) {
    std::string_view const prefix = std::prev(at)->first;
    path = path.substr(0, std::mismatch(prefix.begin(), prefix.end(), path.begin(), path.end()).first - prefix.begin());
    if (path.size() < prefix.size()) continue;
    for (at = waiting_.lower_bound(prefix); at != waiting_.end() && at->first == prefix;) takeOff(at++, passed_);
    if (path.empty()) return;
    path.remove_suffix(1);
  }
}

void ServerWatches::takeOff(Waiting::iterator at, Revision told) {
  ServerWatch* const watch = at->second;
  watch->stopWaiting(told);
  woken_.insert(watch);
}

void ServerWatches::wakeAll() {
  while (!waiting_.empty()) takeOff(waiting_.begin(), passed_);
  while (wakeNext()) continue;
}

bool ServerWatches::keepAlive(EventLoop::Clock::time_point now) {
  now_ = now;
  for (std::size_t given = 0; given < kSignsAtOnce; ++given) {
    if (signs_.empty() || signs_.front()->signDue() > now) return false;
    signs_.splice(signs_.end(), signs_, signs_.begin());
    signs_.back()->giveSign(now + kSignsOfLife);
  }
  return true;
}

std::unique_ptr<BodySource> ServerWatches::watch(std::string prefix, std::optional<Revision> after) {
  return std::make_unique<ServerWatch>(shared_from_this(), std::move(prefix), after);
}

}  // namespace Agent
