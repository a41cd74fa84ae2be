// Documents at paths, and what turns do to them: the texts that are stored and told, whatever stands behind them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

/// Counts the turns of one state: the number of the last one. 0 stands before the first.
using Revision = std::uint64_t;

/// A document as JSON in one line, shared by all that keep or send it; null where there is none.
using DocumentText = std::shared_ptr<std::string const>;

/// Names one history of a state: 16 hexadecimal digits that are drawn when the state is made. Revisions count within
/// it; a state that is made from a backup, or that goes on after a loss, begins another history.
using HistoryId = std::string;

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

/// A document as it is told to readers.
struct Document {
  DocumentText text;
  /// The turn that last changed the text.
  Revision revision = 0;
  /// How long a heartbeat lives; absent if for ever, and for all other documents.
  std::optional<std::chrono::milliseconds> timeToLive;
  /// A heartbeat was put since the agent started, which is the service's to note.
  bool isRenewed = false;
};

/// In byte order of the paths.
using Documents = std::map<std::string, Document, std::less<>>;

/// All documents at one revision.
struct TreeDocuments {
  Documents documents;
  Revision revision = 0;
};

/// The documents whose paths begin with the prefix.
std::pair<Documents::const_iterator, Documents::const_iterator> withPrefix(Documents const& documents,
                                                                           std::string_view prefix);

}  // namespace Agent
