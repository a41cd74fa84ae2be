// The order of bits, turned round.
#pragma once

#include <cstdint>

namespace Nox {

/// The lowest bit becomes the highest.
constexpr std::uint32_t reverseBits(std::uint32_t word) noexcept {
  word = ((word >> 1) & 0x55555555U) | ((word & 0x55555555U) << 1);
  word = ((word >> 2) & 0x33333333U) | ((word & 0x33333333U) << 2);
  word = ((word >> 4) & 0x0F0F0F0FU) | ((word & 0x0F0F0F0FU) << 4);
  return __builtin_bswap32(word);
}

}  // namespace Nox
