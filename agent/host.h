// The host of the registry: makes the root, and every table that the registry reads and writes.
#pragma once

#include "agent/tables.h"
#include "registry/root.h"

namespace Agent {

/// A registry that runs: its tables are empty, the agent is not enabled. One thread uses it.
class Host {
 public:
  Host();
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;

  Tables& tables() noexcept { return tables_; }
  Nox::Ptr<Controllerdb::Root> const& root() const noexcept { return root_; }

 private:
  Nox::Ptr<Controllerdb::Root> root_;
  Tables tables_;
};

}  // namespace Agent
