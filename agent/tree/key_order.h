// The order in which documents and the tree show what the records keep by hash.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "agent/document/breath.h"
#include "framework/core/hash_map.h"
#include "records/ids.h"

namespace Agent {

/// A key as documents write it.
inline std::string keyText(unsigned key) { return std::to_string(key); }
inline std::string keyText(Controller::SystemId const& key) { return std::string(key.stringValue().view()); }
inline std::string keyText(Nox::StringN<unsigned char> const& key) { return std::string(key.view()); }

/// The members of a keyed collection with the text of their keys, each followed by `end`, in byte order of the texts.
/// Holds no references: it is for reading at one go.
template <class Member, class Key>
std::vector<std::pair<std::string, Member*>> sortedByKey(Nox::HashMap<Member, Key> const& map,
                                                         std::string_view end = {}) {
  std::vector<std::pair<std::string, Member*>> sorted;
  sorted.reserve(map.members());
  for (Member& member : map) sorted.emplace_back(keyText(member.fwkKey()).append(end), &member);
  std::sort(sorted.begin(), sorted.end(), [](auto const& a, auto const& b) {
    Breath::take();
    return a.first < b.first;
  });
  return sorted;
}

}  // namespace Agent
