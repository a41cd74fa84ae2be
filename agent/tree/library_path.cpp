// Looks for the library from the place of the running program, so that a tree may be moved as a whole.
#include "agent/tree/library_path.h"

#include <filesystem>

#include "agent/document/input_error.h"

namespace Agent {

std::string libraryPath(std::optional<std::string> const& named) {
  // A name without a slash is a file here, not one to be looked for in the system.
  if (named) return named->find('/') == std::string::npos ? "./" + *named : *named;
  std::error_code unknown;
  std::filesystem::path const program = std::filesystem::read_symlink("/proc/self/exe", unknown);
  // A program that cannot tell where it is leaves the search to the system.
  if (unknown) return ENROLIX_LIBRARY;
  std::filesystem::path const folder = program.parent_path();
  std::filesystem::path const beside = folder / ENROLIX_LIBRARY;
  std::filesystem::path const installed = (folder / ENROLIX_LIBRARY_FOLDER / ENROLIX_LIBRARY).lexically_normal();
  for (auto const& path : {beside, installed})
    if (std::filesystem::exists(path)) return path.string();
  throw FileError(ENROLIX_LIBRARY, "found neither as " + beside.string() + " nor as " + installed.string());
}

}  // namespace Agent
