// Assertions about one object of many, which name it.
#pragma once

#include <string_view>

#include "framework/memory/assertion.h"

namespace Nox {

/// Reports "FILE:LINE: this is about the KIND NAME" on standard error, the name's control characters escaped, and then
/// as assertionFailed. Aborts.
[[noreturn]] NOX_EXPORT void assertionFailedAbout(char const* text, char const* file, int line, char const* kind,
                                                  std::string_view name) noexcept;

}  // namespace Nox

/// As NOX_ASSERT about one of many: `kind` says what it is, a literal, and `name` which one.
#define NOX_ASSERT_ABOUT(condition, text, kind, name) \
  (static_cast<bool>(condition) ? void() : ::Nox::assertionFailedAbout(text, __FILE__, __LINE__, kind, name))
