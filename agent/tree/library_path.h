// Where the program finds the registry's library.
#pragma once

#include <optional>
#include <string>

namespace Agent {

/// The library that the person named; otherwise the one beside the program; otherwise the one in the library directory
/// that belongs to the program's. Throws a FileError that names both places if the library is in neither.
std::string libraryPath(std::optional<std::string> const& named);

}  // namespace Agent
