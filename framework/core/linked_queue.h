// Ordered queues of objects that carry their own links. An object is in one queue per link at a time, and is removed
// from it before it is destroyed.
#pragma once

#include <iterator>
#include <utility>

#include "framework/core/ptr.h"
#include "framework/memory/assertion.h"

namespace Nox {

template <class Member, unsigned Index>
class LinkQueue;

/// Link number `Index` of a queue's member. An object is in one queue per link at a time.
template <unsigned Index = 0>
class LinkQueueLink {
 private:
  template <class Member, unsigned I>
  friend class LinkQueue;

  LinkQueueLink* next_ = nullptr;
  LinkQueueLink* previous_ = nullptr;  // the first one's is the last one, null is "in no queue"
};

/// Queue through the members' link number `Index`. It counts no reference. A walk survives the removal of any member,
/// and visits what is appended behind it.
template <class Member, unsigned Index = 0>
class LinkQueue {
 public:
  class IteratorConst;
  using Iterator = IteratorConst;

  constexpr LinkQueue() noexcept = default;
  LinkQueue(LinkQueue const&) = delete;
  LinkQueue& operator=(LinkQueue const&) = delete;
  ~LinkQueue() {
    deleteAll();
    for (IteratorConst* i = iterators_; i != nullptr; i = i->nextIterator_) i->queue_ = nullptr;
  }

  bool empty() const noexcept { return first_ == nullptr; }
  Member* first() const noexcept { return member(first_); }

  /// Appends a member that is in no queue by this link.
  void enq(Member& m) {
    Link& link = m;
    NOX_ASSERT(link.previous_ == nullptr, "a member is in one queue at a time");
    if (first_ == nullptr) {
      first_ = &link;
    } else {
      link.previous_ = first_->previous_;
      link.previous_->next_ = &link;
    }
    first_->previous_ = &link;
    for (IteratorConst* i = iterators_; i != nullptr; i = i->nextIterator_)
      if (i->isBetween_ && i->at_ == nullptr) i->at_ = &link;
  }
  void remove(Member& m) {
    Link& link = m;
    NOX_ASSERT(link.previous_ != nullptr, "a member that is removed is in the queue");
    for (IteratorConst* i = iterators_; i != nullptr; i = i->nextIterator_) {
      if (i->at_ != &link) continue;
      i->at_ = link.next_;
      i->isBetween_ = true;
    }
    (link.next_ != nullptr ? link.next_ : first_)->previous_ = link.previous_;
    (first_ == &link ? first_ : link.previous_->next_) = link.next_;
    link.next_ = link.previous_ = nullptr;
  }
  void deleteAll() {
    while (first_ != nullptr) remove(*first());
  }

  IteratorConst begin() const { return IteratorConst(*this); }
  std::default_sentinel_t end() const noexcept { return {}; }

 private:
  using Link = LinkQueueLink<Index>;
  static Member* member(Link* link) noexcept { return static_cast<Member*>(link); }

  Link* first_ = nullptr;
  mutable IteratorConst* iterators_ = nullptr;
};

/// A position in a queue; true while it stands on a member. When the member under it is removed it stands between that
/// one's neighbours, and `++` goes on with what follows there.
template <class Member, unsigned Index>
class LinkQueue<Member, Index>::IteratorConst {
 public:
  explicit IteratorConst(LinkQueue const& queue) noexcept : queue_(&queue), at_(queue.first_) { enter(); }
  IteratorConst(IteratorConst const& other) noexcept
      : queue_(other.queue_), at_(other.at_), isBetween_(other.isBetween_) {
    enter();
  }
  IteratorConst& operator=(IteratorConst const&) = delete;
  ~IteratorConst() { leave(); }

  explicit operator bool() const noexcept { return at_ != nullptr && !isBetween_; }
  Member& operator*() const noexcept { return *member(at_); }
  Member* operator->() const noexcept { return member(at_); }
  friend bool operator==(IteratorConst const& i, std::default_sentinel_t) noexcept { return !i; }

  IteratorConst& operator++() noexcept {
    if (!std::exchange(isBetween_, false) && at_ != nullptr) at_ = at_->next_;
    return *this;
  }

  /// Whether this is a position: on a member, or where a removed one was.
  bool hasBookmark() const noexcept { return at_ != nullptr || isBetween_; }

 private:
  friend class LinkQueue;

  // Tells the queue of the position. Not inlined: g++ would take the position's address for one that stays behind.
  [[gnu::noinline]] void enter() noexcept {
    if (queue_ != nullptr) nextIterator_ = std::exchange(queue_->iterators_, this);
  }
  [[gnu::noinline]] void leave() noexcept {
    if (queue_ == nullptr) return;
    IteratorConst** i = &queue_->iterators_;
    while (*i != this) i = &(*i)->nextIterator_;
    *i = nextIterator_;
  }

  LinkQueue const* queue_;  // null once the queue has gone
  Link* at_;
  bool isBetween_ = false;  // at_ is what follows, and has not been visited
  IteratorConst* nextIterator_ = nullptr;
};

/// Queue of counted members, each held by a `Pointer`. All may walk and empty it; `Owner` alone enters and removes
/// single members.
template <class Member, class Owner, class Pointer = Ptr<Member>>
class LinkedQueue {
 public:
  using IteratorConst = typename LinkQueue<Member, 0>::IteratorConst;
  using Iterator = IteratorConst;

  constexpr LinkedQueue() noexcept = default;
  LinkedQueue(LinkedQueue const&) = delete;
  LinkedQueue& operator=(LinkedQueue const&) = delete;
  ~LinkedQueue() { deleteAll(); }

  bool empty() const noexcept { return queue_.empty(); }
  IteratorConst begin() const { return queue_.begin(); }
  std::default_sentinel_t end() const noexcept { return {}; }
  /// Releases every member, first to last; positions on them end.
  void deleteAll() {
    while (Member* const member = queue_.first()) remove(*member);
  }

 private:
  friend Owner;

  void enq(Pointer member) {
    queue_.enq(*member);
    std::move(member).detach();
  }
  /// Takes a member out; its last reference may be the returned one.
  Pointer remove(Member& member) {
    queue_.remove(member);
    return Pointer::adopt(&member);
  }

  LinkQueue<Member, 0> queue_;
};

}  // namespace Nox
