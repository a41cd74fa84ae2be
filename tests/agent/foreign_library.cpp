// Libraries that have the entry point and are no registry for this program, each built with the answer that it gives.
#include "framework/by_name/library.h"

namespace {

/// What another version says may be as short as this.
[[maybe_unused]] alignas(Nox::LibraryInterface) constexpr unsigned kOtherVersion = Nox::LibraryInterface::kVersion + 1;

[[maybe_unused]] constexpr Nox::LibraryInterface kWithoutRoot{
    Nox::LibraryInterface::kVersion, "0.0.0", [](Nox::Name) -> Nox::Ptr<Nox::Entity> { return nullptr; }};

}  // namespace

extern "C" NOX_EXPORT Nox::LibraryInterface const* noxLibraryInterface() {
  return static_cast<Nox::LibraryInterface const*>(static_cast<void const*>(FOREIGN_ANSWER));
}
