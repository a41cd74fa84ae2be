// Writes the text of HTTP messages.
#include "agent/net/http_text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace Agent {
namespace {

// A value that held the end of a line would be a field of its own to the reader.
std::string inOneLine(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(), [](char letter) { return letter == '\r' || letter == '\n' || letter == '\0'; }, ' ');
  return line;
}

}  // namespace

std::string messageHead(std::string_view firstLine, HttpFields const& fields) {
  std::string head = inOneLine(firstLine) + "\r\n";
  for (auto const& [name, value] : fields)
    head.append(inOneLine(name)).append(": ").append(inOneLine(value)).append("\r\n");
  return head.append("\r\n");
}

void appendChunk(std::string& to, std::string_view piece) {
  std::array<char, 16> digits;
  auto const end = std::to_chars(digits.data(), digits.data() + digits.size(), piece.size(), 16).ptr;
  to.reserve(to.size() + digits.size() + piece.size() + 4);
  to.append(digits.data(), end).append("\r\n").append(piece).append("\r\n");
}

std::string httpDate(std::time_t time) {
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  // The names of days and months are English in every locale of the program.
  static locale_t const kEnglish = ::newlocale(LC_ALL_MASK, "C", nullptr);
  std::array<char, 64> text;
  return {text.data(), ::strftime_l(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts, kEnglish)};
}

}  // namespace Agent
