// What all stores share: the ids of histories, and how a whole state is read.
#include "agent/store/store.h"

#include <array>
#include <cstdio>
#include <random>

namespace Agent {

HistoryId newHistoryId() {
  std::random_device random;
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%08x%08x", random(), random());
  return digits.data();
}

TreeDocuments readDocuments(Store& store, std::map<std::string, std::chrono::milliseconds>* left) {
  TreeDocuments read;
  read.revision = store.load([&](DocumentChange const& document) {
    read.documents.emplace_hint(
        read.documents.end(), document.path, Document{document.text, document.revision, document.timeToLive, false});
    if (left != nullptr && document.left != document.timeToLive) left->emplace(document.path, *document.left);
  });
  return read;
}

}  // namespace Agent
