// Watches: everything that changes, told turn by turn to each reader as fast as it reads.
#pragma once

#include <cstddef>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "agent/net/event_loop.h"
#include "agent/net/http.h"
#include "agent/server/text_in_pieces.h"
#include "agent/tree/live_tree.h"

namespace Agent {

class ServerWatch;

/// How much of the past is kept for readers that are behind.
struct HistoryLimits {
  std::size_t changes = 65'536;
  /// Of paths and documents.
  std::size_t bytes = 64u * 1024 * 1024;
};

/// The turns that were committed last, and the readers that wait for the next one. A reader is no more than a place in
/// this history: one that is slow costs no more than that, and one that is so slow that its place is gone is told so.
class ServerWatches : public std::enable_shared_from_this<ServerWatches> {
 public:
  /// Of these documents, which are those that are kept. They outlive the hub or its being detached.
  ServerWatches(HistoryLimits const& limits, TreeDocuments const& documents, HistoryId history)
      : limits_(limits), tree_(&documents), last_(documents.revision), passed_(last_), history_(std::move(history)) {}

  /// A turn was committed, and the documents have it: the next one after those before. Readers that wait are told of it
  /// by `wakeNext()`, which was false before.
  void add(CommittedTurn turn);
  /// Looks for readers that the next change of the last turn concerns, or wakes one that has been found; false if all
  /// have been woken.
  bool wakeNext();
  /// The documents are those of another state, and the store's again; all readers are told.
  void restart(HistoryId history);
  /// Readers that wait get a sign of life, every 15 s, but no more than a few hundred in a call: whether others are
  /// left.
  bool keepAlive(EventLoop::Clock::time_point now);
  /// Every reader is told when it has been told the rest, and comes to its end.
  void close();
  /// The tree goes: no reader gets anything more.
  void detach();

  /// The body of a response that tells of all changes of documents whose paths begin with `prefix`, from behind the
  /// revision `after` on: those of the last turn, if there have been others since and all of them are kept; the whole
  /// prefix otherwise, and also if `after` is absent: the reader knows a state of another history.
  std::unique_ptr<BodySource> watch(std::string prefix, std::optional<Revision> after);

  /// Readers.
  std::size_t watches() const noexcept { return signs_.size(); }
  Revision revision() const noexcept { return last_; }
  HistoryId const& history() const noexcept { return history_; }
  /// Another number behind each restart.
  std::size_t era() const noexcept { return era_; }
  /// The room for long texts that readers of any kind are in the middle of.
  BodyBudget& heldTexts() noexcept { return heldTexts_; }

 private:
  friend class ServerWatch;
  /// By the beginning of the paths that concern them, which stands in the watch.
  using Waiting = std::multimap<std::string_view, ServerWatch*>;

  bool reachesBackTo(Revision after) const { return after <= last_ && after + turns_.size() >= last_; }
  /// The readers that a change at the path concerns need not wait any longer.
  void takeOffAlong(std::string_view path);
  void takeOff(Waiting::iterator at, Revision told);
  void wakeAll();

  HistoryLimits limits_;
  BodyBudget heldTexts_{kHeldTextBytes};
  TreeDocuments const* tree_;
  /// The last turn's revision; those of the turns that are kept end with it.
  Revision last_;
  /// Of what follows it, readers that wait need not have been told yet; and how many changes of that have been looked
  /// at.
  Revision passed_;
  std::size_t changesPassed_ = 0;
  /// Event ids carry it: a revision means something within one history alone.
  HistoryId history_;
  std::deque<CommittedTurn> turns_;
  std::size_t changes_ = 0;
  std::size_t bytes_ = 0;
  /// Counts the restarts.
  std::size_t era_ = 1;
  bool isClosed_ = false;
  /// All readers, the one first whose sign of life is due first; and the time when one was last given.
  std::list<ServerWatch*> signs_;
  EventLoop::Clock::time_point now_;
  /// Readers that have been told all turns.
  Waiting waiting_;
  /// Those that wait no longer and are about to be told so.
  std::set<ServerWatch*> woken_;
};

}  // namespace Agent
