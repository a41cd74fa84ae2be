// A document's text that is told in several pieces of a body.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "agent/document/documents.h"
#include "agent/net/http.h"

namespace Agent {

/// How much of a text has been told: a long one is shared by its readers, however slow they are, and not copied for
/// each.
class TextInPieces {
 public:
  bool isTelling() const { return text_ != nullptr; }

  /// Begins the text, and tells what the piece has room for. `end` is told behind the text.
  void begin(DocumentText text, std::string& piece, std::string_view end) {
    text_ = std::move(text);
    told_ = 0;
    goOn(piece, end);
  }
  /// Tells more of a text that is being told.
  void goOn(std::string& piece, std::string_view end) {
    std::size_t const room = kPieceBytes - std::min(kPieceBytes, piece.size());
    std::size_t const size = std::min(room, text_->size() - told_);
    piece.append(*text_, told_, size);
    told_ += size;
    if (told_ < text_->size()) return;
    text_ = nullptr;
    piece += end;
  }

 private:
  DocumentText text_;
  std::size_t told_ = 0;
};

}  // namespace Agent
