// Lays out the tree.
#include "agent/view/tree_text.h"

#include "agent/document/input_error.h"
#include "agent/document/utf8.h"

namespace Agent {
namespace {

// What JSON lets pass in a string and `printable()` does not: the controls behind ASCII's first, and line separators.
std::string withoutControls(std::string json) {
  for (std::size_t at = json.find_first_of("\x7F\xC2\xE2"); at != std::string::npos;
       at = json.find_first_of("\x7F\xC2\xE2", at)) {
    std::size_t const size = decodeUtf8(json, at).size;
    std::string const shown = printable(std::string_view(json).substr(at, size), size);
    json.replace(at, size, shown);
    at += shown.size();
  }
  return json;
}

}  // namespace

std::string jsonLine(Json const& value) { return withoutControls(value.dump()) + "\n"; }

void TreeText::add(std::string_view path, Json const& document) {
  write_(isBegun_ ? ",\n  " : "{\n  ");
  isBegun_ = true;
  write_(withoutControls(Json(path).dump()));
  write_(": ");
  write_(indentedText(document, 2));
}

void TreeText::finish() { write_(isBegun_ ? "\n}\n" : "{}\n"); }

std::string indentedText(Json const& document, std::size_t margin) {
  std::string const plain = withoutControls(document.dump(2));
  std::string text;
  // Strings hold no line breaks in JSON, so every one is the layout's.
  for (char const byte : plain) {
    text += byte;
    if (byte == '\n') text.append(margin, ' ');
  }
  return text;
}

}  // namespace Agent
