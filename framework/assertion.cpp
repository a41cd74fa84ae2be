// How a broken invariant ends the process.
#include "framework/assertion.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "framework/trace.h"

namespace Nox {

void assertionFailed(char const* text, char const* file, int line) noexcept {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  std::abort();
}

void assertionFailed(char const* text, char const* file, int line, char const* kind, std::string_view name) noexcept {
  std::ostringstream shown;
  writeOneLine(shown, name);
  std::fprintf(stderr, "%s:%d: this is about the %s %s\n", file, line, kind, shown.str().c_str());
  assertionFailed(text, file, line);
}

}  // namespace Nox
