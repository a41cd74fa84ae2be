// Checks every document of a tree and turns those that are inputs into puts.
#include "agent/program/tree_file.h"

#include <unordered_set>

#include "agent/client/failure.h"
#include "agent/document/scenario.h"
#include "agent/program/tree_members.h"
#include "agent/tree/state_tree.h"

namespace Agent {
namespace {

std::size_t orderOf(Path const& path) {
  constexpr Place kEntry("registration/<switch>/<entry>");
  if (path.place.prefix() != kEntry.prefix()) return 0;
  return path.place == kEntry ? 1 : 2;
}

}  // namespace

TreeFile::TreeFile(std::string const& file) {
  std::unordered_set<std::string> paths;
  TreeMembers members([](std::string const& /*path*/) { return true; },
                      [&](std::string const& text, Json const& document) {
                        Path const path = parsePath(text);
                        if (!paths.insert(toText(path)).second) throw InputError("", "the same path twice in one tree");
                        auto const input = StateTree::inputOf(path, document);
                        if (!input) {
                          ++leftOut_;
                          return;
                        }
                        StateTree::check(path, &*input);
                        Json const put = {{"put", toText(path)}, {"value", *input}};
                        inputs_[orderOf(path)].push_back({put.dump() + "\n", members.line()});
                      });
  auto const source = openScenario(file);
  std::array<char, 64 * 1024> chunk;
  try {
    while (std::size_t const size = source->read(chunk.data(), chunk.size())) members.feed({chunk.data(), size});
    members.finish();
  } catch (InputError const& error) {
    throw ClientFailure(FailureKind::kRefused, errorLine(file, members.line(), error));
  }
}

}  // namespace Agent
