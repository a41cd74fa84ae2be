// Parts of a state's files, so that each of them can be damaged.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Test {

/// Bytes of one file, from one offset to another.
struct Range {
  std::string file;
  std::size_t from = 0;
  std::size_t to = 0;
};

/// What the ranges of files are, by kind.
using Parts = std::map<std::string, std::vector<Range>>;

inline std::uint32_t bigEndianAt(std::string const& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t n = 0; n < 4; ++n) value = value << 8 | static_cast<unsigned char>(bytes[at + n]);
  return value;
}

inline constexpr std::size_t kPage = 4096;

/// The pages of an SQLite file, as they are without a log.
inline void addPages(Parts& parts, std::string const& file, std::string const& bytes) {
  std::set<std::size_t> trunks, unused;
  for (std::size_t trunk = bigEndianAt(bytes, 32); trunk != 0; trunk = bigEndianAt(bytes, (trunk - 1) * kPage)) {
    std::size_t const at = (trunk - 1) * kPage;
    trunks.insert(trunk);
    for (std::size_t n = 0; n < bigEndianAt(bytes, at + 4); ++n) unused.insert(bigEndianAt(bytes, at + 8 + n * 4));
  }
  parts["header"].push_back({file, 0, 100});
  parts["schema"].push_back({file, 100, kPage});
  for (std::size_t page = 2; page <= bytes.size() / kPage; ++page) {
    std::size_t const at = (page - 1) * kPage;
    int const type = static_cast<unsigned char>(bytes[at]);
    std::string const kind = trunks.contains(page)      ? "list of unused pages"
                             : unused.contains(page)    ? "unused page"
                             : type == 2 || type == 5   ? "interior page"
                             : type == 10 || type == 13 ? "leaf page"
                                                        : "overflow page";
    parts[kind].push_back({file, at, at + kPage});
  }
}

/// The frames of an SQLite log, by the commit that they belong to.
inline void addFrames(Parts& parts, std::string const& file, std::string const& bytes) {
  constexpr std::size_t kHeader = 32, kFrameHeader = 24;
  parts["log header"].push_back({file, 0, kHeader});
  std::vector<std::size_t> ends;
  for (std::size_t at = kHeader; at < bytes.size(); at += kFrameHeader + kPage)
    if (bigEndianAt(bytes, at + 4) != 0) ends.push_back(at);
  for (std::size_t at = kHeader; at < bytes.size(); at += kFrameHeader + kPage) {
    std::string const commit = at <= ends.front() ? "first" : at > ends[ends.size() - 2] ? "last" : "middle";
    parts[commit + " commit, frame header"].push_back({file, at, at + kFrameHeader});
    parts[commit + " commit, content"].push_back({file, at + kFrameHeader, at + kFrameHeader + kPage});
  }
}

/// Changes one bit or byte of a range, or ends the file there. What was done is told in words.
inline std::string damage(std::string& bytes, Range const& range, std::mt19937& random) {
  std::size_t const at = range.from + random() % (range.to - range.from);
  std::string const where = " at " + std::to_string(at) + " of " + range.file;
  switch (random() % 8) {
    case 0:
      bytes.resize(at);
      return "cut" + where;
    case 1:
    case 2:
    case 3:
      bytes[at] = static_cast<char>(bytes[at] ^ static_cast<char>(1 + random() % 255));
      return "another byte" + where;
    default:
      bytes[at] = static_cast<char>(bytes[at] ^ static_cast<char>(1U << random() % 8));
      return "another bit" + where;
  }
}

}  // namespace Test
