// Scenarios: the operations of a text do not depend on how it is cut, and each line that holds none is told in one.
#include "agent/document/scenario.h"

#include <algorithm>

#include "agent/document/scenario_pieces.h"
#include "fuzz/fuzz.h"

namespace {

/// A text that comes so many bytes at a time.
class Text final : public Agent::ByteSource {
 public:
  Text(std::string_view text, std::size_t step) : rest_(text), step_(step) {}

  std::size_t read(char* to, std::size_t room) override {
    std::size_t const size = rest_.copy(to, std::min(room, step_));
    rest_.remove_prefix(size);
    return size;
  }

 private:
  std::string_view rest_;
  std::size_t step_;
};

/// What the lines hold, or are refused for; so many stand before them.
std::string operationsOf(std::string_view text, std::size_t step, std::size_t lineBytes, std::size_t before = 0) {
  Agent::ScenarioReader reader(std::make_unique<Text>(text, step), {.bytes = lineBytes, .json = {}});
  std::string told;
  for (;;) {
    try {
      auto const operation = reader.next();
      if (!operation) return told;
      told += std::to_string(before + reader.line()) + " " + toText(operation->path) + " " +
              (operation->value ? operation->value->dump() : "deleted") + "\n";
    } catch (Agent::InputError const& error) {
      std::string const line = Agent::errorLine("file", before + reader.line(), error);
      Fuzz::requireOneLine(line);
      told += line + "\n";
    }
  }
}

/// The same of the pieces, each read by itself.
std::string operationsOfPieces(std::string_view text, std::size_t step) {
  Agent::ScenarioPieces pieces(std::make_unique<Text>(text, step), {.bytes = 64, .lines = 3});
  std::string told;
  std::size_t lines = 0;
  while (auto const piece = pieces.next()) {
    Fuzz::require(piece->firstLine == lines + 1, "pieces follow each other", piece->text);
    told += operationsOf(piece->text, piece->text.size(), Agent::kMaximumLineBytes, lines);
    lines += piece->lines;
  }
  return told;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text = Fuzz::textOf(data, size);
  std::string const whole = operationsOf(text, size + 1, Agent::kMaximumLineBytes);
  Fuzz::requireEqual(operationsOf(text, 1, Agent::kMaximumLineBytes), whole, "a text is read alike in any pieces");
  if (!Fuzz::isSampled(text, 4)) return 0;
  Fuzz::requireEqual(
      operationsOf(text, 7, 40), operationsOf(text, size + 1, 40), "a long line is refused in any pieces");
  for (std::size_t const step : {size + 1, std::size_t{37}})
    Fuzz::requireEqual(operationsOfPieces(text, step), whole, "what is cut holds the same operations");
  return 0;
}
