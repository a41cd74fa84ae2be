// The host of the registry: makes the root, and every table that the registry reads and writes.
#pragma once

#include "agent/tables.h"
#include "framework/library.h"

namespace Agent {

/// A registry that runs: its tables are empty, the agent is not enabled. What it knows of the registry are names: the
/// library's entry point, and the attributes that it sets. One thread uses it; the library outlives it.
class Host {
 public:
  explicit Host(Nox::Library const& library);
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;

  Tables& tables() noexcept { return tables_; }
  Nox::Ptr<Nox::Entity> const& root() const noexcept { return root_; }

 private:
  Nox::Ptr<Nox::Entity> root_;
  Tables tables_;
};

}  // namespace Agent
