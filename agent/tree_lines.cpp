// Takes the server's tree apart line by line.
#include "agent/tree_lines.h"

#include "agent/input_error.h"

namespace Agent {
namespace {

// Where the string ends that the text begins with, its closing quote included; npos if it begins with none.
std::size_t stringEnd(std::string_view text) {
  if (!text.starts_with('"')) return std::string_view::npos;
  for (std::size_t at = 1; at < text.size(); ++at) {
    if (text[at] == '"') return at + 1;
    if (text[at] == '\\') ++at;
  }
  return std::string_view::npos;
}

}  // namespace

void TreeLines::feed(std::string_view piece) {
  for (std::size_t end = piece.find('\n'); end != std::string_view::npos; end = piece.find('\n')) {
    line_ += piece.substr(0, end);
    takeLine(line_);
    line_.clear();
    piece.remove_prefix(end + 1);
  }
  line_ += piece;
}

void TreeLines::finish() const {
  if (place_ != Place::kBehind && line_ != "{}") throw InputError("", "the tree breaks off");
}

void TreeLines::takeLine(std::string_view line) {
  if (line.empty()) return;
  if (place_ == Place::kBefore && (line == "{" || line == "{}")) {
    place_ = line == "{" ? Place::kInside : Place::kBehind;
    return;
  }
  if (place_ == Place::kInside && line == "}") {
    place_ = Place::kBehind;
    return;
  }
  std::size_t const end = place_ == Place::kInside ? stringEnd(line) : std::string_view::npos;
  if (end == std::string_view::npos || end == line.size() || line[end] != ':')
    throw InputError("", "expected a path and a document, found " + inQuotes(line));
  auto const path = readJson(line.substr(0, end)).get<std::string>();
  if (!isWanted_(path)) return;
  std::string_view document = line.substr(end + 1);
  if (document.ends_with(',')) document.remove_suffix(1);
  take_(path, readJson(document));
}

}  // namespace Agent
