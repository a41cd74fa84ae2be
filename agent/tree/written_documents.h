// Which documents a turn may have changed: those that its writes are part of.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/document/documents.h"
#include "agent/tree/state_tree.h"

namespace Agent {

/// Watches the registry's writes for the length of a scope, and collects the paths of the documents that they are part
/// of; whether a document has changed is for its reader to find out. Scopes do not nest.
class WrittenDocuments final : public Nox::WriteObserver {
 public:
  explicit WrittenDocuments(StateTree const& tree);
  WrittenDocuments(WrittenDocuments const&) = delete;
  WrittenDocuments& operator=(WrittenDocuments const&) = delete;
  virtual ~WrittenDocuments();

  /// What the observer is not told of: an operation on that path. A folder stands for all documents inside.
  void add(Path const& path);

  /// The paths, in byte order. Where a folder was written, those of its documents in `before`, which has not been told
  /// of the turn, are among them.
  std::map<std::string, Path> const& paths(Documents const& before);

 private:
  void written(Nox::Entity const& entity, std::string_view attribute, bool changed, Nox::WriteText key,
               Nox::WriteText value) override;
  void removed(Nox::Entity const& entity, std::string_view attribute, bool changed, Nox::WriteText key) override;
  void delivered() override;
  void note(Nox::Entity const& entity, Nox::WriteText const& key);

  StateTree const& tree_;
  std::map<std::string, Path> paths_;
  /// What the paths in the folders begin with that were written as a whole.
  std::vector<std::string> folders_;
};

}  // namespace Agent
