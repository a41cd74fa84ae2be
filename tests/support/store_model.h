// What a store should hold, as a plain value, and turns for it.
#pragma once

#include <map>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/store/store.h"

namespace Agent {

/// The text, the revision and the time to live in milliseconds, -1 if there is none.
using StoredDocument = std::tuple<std::string, Revision, std::int64_t>;

/// A whole state.
struct StoreModel {
  std::map<std::string, StoredDocument> documents;
  Revision revision = 0;

  bool operator==(StoreModel const&) const = default;

  void commit(std::span<CommittedTurn const> turns) {
    for (CommittedTurn const& turn : turns) {
      for (DocumentChange const& change : turn.changes) {
        if (change.text)
          documents[change.path] = stored(change);
        else
          documents.erase(change.path);
      }
      revision = turn.revision;
    }
  }

  static StoredDocument stored(DocumentChange const& change) {
    return {*change.text, change.revision, change.timeToLive ? change.timeToLive->count() : -1};
  }
};

inline std::ostream& operator<<(std::ostream& out, StoreModel const& model) {
  out << "revision " << model.revision;
  for (auto const& [path, document] : model.documents)
    out << "\n" << path << ": " << std::get<0>(document).substr(0, 40) << " @" << std::get<1>(document);
  return out;
}

/// All that a store gives. The order is the caller's to check.
inline StoreModel contents(Store& store, std::vector<std::string>* order = nullptr) {
  StoreModel model;
  model.revision = store.load([&](DocumentChange const& document) {
    if (order) order->push_back(document.path);
    model.documents[document.path] = StoreModel::stored(document);
  });
  return model;
}

inline DocumentChange put(std::string path, std::string text, Revision revision) {
  return {std::move(path), std::make_shared<std::string const>(std::move(text)), revision, {}, false, {}};
}

inline DocumentChange remove(std::string path, Revision revision) {
  return {std::move(path), nullptr, revision, {}, false, {}};
}

/// A turn whose changes all put a document of its revision.
inline CommittedTurn turnOf(Revision revision, std::vector<std::string> const& paths, std::string const& text) {
  CommittedTurn turn{revision, {}};
  for (std::string const& path : paths) turn.changes.push_back(put(path, text, revision));
  return turn;
}

inline void commitOne(Store& store, CommittedTurn const& turn) { store.commit(std::span(&turn, 1)); }

}  // namespace Agent
