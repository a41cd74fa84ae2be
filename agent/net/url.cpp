// Percent-decoding.
#include "agent/net/url.h"

#include <charconv>

#include "agent/document/input_error.h"

namespace Agent {
namespace {

std::string decoded(std::string_view text, bool isQuery) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '+' && isQuery) {
      result += ' ';
    } else if (text[at] != '%') {
      result += text[at];
    } else {
      unsigned char byte = 0;
      std::string_view const digits = text.substr(at + 1, 2);
      auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
      if (error != std::errc() || digits.size() != 2 || end != digits.data() + 2)
        throw InputError("", "expected two hexadecimal digits behind % in the URL, found " + inQuotes(digits));
      if (byte == '/' && !isQuery) throw InputError("", "no name holds a slash, and %2F stands in none");
      result += static_cast<char>(byte);
      at += 2;
    }
  }
  return result;
}

}  // namespace

Target parseTarget(std::string_view target) {
  std::size_t const mark = target.find('?');
  Target result{decoded(target.substr(0, mark), false), {}};
  if (mark == std::string_view::npos) return result;
  for (std::string_view rest = target.substr(mark + 1); !rest.empty();) {
    std::size_t const end = rest.find('&');
    std::string_view const part = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    if (part.empty()) continue;
    std::size_t const sign = part.find('=');
    std::string const name = decoded(part.substr(0, sign), true);
    std::string const value = sign == std::string_view::npos ? std::string() : decoded(part.substr(sign + 1), true);
    if (!result.query.emplace(name, value).second)
      throw InputError("", "the parameter " + inQuotes(name) + " comes twice in the URL");
  }
  return result;
}

}  // namespace Agent
