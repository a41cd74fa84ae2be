// Where documents outlive the program: what a store must do for the service, whatever it is made of.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace Agent {

/// Counts the turns of one state: the number of the last one. 0 stands before the first.
using Revision = std::uint64_t;

/// A document as JSON in one line, shared by all that keep or send it; null where there is none.
using DocumentText = std::shared_ptr<std::string const>;

/// Names one history of a state: 16 hexadecimal digits that are drawn when the state is made. Revisions count within
/// it; a state that is made from a backup, or that goes on after a loss, begins another history.
using HistoryId = std::string;

/// A history id that no state has had.
HistoryId newHistoryId();

/// A document that was written, or that has gone.
struct DocumentChange {
  std::string path;
  /// Null if it was deleted.
  DocumentText text;
  /// The revision of the turn that changed the text; a turn that changes nothing but the time to live leaves it.
  Revision revision = 0;
  /// How long a heartbeat lives without being put again; absent for one that never expires, and for all other
  /// documents.
  std::optional<std::chrono::milliseconds> timeToLive = std::nullopt;
  /// Nothing has changed but the time to live, or nothing but that the heartbeat was put again for the first time since
  /// the agent started.
  bool isRenewal = false;
  /// In what `load()` gives, how much of its time to live a heartbeat has at this start: all of it, unless it was not
  /// put again between the start before and this one; then what was left when the agent ended.
  std::optional<std::chrono::milliseconds> left = std::nullopt;
};

/// All that one turn changed, its input and what the registry wrote because of it.
struct CommittedTurn {
  Revision revision = 0;
  std::vector<DocumentChange> changes;
};

/// A store that could not do what it was asked; what() is one line that begins with the store's name, that of its file.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// There is no room. It may work again later.
class StoreFull : public StoreError {
 public:
  using StoreError::StoreError;
};

/// A commit that failed so that it is not known whether it is kept. The store takes no more turns until `prepare()` has
/// found out.
class OutcomeUnknown : public StoreError {
 public:
  using StoreError::StoreError;
};

/// One state: documents at paths, and the revision of the last turn. One thread uses it.
class Store {
 public:
  Store() = default;
  Store(Store const&) = delete;
  Store& operator=(Store const&) = delete;
  virtual ~Store() = default;

  virtual HistoryId history() const = 0;

  /// Makes the store ready for `commit()`: to be called before the first one, and again after one has failed. It finds
  /// out whether there is room for a few turns of common size, and what became of a commit whose outcome is unknown:
  /// what the store holds afterwards it holds for good. Changes neither a document nor the revision. Throws a
  /// StoreError, of class StoreFull if there is no room; then it may be called again. `load()` works before it has
  /// succeeded, unless a commit's outcome is unknown.
  virtual void prepare() = 0;

  /// Calls `visit` with every document, in byte order of the paths, and returns the revision of the last turn. Throws a
  /// StoreError.
  virtual Revision load(std::function<void(DocumentChange const& document)> const& visit) = 0;

  /// Keeps the turns, in order; the revision of the last one becomes that of the state. When this returns they outlive
  /// whatever the store outlives, for a file any end of the program or the machine. Throws a StoreError: nothing of the
  /// turns is kept, unless it is an OutcomeUnknown. A StoreFull says that there is no room.
  virtual void commit(std::span<CommittedTurn const> turns) = 0;

  /// The agent has been awake for so long since its start. What the store remembers of it decides what is left of
  /// heartbeats at the next start.
  virtual void awakeIs(std::chrono::milliseconds time) = 0;

  /// `heard` is called when other users of the same state have committed turns, from the thread that uses this
  /// store, with the store already holding them. That may be inside the other's `commit()`, so `heard` puts off all
  /// that it would do with a store. A store that cannot be shared never calls it.
  virtual void foreignTurnsIs(std::function<void()> heard) = 0;
};

}  // namespace Agent
