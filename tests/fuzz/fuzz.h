// What fuzz targets have in common: properties that must hold, and what every error's text must be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>

#include "agent/document/utf8.h"

/// Gives the bytes to what is tested; ends the process where a property does not hold. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace Fuzz {

inline std::string_view textOf(std::uint8_t const* data, std::size_t size) {
  return {reinterpret_cast<char const*>(data), size};
}

/// Ends the process, as a crash does, unless the property holds.
inline void require(bool holds, std::string_view property, std::string_view found = {}) {
  if (holds) return;
  std::cerr << "fuzz: does not hold: " << property << '\n' << found << std::endl;
  std::abort();
}

inline void requireEqual(std::string const& left, std::string const& right, std::string_view property) {
  require(left == right, property, left + "\n-- and --\n" + right);
}

/// What a person reads about bad input is one line that shows as it is.
inline void requireOneLine(std::string_view text) {
  require(!text.empty(), "an error says something");
  for (std::size_t at = 0; at < text.size();) {
    Agent::Utf8Character const character = Agent::decodeUtf8(text, at);
    require(character.size > 0 && !Agent::isEscaped(character.code), "an error is one printable line", text);
    at += character.size;
  }
}

/// Whether what takes long is checked of this input: of one in `count`, as its bytes have it, but of each that is
/// replayed.
inline bool isSampled([[maybe_unused]] std::string_view input, [[maybe_unused]] std::size_t count) {
#ifdef ENROLIX_FUZZ
  return std::hash<std::string_view>()(input) % count == 0;
#else
  return true;
#endif
}

/// Numbers and texts off the front of an input; zeros and nothing behind its end.
class Bytes {
 public:
  explicit Bytes(std::string_view rest) : rest_(rest) {}

  bool empty() const { return rest_.empty(); }
  std::string_view take(std::size_t size) {
    std::string_view const taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  /// Of so many bytes, the first one least.
  std::uint64_t number(std::size_t bytes) {
    std::uint64_t value = 0;
    std::size_t shift = 0;
    for (char const byte : take(bytes)) {
      value |= std::uint64_t{static_cast<unsigned char>(byte)} << shift;
      shift += 8;
    }
    return value;
  }
  /// Behind a byte that tells its size.
  std::string_view text() { return take(number(1)); }
  std::string_view rest() { return take(rest_.size()); }

 private:
  std::string_view rest_;
};

}  // namespace Fuzz
