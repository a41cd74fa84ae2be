// Which documents a turn may have changed: those that its writes are part of.
#pragma once

#include <map>
#include <string>

#include "agent/document/path.h"
#include "framework/core/write_observer.h"
#include "records/tables.h"

namespace Agent {

/// Watches the registry's writes for the length of a scope, and collects the paths of the documents that they are part
/// of; whether a document has changed is for its reader to find out. Scopes do not nest.
class WrittenDocuments final : public Nox::WriteObserver {
 public:
  explicit WrittenDocuments(Controllerdb::AgentTables const& tables);
  WrittenDocuments(WrittenDocuments const&) = delete;
  WrittenDocuments& operator=(WrittenDocuments const&) = delete;
  virtual ~WrittenDocuments();

  void add(Path const& path) { paths_.try_emplace(toText(path), path); }

  /// The paths, in byte order.
  std::map<std::string, Path> const& paths() const noexcept { return paths_; }
  /// What the paths of whole switches begin with whose service statuses came or went.
  std::vector<std::string> const& prefixes() const noexcept { return prefixes_; }

 private:
  void written(Nox::Entity const& entity, std::string_view operation, bool changed, Nox::WriteText key,
               Nox::WriteText value) override;
  void removed(Nox::Entity const& entity, std::string_view operation, bool changed, Nox::WriteText key) override;
  void note(Nox::Entity const& entity, Nox::WriteText key);

  Controllerdb::AgentTables const& tables_;
  std::map<std::string, Path> paths_;
  std::vector<std::string> prefixes_;
};

}  // namespace Agent
