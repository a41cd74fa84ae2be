// Turns: what goes in, and which documents come out differently.
#include "agent/live_tree.h"

#include <algorithm>

#include "agent/batch_check.h"
#include "agent/changed_paths.h"

namespace Agent {
namespace {

Revision load(Store& store, Documents& to) {
  return store.load([&](DocumentChange const& document) {
    to.emplace_hint(to.end(), document.path, Document{document.text, document.revision, document.timeToLive});
  });
}

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

LiveTree::LiveTree(Nox::Library const& library, Store& store)
    : revision_(load(store, documents_)), host_(library, [this](Tables& tables) { restore(tables); }) {
  firstTurn_.revision = revision_ + 1;
  auto known = documents_.begin();
  // Both are in the same order, so that a document that the registry no longer has is one that was passed over.
  std::vector<std::string> gone;
  tree_->forEach([&](std::string const& path, Json const& document) {
    for (; known != documents_.end() && known->first < path; ++known) gone.push_back(known->first);
    if (known != documents_.end() && known->first == path) ++known;
    compare(path, &document, firstTurn_);
  });
  for (; known != documents_.end(); ++known) gone.push_back(known->first);
  for (std::string const& path : gone) compare(path, nullptr, firstTurn_);
  if (!firstTurn_.changes.empty()) ++revision_;
}

void LiveTree::restore(Tables& tables) {
  tree_.emplace(tables);
  auto const restoreIf = [&](bool isRow) {
    for (auto const& [path, document] : documents_) {
      about(path, [&, &path = path, &document = document] {
        Path const place = parsePath(path);
        if (std::holds_alternative<At::ControllerSwitch>(place) != isRow) return;
        tree_->restore(place, readJson(*document.text));
      });
    }
  };
  restoreIf(false);
  restoreIf(true);
}

TurnResult LiveTree::apply(std::span<Operation const> operations, std::optional<std::chrono::milliseconds> timeToLive,
                           std::size_t* refused) {
  std::size_t at = 0;
  check(operations, refused != nullptr ? *refused : at);
  TurnResult result;
  ChangedPaths changed(tables());
  for (Operation const& operation : operations) note(operation, changed);
  try {
    Nox::Turn turn;
    for (Operation const& operation : operations) {
      if (operation.value)
        tree_->put(operation.path, *operation.value);
      else
        tree_->remove(operation.path);
    }
  } catch (std::exception const& exception) {
    result.failure = printable(exception.what(), 1000);
  }
  result.turn = collect(changed);
  std::size_t const changes = result.turn.changes.size();
  for (Operation const& operation : operations)
    if (operation.value && std::holds_alternative<At::Heartbeat>(operation.path))
      renew(toText(operation.path), timeToLive, result.turn, changes);
  return result;
}

// In the heartbeat's own change if it is among the first `changes`, which are in order; otherwise as a renewal.
void LiveTree::renew(std::string const& path, std::optional<std::chrono::milliseconds> timeToLive, CommittedTurn& turn,
                     std::size_t changes) {
  auto const known = documents_.find(path);
  if (known == documents_.end() || known->second.timeToLive == timeToLive) return;
  known->second.timeToLive = timeToLive;
  auto const end = turn.changes.begin() + static_cast<std::ptrdiff_t>(changes);
  auto const change = std::lower_bound(
      turn.changes.begin(), end, path, [](DocumentChange const& c, std::string const& p) { return c.path < p; });
  if (change != end && change->path == path)
    change->timeToLive = timeToLive;
  else
    turn.changes.push_back({path, known->second.text, known->second.revision, timeToLive, true});
}

void LiveTree::check(std::span<Operation const> operations, std::size_t& at) const {
  BatchCheck batch(documents_);
  for (at = 0; at < operations.size(); ++at) {
    about(toText(operations[at].path), [&] {
      StateTree::check(operations[at].path, operations[at].value ? &*operations[at].value : nullptr);
      if (operations.size() > 1) batch.add(operations[at]);
    });
  }
}

// What an operation changes by itself, and the writes of records do not tell.
void LiveTree::note(Operation const& operation, ChangedPaths& changed) const {
  if (!std::holds_alternative<At::Registration>(operation.path)) return changed.add(operation.path);
  auto const [begin, end] = withPrefix(documents_, toText(operation.path) + "/");
  for (auto at = begin; at != end; ++at) changed.add(parsePath(at->first));
}

CommittedTurn LiveTree::collect(ChangedPaths& changed) {
  for (std::string const& prefix : changed.prefixes()) {
    auto const [begin, end] = withPrefix(documents_, prefix);
    for (auto at = begin; at != end; ++at) changed.add(parsePath(at->first));
  }
  CommittedTurn turn{revision_ + 1, {}};
  for (auto const& [path, place] : changed.paths()) {
    std::optional<Json> const document = tree_->read(place);
    compare(path, document ? &*document : nullptr, turn);
  }
  turn.revision = turn.changes.empty() ? revision_ : ++revision_;
  return turn;
}

void LiveTree::compare(std::string const& path, Json const* document, CommittedTurn& turn) {
  auto const known = documents_.find(path);
  if (document == nullptr) {
    if (known == documents_.end()) return;
    documents_.erase(known);
    turn.changes.push_back({path, nullptr, turn.revision, std::nullopt, false});
    return;
  }
  std::string text = document->dump();
  if (known != documents_.end() && *known->second.text == text) return;
  Document& kept = known != documents_.end() ? known->second : documents_[path];
  kept.text = std::make_shared<std::string const>(std::move(text));
  kept.revision = turn.revision;
  turn.changes.push_back({path, kept.text, kept.revision, kept.timeToLive, false});
}

std::pair<Documents::const_iterator, Documents::const_iterator> withPrefix(Documents const& documents,
                                                                           std::string_view prefix) {
  auto const begin = documents.lower_bound(prefix);
  auto end = begin;
  while (end != documents.end() && end->first.starts_with(prefix)) ++end;
  return {begin, end};
}

}  // namespace Agent
