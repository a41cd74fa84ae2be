// One buffer for texts that come from outside again and again.
#pragma once

#include <concepts>
#include <string_view>

#include "framework/text/string_data.h"

namespace Nox {

namespace detail {
NOX_EXPORT StringN<unsigned char> sharedText(std::string_view characters);
}  // namespace detail

/// A name or string of these characters: `sharedText<Name>("telemetry")`. Equal texts that this thread asks for have
/// one buffer as long as one of them lives, as names of services and types of mounts are the same for thousands of
/// switches: one with 4 services and 8 mounts takes 2 KB and 60 allocations less. Texts of more than 128 bytes are made
/// anew. May be asked by any thread, each of which shares its own; not by destructors of static objects.
template <std::derived_from<StringN<unsigned char>> T>
T sharedText(std::string_view characters) {
  return T(detail::sharedText(characters));
}

}  // namespace Nox
