// The tree of a registry that runs, as documents with revisions.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "agent/document/documents.h"
#include "agent/document/scenario.h"
#include "agent/tree/host.h"
#include "agent/tree/state_tree.h"
#include "agent/tree/stored_size.h"

namespace Agent {

class WrittenDocuments;

/// What one turn did: what it changed, under the new revision; under the old one nothing, or no more than times to
/// live.
struct TurnResult {
  CommittedTurn turn;
  /// Why a handler failed, in one line: all is written and delivered, but perhaps not answered as it should be.
  std::optional<std::string> failure;
};

/// A registry on documents that were stored, and all documents that it comes to. It keeps the documents up to date, and
/// writes nothing to a store: what changes is for the caller to commit. The library and the documents outlive it.
class LiveTree {
 public:
  /// Takes over the documents and lets a fresh registry find them: the registry's own first, but for the rows of its
  /// table, then the rest, and then its first passes, in one turn. Rows are not taken over, because a registry removes
  /// only those that it knows of: after this the table holds the rows of the switches that are ready in this registry,
  /// and no other. Throws an InputError with its path for a document that no tree can have had.
  LiveTree(Nox::Library const& library, TreeDocuments& documents, StoredLimits const& limits = {});
  LiveTree(LiveTree const&) = delete;
  LiveTree& operator=(LiveTree const&) = delete;

  /// What the first passes changed in what was stored. In a new store that is the whole tree.
  TurnResult const& firstTurn() const noexcept { return firstTurn_; }

  Controllerdb::AgentTables const& tables() noexcept { return host_.tables(); }
  /// Whether the registry has a machine for the registration of that name.
  bool isServed(Nox::Name const& registration) const { return host_.isServed(registration); }

  /// Applies the operations in one turn, or none of them. Heartbeats that are put get this time to live. Throws an
  /// InputError with its path, and a field that starts inside the document, if the tree does not take one, and a
  /// QuotaRefusal if there is no room for them; `refused`, if given, receives which. What a breath does in the middle
  /// of it leaves the tree and the documents alone.
  TurnResult apply(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive,
                   std::size_t* refused = nullptr);

 private:
  void restore(Controllerdb::AgentTables& tables);
  std::vector<CheckedOperation> check(std::span<Operation const> operations, std::size_t& at) const;
  void collect(WrittenDocuments& written, TurnResult& result);
  void renew(std::string const& path, std::optional<std::chrono::milliseconds> timeToLive, TurnResult& result,
             std::size_t changes);
  void compare(std::string const& path, DocumentText const& text, TurnResult& result);

  TreeDocuments& kept_;
  StoredSize size_;
  std::optional<StateTree> tree_;
  Host host_;
  TurnResult firstTurn_;
};

}  // namespace Agent
