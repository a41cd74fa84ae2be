// The whole tree as one JSON object for people and for comparing.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "agent/document/json_reader.h"

namespace Agent {

/// Writes one JSON object from path to document, document by document, so that a large tree is never in memory as a
/// whole.
class TreeText {
 public:
  /// `write` takes the text, in pieces of any size.
  explicit TreeText(std::function<void(std::string_view text)> write) : write_(std::move(write)) {}

  /// The next document; the order is the caller's.
  void add(std::string_view path, Json const& document);
  /// The end of the object, and of the text.
  void finish();

 private:
  std::function<void(std::string_view)> write_;
  bool isBegun_ = false;
};

/// The value as JSON in one line, line break included. Characters that act on a terminal are escapes in it.
std::string jsonLine(Json const& value);

/// The document with two blanks for each level, and as many more in front of all its lines but the first.
/// Characters that act on a terminal are escapes in it.
std::string indentedText(Json const& document, std::size_t margin);

}  // namespace Agent
