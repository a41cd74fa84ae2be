// The table of shared texts, swept of those that it alone holds when it is full, and now and then.
#include "framework/text/shared_text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <unordered_set>

namespace Nox {
namespace {

/// Longer texts are rarely equal.
constexpr std::size_t kLongest = 128;

class SharedTexts {
 public:
  using Text = StringN<unsigned char>;

  Text of(std::string_view characters) {
    // Also where nothing new is asked, so that what has gone does not stay.
    if (++asked_ > kAsksPerText * fullAt_) sweep();
    if (auto const at = texts_.find(characters); at != texts_.end()) return *at;
    if (texts_.size() >= fullAt_) sweep();
    return *texts_.emplace(characters).first;
  }

 private:
  static constexpr std::size_t kFewest = 64;
  static constexpr std::size_t kAsksPerText = 16;

  /// Eight bytes at a time: the library's hash, which is called for each text, made a network's enrolment 2 % longer.
  /// Another one in each table, so that no client can choose texts of one hash. Not noexcept, so that the table keeps
  /// each text's hash.
  struct Hash {
    using is_transparent = void;
    Hash() : seed_(std::uint64_t{std::random_device()()} << 32 | std::random_device()()) {}
    std::size_t operator()(std::string_view characters) const {
      std::size_t left = characters.size();
      std::uint64_t hash = seed_ ^ left;
      char const* at = characters.data();
      for (; left > sizeof hash; at += sizeof hash, left -= sizeof hash) hash = mixed(hash, wordAt<std::uint64_t>(at));
      // The last bytes, some of them twice.
      constexpr std::size_t kHalf = sizeof(std::uint32_t);
      if (left >= kHalf) return mixed(hash, wordAt<std::uint32_t>(at) | wordAt<std::uint32_t>(at + left - kHalf) << 32);
      return mixed(hash,
                   wordAt<std::uint8_t>(at) | wordAt<std::uint8_t>(at + left / 2) << 8 |
                       wordAt<std::uint8_t>(at + left - 1) << 16);
    }
    std::size_t operator()(Text const& text) const { return (*this)(text.view()); }

   private:
    template <class Word>
    static std::uint64_t wordAt(char const* at) {
      Word word;
      std::memcpy(&word, at, sizeof word);
      return word;
    }
    static std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
      hash = (hash ^ word) * 0x9E3779B97F4A7C15;
      return hash ^ hash >> 32;
    }

    std::uint64_t seed_;
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(Text const& a, Text const& b) const noexcept { return a == b; }
    bool operator()(std::string_view a, Text const& b) const noexcept { return a == b.view(); }
    bool operator()(Text const& a, std::string_view b) const noexcept { return a.view() == b; }
  };

  /// Leaves room for as many again as are still held by others, so a sweep costs each text that is made a few steps.
  void sweep() {
    std::erase_if(texts_, [](Text const& text) { return !text.isShared(); });
    fullAt_ = std::max(kFewest, 2 * texts_.size());
    texts_.rehash(fullAt_);
    asked_ = 0;
  }

  std::unordered_set<Text, Hash, Equal> texts_;
  std::size_t fullAt_ = kFewest;
  std::size_t asked_ = 0;  // since the last sweep
};

}  // namespace

StringN<unsigned char> detail::sharedText(std::string_view characters) {
  if (characters.empty() || characters.size() > kLongest) return StringN<unsigned char>(characters);
  static thread_local SharedTexts texts;
  return texts.of(characters);
}

}  // namespace Nox
