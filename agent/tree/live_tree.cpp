// Turns: what goes in, and which documents come out differently.
#include "agent/tree/live_tree.h"

#include <algorithm>

#include "agent/document/breath.h"
#include "agent/tree/batch_check.h"
#include "agent/tree/written_documents.h"

namespace Agent {
namespace {

/// Does `work`, about the document at `path`: what it throws says so.
template <class Work>
void about(std::string const& path, Work const& work) {
  try {
    work();
  } catch (InputError& error) {
    error.pathIs(path);
    throw;
  }
}

}  // namespace

LiveTree::LiveTree(Nox::Library const& library, TreeDocuments& documents, StoredLimits const& limits)
    : kept_(documents),
      size_(kept_.documents, limits),
      host_(library, [this](Controllerdb::AgentTables& tables) { restore(tables); }) {
  firstTurn_.turn.revision = kept_.revision + 1;
  auto known = kept_.documents.begin();
  // Both are in the same order, so that a document that the registry no longer has is one that was passed over.
  std::vector<std::string> gone;
  tree_->forEachPath([&](std::string const& path) {
    Breath::take();
    DocumentText const text = tree_->text(parsePath(path));
    if (!text) return;
    for (; known != kept_.documents.end() && known->first < path; ++known) gone.push_back(known->first);
    if (known != kept_.documents.end() && known->first == path) ++known;
    compare(path, text, firstTurn_);
  });
  for (; known != kept_.documents.end(); ++known) gone.push_back(known->first);
  for (std::string const& path : gone) compare(path, nullptr, firstTurn_);
  if (!firstTurn_.turn.changes.empty()) ++kept_.revision;
}

void LiveTree::restore(Controllerdb::AgentTables& tables) {
  tree_.emplace(tables);
  for (auto const& [path, document] : kept_.documents) {
    Breath::take();
    about(path, [&, &path = path, &document = document] { tree_->restore(parsePath(path), readJson(*document.text)); });
  }
}

TurnResult LiveTree::apply(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive,
                           std::size_t* refused) {
  std::size_t at = 0;
  if (refused == nullptr) refused = &at;
  std::vector<CheckedOperation> const checked = check(operations, *refused);
  size_.require(operations, kept_.documents, *refused);
  TurnResult result;
  WrittenDocuments written(*tree_);
  for (Operation const& operation : operations) {
    Breath::take();
    written.add(operation.path);
  }
  try {
    Nox::Turn turn;
    for (CheckedOperation const& operation : checked) {
      Breath::take();
      tree_->apply(operation);
    }
  } catch (std::exception const& exception) {
    result.failure = printable(exception.what(), 1000);
  }
  collect(written, result);
  std::size_t const changes = result.turn.changes.size();
  for (Operation const& operation : operations)
    if (operation.value && operation.path.place.expires()) renew(toText(operation.path), timeToLive, result, changes);
  return result;
}

// In the heartbeat's own change if it is among the first `changes`, which are in order; otherwise as a renewal.
void LiveTree::renew(std::string const& path, std::optional<std::chrono::milliseconds> timeToLive, TurnResult& result,
                     std::size_t changes) {
  auto const known = kept_.documents.find(path);
  if (known == kept_.documents.end() || known->second.timeToLive == timeToLive) return;
  Document& document = known->second;
  document.timeToLive = timeToLive;
  auto& all = result.turn.changes;
  auto const end = all.begin() + static_cast<std::ptrdiff_t>(changes);
  auto const change = std::lower_bound(
      all.begin(), end, path, [](DocumentChange const& c, std::string const& p) { return c.path < p; });
  if (change != end && change->path == path)
    change->timeToLive = timeToLive;
  else
    all.push_back({path, document.text, document.revision, timeToLive, true, std::nullopt});
}

std::vector<CheckedOperation> LiveTree::check(std::span<Operation const> operations, std::size_t& at) const {
  std::vector<CheckedOperation> checked;
  BatchCheck batch(kept_.documents);
  for (at = 0; at < operations.size(); ++at) {
    Breath::take();
    about(toText(operations[at].path), [&] {
      checked.push_back(StateTree::check(operations[at].path, operations[at].value ? &*operations[at].value : nullptr));
      if (operations.size() > 1) batch.add(operations[at]);
    });
  }
  return checked;
}

void LiveTree::collect(WrittenDocuments& written, TurnResult& result) {
  result.turn.revision = kept_.revision + 1;
  for (auto const& [text, path] : written.paths(kept_.documents)) {
    Breath::take();
    compare(text, tree_->text(path), result);
  }
  result.turn.revision = result.turn.changes.empty() ? kept_.revision : ++kept_.revision;
}

void LiveTree::compare(std::string const& path, DocumentText const& text, TurnResult& result) {
  Revision const revision = result.turn.revision;
  auto const known = kept_.documents.find(path);
  if (text == nullptr) {
    if (known == kept_.documents.end()) return;
    size_.removed(path, *known->second.text);
    kept_.documents.erase(known);
    result.turn.changes.push_back({path, nullptr, revision, std::nullopt});
    return;
  }
  if (known != kept_.documents.end() && *known->second.text == *text) return;
  if (known != kept_.documents.end()) size_.removed(path, *known->second.text);
  size_.added(path, *text);
  Document& kept = known != kept_.documents.end() ? known->second : kept_.documents[path];
  kept.text = text;
  kept.revision = revision;
  result.turn.changes.push_back({path, kept.text, kept.revision, kept.timeToLive});
}

}  // namespace Agent
