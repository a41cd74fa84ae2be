// The framework's own assertions: on in every build, fatal, with texts that are part of the contract.
#pragma once

#include "framework/memory/export.h"

namespace Nox {

/// Reports "FILE:LINE: assertion failed: TEXT" on standard error and aborts.
[[noreturn]] NOX_EXPORT void assertionFailed(char const* text, char const* file, int line) noexcept;

}  // namespace Nox

/// Aborts with `text` unless `condition` holds. A broken invariant, never bad outside input.
#define NOX_ASSERT(condition, text) \
  (static_cast<bool>(condition) ? void() : ::Nox::assertionFailed(text, __FILE__, __LINE__))
