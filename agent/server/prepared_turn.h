// A turn on its way into documents that are being read.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "agent/document/documents.h"

namespace Agent {

/// The places of a turn's changes are looked up one by one, with others in between; then all changes are made at once,
/// so that no reader sees a part of them. The documents and the turn outlive it; it alone changes the documents.
class PreparedTurn {
 public:
  PreparedTurn(TreeDocuments& documents, CommittedTurn const& turn) : documents_(documents), turn_(turn) {}

  /// Looks up the next change; false if all have been.
  bool findNext();
  /// To be called when all have been looked up. Returns what stood before, one for each change.
  std::vector<std::optional<Document>> apply();

 private:
  TreeDocuments& documents_;
  CommittedTurn const& turn_;
  /// Where each change belongs: the document of its path, or the one before which it is to stand.
  std::vector<Documents::iterator> places_;
};

}  // namespace Agent
