// The tree of a registry that runs, as documents with revisions.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>

#include "agent/host.h"
#include "agent/scenario.h"
#include "agent/state_tree.h"
#include "agent/store.h"

namespace Agent {

class ChangedPaths;

/// A document as everybody is told of it.
struct Document {
  DocumentText text;
  /// The turn that last changed the text.
  Revision revision = 0;
  /// How long a heartbeat lives; absent if for ever, and for all other documents.
  std::optional<std::chrono::milliseconds> timeToLive;
};

/// In byte order of the paths.
using Documents = std::map<std::string, Document, std::less<>>;

/// What one turn did: what it changed, under the new revision; under the old one nothing, or no more than times to
/// live.
struct TurnResult {
  CommittedTurn turn;
  /// Why a handler failed, in one line: all is written and delivered, but perhaps not answered as it should be.
  std::optional<std::string> failure;
};

/// A registry on the documents of a store, and all documents that it comes to. It writes nothing to the store: what
/// changes is for the caller to commit. The library outlives it.
class LiveTree {
 public:
  /// Takes over what the store holds and lets a fresh registry find it: the registry's own documents first, then the
  /// rest, and then its first passes, in one turn. Throws a StoreError, and an InputError with its path for a document
  /// that no tree can have had.
  LiveTree(Nox::Library const& library, Store& store);
  LiveTree(LiveTree const&) = delete;
  LiveTree& operator=(LiveTree const&) = delete;

  /// What the first passes changed in what was stored. In a new store that is the whole tree.
  CommittedTurn const& firstTurn() const noexcept { return firstTurn_; }

  Documents const& documents() const noexcept { return documents_; }
  Revision revision() const noexcept { return revision_; }
  Tables const& tables() noexcept { return host_.tables(); }

  /// Applies the operations in one turn, or none of them. Heartbeats that are put get this time to live. Throws an
  /// InputError with its path, and a field that starts inside the document, if the tree does not take one; `refused`,
  /// if given, receives which.
  TurnResult apply(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive,
                   std::size_t* refused = nullptr);

 private:
  void restore(Tables& tables);
  void check(std::span<Operation const> operations, std::size_t& at) const;
  void note(Operation const& operation, ChangedPaths& changed) const;
  CommittedTurn collect(ChangedPaths& changed);
  void renew(std::string const& path, std::optional<std::chrono::milliseconds> timeToLive, CommittedTurn& turn,
             std::size_t changes);
  void compare(std::string const& path, Json const* document, CommittedTurn& turn);

  Documents documents_;
  Revision revision_;
  std::optional<StateTree> tree_;
  Host host_;
  CommittedTurn firstTurn_;
};

/// The documents whose paths begin with the prefix.
std::pair<Documents::const_iterator, Documents::const_iterator> withPrefix(Documents const& documents,
                                                                           std::string_view prefix);

}  // namespace Agent
