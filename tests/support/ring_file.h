// Ring trace files: statements that fill them, their bytes, and what the reader says of them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "framework/trace/swiftlog_file.h"
#include "framework/trace/swiftlog_reader.h"
#include "framework/trace/trace.h"

namespace Test {

#define RING(LEVEL, LINE, ...) NOX_TRACE_RING("ProbeFile", LEVEL, LINE, __VA_ARGS__)

inline void repeated(int value) { RING(4, 11, "repeated ", value); }
inline void onceMore() { RING(1, 12, "once more"); }

/// Traces `text` at a level that is known at run time only.
inline void leveled(int level, std::string const& text) {
  switch (level) {
    case 1:
      RING(1, 1, text);
      break;
    case 2:
      RING(2, 2, text);
      break;
    default:
      RING(9, 9, text);
      break;
  }
}

inline std::string bytesOf(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void write(std::filesystem::path const& path, std::string_view bytes) {
  std::filesystem::remove(path);  // shortening a file in place waits for the disk on some file systems
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
inline Swiftlog::FileHeader headerOf(std::string const& bytes) {
  Swiftlog::FileHeader header{};
  std::memcpy(&header, bytes.data(), sizeof header);
  return header;
}

/// The reader's complaint about a file, or "" if it prints it.
inline std::string complaint(std::filesystem::path const& path) {
  std::ostringstream out;
  try {
    Swiftlog::printRingFile(path, out);
  } catch (std::runtime_error const& error) {
    EXPECT_EQ(out.str(), "") << "printed something before it failed";
    EXPECT_EQ(std::string(error.what()).rfind(path.string() + ": ", 0), 0U) << error.what();
    return std::string(error.what()).substr(path.string().size() + 2);
  }
  return "";
}

}  // namespace Test
