// How a broken invariant ends the process.
#include "framework/memory/assertion.h"

#include <cstdio>
#include <cstdlib>

namespace Nox {

void assertionFailed(char const* text, char const* file, int line) noexcept {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  std::abort();
}

}  // namespace Nox
