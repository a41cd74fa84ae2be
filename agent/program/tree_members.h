// A tree as one JSON object from path to document, taken apart on the way.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "agent/document/json_reader.h"

namespace Agent {

/// Takes pieces of the object and gives its members, so that a large tree is never in memory as a whole.
class TreeMembers {
 public:
  /// Whether the document at the path is to be read; the others are not looked at.
  using Filter = std::function<bool(std::string const& path)>;
  using Taker = std::function<void(std::string const& path, Json document)>;

  TreeMembers(Filter isWanted, Taker take) : isWanted_(std::move(isWanted)), take_(std::move(take)) {}

  /// Takes the next piece. Throws an InputError for what is no such object, with the path if it is about a document.
  void feed(std::string_view piece);
  /// Throws an InputError unless the object has come to its end.
  void finish() const;

  /// The line where the member begins that was given or refused last, counted from 1.
  std::size_t line() const noexcept { return memberLine_; }

 private:
  enum class Place { kBefore, kFirst, kNext, kPath, kColon, kDocument, kBehindDocument, kBehind };

  /// Takes what the piece begins with and the place allows; returns how much that was.
  std::size_t takePath(std::string_view piece);
  std::size_t takeDocument(std::string_view piece);
  void takeMark(char mark);
  void finishPath();
  void finishDocument();

  Filter isWanted_;
  Taker take_;
  Place place_ = Place::kBefore;
  std::size_t line_ = 1;
  std::size_t memberLine_ = 1;
  /// As they are written.
  std::string path_;
  std::string document_;
  bool isDocumentWanted_ = false;
  /// Within a string of a path or a document, and behind a backslash there; in how many objects and arrays.
  bool isInString_ = false;
  bool isEscaped_ = false;
  std::size_t depth_ = 0;
};

}  // namespace Agent
