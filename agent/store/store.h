// Where documents outlive the program: what a store must do for the service, whatever it is made of.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <span>
#include <stdexcept>
#include <string>

#include "agent/document/documents.h"

namespace Agent {

/// A history id that no state has had.
HistoryId newHistoryId();

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

/// All documents of the store. `left`, if given, receives how much of its time to live each heartbeat has that has not
/// all of it. Throws a StoreError.
TreeDocuments readDocuments(Store& store, std::map<std::string, std::chrono::milliseconds>* left = nullptr);

}  // namespace Agent
