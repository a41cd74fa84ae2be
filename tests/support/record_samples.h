// New records, and values for their attributes.
#pragma once

#include <cstdint>
#include <type_traits>

#include "framework/core/entity.h"
#include "records/ids.h"
#include "records/service.h"

namespace Test {

/// A new record of class R, named "record" where it takes a name.
template <class R>
Nox::ValidPtr<R> newRecord() {
  if constexpr (std::is_constructible_v<R, Controller::SystemId>)
    return Nox::make<R>(Controller::SystemId(std::uint64_t{1}));
  else
    return Nox::make<R>("record");
}

/// A value that differs from the default.
template <class T>
T sample() {
  if constexpr (std::is_same_v<T, bool>)
    return true;
  else if constexpr (std::is_same_v<T, unsigned>)
    return 7;
  else if constexpr (std::is_same_v<T, Controller::SystemId>)
    return Controller::SystemId(std::uint64_t{0x020000AA0001});
  else if constexpr (std::is_same_v<T, Controller::ServiceVersionV1>)
    return Controller::ServiceVersionV1(2, "two words");
  else
    return T("text");
}

}  // namespace Test
