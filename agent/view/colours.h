// Colours on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

enum class Colour { kNone, kRed, kGreen, kYellow, kCyan };

/// The text between the terminal's codes for the colour and for none.
inline std::string coloured(std::string_view text, Colour colour) {
  constexpr std::string_view kCodes[] = {"", "\x1B[31m", "\x1B[32m", "\x1B[33m", "\x1B[36m"};
  if (colour == Colour::kNone) return std::string(text);
  return std::string(kCodes[static_cast<int>(colour)]).append(text).append("\x1B[0m");
}

}  // namespace Agent
