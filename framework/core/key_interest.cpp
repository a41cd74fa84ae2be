// The index from keys to the reactors that follow them, and the delivery that asks it.
#include "framework/core/key_interest.h"

#include <algorithm>
#include <utility>

#include "framework/core/entity.h"
#include "framework/core/notifiee.h"
#include "framework/core/turn.h"
#include "framework/core/type.h"

namespace Nox {

/// The sources that are followed, chained in buckets by their key. It is there while there are any, so that nothing is
/// left behind at the end, and records that live longer than other data find it.
class KeyIndex {
 public:
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

  /// Calls `f(reactor)` for every reactor that cares about the key, in no order.
  template <class F>
  static void forEach(std::uint64_t key, F const& f) {
    if (index_ == nullptr) return;
    for (KeySource const* s = index_->buckets_[index_->bucket(key)]; s != nullptr; s = s->next_)
      if (s->key_ == key)
        for (KeyInterest const* i = s->interests_; i != nullptr; i = i->next_) f(i->reactor_);
  }

  /// A number that changes whenever a reactor begins to follow a key.
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

namespace detail {

void KeyedDelivery::noteStay(Reactor const& reactor) {
  stays_[&reactor].push_back({reactor.list(), reactor.order(), NotifieeList::clock()});
}

void KeyedDelivery::replace(Reactor const& reactor, Reactor& by) noexcept {
  for (Due& due : due_)
    if (due.reactor == &reactor) due.reactor = &by;
}

void KeyedDelivery::begin(Entity const& notifier, Notification const& what, KeySlot const& key,
                          std::uint64_t writtenAt) {
  notifier_ = &notifier;
  what_ = &what;
  key_ = what.keyWord(&key);
  writtenAt_ = writtenAt;
}

void KeyedDelivery::add(Reactor& named) { due_.push_back({placeOf(named), &named}); }

PtrInterface::NotifieeConst* KeyedDelivery::next() {
  bool const goesToAll = IgnoredChangesShow::ofNotifier(notifier_->fwkType());
  if (called_ == 0 || KeyIndex::generation != generation_ || goesToAll != goesToAll_) {
    goesToAll_ = goesToAll;
    addInterested();
  }
  return called_ != due_.size() ? due_[called_++].reactor : nullptr;
}

void KeyedDelivery::end() noexcept {
  due_.clear();
  called_ = 0;
  // A reactor that goes takes its stays along only while such changes wait.
  if (--turnState.changesByKeyWait == 0 && !stays_.empty()) stays_.clear();
}

/// Adds those that state the change's key now and come behind those that have been called.
void KeyedDelivery::addInterested() {
  generation_ = KeyIndex::generation;
  auto const uncalled = [&] { return due_.begin() + static_cast<std::ptrdiff_t>(called_); };
  std::size_t const sorted = due_.size();
  auto const add = [&](Reactor& reactor) {
    if (!reactor.understands(*what_)) return;
    Due const due{placeOf(reactor), &reactor};
    if (due.place == 0 || (called_ != 0 && !(due_[called_ - 1] < due))) return;
    if (std::binary_search(uncalled(), due_.begin() + static_cast<std::ptrdiff_t>(sorted), due)) return;
    reactor.stateBitIs(Reactor::kIsNamed, true);
    due_.push_back(due);
  };
  if (goesToAll_) {
    for (Reactor* r = notifier_->noxNotifiees().firstKeyed(); r != nullptr; r = NotifieeList::next(*r)) add(*r);
    for (auto const& [r, stays] : stays_)  // they may register again before their turn comes
      if (r->stateHas(Reactor::kStatesKey) && !(r->list() == notifier_ && NotifieeList::isLinked(*r)))
        add(const_cast<Reactor&>(*r));
  } else {
    KeyIndex::forEach(key_, add);
  }
  if (due_.size() != sorted) std::sort(uncalled(), due_.end());
}

/// The reactor's place among those that were registered when the change was written; 0 if it was not, or has left for
/// good.
std::uint64_t KeyedDelivery::placeOf(Reactor const& reactor) const noexcept {
  if (reactor.list() == notifier_ && NotifieeList::isLinked(reactor) && reactor.order() <= writtenAt_)
    return reactor.order();
  if (stays_.empty()) return 0;
  auto const at = stays_.find(&reactor);
  if (at != stays_.end())
    for (Stay const& stay : at->second)
      if (stay.notifier == notifier_ && stay.from <= writtenAt_ && writtenAt_ < stay.until) return stay.from;
  return 0;
}

}  // namespace detail

}  // namespace Nox
