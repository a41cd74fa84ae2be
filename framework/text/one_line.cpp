// How control characters are escaped.
#include "framework/text/one_line.h"

#include <ostream>

namespace Nox {

/// Whether the byte at `i` is a control character, or part of one of those that UTF-8 writes as 0xC2 and a byte from
/// 0x80 to 0x9F.
static bool isControl(std::string_view text, std::size_t i) {
  auto const byteAt = [text](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U; };
  unsigned const byte = byteAt(i);
  auto const isTail = [](unsigned tail) { return tail >= 0x80 && tail < 0xA0; };
  return byte < 0x20 || byte == 0x7F || (byte == 0xC2 && isTail(byteAt(i + 1))) ||
         (isTail(byte) && i > 0 && byteAt(i - 1) == 0xC2);
}

void writeOneLine(std::ostream& out, std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::size_t plain = 0;  // start of what is not written yet
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isControl(text, i)) continue;
    out << text.substr(plain, i - plain) << '\\';
    plain = i + 1;
    auto const byte = static_cast<unsigned char>(text[i]);
    switch (byte) {
      case '\n':
        out << 'n';
        break;
      case '\r':
        out << 'r';
        break;
      case '\t':
        out << 't';
        break;
      default:
        out << 'x' << kDigits[byte >> 4U] << kDigits[byte & 0xFU];
    }
  }
  out << text.substr(plain);
}

}  // namespace Nox
