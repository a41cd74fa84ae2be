// Keyed delivery: reactors state the key that they care about; a change of one member reaches those that care about its
// key, and passes the others by.
//
// How it works. A reactor that states a key follows a KeySource, the value in a record. The sources that are followed
// stand in an index by their values, each with the reactors that follow it. In its notifier's list (NotifieeList) such
// a reactor stands behind all those that state no key; every registration has a place in one order for all lists, the
// reading of a clock that counts registrations and withdrawals.
//
// A change whose key can be chosen by names only the reactors without a key when it is written, and keeps the clock's
// reading. The others are looked up by its key when it is delivered, as a handler may have given a source another value
// meanwhile. Of those that the index knows, the change is for the ones that were registered when it was written: the
// ones whose place in the order is not behind the change's reading. They are called among the named ones by their
// places, and looked up again after a handler that made any reactor follow another key.
//
// A reactor that withdraws and registers again before the change is delivered has lost its place. So while such changes
// wait, every registration that ends is noted as a stay: from its place to the clock's reading at its end.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "framework/core/fwd.h"
#include "framework/core/ptr_interface.h"
#include "framework/memory/export.h"

namespace Nox {

struct KeySlot;
struct Notification;

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

 private:
  friend class KeySource;
  friend class KeyIndex;

  void leave() noexcept;

  PtrInterface::NotifieeConst& reactor_;
  KeySource const* source_ = nullptr;
  KeyInterest* next_ = nullptr;  // the next one of the same source
  KeyInterest** place_ = nullptr;
};

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

namespace detail {

/// The delivery of one thread's changes whose key reactors may choose by, for the queue of the turns.
class KeyedDelivery {
 public:
  using Reactor = PtrInterface::NotifieeConst;

  static KeyedDelivery& ofThread() noexcept;

  /// To be called while such changes wait (`TurnState::changesByKeyWait`): when a registration ends, and when a reactor
  /// goes.
  void noteStay(Reactor const& reactor);
  void forgetStays(Reactor const& reactor) noexcept { stays_.erase(&reactor); }
  /// Puts another reactor in the place of one that goes.
  void replace(Reactor const& reactor, Reactor& by) noexcept;

  /// Takes up a change that was written when the registration clock read `writtenAt`, and then the reactors that it
  /// names, in order.
  void begin(Entity const& notifier, Notification const& what, KeySlot const& key, std::uint64_t writtenAt);
  void add(Reactor& named);
  /// The next reactor to be called; null behind the last one.
  Reactor* next();
  /// The change has been delivered.
  void end() noexcept;

 private:
  /// A registration that has ended: from its place in the order to the time of its end.
  struct Stay {
    Entity const* notifier;
    std::uint64_t from;
    std::uint64_t until;
  };
  /// A reactor that is to be called, and its place in the order.
  struct Due {
    std::uint64_t place;
    Reactor* reactor;
    friend bool operator<(Due const& a, Due const& b) noexcept { return a.place < b.place; }
  };

  void addInterested();
  std::uint64_t placeOf(Reactor const& reactor) const noexcept;

  Entity const* notifier_ = nullptr;
  Notification const* what_ = nullptr;
  std::uint64_t key_ = 0;
  std::uint64_t writtenAt_ = 0;
  std::vector<Due> due_;                                         // by their places
  std::size_t called_ = 0;                                       // how many of them
  std::uint64_t generation_ = 0;                                 // of the index when `due_` was filled
  bool goesToAll_ = false;                                       // what was answered then
  std::unordered_map<Reactor const*, std::vector<Stay>> stays_;  // while such changes wait
};

}  // namespace detail

}  // namespace Nox
