// The framework's own assertions: on in every build, fatal, with texts that are part of the contract.
#pragma once

#include <string_view>

#include "framework/fwd.h"

namespace Nox {

/// Reports "FILE:LINE: assertion failed: TEXT" on standard error and aborts.
[[noreturn]] NOX_EXPORT void assertionFailed(char const* text, char const* file, int line) noexcept;
/// The same after a line "FILE:LINE: this is about the KIND NAME", the name's control characters escaped.
[[noreturn]] NOX_EXPORT void assertionFailed(char const* text, char const* file, int line, char const* kind,
                                             std::string_view name) noexcept;

}  // namespace Nox

/// Aborts with `text` unless `condition` holds. A broken invariant, never bad outside input.
#define NOX_ASSERT(condition, text) \
  (static_cast<bool>(condition) ? void() : ::Nox::assertionFailed(text, __FILE__, __LINE__))

/// The same about one of many: `kind` says what it is, a literal, and `name` which one.
#define NOX_ASSERT_ABOUT(condition, text, kind, name) \
  (static_cast<bool>(condition) ? void() : ::Nox::assertionFailed(text, __FILE__, __LINE__, kind, name))
