// The table of shared texts: open addressing, swept of the texts that it alone holds when it is half full, and now
// and then.
#include "framework/text/shared_text.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace Nox {
namespace {

/// Longer texts are rarely equal.
constexpr std::size_t kLongest = 128;
constexpr std::size_t kFewest = 64;
constexpr std::size_t kAsksPerSlot = 8;

class SharedTexts {
 public:
  using Text = StringN<unsigned char>;

  Text of(std::string_view characters) {
    // Also where nothing new is asked, so that what has gone does not stay.
    if (++asked_ > kAsksPerSlot * slots_.size()) sweep();
    std::uint64_t const hash = hashOf(characters);
    std::size_t at = find(characters, hash);
    if (at != kNowhere && !slots_[at].text.empty()) return slots_[at].text;
    if (2 * (used_ + 1) > slots_.size()) {
      sweep();
      at = find(characters, hash);
    }
    Text made(characters);
    if (at == kNowhere) return made;
    ++used_;
    slots_[at] = {hash, made};
    return made;
  }

 private:
  struct Slot {
    std::uint64_t hash = 0;
    Text text;  // empty: a free slot
  };
  static constexpr std::size_t kNowhere = ~std::size_t{0};
  /// A text whose next so many slots are taken is not shared, so that no search takes long.
  static constexpr std::size_t kLongestSearch = 64;

  template <class T>
  static std::uint64_t load(char const* at) noexcept {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
  }
  /// Eight bytes at a time, the last ones together with some before them: the hash of a name, which goes byte by byte,
  /// takes longer than to make the text anew.
  static std::uint64_t hashOf(std::string_view characters) noexcept {
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
    std::size_t const size = characters.size();
    char const* const first = characters.data();
    char const* const end = first + size;
    std::uint64_t hash = size;
    std::uint64_t last = 0;
    if (size >= 8) {
      for (char const* at = first; at < end - 8; at += 8) {
        hash = (hash ^ load<std::uint64_t>(at)) * kOdd;
        hash ^= hash >> 32;
      }
      last = load<std::uint64_t>(end - 8);
    } else if (size >= 4) {
      last = load<std::uint32_t>(first) << 32 | load<std::uint32_t>(end - 4);
    } else {
      last = load<std::uint8_t>(first) << 16 | load<std::uint8_t>(first + size / 2) << 8 | load<std::uint8_t>(end - 1);
    }
    hash = (hash ^ last) * kOdd;
    hash = (hash ^ (hash >> 32)) * kOdd;  // once more, as numbers at the end of names come in at the top
    return hash ^ (hash >> 32);
  }

  /// The slot of the text, or else a free one; nowhere if all that may be searched are others'.
  std::size_t find(std::string_view characters, std::uint64_t hash) const noexcept {
    std::size_t const mask = slots_.size() - 1;
    for (std::size_t i = 0; i < kLongestSearch; ++i) {
      Slot const& slot = slots_[(hash + i) & mask];
      if (slot.text.empty() || (slot.hash == hash && slot.text.view() == characters)) return (hash + i) & mask;
    }
    return kNowhere;
  }

  /// Leaves room for as many again as are still held by others, so a sweep costs each text that is made a few steps.
  void sweep() {
    auto const isHeld = [](Slot const& slot) { return !slot.text.empty() && slot.text.isShared(); };
    auto const held = static_cast<std::size_t>(std::count_if(slots_.begin(), slots_.end(), isHeld));
    std::vector<Slot> before(std::max(kFewest, std::bit_ceil(4 * held)));
    slots_.swap(before);
    used_ = asked_ = 0;
    for (Slot& slot : before) {
      std::size_t const at = isHeld(slot) ? find(slot.text.view(), slot.hash) : kNowhere;
      if (at == kNowhere) continue;
      slots_[at] = std::move(slot);
      ++used_;
    }
  }

  std::vector<Slot> slots_ = std::vector<Slot>(kFewest);
  std::size_t used_ = 0;
  std::size_t asked_ = 0;  // since the last sweep
};

}  // namespace

StringN<unsigned char> detail::sharedText(std::string_view characters) {
  if (characters.empty() || characters.size() > kLongest) return StringN<unsigned char>(characters);
  static thread_local SharedTexts texts;
  return texts.of(characters);
}

}  // namespace Nox
