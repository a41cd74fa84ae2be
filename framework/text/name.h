// Names: the keys of nearly every collection, and the names of entities.
#pragma once

#include <string>
#include <utility>

#include "framework/text/string_data.h"

namespace Nox {

/// An immutable, shared 8-bit name. Copying shares the buffer; comparing starts with the buffers' addresses.
class NOX_EXPORT Name : public StringN<unsigned char> {
 public:
  Name() = default;
  Name(char const* text) : StringN(text != nullptr ? std::string_view(text) : std::string_view()) {}
  Name(std::string const& text) : StringN(std::string_view(text)) {}
  explicit Name(std::string_view text) : StringN(text) {}
  /// Shares the buffer of a string.
  explicit Name(StringN text) noexcept : StringN(std::move(text)) {}
};

}  // namespace Nox
