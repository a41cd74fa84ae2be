// Identities: their text form, written and read.
#include "records/ids.h"

#include <ostream>

namespace Lumo {

static int digitOf(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<EthAddr> EthAddr::parse(std::string_view text) noexcept {
  if (text.size() != 17) return std::nullopt;
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i % 3 == 2) {
      if (text[i] != ':') return std::nullopt;
      continue;
    }
    int const digit = digitOf(text[i]);
    if (digit < 0) return std::nullopt;
    bits = bits << 4 | static_cast<unsigned>(digit);
  }
  return EthAddr(bits);
}

Nox::String8 EthAddr::stringValue() const {
  static constexpr char kDigits[] = "0123456789abcdef";
  char text[18] = "00:00:00:00:00:00";
  for (unsigned i = 0; i < 12; ++i) text[i + i / 2] = kDigits[bits_ >> (44 - 4 * i) & 0xF];
  return text;
}

}  // namespace Lumo

namespace Controller {

std::ostream& operator<<(std::ostream& out, SystemId const& id) { return out << id.stringValue(); }

}  // namespace Controller
