// Numbers in texts.
#pragma once

#include <charconv>
#include <string_view>

namespace Agent {

/// Whether all of `text` is a number in digits that `to`, an integer, can hold; then `to` is that number.
template <class Number>
bool readNumber(std::string_view text, Number& to) {
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), to);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace Agent
