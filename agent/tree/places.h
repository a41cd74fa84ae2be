// What may be done at each place of the tree, and which records its documents are made of.
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>

#include "agent/document/documents.h"
#include "agent/document/json_reader.h"
#include "agent/document/path.h"
#include "agent/tree/codec.h"
#include "records/tables.h"

namespace Agent {

/// A path where this may not be done, whatever the document.
class PathRefusal : public InputError {
 public:
  explicit PathRefusal(std::string const& reason) : InputError("", reason) {}
};

/// All that documents are made of.
struct TreeContent {
  Controllerdb::AgentTables& tables;
  /// What the heartbeats say, by the bits of the system id: one for every member of the table of peers.
  std::unordered_map<std::uint64_t, DocumentText> heartbeats{};
};

/// A document that was checked, as the kind of its place keeps it: of a record a `DocumentOf`, otherwise a pointer to
/// the document itself, which must outlive it.
using CheckedDocument = std::any;

using PathVisit = std::function<void(std::string const& path)>;

/// A row of the table of places.
struct PlaceRow {
  Place place;
  /// A document there may be any value but null: the registry does not read it.
  bool isFree;
  /// Converts what this writer puts or, without a document, lets it be deleted. Throws a PathRefusal or an InputError
  /// for what it may not.
  CheckedDocument (*check)(Json const* document, Writer by);
  /// What of a document that was read there a client may put; nothing where the whole document is the registry's.
  std::optional<Json> (*input)(Json const& document);
  /// Writes a document that was checked for this writer. Opens no turn.
  void (*put)(TreeContent& content, Path const& path, CheckedDocument const& document, Writer by);
  /// Removes what stands there, if something does. Opens no turn.
  void (*remove)(TreeContent& content, Path const& path);
  /// Null if there is none.
  DocumentText (*text)(TreeContent const& content, Path const& path);
  /// Gives the paths of the documents that stand at this place, in byte order. A folder gives all that lie inside, and
  /// the places inside give none.
  void (*list)(TreeContent const& content, Place place, PathVisit const& visit);
  /// The class of the records into which the registry writes for documents here: what it writes into one, or into what
  /// lies below, is part of the document that has the record's name and the key of the write. Null where clients alone
  /// write.
  Nox::NoxType const* holder;
  /// The directory in which such records come and go, and all their documents with them; null where none do.
  Nox::ValidPtr<Nox::Dir> Controllerdb::AgentTables::*holders;
};

/// One row for each place, in the order of `kPathPatterns`.
std::span<PlaceRow const> placeRows();

inline PlaceRow const& rowOf(Place place) { return placeRows()[place.row()]; }

}  // namespace Agent
