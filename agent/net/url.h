// The parts of a request's target.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace Agent {

/// Where a request goes: both parts decoded. A name that comes twice in a query is refused, as are what cannot be
/// decoded and a slash that is escaped in the path, since none stands in a name: with an InputError.
struct Target {
  std::string path;
  std::map<std::string, std::string, std::less<>> query;
};
Target parseTarget(std::string_view target);

}  // namespace Agent
