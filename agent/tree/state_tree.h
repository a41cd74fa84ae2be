// The state tree: documents at paths, put, deleted and read as the entities that stand for them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "agent/tree/places.h"
#include "framework/core/write_observer.h"

namespace Agent {

/// A put or a delete that the tree takes: `StateTree::check()` alone makes them. What it was made of must outlive it.
class CheckedOperation {
 private:
  friend class StateTree;
  CheckedOperation(Path const& path, bool isPut, CheckedDocument document)
      : path_(path), isPut_(isPut), document_(std::move(document)) {}

  Path const& path_;
  bool isPut_;
  CheckedDocument document_;
};

/// The correspondence between paths and entities. It is all that any surface needs: it owns what no record holds, the
/// contents of heartbeats and of the registrations' other entries. The tables must outlive it, and no other code may
/// write what it writes.
class StateTree {
 public:
  explicit StateTree(Controllerdb::AgentTables& tables) : content_{tables} {}
  StateTree(StateTree const&) = delete;
  StateTree& operator=(StateTree const&) = delete;

  /// Checks a put or, without a document, a delete. Throws a PathRefusal, or an InputError whose field starts inside
  /// the document, if the tree does not take it.
  static CheckedOperation check(Path const& path, Json const* document);

  /// Puts or deletes, in one turn, all notifications included. Deleting what is not there does nothing. A handler's
  /// exception is thrown on when everything has been written and delivered.
  void apply(CheckedOperation const& operation);

  /// Both for a put. What it throws when the tree does not take the document, `check()` tells; then nothing has
  /// changed.
  void put(Path const& path, Json const& document) { apply(check(path, &document)); }
  /// Both for a delete.
  void remove(Path const& path) { apply(check(path, nullptr)); }

  /// What of a document that was read from a tree may be put: all but the registry's own fields; nothing where the
  /// whole document is the registry's. What no tree can have held is given as it is.
  static std::optional<Json> inputOf(Path const& path, Json const& document);

  /// Puts back a document that was read from a tree like this one, the registry's own included, before there is a
  /// registry. Rows of the controller's table are left out: a registry removes only those that it knows of, so that it
  /// must find none. Throws an InputError if the document cannot have been read there.
  void restore(Path const& path, Json const& document);

  /// The document at the path; nothing if there is none.
  std::optional<Json> read(Path const& path) const;
  /// Its text; null if there is none.
  DocumentText text(Path const& path) const;

  /// Calls `visit` with every path that may have a document, in byte order.
  void forEachPath(PathVisit const& visit) const;
  /// Calls `visit` with every path that has a document, and the document, in byte order of the paths.
  void forEach(std::function<void(std::string const& path, Json const& document)> const& visit) const;

  /// The path of the document that a write of the registry is part of, by the record and the key that it wrote; nothing
  /// if it is part of none. A path that ends with an empty name stands for all documents whose paths begin with it.
  std::optional<Path> documentOf(Nox::Entity const& record, Nox::WriteText key) const;

 private:
  TreeContent content_;
};

}  // namespace Agent
