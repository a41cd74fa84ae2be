// A text from outside on one line: for traces, and for the messages that name it.
#pragma once

#include <iosfwd>
#include <string_view>

#include "framework/memory/export.h"

namespace Nox {

/// Writes a text with its control characters escaped, so that it stays one line and harmless: `\n`, `\r`, `\t`,
/// otherwise each byte as in `\x1B`.
NOX_EXPORT void writeOneLine(std::ostream& out, std::string_view text);

}  // namespace Nox
