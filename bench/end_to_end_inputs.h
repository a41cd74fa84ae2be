// What switches and operators put into a registry, in words that belong to no registry.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace EndToEnd {

struct VersionInput {
  unsigned number = 0;
  std::string description;
};
struct ServiceInput {
  std::string name;
  bool enabled = true;
  std::vector<VersionInput> versions;
};
struct MountInput {
  std::string path;
  std::string remotePath;
  std::string type;
  std::string mode;
  std::string service;
};
/// What one switch registers with.
struct SwitchInput {
  std::string name;
  std::uint64_t systemId = 0;
  bool enabled = true;
  unsigned generation = 0;
  std::vector<ServiceInput> const* services = nullptr;
};

/// Every document that a registry has written: its path, and the text of each of its fields.
using Documents = std::map<std::string, std::map<std::string, std::string>>;

}  // namespace EndToEnd
