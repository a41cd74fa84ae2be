// The host of the registry: makes the root, and every table that the registry reads and writes.
#pragma once

#include <functional>

#include "framework/by_name/library.h"
#include "records/tables.h"

namespace Agent {

/// A registry that runs: unless they were filled, its tables are empty and the agent is not enabled. What it knows of
/// the registry are names: the library's entry point, and the attributes that it sets. One thread uses it; the library
/// outlives it.
class Host {
 public:
  /// `fill` may enter into the tables what is there before the registry is: it finds that at its first passes, which
  /// run when all is in place, in one turn. What `fill` throws is thrown on.
  explicit Host(Nox::Library const& library, std::function<void(Controllerdb::AgentTables& tables)> const& fill = {});
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;

  Controllerdb::AgentTables& tables() noexcept { return tables_; }
  Nox::Ptr<Nox::Entity> const& root() const noexcept { return root_; }

  /// Whether the registry has a machine for the registration of that name, so that it answers it.
  bool isServed(Nox::Name const& registration) const;

 private:
  Nox::Ptr<Nox::Entity> root_;
  Controllerdb::AgentTables tables_;
};

}  // namespace Agent
