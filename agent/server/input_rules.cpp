// Looks through the names of a path and of a document.
#include "agent/server/input_rules.h"

#include <vector>

#include "agent/document/utf8.h"

namespace Agent {
namespace {

constexpr Place kConfig("registration/<switch>/config");

void requirePlainName(std::string_view name) {
  auto const refuse = [&](char const* reason) { throw InputError("", inQuotes(name) + " is no name: " + reason); };
  if (name == "." || name == "..") refuse("programs that join paths take it for a folder");
  for (std::size_t at = 0; at < name.size();) {
    Utf8Character const character = decodeUtf8(name, at);
    if (isEscaped(character.code))
      refuse("it contains a control character, or one that changes the direction of a text");
    at += character.size;
  }
}

/// The keys of all objects in a document that the registry reads, however deep they lie.
void requirePlainKeys(Json const& document) {
  std::vector<Json const*> open{&document};
  while (!open.empty()) {
    Json const& value = *open.back();
    open.pop_back();
    if (value.is_object()) {
      for (auto const& [key, member] : value.get_ref<Json::object_t const&>()) {
        requirePlainName(key);
        open.push_back(&member);
      }
    }
    if (value.is_array())
      for (Json const& element : value.get_ref<Json::array_t const&>()) open.push_back(&element);
  }
}

}  // namespace

void requireInput(Operation const& operation) {
  if (!operation.value) return;
  Path const& path = operation.path;
  try {
    for (std::string const& name : path.names) requirePlainName(name);
    if (!path.place.isFree()) requirePlainKeys(*operation.value);
    if (path.place == kConfig && operation.value->is_object() && !operation.value->contains("systemId"))
      throw InputError("systemId", "missing: a put of a switch's configuration says which switch it is");
  } catch (InputError& error) {
    error.pathIs(toText(path));
    throw;
  }
}

}  // namespace Agent
