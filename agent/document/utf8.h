// UTF-8 as the agent checks it: decoding one character at a time and refusing what Unicode refuses.
#pragma once

#include <cstddef>
#include <string_view>

namespace Agent {

/// One decoded character: its code point and the number of bytes it takes; zero bytes when the bytes are not UTF-8.
struct Utf8Character {
  char32_t code = 0;
  std::size_t size = 0;
};

/// Decodes the character that starts at `at`, which lies inside `text`. Overlong forms, surrogates, code points above
/// U+10FFFF and sequences that are cut short have the size 0.
Utf8Character decodeUtf8(std::string_view text, std::size_t at) noexcept;

/// Where the first byte lies that is no part of valid UTF-8; `npos` if all of `text` is valid.
std::size_t findInvalidUtf8(std::string_view text) noexcept;

/// Whether the character is a control character: U+0000 to 001F or U+007F to 009F.
constexpr bool isControl(char32_t code) noexcept { return code < 0x20 || (code >= 0x7F && code <= 0x9F); }

/// Whether the character is printed as an escape: a control character, one that breaks a line, or one that changes the
/// direction of the text around it, so that a reader would see another text than there is.
constexpr bool isEscaped(char32_t code) noexcept {
  bool const breaksLine = code == 0x2028 || code == 0x2029;
  bool const changesDirection = code == 0x061C || code == 0x200E || code == 0x200F ||
                                (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
  return isControl(code) || breaksLine || changesDirection;
}

}  // namespace Agent
