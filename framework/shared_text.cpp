// The table of shared texts: open addressing, swept of the texts that nobody else holds whenever it is half full.
#include "framework/shared_text.h"

#include <bit>
#include <functional>
#include <utility>
#include <vector>

#include "framework/name.h"

namespace Nox {
namespace {

/// Longer texts are rarely equal.
constexpr std::size_t kLongest = 128;
constexpr std::size_t kFewest = 64;

class SharedTexts {
 public:
  using Text = StringN<unsigned char>;

  Text of(std::string_view characters) {
    std::size_t const hash = std::hash<std::string_view>()(characters);
    std::size_t at = find(characters, hash);
    if (!slots_[at].text.empty()) return slots_[at].text;
    if (2 * (used_ + 1) > slots_.size()) {
      sweep();
      at = find(characters, hash);
    }
    ++used_;
    slots_[at] = {hash, Text(characters)};
    return slots_[at].text;
  }

 private:
  struct Slot {
    std::size_t hash = 0;
    Text text;  // empty: a free slot
  };

  std::size_t find(std::string_view characters, std::size_t hash) const noexcept {
    std::size_t const mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    while (!slots_[at].text.empty() && (slots_[at].hash != hash || slots_[at].text.view() != characters))
      at = (at + 1) & mask;
    return at;
  }

  /// Leaves room for as many again as are still held by others, so a sweep costs each text that is made a few steps.
  void sweep() {
    std::erase_if(slots_, [](Slot const& slot) { return slot.text.empty() || !slot.text.isShared(); });
    std::vector<Slot> held = std::exchange(slots_, {});
    used_ = held.size();
    slots_.resize(std::max(kFewest, std::bit_ceil(4 * used_)));
    for (Slot& slot : held) slots_[find(slot.text.view(), slot.hash)] = std::move(slot);
  }

  std::vector<Slot> slots_ = std::vector<Slot>(kFewest);
  std::size_t used_ = 0;
};

}  // namespace

StringN<unsigned char> detail::sharedText(std::string_view characters) {
  if (characters.empty() || characters.size() > kLongest) return StringN<unsigned char>(characters);
  static thread_local SharedTexts texts;
  return texts.of(characters);
}

}  // namespace Nox
