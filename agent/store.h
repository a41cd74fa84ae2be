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

/// A document as JSON in one line, shared by all who keep or send it; null where there is none.
using DocumentText = std::shared_ptr<std::string const>;

/// A document that was written, or that has gone.
struct DocumentChange {
  std::string path;
  /// Null if it was deleted.
  DocumentText text;
  /// The revision of the turn that changed the text; a turn that changes nothing but the time to live leaves it.
  Revision revision = 0;
  /// How long a heartbeat lives without being put again; absent for one that never expires, and for all other
  /// documents.
  std::optional<std::chrono::milliseconds> timeToLive;
  /// Nothing but the time to live has changed.
  bool isRenewal = false;
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

/// One state: documents at paths, and the revision of the last turn. One thread uses it.
class Store {
 public:
  Store() = default;
  Store(Store const&) = delete;
  Store& operator=(Store const&) = delete;
  virtual ~Store() = default;

  /// Calls `visit` with every document, in byte order of the paths, and returns the revision of the last turn. Throws a
  /// StoreError.
  virtual Revision load(std::function<void(DocumentChange const& document)> const& visit) = 0;

  /// Keeps the turns, in order; the revision of the last one becomes that of the state. When this returns they outlive
  /// whatever the store outlives, for a file any end of the program or the machine. Throws a StoreError, of class
  /// StoreFull if there is no room; then nothing of them is kept, and the store can be used as before.
  virtual void commit(std::span<CommittedTurn const> turns) = 0;

  /// Throws what `commit()` would throw for a few turns of common size, and changes neither a document nor the
  /// revision. It costs as much as such a commit.
  virtual void checkRoom() = 0;

  /// Who wants to hear of turns that others committed to the same state; it is called from the thread that uses this
  /// store, with the store already holding them. That may be inside the other's `commit()`, so `heard` puts off all
  /// that it would do with a store. A store that nobody can share never calls it.
  virtual void foreignTurnsIs(std::function<void()> heard) = 0;
};

}  // namespace Agent
