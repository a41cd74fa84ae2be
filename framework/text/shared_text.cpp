// The table of shared texts, swept of those that it alone holds when it is full, and now and then.
#include "framework/text/shared_text.h"

#include <algorithm>
#include <functional>
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

  /// Not by the hash of a name, which goes byte by byte. Not noexcept, so that the table keeps each text's hash.
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view characters) const { return std::hash<std::string_view>()(characters); }
    std::size_t operator()(Text const& text) const { return (*this)(text.view()); }
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
