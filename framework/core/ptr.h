// Counted pointers: `Ptr` may be null, `ValidPtr` never is. Each holds one reference to its object.
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "framework/core/ptr_interface.h"
#include "framework/text/exception.h"

namespace Nox {

[[noreturn]] NOX_EXPORT void throwNullValidPtr();
/// A pointer's text form, as it stands in messages and as it is read back: hexadecimal, "0x0" for null.
NOX_EXPORT String8 valueToStrepOfRawPtr(void const* p);

namespace detail {
/// An object that is never made: its parts have places all the same. Early, one compiler looks for them in a union's
/// member that is not there, and the other in a variable that is not defined.
template <class T>
union Imagined {
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wundefined-var-template"
#pragma clang diagnostic ignored "-Wundefined-internal"
  static Imagined const one;
#else
  constexpr Imagined() noexcept : none() {}
  constexpr ~Imagined() {}
#endif
  char none;
  T object;
};
/// What is abstract is looked at where a class is made of it.
template <class T>
consteval bool startsWithPtrInterface() {
  if constexpr (std::is_abstract_v<T>) {
    return true;
  } else {
#ifdef __clang__
    auto const& object = Imagined<std::remove_const_t<T>>::one.object;
#pragma clang diagnostic pop
#else
    Imagined<std::remove_const_t<T>> const one;
    auto const& object = one.object;
#endif
    return static_cast<void const*>(static_cast<PtrInterface const*>(&object)) == static_cast<void const*>(&object);
  }
}
}  // namespace detail

/// Whether an object of T begins with its PtrInterface. Every framework object must: its address, as text, is what it
/// is found by, and then nothing else is known of it.
template <class T>
concept StartsWithPtrInterface = std::derived_from<T, PtrInterface> && detail::startsWithPtrInterface<T>();

/// One-word counted pointer to a framework object. A `Ptr<T const>` gives read access alone.
template <class T>
class Ptr {
 public:
  using Pointee = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}
  Ptr(T* t) noexcept : t_(t) {
    static_assert(StartsWithPtrInterface<T>);
    if (t_ != nullptr) t_->reference();
  }
  Ptr(Ptr const& other) noexcept : Ptr(other.t_) {}
  Ptr(Ptr&& other) noexcept : t_(std::exchange(other.t_, nullptr)) {}
  template <class U>
    requires std::convertible_to<U*, T*> Ptr(Ptr<U> const& other)
  noexcept : Ptr(other.get()) {}
  template <class U>
    requires std::convertible_to<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : t_(std::move(other).detach()) {}
  ~Ptr() {
    if (t_ != nullptr) t_->release();
  }

  /// The new target is counted before the old one is released; pointing at the same object again does nothing.
  Ptr& operator=(Ptr const& other) noexcept {
    if (t_ != other.t_) Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    if (this != &other) Ptr(std::move(other)).swap(*this);
    return *this;
  }

  T* get() const noexcept { return t_; }
  T* operator->() const noexcept { return &**this; }
  T& operator*() const noexcept {
    // Said for g++, which else warns of the count of an object at address 0 wherever a pointer is tested and used.
    if (t_ == nullptr) __builtin_unreachable();
    return *t_;
  }
  explicit operator bool() const noexcept { return t_ != nullptr; }
  void swap(Ptr& other) noexcept { std::swap(t_, other.t_); }

  /// Takes over a reference that the caller owns, and gives one away.
  static Ptr adopt(T* t) noexcept {
    Ptr p;
    p.t_ = t;
    return p;
  }
  T* detach() && noexcept { return std::exchange(t_, nullptr); }

  template <class U>
  friend bool operator==(Ptr const& a, Ptr<U> const& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.t_ == nullptr; }

 private:
  T* t_ = nullptr;
};

/// A `Ptr` that is never null: making one from null throws RangeException "null ValidPtr".
template <class T>
class ValidPtr : public Ptr<T> {
 public:
  template <class U>
    requires std::convertible_to<U*, T*> ValidPtr(Ptr<U> p) : Ptr<T>(std::move(p)) {
      if (!*this) throwNullValidPtr();
    }
    template <class U>
      requires std::convertible_to<U*, T*> ValidPtr(ValidPtr<U> const& p)
    noexcept : Ptr<T>(p) {}
    ValidPtr(T* t) : Ptr<T>(t) {
      if (t == nullptr) throwNullValidPtr();
    }
};

/// Makes an object; its maker's reference becomes the returned pointer's.
template <StartsWithPtrInterface T, class... A>
ValidPtr<T> make(A&&... args) {
  return Ptr<T>::adopt(new T(std::forward<A>(args)...));
}

/// The object as a T, or null if it is of another class.
template <class T, class U>
Ptr<T> ptrCast(Ptr<U> const& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Nox

template <class T>
struct std::hash<Nox::Ptr<T>> {
  std::size_t operator()(Nox::Ptr<T> const& p) const noexcept { return std::hash<T*>()(p.get()); }
};
