// Strict reading of one JSON text, and the checks of a value's type that every document needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/document/input_error.h"
#include "agent/document/json.h"

namespace Agent {

/// Members of an object in the order in which they were read.
using JsonMembers = std::vector<std::pair<std::string, Json>>;

/// Objects and arrays may lie this deep in one another; a lone `{}` is 1 deep.
inline constexpr std::size_t kMaximumNesting = 64;

/// How large a value may be.
struct JsonLimits {
  /// At most `kMaximumNesting`.
  std::size_t depth = kMaximumNesting;
  /// Objects, arrays, and what they hold.
  std::size_t values = SIZE_MAX;
};

/// Input that is refused for its size alone.
class LimitError : public InputError {
 public:
  explicit LimitError(InputError const& error) : InputError(error) {}
};

/// Reads `text`, which is exactly one JSON value with nothing but blanks around it. Refuses, as an InputError, what is
/// not JSON, invalid UTF-8 (lone surrogates in escapes included), a byte order mark, a key that is twice in one object,
/// and a number beyond the range of a double; and, as a LimitError, what goes beyond the limits.
///
/// Numbers stay apart by their type: `is_number_unsigned()` holds for what is written as digits alone and fits 64 bits;
/// what has a sign, a fraction or an exponent, or is larger, never has that type (`-0` becomes the double -0.0).
///
/// If reading fails and `begun` is given, it receives the members of the outermost object that were complete by then,
/// so that the caller can tell what the text was about.
Json readJson(std::string_view text, JsonMembers* begun = nullptr, JsonLimits const& limits = {});

/// What a value is, for an error's "found …": `null`, `true`, `the number 1.5`, `the string "a"`, `an object`.
std::string describe(Json const& value);

/// Each returns the value if it has the type, and otherwise throws an InputError about `field`.
bool requireBool(Json const& value, std::string const& field);
std::string const& requireString(Json const& value, std::string const& field);
Json::object_t const& requireObject(Json const& value, std::string const& field);
/// An unsigned 32-bit integer, written without sign, fraction and exponent.
std::uint32_t requireUnsigned(Json const& value, std::string const& field);

}  // namespace Agent
