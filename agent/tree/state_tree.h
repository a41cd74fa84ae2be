// The state tree: documents at paths, put, deleted and read as the entities that stand for them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>

#include "agent/document/json_reader.h"
#include "agent/document/path.h"
#include "records/tables.h"

namespace Agent {

/// A path where this may not be done, whatever the document.
class PathRefusal : public InputError {
 public:
  explicit PathRefusal(std::string const& reason) : InputError("", reason) {}
};

/// The correspondence between paths and entities. It is all that any surface needs: it owns what no record holds, the
/// contents of heartbeats and of the registrations' other entries. The tables must outlive it, and no other code may
/// write what it writes.
class StateTree {
 public:
  explicit StateTree(Controllerdb::AgentTables& tables) : tables_(tables) {}
  StateTree(StateTree const&) = delete;
  StateTree& operator=(StateTree const&) = delete;

  /// Puts a document, in one turn, all notifications included. Throws a PathRefusal, or an InputError whose field
  /// starts inside the document, if the tree does not take it; then nothing has changed. A handler's exception is
  /// thrown on when everything has been written and delivered.
  void put(Path const& path, Json const& document);

  /// Throws what `put()` or, without a document, `remove()` would throw about the path and the document.
  static void check(Path const& path, Json const* document);

  /// What of a document that was read from a tree may be put: all but the registry's own fields; nothing where the
  /// whole document is the registry's. What no tree can have held is given as it is.
  static std::optional<Json> inputOf(Path const& path, Json const& document);

  /// Puts back a document that was read from a tree like this one, the registry's own included, before there is a
  /// registry. Rows of the controller's table are left out: a registry removes only those that it knows of, so that it
  /// must find none. Throws an InputError if the document cannot have been read there.
  void restore(Path const& path, Json const& document);

  /// Deletes what stands at the path, in one turn. Nothing there is no error; a path where nothing may be deleted is a
  /// PathRefusal.
  void remove(Path const& path);

  /// The document at the path; nothing if there is none.
  std::optional<Json> read(Path const& path) const;

  /// Calls `visit` with every path that has a document, and the document, in byte order of the paths.
  void forEach(std::function<void(std::string const& path, Json const& document)> const& visit) const;

 private:
  struct Put;
  struct Restore;
  struct Remove;
  struct Read;

  void enter(std::string const& switchName, std::string const& entry, Nox::ValidPtr<Nox::Entity> const& entity);
  void removeEntry(std::string const& switchName, std::string const& entry);
  Nox::Ptr<Nox::Entity> entry(std::string const& switchName, std::string const& entry) const;

  Controllerdb::AgentTables& tables_;
  /// What the heartbeats say, by the bits of the system id: one for every member of the peer table.
  std::unordered_map<std::uint64_t, Json> heartbeats_;
};

}  // namespace Agent
