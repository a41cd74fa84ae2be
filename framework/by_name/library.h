// Libraries that an agent loads while it runs: the one function that such a library exports, and the loading.
#pragma once

#include <string>

#include "framework/core/entity.h"

namespace Nox {

/// What a library's one exported C function returns. The version stands first, and the loader compares it before it
/// reads anything else.
struct LibraryInterface {
  /// The version of this structure and of all that is reached through it.
  static constexpr unsigned kVersion = 2;

  unsigned version;
  char const* release;                    ///< The library's own version, "0.1.0".
  Ptr<Entity> (*rootFactory)(Name name);  ///< Makes a new, empty root of that name.
};

/// A loaded library. It stays loaded for as long as this object lives, which is longer than anything that came from it.
class NOX_EXPORT Library {
 public:
  /// The name of the exported function, whose type is `LibraryInterface const* ()`.
  static constexpr char const* kEntryPoint = "noxLibraryInterface";

  /// Loads a file by its path, or a name without a slash from where the system looks for libraries. Throws
  /// LibraryException, one line that starts with the path, for what cannot be loaded, has no such function, or speaks
  /// another version of the interface.
  explicit Library(std::string const& path);
  Library(Library const&) = delete;
  Library& operator=(Library const&) = delete;
  /// Unloads the library, unless other code of the process has loaded it as well.
  ~Library();

  LibraryInterface const& interface() const noexcept { return *interface_; }
  /// The file that was loaded.
  std::string const& path() const noexcept { return path_; }
  /// A new, empty root of that name. Throws RangeException "null ValidPtr" for a library that makes none.
  ValidPtr<Entity> rootFactory(Name name) const { return interface_->rootFactory(std::move(name)); }

 private:
  void* handle_;
  LibraryInterface const* interface_;
  std::string path_;
};

}  // namespace Nox
