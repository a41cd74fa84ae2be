// Reads and writes paths of the state tree by the table of their patterns.
#include "agent/document/path.h"

#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "agent/document/utf8.h"

namespace Agent {
namespace {

constexpr std::size_t kLongestName = 255;

[[noreturn]] void refuse(std::string const& reason) { throw InputError("", reason); }

SystemId systemIdPart(std::string_view text) {
  auto const address = Lumo::EthAddr::parse(text);
  if (!address) refuse("expected a system id like 02:00:00:aa:00:01, found " + inQuotes(text));
  return SystemId(*address);
}

/// The words of a pattern in angle brackets, in order, and what a path has for each.
struct PathParts {
  std::array<std::pair<std::string_view, std::string_view>, 2> parts{};
  std::size_t count = 0;
};

/// What `path` has for the words of the pattern; nothing if it has another shape.
std::optional<PathParts> partsOf(std::string_view path, std::string_view pattern) {
  PathParts found;
  for (;;) {
    std::string_view const literal = pattern.substr(0, pattern.find('<'));
    if (!path.starts_with(literal)) return std::nullopt;
    path.remove_prefix(literal.size());
    pattern.remove_prefix(literal.size());
    if (pattern.empty()) return path.empty() ? std::optional(found) : std::nullopt;
    std::size_t const end = pattern.find('>');
    std::string_view const part = path.substr(0, path.find('/'));
    found.parts[found.count++] = {pattern.substr(1, end - 1), part};
    pattern.remove_prefix(end + 1);
    path.remove_prefix(part.size());
  }
}

std::string_view firstPart(std::string_view path) { return path.substr(0, path.find('/')); }

/// "a, b or c".
std::string alternatives(std::vector<std::string_view> const& texts) {
  std::string list;
  for (std::size_t at = 0; at < texts.size(); ++at)
    list.append(at == 0 ? "" : at + 1 < texts.size() ? ", " : " or ").append(texts[at]);
  return list;
}

/// Whether errors leave the pattern out: it is a folder, or a special case of another pattern.
bool isUnlisted(Place place) {
  return place.isFolder() || std::any_of(kPathPatterns.begin(), kPathPatterns.end(), [&](PathPattern const& other) {
           return other.text != place.pattern() && partsOf(place.pattern(), other.text);
         });
}

/// Says which paths there are that begin as this one does, or how paths begin.
[[noreturn]] void refusePath(std::string_view text) {
  if (text.empty()) refuse("the path is empty");
  std::vector<std::string_view> patterns;
  std::vector<std::string_view> beginnings;
  for (std::size_t row = 0; row < kPathPatterns.size(); ++row) {
    std::string_view const pattern = kPathPatterns[row].text;
    std::string_view const beginning = pattern.substr(0, pattern.find('/') + 1);
    if (beginnings.empty() || beginnings.back() != beginning) beginnings.push_back(beginning);
    if (firstPart(pattern) == firstPart(text) && !isUnlisted(Place::ofRow(row))) patterns.push_back(pattern);
  }
  if (patterns.empty()) refuse("no such path; paths start with " + alternatives(beginnings));
  refuse("no such path; expected " + alternatives(patterns));
}

}  // namespace

void requireName(std::string_view name, std::string_view what, std::string const& field) {
  auto const refuseName = [&](std::string const& reason) {
    throw InputError(field, inQuotes(name) + " is not " + std::string(what) + ": " + reason);
  };
  if (name.empty()) refuseName("it is empty");
  if (name.size() > kLongestName) {
    refuseName("it has " + std::to_string(name.size()) + " bytes, at most " + std::to_string(kLongestName) +
               " are allowed");
  }
  for (std::size_t at = 0; at < name.size();) {
    Utf8Character const character = decodeUtf8(name, at);
    if (character.size == 0) refuseName("it is not valid UTF-8");
    if (character.code == '/') refuseName("it contains a slash");
    if (isControl(character.code)) refuseName("it contains a control character");
    at += character.size;
  }
}

Path parsePath(std::string_view text) {
  for (std::size_t row = 0; row < kPathPatterns.size(); ++row) {
    Place const place = Place::ofRow(row);
    auto const parts = partsOf(text, place.pattern());
    if (!parts) continue;
    Path path{place};
    std::size_t names = 0;
    for (auto const& [word, part] : std::span(parts->parts).first(parts->count)) {
      if (word == "systemId") {
        path.systemId = systemIdPart(part);
      } else {
        requireName(part, (word == "entry" ? "an " : "a ") + std::string(word) + " name", "");
        path.names[names++] = part;
      }
    }
    return path;
  }
  refusePath(text);
}

std::string toText(Path const& path) {
  return path.place.hasSystemId() ? textAt(path.place, {path.systemId.stringValue().view()})
                                  : textAt(path.place, {path.names[0], path.names[1]});
}

std::string textAt(Place place, std::initializer_list<std::string_view> parts) {
  std::string text;
  std::string_view pattern = place.pattern();
  for (std::string_view const part : parts) {
    std::size_t const word = pattern.find('<');
    if (word == std::string_view::npos) break;
    text.append(pattern.substr(0, word)).append(part);
    pattern.remove_prefix(pattern.find('>') + 1);
  }
  return text.append(pattern);
}

}  // namespace Agent
