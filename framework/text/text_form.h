// How a type of values states its text form.
#pragma once

#include <concepts>
#include <optional>
#include <string_view>

#include "framework/text/string8.h"

namespace Nox {

/// A type that generic values carry as text specialises this beside itself: static `std::optional<T> parse(view)` and
/// `String8 print(T const&)`.
template <class T>
struct TextForm;
template <class T>
concept HasTextForm = requires(T const& t, std::string_view text) {
  { TextForm<T>::parse(text) } -> std::same_as<std::optional<T>>;
  { TextForm<T>::print(t) } -> std::same_as<String8>;
};

}  // namespace Nox
