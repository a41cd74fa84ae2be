// Says in plain words why a text is not JSON.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Agent {

/// What may stand between two parts of a JSON text.
inline constexpr std::string_view kBlanks = " \t\r\n";

/// Where the parser stood when it gave up.
struct JsonFault {
  enum class Inside { kNothing, kObject, kArray };

  /// Number of bytes that had been read, the offending one included; more than the text has when it ended too early.
  std::size_t bytesRead = 0;
  /// The innermost object or array that is still open.
  Inside inside = Inside::kNothing;
  /// Whether a key has been read whose value has not.
  bool isValueAwaited = false;
};

/// "not valid JSON at byte N: expected …, found …" for a text of valid UTF-8 that the parser refused at `fault`.
std::string explainFault(std::string_view text, JsonFault const& fault);

}  // namespace Agent
