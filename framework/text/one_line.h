// The escaping of control characters, so that a text from outside stays on one line of a trace or a message.
#pragma once

#include <iosfwd>
#include <string_view>

#include "framework/memory/export.h"

namespace Nox {

/// Writes a text with its control characters escaped, so that it stays one line and harmless: `\n`, `\r`, `\t`,
/// otherwise each byte as in `\x1B`.
NOX_EXPORT void writeOneLine(std::ostream& out, std::string_view text);

}  // namespace Nox
