// Checksums by the hash library.
#include "agent/store/document_digest.h"

#include <xxhash.h>

#include <charconv>
#include <cstdio>
#include <new>

namespace Agent {
namespace {

Checksum checksum(XXH128_hash_t const& hash) { return {hash.low64, hash.high64}; }

XXH3_state_t* stateOf(void* state) { return static_cast<XXH3_state_t*>(state); }

}  // namespace

std::string Checksum::text() const {
  std::array<char, 33> digits{};
  std::snprintf(digits.data(),
                digits.size(),
                "%016llx%016llx",
                static_cast<unsigned long long>(high),
                static_cast<unsigned long long>(low));
  return digits.data();
}

std::optional<Checksum> Checksum::parse(std::string_view text) {
  constexpr std::size_t kHalf = 16;
  if (text.size() != 2 * kHalf) return std::nullopt;
  Checksum checksum;
  char const* const middle = text.data() + kHalf;
  auto const high = std::from_chars(text.data(), middle, checksum.high, 16);
  auto const low = std::from_chars(middle, middle + kHalf, checksum.low, 16);
  bool const isWhole =
      high.ec == std::errc() && high.ptr == middle && low.ec == std::errc() && low.ptr == middle + kHalf;
  return isWhole ? std::optional(checksum) : std::nullopt;
}

Checksum checksumOf(std::string_view bytes, std::uint64_t seed) {
  return checksum(XXH3_128bits_withSeed(bytes.data(), bytes.size(), seed));
}

RunningChecksum::RunningChecksum() : state_(XXH3_createState()) {
  if (state_ == nullptr) throw std::bad_alloc();
  XXH3_128bits_reset(stateOf(state_));
}

RunningChecksum::~RunningChecksum() { XXH3_freeState(stateOf(state_)); }

void RunningChecksum::add(std::string_view bytes) { XXH3_128bits_update(stateOf(state_), bytes.data(), bytes.size()); }

Checksum RunningChecksum::value() const { return checksum(XXH3_128bits_digest(stateOf(state_))); }

}  // namespace Agent
