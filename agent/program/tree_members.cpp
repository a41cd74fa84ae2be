// Finds where paths and documents end; what they are is left to the reader of JSON.
#include "agent/program/tree_members.h"

#include <algorithm>

#include "agent/document/input_error.h"
#include "agent/document/json_fault.h"

namespace Agent {

void TreeMembers::feed(std::string_view piece) {
  while (!piece.empty()) {
    std::size_t size = 1;
    if (place_ == Place::kPath)
      size = takePath(piece);
    else if (place_ == Place::kDocument)
      size = takeDocument(piece);
    else if (kBlanks.find(piece.front()) == std::string_view::npos)
      takeMark(piece.front());
    line_ +=
        static_cast<std::size_t>(std::count(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(size), '\n'));
    piece.remove_prefix(size);
  }
}

void TreeMembers::finish() const {
  if (place_ != Place::kBehind) throw InputError("", "the tree breaks off");
}

// What stands between paths and documents.
void TreeMembers::takeMark(char mark) {
  auto const expect = [&](std::string const& what) {
    memberLine_ = line_;
    throw InputError("", "expected " + what + ", found " + inQuotes(std::string_view(&mark, 1)));
  };
  switch (place_) {
    case Place::kBefore:
      if (mark != '{') expect("an object from path to document");
      place_ = Place::kFirst;
      return;
    case Place::kFirst:
    case Place::kNext:
      if (mark == '}' && place_ == Place::kFirst) {
        place_ = Place::kBehind;
        return;
      }
      if (mark != '"') expect("a path");
      memberLine_ = line_;
      path_ = mark;
      isInString_ = true;
      place_ = Place::kPath;
      return;
    case Place::kColon:
      if (mark != ':') expect("a colon behind the path");
      place_ = Place::kDocument;
      return;
    case Place::kBehindDocument:
      finishDocument();
      place_ = mark == ',' ? Place::kNext : Place::kBehind;
      return;
    default:
      expect("nothing behind the tree");
  }
}

std::size_t TreeMembers::takePath(std::string_view piece) {
  std::size_t at = 0;
  while (at < piece.size() && isInString_) {
    char const byte = piece[at++];
    if (byte == '"' && !isEscaped_) isInString_ = false;
    isEscaped_ = byte == '\\' && !isEscaped_;
  }
  path_ += piece.substr(0, at);
  if (!isInString_) finishPath();
  return at;
}

void TreeMembers::finishPath() {
  path_ = readJson(path_).get<std::string>();
  isDocumentWanted_ = isWanted_(path_);
  document_.clear();
  place_ = Place::kColon;
}

// A document ends at the comma, or the brace, that belongs to the tree.
std::size_t TreeMembers::takeDocument(std::string_view piece) {
  std::size_t at = 0;
  for (; at < piece.size(); ++at) {
    char const byte = piece[at];
    if (isInString_) {
      if (byte == '"' && !isEscaped_) isInString_ = false;
      isEscaped_ = byte == '\\' && !isEscaped_;
    } else if (byte == '"') {
      isInString_ = true;
    } else if (byte == '{' || byte == '[') {
      ++depth_;
    } else if (depth_ == 0 && (byte == ',' || byte == '}')) {
      place_ = Place::kBehindDocument;
      break;
    } else if (depth_ > 0 && (byte == '}' || byte == ']')) {
      --depth_;
    }
  }
  if (isDocumentWanted_) document_ += piece.substr(0, at);
  return at;
}

void TreeMembers::finishDocument() {
  if (!isDocumentWanted_) return;
  try {
    take_(path_, readJson(document_));
  } catch (InputError& error) {
    if (error.path().empty()) error.pathIs(path_);
    throw;
  }
}

}  // namespace Agent
