// The one way into the library for a host that loads it at run time.
#include "framework/by_name/library.h"

#include "registry/root.h"

extern "C" NOX_EXPORT Nox::LibraryInterface const* noxLibraryInterface() {
  static constexpr Nox::LibraryInterface kInterface{
      Nox::LibraryInterface::kVersion, ENROLIX_VERSION, [](Nox::Name name) -> Nox::Ptr<Nox::Entity> {
        return Controllerdb::rootFactory(std::move(name));
      }};
  return &kInterface;
}
