// Looks through the names of a path and of a document.
#include "agent/server/input_rules.h"

#include <string>
#include <utility>
#include <vector>

#include "agent/document/utf8.h"
#include "agent/tree/places.h"

namespace Agent {
namespace {

constexpr Place kConfig("registration/<switch>/config");

void requirePlainName(std::string_view name, std::string const& field) {
  auto const refuse = [&](char const* reason) { throw InputError(field, inQuotes(name) + " is no name: " + reason); };
  if (name == "." || name == "..") refuse("programs that join paths take it for a folder");
  for (std::size_t at = 0; at < name.size();) {
    Utf8Character const character = decodeUtf8(name, at);
    if (isEscaped(character.code))
      refuse("it contains a control character, or one that changes the direction of a text");
    at += character.size;
  }
}

/// The keys of all objects in a document that the registry reads, however deep they lie, and what it takes for the name
/// of a service.
void requirePlainNames(Json const& document) {
  std::vector<std::pair<Json const*, std::string>> open{{&document, ""}};
  while (!open.empty()) {
    auto const [value, field] = std::move(open.back());
    open.pop_back();
    if (!value->is_object()) continue;
    for (auto const& [key, member] : value->get_ref<Json::object_t const&>()) {
      std::string const inside = memberField(field, key);
      requirePlainName(key, inside);
      if (key == "service" && member.is_string()) requirePlainName(member.get_ref<std::string const&>(), inside);
      open.emplace_back(&member, inside);
    }
  }
}

}  // namespace

void requireInput(Operation const& operation) {
  if (!operation.value) return;
  Path const& path = operation.path;
  try {
    for (std::string const& name : path.names) requirePlainName(name, "");
    if (!rowOf(path.place).isFree) requirePlainNames(*operation.value);
    if (path.place == kConfig && operation.value->is_object() && !operation.value->contains("systemId"))
      throw InputError("systemId", "missing: a put of a switch's configuration says which switch it is");
  } catch (InputError& error) {
    error.pathIs(toText(path));
    throw;
  }
}

}  // namespace Agent
