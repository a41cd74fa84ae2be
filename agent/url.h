// The parts of a request's target, and back.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace Agent {

/// Where a request goes: both parts decoded. A name that comes twice in a query is refused, as is what cannot be
/// decoded: with an InputError.
struct Target {
  std::string path;
  std::map<std::string, std::string, std::less<>> query;
};
Target parseTarget(std::string_view target);

/// `text` with everything escaped that means something in a URL; slashes only if `isSegment`.
std::string percentEncoded(std::string_view text, bool isSegment);

}  // namespace Agent
