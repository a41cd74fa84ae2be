// The host of the registry: makes the root, and every table that the registry reads and writes.
#pragma once

#include <functional>

#include "agent/tree/tables.h"
#include "framework/by_name/library.h"

namespace Agent {

/// A registry that runs: unless they were filled, its tables are empty and the agent is not enabled. What it knows of
/// the registry are names: the library's entry point, and the attributes that it sets. One thread uses it; the library
/// outlives it.
class Host {
 public:
  /// `fill` may enter into the tables what is there before the registry is: it finds that at its first passes, which
  /// run when all is in place, in one turn. What `fill` throws is thrown on.
  explicit Host(Nox::Library const& library, std::function<void(Tables& tables)> const& fill = {});
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;

  Tables& tables() noexcept { return tables_; }
  Nox::Ptr<Nox::Entity> const& root() const noexcept { return root_; }

 private:
  Nox::Ptr<Nox::Entity> root_;
  Tables tables_;
};

}  // namespace Agent
