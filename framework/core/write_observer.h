// The observer that is told of every write of an attribute, equal writes included. A host that keeps what is written
// sets one, and so do tests of the order.
#pragma once

#include <concepts>
#include <sstream>
#include <string>

#include "framework/core/notifiee.h"

namespace Nox {

/// A key or a value that is written, as a text that is made when it is asked for. Good for the call that gives
/// it.
class WriteText {
 public:
  /// No text at all.
  WriteText() = default;
  WriteText(void const* value, std::string (*print)(void const* value)) : value_(value), print_(print) {}

  std::string text() const { return print_ != nullptr ? print_(value_) : std::string(); }

 private:
  void const* value_ = nullptr;
  std::string (*print_)(void const* value) = nullptr;
};

/// Called by the mutators' common bodies for every write, before it is announced. Costs one null test while no code
/// observes.
class NOX_EXPORT WriteObserver {
 public:
  /// `key` is empty for a scalar.
  virtual void written(Entity const& entity, std::string_view attribute, bool changed, WriteText key,
                       WriteText value) = 0;
  virtual void removed(Entity const& entity, std::string_view attribute, bool changed, WriteText key) = 0;
  /// A reactor has been notified, whether or not it wrote anything.
  virtual void delivered() {}

 protected:
  ~WriteObserver() = default;
};

/// The observer, or null.
extern NOX_EXPORT WriteObserver* writeObserver_;

namespace detail {
template <class T>
std::string textOf(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}
/// A value's text; that of a name or string in quotes, so that it can be told from a number.
template <class T>
std::string valueTextOf(T const& value) {
  std::string const text = textOf(value);
  return std::derived_from<T, StringN<unsigned char>> ? '"' + text + '"' : text;
}
template <class T>
WriteText keyOf(T const& key) {
  return {&key, [](void const* at) { return textOf(*static_cast<T const*>(at)); }};
}
template <class T>
WriteText valueOf(T const& value) {
  return {&value, [](void const* at) { return valueTextOf(*static_cast<T const*>(at)); }};
}
}  // namespace detail

template <auto On, class Value>
void observeWrite(Entity const& entity, bool changed, Value const& value) {
  if (writeObserver_ != nullptr)
    writeObserver_->written(entity, notification<On>.name, changed, {}, detail::valueOf(value));
}
template <auto On, class Key, class Value>
void observeWrite(Entity const& entity, bool changed, Key const& key, Value const& value) {
  if (writeObserver_ != nullptr)
    writeObserver_->written(entity, notification<On>.name, changed, detail::keyOf(key), detail::valueOf(value));
}
template <auto On, class Key>
void observeRemoval(Entity const& entity, bool changed, Key const& key) {
  if (writeObserver_ != nullptr) writeObserver_->removed(entity, notification<On>.name, changed, detail::keyOf(key));
}

}  // namespace Nox
