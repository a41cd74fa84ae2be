// Writes what the JSON library writes.
#include "agent/document/json_text.h"

#include <algorithm>
#include <memory>

#include "agent/document/breath.h"

namespace Agent {
namespace {

class Written final : public nlohmann::detail::output_adapter_protocol<char> {
 public:
  explicit Written(std::string& to) : to_(to) {}

  void write_character(char character) override { to_.push_back(character); }
  void write_characters(char const* characters, std::size_t size) override {
    to_.append(characters, size);
    Breath::take();
  }

 private:
  std::string& to_;
};

}  // namespace

std::string jsonText(Json const& value) {
  std::string text;
  nlohmann::detail::serializer<Json>(std::make_shared<Written>(text), ' ').dump(value, false, false, 0);
  return text;
}

void appendQuoted(std::string& to, std::string_view text) {
  auto const isPlain = [](char character) {
    return character >= ' ' && character < '\x7F' && character != '"' && character != '\\';
  };
  if (std::all_of(text.begin(), text.end(), isPlain))
    to.append("\"").append(text).append("\"");
  else
    to += jsonText(text);
}

}  // namespace Agent
