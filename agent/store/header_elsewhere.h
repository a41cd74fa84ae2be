// Where the header of a state file stands while the file itself is written: in the journal or the log beside it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "agent/store/sqlite_database.h"

namespace Agent {

/// The header that SQLite will give the file from a journal or a log beside it; empty if it will make the file empty,
/// nothing if it will leave the header as it is. A power cut may tear the header in the file, not this one. Nothing is
/// changed. Throws a StoreError if a file cannot be read.
std::optional<std::string> headerElsewhere(SqliteDatabase const& database);

/// The 32-bit number at an offset that `bytes` has.
inline std::uint32_t bigEndian(std::string_view bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (char const byte : bytes.substr(offset, 4)) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

}  // namespace Agent
