// The tree as the server sends it: one JSON object from path to document with a member a line, taken apart on the way.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "agent/json_reader.h"

namespace Agent {

/// Takes pieces of the object and gives its members, so that a large tree is never in memory as a whole.
class TreeLines {
 public:
  /// Whether the document at the path is to be read; the others are not looked at.
  using Filter = std::function<bool(std::string const& path)>;
  using Taker = std::function<void(std::string const& path, Json document)>;

  TreeLines(Filter isWanted, Taker take) : isWanted_(std::move(isWanted)), take_(std::move(take)) {}

  /// Takes the next piece. Throws an InputError for what is no such object.
  void feed(std::string_view piece);
  /// Throws an InputError unless the object has come to its end.
  void finish() const;

 private:
  enum class Place { kBefore, kInside, kBehind };

  void takeLine(std::string_view line);

  Filter isWanted_;
  Taker take_;
  Place place_ = Place::kBefore;
  std::string line_;
};

}  // namespace Agent
