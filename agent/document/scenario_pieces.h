// Scenario files cut into pieces of bounded size, to be sent one by one.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "agent/document/scenario.h"

namespace Agent {

/// How large a piece may become. One line alone may be larger.
struct PieceLimits {
  std::size_t bytes = 256u * 1024;
  std::size_t lines = 1000;
};

/// Whole lines of one scenario, each with its line break.
struct ScenarioPiece {
  std::string text;
  /// The number of the first line, counted from 1.
  std::size_t firstLine = 1;
  std::size_t lines = 0;
};

/// Cuts one scenario. What the lines hold is not looked at; a byte order mark in front of the first is left out; a
/// piece that begins with another one gets one more, lest it be left out with the piece. Memory stays within the size
/// of a piece and a line.
class ScenarioPieces {
 public:
  explicit ScenarioPieces(std::unique_ptr<ByteSource> source, PieceLimits const& limits = {})
      : source_(std::move(source)), limits_(limits) {}

  /// The next piece, at least one line; nothing at the end. Throws a FileError, and an InputError for a line that is
  /// longer than a scenario allows; `line()` is its number then.
  std::optional<ScenarioPiece> next();

  /// The number of the last line that was given or refused.
  std::size_t line() const noexcept { return line_; }

 private:
  bool fill();
  /// The size of the line that begins at `at` of what was read, with its line break; 0 at the end.
  std::size_t lineSize(std::size_t at);

  std::unique_ptr<ByteSource> source_;
  PieceLimits limits_;
  std::string read_;
  bool isStarted_ = false;
  bool isEnded_ = false;
  std::size_t line_ = 0;
};

}  // namespace Agent
