// A document's text that is told in several pieces of a body.
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "agent/document/documents.h"
#include "agent/net/body_budget.h"
#include "agent/net/http.h"

namespace Agent {

/// So much of texts that have been replaced may be held for readers that are in the middle of one.
inline constexpr std::size_t kHeldTextBytes = std::size_t{64} * 1024 * 1024;

/// How much of a text has been told: a long one is shared by its readers, however slow they are, and not copied for
/// each.
class TextInPieces {
 public:
  bool isTelling() const { return isTelling_; }

  /// Begins the text, and tells what the piece has room for. `end` is told behind the text. A text that is told in
  /// more than one piece is held if `held` has room for it; otherwise it goes when it is replaced.
  void begin(DocumentText const& text, std::string& piece, std::string_view end, BodyBudget& held) {
    text_ = text;
    told_ = 0;
    isTelling_ = true;
    goOn(piece, end);
    if (!isTelling_) return;
    share_.emplace(held);
    if (share_->sizeIs(text->size())) held_ = text;
  }
  /// Tells more of a text that is being told. Throws if it has gone: the reader has a part of a document that is no
  /// longer there.
  void goOn(std::string& piece, std::string_view end) {
    DocumentText const text = text_.lock();
    if (!text) throw std::runtime_error("the document was replaced while it was told");
    std::size_t const room = kPieceBytes - std::min(kPieceBytes, piece.size());
    std::size_t const size = std::min(room, text->size() - told_);
    piece.append(*text, told_, size);
    told_ += size;
    if (told_ < text->size()) return;
    isTelling_ = false;
    text_.reset();
    held_ = nullptr;
    share_.reset();
    piece += end;
  }

 private:
  std::weak_ptr<std::string const> text_;
  DocumentText held_;
  std::optional<BodyBudget::Share> share_;
  std::size_t told_ = 0;
  bool isTelling_ = false;
};

}  // namespace Agent
