// JSON texts: what is read prints as a text that reads as the same, and what is refused gets one line.
#include "agent/document/json_reader.h"
#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text = Fuzz::textOf(data, size);
  Agent::JsonMembers begun;
  try {
    Agent::Json const document = Agent::readJson(text, &begun);
    std::string const printed = document.dump();
    Agent::Json const again = Agent::readJson(printed);
    Fuzz::requireEqual(again.dump(), printed, "what is printed reads as the same");
    Fuzz::require(again == document, "what is printed has the same value", printed);
    Fuzz::requireOneLine(Agent::describe(document));
  } catch (Agent::InputError const& error) {
    Fuzz::requireOneLine(Agent::errorLine("file", 1, error));
  }
  // Smaller limits refuse more, and for no other reason than size.
  try {
    Agent::readJson(text, nullptr, {.depth = 3, .values = 10});
  } catch (Agent::InputError const& error) {
    Fuzz::requireOneLine(Agent::errorLine("file", 1, error));
  }
  return 0;
}
