// Finds documents by the beginnings of their paths.
#include "agent/document/documents.h"

namespace Agent {

std::pair<Documents::const_iterator, Documents::const_iterator> withPrefix(Documents const& documents,
                                                                           std::string_view prefix) {
  auto const begin = documents.lower_bound(prefix);
  auto end = begin;
  while (end != documents.end() && end->first.starts_with(prefix)) ++end;
  return {begin, end};
}

}  // namespace Agent
