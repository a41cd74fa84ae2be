// The framework's 8-bit string.
#pragma once

#include <string>
#include <utility>

#include "framework/text/string_data.h"

namespace Nox {

/// An 8-bit string; its type name in descriptions is Nox::String. Copies share one buffer, a change makes a buffer of
/// its own.
class NOX_EXPORT String8 : public StringN<unsigned char> {
 public:
  String8() = default;
  String8(char const* text) : StringN(text != nullptr ? std::string_view(text) : std::string_view()) {}
  String8(std::string const& text) : StringN(std::string_view(text)) {}
  explicit String8(std::string_view text) : StringN(text) {}
  /// Shares the buffer of any other text, a name's for instance.
  explicit String8(StringN text) noexcept : StringN(std::move(text)) {}

  /// Becomes the `count` bytes of `text` that start at `from`.
  void init(char const* text, unsigned from, unsigned count);
  String8& operator=(char const* text) { return *this = String8(text); }
  String8 operator+(String8 const& tail) const;

 private:
  String8(Adopt tag, Data* data) noexcept : StringN(tag, data) {}
};

/// Text in the manner of printf.
NOX_EXPORT String8 format(char const* pattern, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Nox
