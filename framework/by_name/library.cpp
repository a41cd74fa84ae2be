// Loads a library, and refuses one that is not what the agent was built for.
#include "framework/by_name/library.h"

#include <dlfcn.h>
#include <link.h>

namespace Nox {

static std::string lastError() {
  char const* const text = dlerror();
  return text != nullptr ? text : "unknown error";
}

Library::Library(std::string const& path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)), path_(path) {
  if (handle_ == nullptr) throw LibraryException(path + ": cannot be loaded: " + lastError());
  using EntryPoint = LibraryInterface const* (*)();
  auto* const entryPoint = reinterpret_cast<EntryPoint>(dlsym(handle_, kEntryPoint));
  interface_ = entryPoint != nullptr ? entryPoint() : nullptr;
  std::string refusal;
  if (interface_ == nullptr)
    refusal = std::string(": is no registry library: it has no ") + kEntryPoint;
  else if (interface_->version != LibraryInterface::kVersion)
    refusal = ": speaks version " + std::to_string(interface_->version) + " of the library interface, this program " +
              std::to_string(LibraryInterface::kVersion);
  if (!refusal.empty()) {
    dlclose(handle_);
    throw LibraryException(path + refusal);
  }
  link_map* map = nullptr;
  if (dlinfo(handle_, RTLD_DI_LINKMAP, &map) == 0 && map->l_name[0] != '\0') path_ = map->l_name;
}

Library::~Library() { dlclose(handle_); }

}  // namespace Nox
