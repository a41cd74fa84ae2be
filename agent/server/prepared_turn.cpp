// Looks up what costs time to find, and changes what has been found.
#include "agent/server/prepared_turn.h"

#include <utility>

namespace Agent {

bool PreparedTurn::findNext() {
  if (places_.size() == turn_.changes.size()) return false;
  places_.push_back(documents_.documents.lower_bound(turn_.changes[places_.size()].path));
  return true;
}

// What has to stand behind a document that is added is not removed before: changes are in the order of their paths, but
// for removals and renewals that follow all others.
std::vector<std::optional<Document>> PreparedTurn::apply() {
  std::vector<std::optional<Document>> before(places_.size());
  for (std::size_t i = 0; i < places_.size(); ++i) {
    DocumentChange const& change = turn_.changes[i];
    Documents::iterator const at = places_[i];
    bool const stands = at != documents_.documents.end() && at->first == change.path;
    if (stands) before[i] = std::move(at->second);
    Document document{change.text, change.revision, change.timeToLive, false};
    if (stands && change.text)
      at->second = std::move(document);
    else if (stands)
      documents_.documents.erase(at);
    else if (change.text)
      documents_.documents.emplace_hint(at, change.path, std::move(document));
  }
  documents_.revision = turn_.revision;
  return before;
}

}  // namespace Agent
