// Copies of a whole state while it goes on changing.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "agent/document/documents.h"
#include "agent/net/http.h"
#include "agent/server/text_in_pieces.h"

namespace Agent {

/// What stood at a path before a turn changed it; nothing if there was no document.
struct DocumentBefore {
  std::string path;
  std::optional<Document> document;
};

class Backup;

/// The copies that are being read. A copy holds all documents as they were when it began, however slowly it is read: it
/// goes through the documents path by path, and keeps of those that it has not come to what stood there before a turn
/// changed them. When all copies keep more than 256 MiB, the one that keeps the most is broken off. All on the event
/// thread.
///
/// A copy is text, a JSON object a line: first what it is, then each document in byte order of the paths, and last the
/// count of the documents and the checksum of all lines before.
class BackupHub : public std::enable_shared_from_this<BackupHub> {
 public:
  /// The documents outlive the hub or its being detached.
  explicit BackupHub(TreeDocuments const& documents) : documents_(&documents) {}

  /// A turn has changed documents, before which these stood there.
  void changed(std::span<DocumentBefore const> before);
  /// The documents go, or are replaced by those of another state: all copies are broken off.
  void detach();

  /// The documents as they are now, as the body of a response.
  std::unique_ptr<BodySource> copy(HistoryId const& history);
  /// Copies that are being read.
  std::size_t copies() const noexcept { return copies_.size(); }

 private:
  friend class Backup;

  TreeDocuments const* documents_;
  std::set<Backup*> copies_;
  BodyBudget heldTexts_{kHeldTextBytes};
};

}  // namespace Agent
