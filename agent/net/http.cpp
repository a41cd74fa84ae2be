// Looks into header fields.
#include "agent/net/http.h"

#include <algorithm>

namespace Agent {
namespace {

char lower(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

}  // namespace

bool sameWithoutCase(std::string_view left, std::string_view right) {
  return std::equal(
      left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) { return lower(a) == lower(b); });
}

std::optional<std::string_view> findField(HttpFields const& fields, std::string_view name) {
  for (auto const& [fieldName, value] : fields)
    if (sameWithoutCase(fieldName, name)) return value;
  return std::nullopt;
}

}  // namespace Agent
