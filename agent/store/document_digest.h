// Checksums of documents, and the digest of all documents of a state.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// 128 bits that tell texts apart which damage, not intent, made different.
struct Checksum {
  std::uint64_t low = 0;
  std::uint64_t high = 0;

  bool operator==(Checksum const&) const = default;

  /// 32 hexadecimal digits.
  std::string text() const;
  /// The checksum of which that is the text; nothing if it is none.
  static std::optional<Checksum> parse(std::string_view text);
};

/// The checksum of some bytes; the same bytes under another seed have another one.
Checksum checksumOf(std::string_view bytes, std::uint64_t seed = 0);

/// The checksum of bytes that come in pieces.
class RunningChecksum {
 public:
  RunningChecksum();
  ~RunningChecksum();
  RunningChecksum(RunningChecksum const&) = delete;
  RunningChecksum& operator=(RunningChecksum const&) = delete;

  void add(std::string_view bytes);
  Checksum value() const;

 private:
  void* state_;
};

/// The count and the digest of a set of documents: the same for the same checksums, in whatever order they came.
struct Digest {
  std::uint64_t count = 0;
  Checksum sum;

  bool operator==(Digest const&) const = default;

  void add(Checksum const& document) {
    ++count;
    sum.low += document.low;
    sum.high += document.high;
  }
  void remove(Checksum const& document) {
    --count;
    sum.low -= document.low;
    sum.high -= document.high;
  }
};

}  // namespace Agent
