// Writes the one line that bad input gets.
#include "agent/document/input_error.h"

#include <array>
#include <cstdio>
#include <system_error>

#include "agent/document/utf8.h"

namespace Agent {
namespace {

// Room for the longest path there is, with two names of 255 bytes, and for a field of that size.
constexpr std::size_t kPartLimit = 600;
constexpr std::size_t kQuoteLimit = 80;

std::string escape(char const* format, unsigned number) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), format, number);
  return text.data();
}

void appendPrintable(std::string& to, std::string_view text, bool insideQuotes) {
  for (std::size_t at = 0; at < text.size();) {
    Utf8Character const character = decodeUtf8(text, at);
    if (character.size == 0) {
      to += escape("\\x%02x", static_cast<unsigned char>(text[at++]));
      continue;
    }
    if (character.code == '\n') {
      to += "\\n";
    } else if (character.code == '\t') {
      to += "\\t";
    } else if (isEscaped(character.code)) {
      to += escape("\\u%04x", static_cast<unsigned>(character.code));
    } else {
      if (insideQuotes && (character.code == '"' || character.code == '\\')) to += '\\';
      to += text.substr(at, character.size);
    }
    at += character.size;
  }
}

// A cut must not fall inside a character: it moves back over continuation bytes.
std::size_t characterBoundary(std::string_view text, std::size_t at) {
  for (int moves = 0; moves < 3 && at > 0 && (static_cast<unsigned char>(text[at]) & 0xC0u) == 0x80u; ++moves) --at;
  return at;
}

std::string shortPrintable(std::string_view text, std::size_t limit, bool insideQuotes) {
  std::string result;
  if (text.size() <= limit) {
    appendPrintable(result, text, insideQuotes);
    return result;
  }
  // The end often tells more than the middle, so a third of the room is kept for it.
  std::size_t const tail = limit / 3;
  appendPrintable(result, text.substr(0, characterBoundary(text, limit - tail)), insideQuotes);
  result += "…";
  appendPrintable(result, text.substr(characterBoundary(text, text.size() - tail)), insideQuotes);
  return result;
}

bool needsQuotes(std::string_view key) {
  return key.empty() || findInvalidUtf8(key) != std::string_view::npos ||
         key.find_first_of(".:[]\"\\ ") != std::string_view::npos || printable(key) != key;
}

}  // namespace

void InputError::isInside(std::string_view key) {
  std::string const separator = field_.empty() || field_.front() == '[' ? "" : ".";
  field_ = memberField("", key) + separator + field_;
}

FileError::FileError(std::string_view file, std::string_view reason)
    : std::runtime_error(printable(file) + ": " + std::string(reason)) {}

FileError::FileError(std::string_view file, int error) : FileError(file, std::generic_category().message(error)) {}

std::string errorLine(std::string_view file, std::size_t line, InputError const& error) {
  return printable(file) + ":" + std::to_string(line) + ": " + placedReason(error);
}

std::string placedReason(InputError const& error) {
  std::string result;
  for (std::string const& part : {error.path(), error.field()}) {
    if (!part.empty()) result += printable(part, kPartLimit) + ": ";
  }
  return result + error.reason();
}

std::string printable(std::string_view text, std::size_t limit) { return shortPrintable(text, limit, false); }

std::string inQuotes(std::string_view text) { return "\"" + shortPrintable(text, kQuoteLimit, true) + "\""; }

std::string memberField(std::string_view parent, std::string_view key) {
  std::string field(parent);
  if (needsQuotes(key)) return field + "[" + inQuotes(key) + "]";
  if (!field.empty()) field += '.';
  return field += key;
}

std::string elementField(std::string_view parent, std::size_t index) {
  return std::string(parent) + "[" + std::to_string(index) + "]";
}

}  // namespace Agent
