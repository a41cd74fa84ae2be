// A place to watch every write of an attribute, equal writes included: for those who test in which order things are
// written.
#pragma once

#include <concepts>
#include <sstream>
#include <string>

#include "framework/notifiee.h"

namespace Nox {

/// Called by the mutators' common bodies for every write, before it is announced. Costs one null test while nobody
/// observes.
class NOX_EXPORT WriteObserver {
 public:
  /// `operation` is the notification of the attribute ("onEnabled"), `key` is empty for a scalar.
  virtual void written(Entity const& entity, std::string_view operation, bool changed, std::string key,
                       std::string value) = 0;
  virtual void removed(Entity const& entity, std::string_view operation, bool changed, std::string key) = 0;

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
}  // namespace detail

template <auto On, class Value>
void observeWrite(Entity const& entity, bool changed, Value const& value) {
  if (writeObserver_ != nullptr)
    writeObserver_->written(entity, notification<On>.name, changed, {}, detail::valueTextOf(value));
}
template <auto On, class Key, class Value>
void observeWrite(Entity const& entity, bool changed, Key const& key, Value const& value) {
  if (writeObserver_ != nullptr)
    writeObserver_->written(entity, notification<On>.name, changed, detail::textOf(key), detail::valueTextOf(value));
}
template <auto On, class Key>
void observeRemoval(Entity const& entity, bool changed, Key const& key) {
  if (writeObserver_ != nullptr) writeObserver_->removed(entity, notification<On>.name, changed, detail::textOf(key));
}

}  // namespace Nox
