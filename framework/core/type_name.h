// Names of C++ types as descriptions spell them. The names are part of what `enrolix types` prints.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

#include "framework/core/fwd.h"

namespace Nox {

template <class Value, class Key>
class HashMap;

namespace detail {

/// The qualified name of T, cut out of this function's own signature.
template <class T>
consteval std::string_view spelledName() {
  std::string_view const signature = __PRETTY_FUNCTION__;
  std::size_t const from = signature.find("T = ") + 4;
  return signature.substr(from, signature.find_first_of(";]", from) - from);
}

/// The name of a member of a class, without the underscore at its end, cut out likewise.
template <auto Member>
consteval std::string_view spelledMember() {
  std::string_view const signature = __PRETTY_FUNCTION__;
  std::size_t const from = signature.find("Member = ");
  std::string_view const qualified = signature.substr(from, signature.find_first_of(";]", from) - from);
  std::string_view const name = qualified.substr(qualified.rfind(':') + 1);
  return name.substr(0, name.size() - (name.ends_with('_') ? 1 : 0));
}

/// Texts joined at compile time.
template <std::string_view const&... Parts>
struct Joined {
  static constexpr auto text = [] {
    std::array<char, (Parts.size() + ...)> joined{};
    char* to = joined.data();
    ((to = std::copy(Parts.begin(), Parts.end(), to)), ...);
    return joined;
  }();
  static constexpr std::string_view value{text.data(), text.size()};
};

}  // namespace detail

/// How a type is named in descriptions: classes by their own name; for what has another name there, one line here.
template <class T>
struct TypeName {
  static constexpr std::string_view value = detail::spelledName<T>();
};
template <>
struct TypeName<bool> {
  static constexpr std::string_view value = "bool";
};
template <>
struct TypeName<unsigned> {
  static constexpr std::string_view value = "U32";
};
template <>
struct TypeName<Seconds> {
  static constexpr std::string_view value = "Nox::Seconds";
};
template <>
struct TypeName<String8> {
  static constexpr std::string_view value = "Nox::String";
};
template <class T>
struct TypeName<T const> {
  static constexpr std::string_view end = " const";
  static constexpr std::string_view value = detail::Joined<TypeName<T>::value, end>::value;
};
template <class T>
struct TypeName<T&> : TypeName<std::remove_const_t<T>> {};
template <class T>
struct TypeName<T*> {
  static constexpr std::string_view end = "*";
  static constexpr std::string_view value = detail::Joined<TypeName<T>::value, end>::value;
};
template <class T>
struct TypeName<Ptr<T>> {
  static constexpr std::string_view begin = "Nox::Ptr<";
  static constexpr std::string_view end = ">";
  static constexpr std::string_view value = detail::Joined<begin, TypeName<T>::value, end>::value;
};
template <class T>
struct TypeName<ValidPtr<T>> : TypeName<Ptr<T>> {};
template <class V, class K>
struct TypeName<HashMap<V, K>> {
  static constexpr std::string_view begin = "Nox::HashMap<";
  static constexpr std::string_view middle = ", ";
  static constexpr std::string_view end = ">";
  static constexpr std::string_view value =
      detail::Joined<begin, TypeName<V>::value, middle, TypeName<K>::value, end>::value;
};

}  // namespace Nox
