// Decodes UTF-8.
#include "agent/document/utf8.h"

#include <cstdint>
#include <cstring>

namespace Agent {

Utf8Character decodeUtf8(std::string_view text, std::size_t at) noexcept {
  auto const byte = [&](std::size_t offset) { return static_cast<unsigned char>(text[at + offset]); };
  unsigned const lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  // The smallest code point of each length refuses overlong forms; 0xC0, 0xC1 and 0xF5 upwards never start anything.
  std::size_t const size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() - at < size) return {};
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  char32_t code = lead & (0x7Fu >> size);
  for (std::size_t offset = 1; offset < size; ++offset) {
    if ((byte(offset) & 0xC0u) != 0x80u) return {};
    code = code << 6 | (byte(offset) & 0x3Fu);
  }
  bool const isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kSmallest[size] || code > 0x10FFFF || isSurrogate) return {};
  return {code, size};
}

std::size_t findInvalidUtf8(std::string_view text) noexcept {
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  for (std::size_t at = 0; at < text.size();) {
    // Most texts are of one byte a character.
    std::uint64_t word = ~std::uint64_t{0};
    if (text.size() - at >= kWord) std::memcpy(&word, text.data() + at, kWord);
    if ((word & 0x8080808080808080u) == 0) {
      at += kWord;
      continue;
    }
    std::size_t const size = decodeUtf8(text, at).size;
    if (size == 0) return at;
    at += size;
  }
  return std::string_view::npos;
}

}  // namespace Agent
