// Paths of the state tree: the table of all places where a document can lie, and the paths that name one of them.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

#include "agent/document/input_error.h"
#include "records/ids.h"

namespace Agent {

using Controller::SystemId;

/// Throws an InputError about `field` unless `name` can be the name of a switch, a service or an entry: 1 to 255 bytes
/// of valid UTF-8 without "/" and without control characters. `what` says what it names: "a service name".
void requireName(std::string_view name, std::string_view what, std::string const& field);

/// What the documents of a place come from.
enum class Source { kOperator, kRegistry, kSwitch, kHeartbeats, kMounts };

/// What the paths of one place look like, and where the documents there come from.
struct PathPattern {
  /// Words in angle brackets stand for what differs from path to path: a system id for `<systemId>`, otherwise a name.
  std::string_view text;
  Source source;
};

/// Every place of the tree, in the order in which errors list them. A path names the first place whose pattern it has.
/// What may be done there stands in the table of `agent/tree/places.cpp`, in the same order.
inline constexpr std::array kPathPatterns = {
    PathPattern{"controller/config", Source::kOperator},
    PathPattern{"controller/status", Source::kOperator},
    PathPattern{"controller/switch/<systemId>", Source::kRegistry},
    PathPattern{"registration/<switch>", Source::kSwitch},
    PathPattern{"registration/<switch>/config", Source::kSwitch},
    PathPattern{"registration/<switch>/status", Source::kSwitch},
    PathPattern{"registration/<switch>/<entry>", Source::kSwitch},
    PathPattern{"heartbeat/<systemId>", Source::kHeartbeats},
    PathPattern{"service/config/<service>", Source::kOperator},
    PathPattern{"service/override/<service>", Source::kOperator},
    PathPattern{"service/status/<switch>/<service>", Source::kRegistry},
    PathPattern{"mount/offer/<systemId>", Source::kMounts},
    PathPattern{"mount/ready/<service>", Source::kMounts},
};
static_assert(std::all_of(kPathPatterns.begin(), kPathPatterns.end(),
                          [](PathPattern const& row) {
                            return std::count(row.text.begin(), row.text.end(), '<') <= 2;
                          }),
              "a path has room for two names");

/// One of those places. Code names it by its pattern, `Place("heartbeat/<systemId>")`; another pattern than those of
/// the table does not compile.
class Place {
 public:
  consteval Place(char const* pattern) : row_(rowOf(pattern)) {}

  /// Its row in the tables of places.
  constexpr std::size_t row() const { return row_; }
  constexpr std::string_view pattern() const { return kPathPatterns[row_].text; }
  constexpr bool hasSystemId() const { return pattern().ends_with("<systemId>"); }
  constexpr Source source() const { return kPathPatterns[row_].source; }
  /// A document there may have a time to live, and goes when that has passed.
  constexpr bool expires() const { return source() == Source::kHeartbeats; }
  /// What all its paths begin with; all of the path where the place has but one.
  constexpr std::string_view prefix() const { return pattern().substr(0, pattern().find('<')); }
  /// Whether other places lie inside, so that no document lies at this one.
  constexpr bool isFolder() const {
    return std::any_of(kPathPatterns.begin(), kPathPatterns.end(), [this](PathPattern const& other) {
      return other.text.size() > pattern().size() && other.text.starts_with(pattern()) &&
             other.text[pattern().size()] == '/';
    });
  }

  friend constexpr bool operator==(Place, Place) = default;

  /// The place whose paths have that pattern, in the order of the table.
  static constexpr Place ofRow(std::size_t row) { return Place(row); }

 private:
  constexpr explicit Place(std::size_t row) : row_(row) {}
  static consteval std::size_t rowOf(std::string_view pattern) {
    for (std::size_t row = 0; row < kPathPatterns.size(); ++row)
      if (kPathPatterns[row].text == pattern) return row;
    throw "the table has no such pattern";
  }

  std::size_t row_;
};

/// A place, and what stands in its path for the words in angle brackets.
struct Path {
  Place place;
  /// For `<systemId>`.
  SystemId systemId{};
  /// For the names, in the order of the pattern.
  std::array<std::string, 2> names{};

  bool operator==(Path const&) const = default;
};

/// The path that `text` spells. Throws an InputError without path and field if no such path can exist. What may be put
/// or deleted there is not decided here.
Path parsePath(std::string_view text);

/// The path as it is written out: system ids in lower case, otherwise as it was read.
std::string toText(Path const& path);

/// The text of a path of which the system id or the names are there as texts, in the order of the pattern. They are not
/// checked.
std::string textAt(Place place, std::initializer_list<std::string_view> parts);

}  // namespace Agent
