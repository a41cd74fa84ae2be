// How an assertion names what it is about.
#include "framework/text/assertion_about.h"

#include <cstdio>
#include <sstream>

#include "framework/text/one_line.h"

namespace Nox {

void assertionFailedAbout(char const* text, char const* file, int line, char const* kind,
                          std::string_view name) noexcept {
  std::ostringstream shown;
  writeOneLine(shown, name);
  std::fprintf(stderr, "%s:%d: this is about the %s %s\n", file, line, kind, shown.str().c_str());
  assertionFailed(text, file, line);
}

}  // namespace Nox
