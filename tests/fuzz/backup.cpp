// Backups: what is read does not depend on the pieces, and bad input gets one line.
#include "agent/store/backup_reader.h"

#include "fuzz/fuzz.h"

namespace {

std::string read(std::string_view text, std::size_t step) {
  std::string told;
  Agent::BackupReader reader(
      [&](Agent::DocumentChange const& document) { told += document.path + *document.text + "\n"; });
  try {
    for (; !text.empty(); text.remove_prefix(std::min(step, text.size()))) reader.feed(text.substr(0, step));
    reader.finish();
    return told + "whole";
  } catch (Agent::InputError const& error) {
    std::string const line = Agent::errorLine("file", reader.line(), error);
    Fuzz::requireOneLine(line);
    return told + line;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text = Fuzz::textOf(data, size);
  Fuzz::requireEqual(read(text, 1), read(text, size + 1), "a backup reads alike in any pieces");
  return 0;
}
