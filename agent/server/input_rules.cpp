// Looks through the names of a path and of a document.
#include "agent/server/input_rules.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "agent/document/breath.h"
#include "agent/document/utf8.h"
#include "agent/tree/places.h"

namespace Agent {
namespace {

constexpr Place kConfig("registration/<switch>/config");

/// An object in a document: it stands under `key` in the one that has the number `outer`.
struct Inside {
  Json const* object;
  std::size_t outer;
  std::string const* key;
};

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

/// The keys of all objects in a document that the registry reads, however deep they lie, and what it takes for the name
/// of a service.
void requirePlainNames(Json const& document) {
  std::vector<Inside> objects;
  if (document.is_object()) objects.push_back({&document, 0, nullptr});
  for (std::size_t at = 0; at < objects.size(); ++at) {
    for (auto const& [key, member] : objects[at].object->get_ref<Json::object_t const&>()) {
      Breath::take();
      try {
        requirePlainName(key);
        if (key == "service" && member.is_string()) requirePlainName(member.get_ref<std::string const&>());
      } catch (InputError& error) {
        error.isInside(key);
        for (; at != 0; at = objects[at].outer) error.isInside(*objects[at].key);
        throw;
      }
      if (member.is_object()) objects.push_back({&member, at, &key});
    }
  }
}

}  // namespace

void requireInput(Operation const& operation) {
  if (!operation.value) return;
  Path const& path = operation.path;
  try {
    for (std::string const& name : path.names) requirePlainName(name);
    if (!rowOf(path.place).isFree) requirePlainNames(*operation.value);
    if (path.place == kConfig && operation.value->is_object() && !operation.value->contains("systemId"))
      throw InputError("systemId", "missing: a put of a switch's configuration says which switch it is");
  } catch (InputError& error) {
    error.pathIs(toText(path));
    throw;
  }
}

}  // namespace Agent
