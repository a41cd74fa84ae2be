// The index from keys to the reactors that follow them.
#include "framework/core/key_interest.h"

#include <memory>
#include <vector>

#include "framework/core/notifiee.h"
#include "framework/core/type.h"

namespace Nox {

/// The sources that are followed, chained in buckets by their key. It is there while there are any, so that nothing is
/// left behind at the end, and records that live longer than other data find it.
class KeyIndex {
 public:
  static KeyIndex* present() noexcept { return index_; }

  static void enter(KeySource const& source) {
    if (index_ == nullptr) index_ = new KeyIndex;
    index_->add(source);
  }
  static void leave(KeySource const& source) noexcept {
    unlink(source);
    if (--index_->size_ == 0) delete std::exchange(index_, nullptr);
  }

  /// Gives a source that is in the index its new key.
  static void keyIs(KeySource& source, std::uint64_t key) noexcept {
    unlink(source);
    source.key_ = key;
    index_->link(source);
  }

  KeySource const* first(std::uint64_t key) const noexcept { return sameKey(buckets_[bucket(key)], key); }
  /// The first one from there on that has the key.
  static KeySource const* sameKey(KeySource const* source, std::uint64_t key) noexcept {
    while (source != nullptr && source->key_ != key) source = source->next_;
    return source;
  }

  static constinit std::uint64_t generation;

 private:
  static constexpr unsigned kFirstBits = 4;

  std::size_t bucket(std::uint64_t key) const noexcept { return key * 0x9E3779B97F4A7C15 >> (64 - bits_); }
  void add(KeySource const& source) {
    if (size_ == buckets_.size()) grow();
    ++size_;
    link(source);
  }
  void link(KeySource const& source) noexcept {
    KeySource const*& head = buckets_[bucket(source.key_)];
    source.next_ = head;
    source.place_ = &head;
    if (head != nullptr) head->place_ = &source.next_;
    head = &source;
  }
  static void unlink(KeySource const& source) noexcept {
    *source.place_ = source.next_;
    if (source.next_ != nullptr) source.next_->place_ = source.place_;
    source.place_ = nullptr;
  }
  void grow() {
    std::vector<KeySource const*> old(std::size_t{1} << (bits_ + 1));
    old.swap(buckets_);
    ++bits_;
    for (KeySource const* source : old)
      while (source != nullptr) link(*std::exchange(source, source->next_));
  }

  static constinit KeyIndex* index_;

  unsigned bits_ = kFirstBits;
  std::size_t size_ = 0;
  std::vector<KeySource const*> buckets_{std::size_t{1} << kFirstBits};
};

constinit KeyIndex* KeyIndex::index_ = nullptr;
constinit std::uint64_t KeyIndex::generation = 0;

KeySource::~KeySource() {
  if (place_ != nullptr) KeyIndex::leave(*this);
  for (KeyInterest* i = interests_; i != nullptr; i = std::exchange(i->next_, nullptr)) i->source_ = nullptr;
}

void KeySource::keyIs(std::uint64_t key) noexcept {
  if (key == key_) return;
  if (place_ == nullptr) {  // no reactor follows
    key_ = key;
    return;
  }
  KeyIndex::keyIs(*this, key);
  ++KeyIndex::generation;
}

KeyInterest::KeyInterest(PtrInterface::NotifieeConst& reactor) noexcept : reactor_(reactor) { reactor.statesKey(); }

void KeyInterest::sourceIs(KeySource const* source) {
  if (source == source_) return;
  leave();
  if (source == nullptr) return;
  if (source->place_ == nullptr) KeyIndex::enter(*source);
  source_ = source;
  next_ = source->interests_;
  place_ = &source->interests_;
  if (next_ != nullptr) next_->place_ = &next_;
  source->interests_ = this;
  ++KeyIndex::generation;
}

void KeyInterest::leave() noexcept {
  if (source_ == nullptr) return;
  *place_ = next_;
  if (next_ != nullptr) next_->place_ = place_;
  if (source_->interests_ == nullptr) KeyIndex::leave(*source_);
  source_ = nullptr;
}

KeySource const* KeyInterest::firstSource(std::uint64_t key) noexcept {
  KeyIndex const* const index = KeyIndex::present();
  return index != nullptr ? index->first(key) : nullptr;
}

KeySource const* KeyInterest::nextSource(KeySource const& source) noexcept {
  return KeyIndex::sameKey(source.next_, source.key_);
}

std::uint64_t KeyInterest::generation() noexcept { return KeyIndex::generation; }

static constinit IgnoredChangesShow* firstOfAll = nullptr;

IgnoredChangesShow::IgnoredChangesShow(NoxType const& notifier, bool (*now)()) noexcept
    : notifier_(notifier), now_(now), next_(std::exchange(firstOfAll, this)) {}

IgnoredChangesShow::~IgnoredChangesShow() {
  IgnoredChangesShow** place = &firstOfAll;
  while (*place != this) place = &(*place)->next_;
  *place = next_;
}

bool IgnoredChangesShow::ofNotifier(NoxType const& type) noexcept {
  for (IgnoredChangesShow const* s = firstOfAll; s != nullptr; s = s->next_)
    if (type.isA(s->notifier_) && s->now_()) return true;
  return false;
}

}  // namespace Nox
