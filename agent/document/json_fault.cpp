// Finds the word of the text that the parser stumbled over, and what should have stood there.
#include "agent/document/json_fault.h"

#include "agent/document/input_error.h"

namespace Agent {
namespace {

constexpr std::string_view kPunctuation = "{}[]:,";

// The offending word and the one before it, both empty where the text has none.
struct Words {
  std::string_view before;
  std::string_view offending;
  std::size_t start = 0;
};

// The end of the word that starts at `at`: a string up to its closing quote, one punctuation mark, or a run of others.
// A string that is not closed ends behind the text.
std::size_t wordEnd(std::string_view text, std::size_t at) {
  if (kPunctuation.find(text[at]) != std::string_view::npos) return at + 1;
  if (text[at] != '"') {
    std::size_t end = at + 1;
    while (end < text.size() && kBlanks.find(text[end]) == std::string_view::npos &&
           kPunctuation.find(text[end]) == std::string_view::npos && text[end] != '"') {
      ++end;
    }
    return end;
  }
  for (std::size_t end = at + 1; end < text.size(); ++end) {
    if (text[end] == '\\') {
      ++end;
    } else if (text[end] == '"') {
      return end + 1;
    }
  }
  return text.size() + 1;
}

// Whether the parser can have taken this word, the first character of which it has read, for a whole token.
bool isComplete(std::string_view word) {
  char const first = word.front();
  char const last = word.back();
  if (first == '"' || kPunctuation.find(first) != std::string_view::npos) return true;
  if (first == '-' || (first >= '0' && first <= '9')) return last >= '0' && last <= '9';
  return word == "true" || word == "false" || word == "null";
}

Words findWords(std::string_view text, std::size_t bytesRead) {
  Words words;
  for (std::size_t at = text.find_first_not_of(kBlanks); at < text.size();) {
    std::size_t const end = wordEnd(text, at);
    std::string_view const word = text.substr(at, end - at);
    if (end >= bytesRead || !isComplete(word)) return {words.before, word, at};
    words.before = word;
    at = text.find_first_not_of(kBlanks, end);
  }
  words.start = text.size();
  return words;
}

struct Expectation {
  std::string_view text;
  bool value = false;
  bool key = false;
};

Expectation expected(std::string_view before, JsonFault const& fault) {
  if (before.empty()) return {"a value", true, false};
  if (before == "{") return {"a quoted field name or \"}\"", false, true};
  if (before == "[") return {"a value or \"]\"", true, false};
  if (before == ":") return {"a value", true, false};
  bool const isInObject = fault.inside == JsonFault::Inside::kObject;
  if (before == ",") return isInObject ? Expectation{"a quoted field name", false, true} : Expectation{"a value", true};
  if (fault.isValueAwaited) return {"\":\""};
  if (isInObject) return {"\",\" or \"}\""};
  if (fault.inside == JsonFault::Inside::kArray) return {"\",\" or \"]\""};
  return {"nothing more"};
}

// What is wrong inside a string that stands in the right place.
std::string stringFault(std::string_view text, std::string_view word, std::size_t bytesRead) {
  if (bytesRead <= text.size() && static_cast<unsigned char>(text[bytesRead - 1]) < 0x20) {
    return "a control character inside a string must be written as an escape";
  }
  if (bytesRead > text.size()) return "the string " + inQuotes(word.substr(1)) + " is not closed";
  return "bad escape inside a string; known are \\\" \\\\ \\/ \\b \\f \\n \\r \\t and \\u with four hexadecimal "
         "digits, "
         "surrogates in pairs only";
}

std::string explainWords(std::string_view text, JsonFault const& fault, Words const& words) {
  Expectation const expectation = expected(words.before, fault);
  if (words.offending.empty()) return "the text ends where " + std::string(expectation.text) + " was expected";
  char const first = words.offending.front();
  if (first == '"' && (expectation.value || expectation.key))
    return stringFault(text, words.offending, fault.bytesRead);
  bool const isNumberLike = first == '-' || (first >= '0' && first <= '9');
  if (isNumberLike && expectation.value) return inQuotes(words.offending) + " is not a number as JSON writes it";
  std::string const found = first == '"'
                                ? "the string " + inQuotes(words.offending.substr(1, words.offending.size() - 2))
                                : inQuotes(words.offending);
  return "expected " + std::string(expectation.text) + ", found " + found;
}

}  // namespace

std::string explainFault(std::string_view text, JsonFault const& fault) {
  Words const words = findWords(text, fault.bytesRead);
  return "not valid JSON at byte " + std::to_string(words.start + 1) + ": " + explainWords(text, fault, words);
}

}  // namespace Agent
