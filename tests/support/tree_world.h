// A registry that runs, driven by lines of scenarios and seen through its tree.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "agent/document/scenario.h"
#include "agent/tree/host.h"
#include "agent/tree/library_path.h"
#include "agent/tree/state_tree.h"

namespace Agent {

/// TreeWorld world({R"({"put": …})", …}); EXPECT_EQ(world.read("controller/config"), R"({"enabled":true})");
class TreeWorld {
 public:
  TreeWorld() = default;
  TreeWorld(std::initializer_list<std::string> lines) {
    for (std::string const& line : lines) apply(line);
  }

  /// Applies one operation; throws what the tree throws.
  void apply(Operation const& operation) {
    if (operation.value)
      tree.put(operation.path, *operation.value);
    else
      tree.remove(operation.path);
  }
  void apply(std::string const& line) { apply(parseOperation(line)); }
  void put(std::string const& path, std::string const& document) { tree.put(parsePath(path), readJson(document)); }
  void remove(std::string const& path) { tree.remove(parsePath(path)); }

  /// What an operation is refused with, as "FIELD: REASON"; "accepted" if it is not.
  std::string refusal(std::string const& line) {
    try {
      apply(line);
      return "accepted";
    } catch (InputError const& error) {
      return error.field() + ": " + error.reason();
    }
  }

  /// The document at a path on one line; "nothing" if there is none.
  std::string read(std::string const& path) const {
    auto const document = tree.read(parsePath(path));
    return document ? document->dump() : "nothing";
  }
  /// Every path, and every path with its document, in the tree's order.
  std::vector<std::string> paths() const {
    std::vector<std::string> all;
    tree.forEach([&](std::string const& path, Json const&) { all.push_back(path); });
    return all;
  }
  std::string text() const {
    std::string all;
    tree.forEach([&](std::string const& path, Json const& document) { all += path + " " + document.dump() + "\n"; });
    return all;
  }

  Nox::Library library{libraryPath(std::nullopt)};
  Host host{library};
  Controllerdb::AgentTables& tables = host.tables();
  StateTree tree{tables};
};

}  // namespace Agent
