// Cuts scenarios at line breaks.
#include "agent/document/scenario_pieces.h"

#include <array>

namespace Agent {

static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::optional<ScenarioPiece> ScenarioPieces::next() {
  ScenarioPiece piece;
  piece.firstLine = line_ + 1;
  std::size_t end = 0;
  while (piece.lines < limits_.lines) {
    std::size_t const size = lineSize(end);
    if (size == 0 || (piece.lines > 0 && end + size > limits_.bytes)) break;
    end += size;
    ++piece.lines;
  }
  if (piece.lines == 0) return std::nullopt;
  line_ += piece.lines;
  // The piece is read as a scenario of its own, in front of which one byte order mark is left out.
  if (read_.starts_with(kByteOrderMark)) piece.text = kByteOrderMark;
  piece.text.append(read_, 0, end);
  read_.erase(0, end);
  return piece;
}

bool ScenarioPieces::fill() {
  std::array<char, 64 * 1024> chunk;
  std::size_t const size = isEnded_ ? 0 : source_->read(chunk.data(), chunk.size());
  isEnded_ = size == 0;
  read_.append(chunk.data(), size);
  return !isEnded_;
}

std::size_t ScenarioPieces::lineSize(std::size_t at) {
  if (!isStarted_) {
    while (read_.size() < kByteOrderMark.size() && fill()) {
    }
    isStarted_ = true;
    if (read_.starts_with(kByteOrderMark)) read_.erase(0, kByteOrderMark.size());
  }
  std::size_t searched = at;
  while (true) {
    std::size_t const end = read_.find('\n', searched);
    if (end != std::string::npos) return end + 1 - at;
    searched = read_.size();
    if (searched - at > kMaximumLineBytes + 2) {
      line_ += 1;
      throw InputError("", "the line is longer than " + std::to_string(kMaximumLineBytes) + " bytes");
    }
    if (fill()) continue;
    if (at == read_.size()) return 0;
    // The file's last line, without a line break of its own.
    read_ += '\n';
  }
}

}  // namespace Agent
