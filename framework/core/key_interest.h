// Reactors that state the key they care about: a change of one member reaches those that care about its key, and passes
// the others by.
#pragma once

#include <cstdint>

#include "framework/core/fwd.h"
#include "framework/core/ptr_interface.h"
#include "framework/memory/export.h"

namespace Nox {

/// A key type that reactors may choose by: it tells its value as one word, equal for equal keys alone.
template <class K>
concept ChoosableKey = requires(K const& key) {
  { key.keyWord() } -> std::same_as<std::uint64_t>;
};

class KeyInterest;

/// The value by which reactors, of whatever notifier, state the key they care about: part of the record that has it,
/// and told of a change before the record announces it. A record that no reactor follows is in no index.
class NOX_EXPORT KeySource {
 public:
  explicit KeySource(std::uint64_t key = 0) noexcept : key_(key) {}
  KeySource(KeySource const&) = delete;
  KeySource& operator=(KeySource const&) = delete;
  /// Those that follow care about no key from now on.
  ~KeySource();

  std::uint64_t key() const noexcept { return key_; }
  void keyIs(std::uint64_t key) noexcept;

 private:
  friend class KeyInterest;
  friend class KeyIndex;

  std::uint64_t key_;
  mutable KeyInterest* interests_ = nullptr;
  mutable KeySource const* next_ = nullptr;    // the next one in its bucket of the index
  mutable KeySource const** place_ = nullptr;  // what points here: null while no reactor follows
};

/// Makes the reactor that has it as a member one that cares about one key: of those changes of its notifier that have a
/// choosable key, it is called for the ones under the key of its source, and for none without a source. Such a reactor
/// does nothing that can be seen about the others, except what `IgnoredChangesShow` tells of.
class NOX_EXPORT KeyInterest {
 public:
  explicit KeyInterest(PtrInterface::NotifieeConst& reactor) noexcept;
  KeyInterest(KeyInterest const&) = delete;
  KeyInterest& operator=(KeyInterest const&) = delete;
  ~KeyInterest() { leave(); }

  /// Follows that source from now on, or none. The source is not owned.
  void sourceIs(KeySource const* source);

  /// Calls `f(reactor)` for every reactor that cares about the key, in no order.
  template <class F>
  static void forEach(std::uint64_t key, F f);
  /// A number that changes whenever a reactor begins to follow a key.
  static std::uint64_t generation() noexcept;

 private:
  friend class KeySource;
  friend class KeyIndex;

  void leave() noexcept;
  static KeySource const* firstSource(std::uint64_t key) noexcept;
  static KeySource const* nextSource(KeySource const& source) noexcept;
  static KeyInterest const* firstOf(KeySource const& source) noexcept { return source.interests_; }

  PtrInterface::NotifieeConst& reactor_;
  KeySource const* source_ = nullptr;
  KeyInterest* next_ = nullptr;  // the next one of the same source
  KeyInterest** place_ = nullptr;
};

template <class F>
void KeyInterest::forEach(std::uint64_t key, F f) {
  for (KeySource const* s = firstSource(key); s != nullptr; s = nextSource(*s))
    for (KeyInterest const* i = firstOf(*s); i != nullptr; i = i->next_) f(i->reactor_);
}

/// Says when reactors that state a key still show something of the changes that pass them by, as a trace would: while
/// `now` answers true, the changes of notifiers of that class go to all of them. One static object per kind of reactor.
class NOX_EXPORT IgnoredChangesShow {
 public:
  IgnoredChangesShow(NoxType const& notifier, bool (*now)()) noexcept;
  IgnoredChangesShow(IgnoredChangesShow const&) = delete;
  IgnoredChangesShow& operator=(IgnoredChangesShow const&) = delete;
  ~IgnoredChangesShow();

  static bool ofNotifier(NoxType const& type) noexcept;

 private:
  NoxType const& notifier_;
  bool (*now_)();
  IgnoredChangesShow* next_;
};

}  // namespace Nox
