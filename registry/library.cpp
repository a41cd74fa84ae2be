// The function that an agent looks up when it loads the library at run time.
#include "framework/by_name/library.h"

#include "registry/root.h"

extern "C" NOX_EXPORT Nox::LibraryInterface const* noxLibraryInterface() {
  static constexpr Nox::LibraryInterface kInterface{
      Nox::LibraryInterface::kVersion, ENROLIX_VERSION, [](Nox::Name name) -> Nox::Ptr<Nox::Entity> {
        return Controllerdb::rootFactory(std::move(name));
      }};
  return &kInterface;
}
