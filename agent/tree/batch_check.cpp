// Which entries a registration has after each operation, and which it has lost.
#include "agent/tree/batch_check.h"

#include "agent/document/breath.h"

namespace Agent {

/// What the registry does not read may go and come back.
constexpr Place kEntry("registration/<switch>/<entry>");

void BatchCheck::Registration::put(Place place, std::string const& entry) {
  if (isGone) throw InputError("", "the registration would go and come back in one turn; expected two");
  if (place != kEntry && gone.contains(entry))
    throw InputError("", "the entry would go and come back in one turn; expected two");
  entries.insert(entry);
}

void BatchCheck::Registration::remove(std::string const& entry) {
  if (entries.erase(entry) == 0) return;
  gone.insert(entry);
  isGone = entries.empty();
}

void BatchCheck::Registration::removeAll() {
  isGone = isGone || !entries.empty();
  entries.clear();
}

BatchCheck::Registration& BatchCheck::registration(std::string const& switchName) {
  auto const [at, isNew] = registrations_.try_emplace(switchName);
  if (!isNew) return at->second;
  std::string const prefix = textAt(kEntry, {switchName, ""});
  auto const [begin, end] = withPrefix(documents_, prefix);
  for (auto document = begin; document != end; ++document) {
    Breath::take();
    at->second.entries.insert(document->first.substr(prefix.size()));
  }
  return at->second;
}

void BatchCheck::add(Operation const& operation) {
  Path const& path = operation.path;
  if (path.place.prefix() != kEntry.prefix()) return;
  Registration& found = registration(path.names[0]);
  if (path.place.isFolder()) return found.removeAll();
  std::string const entry = toText(path).substr(textAt(kEntry, {path.names[0], ""}).size());
  if (operation.isPut())
    found.put(path.place, entry);
  else
    found.remove(entry);
}

}  // namespace Agent
