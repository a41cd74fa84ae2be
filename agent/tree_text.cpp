// Lays out the tree.
#include "agent/tree_text.h"

namespace Agent {

void TreeText::add(std::string_view path, Json const& document) {
  write_(isBegun_ ? ",\n  " : "{\n  ");
  isBegun_ = true;
  write_(Json(path).dump());
  write_(": ");
  write_(indentedText(document, 2));
}

void TreeText::finish() { write_(isBegun_ ? "\n}\n" : "{}\n"); }

std::string indentedText(Json const& document, std::size_t margin) {
  std::string const plain = document.dump(2);
  std::string text;
  // Strings hold no line breaks in JSON, so every one is the layout's.
  for (char const byte : plain) {
    text += byte;
    if (byte == '\n') text.append(margin, ' ');
  }
  return text;
}

}  // namespace Agent
