// Identities: the Ethernet address, and the system id that is built on it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string_view>

#include "framework/text/text_form.h"

namespace Lumo {

/// A 48-bit Ethernet address; all zero by default.
class NOX_EXPORT EthAddr {
 public:
  constexpr EthAddr() noexcept = default;
  /// From the lower 48 bits of a number.
  constexpr explicit EthAddr(std::uint64_t bits) noexcept : bits_(bits & 0xFFFFFFFFFFFF) {}
  /// Reads six two-digit hexadecimal groups joined by colons, in either case; nothing if the text is anything else.
  static std::optional<EthAddr> parse(std::string_view text) noexcept;

  constexpr std::uint64_t bits() const noexcept { return bits_; }
  /// Six groups in lower case: "02:00:00:aa:00:01".
  Nox::String8 stringValue() const;
  std::uint32_t hash() const noexcept { return static_cast<std::uint32_t>((bits_ * 0x9E3779B97F4A7C15) >> 32); }

  friend constexpr bool operator==(EthAddr, EthAddr) noexcept = default;
  friend constexpr bool operator<(EthAddr a, EthAddr b) noexcept { return a.bits_ < b.bits_; }

 private:
  std::uint64_t bits_ = 0;
};

}  // namespace Lumo

namespace Controller {

/// A switch's identity; the empty id is the address of zeros.
class NOX_EXPORT SystemId {
 public:
  constexpr SystemId() noexcept = default;
  constexpr explicit SystemId(Lumo::EthAddr address) noexcept : address_(address) {}
  constexpr explicit SystemId(std::uint64_t bits) noexcept : address_(bits) {}

  constexpr Lumo::EthAddr address() const noexcept { return address_; }
  Nox::String8 stringValue() const { return address_.stringValue(); }
  std::uint32_t hash() const noexcept { return address_.hash(); }
  /// As the key by which reactors choose.
  std::uint64_t keyWord() const noexcept { return address_.bits(); }

  friend constexpr bool operator==(SystemId const&, SystemId const&) noexcept = default;
  friend constexpr bool operator<(SystemId const& a, SystemId const& b) noexcept { return a.address_ < b.address_; }

 private:
  Lumo::EthAddr address_;
};

/// A position bookmarked at the empty id does not count as one.
constexpr bool isBookmark(SystemId const& key) noexcept { return key != SystemId(); }

NOX_EXPORT std::ostream& operator<<(std::ostream& out, SystemId const& id);

}  // namespace Controller

/// In generic values a system id is the text of its address.
template <>
struct Nox::TextForm<Controller::SystemId> {
  static std::optional<Controller::SystemId> parse(std::string_view text) noexcept {
    auto const address = Lumo::EthAddr::parse(text);
    return address ? std::optional(Controller::SystemId(*address)) : std::nullopt;
  }
  static String8 print(Controller::SystemId const& id) { return id.stringValue(); }
};
