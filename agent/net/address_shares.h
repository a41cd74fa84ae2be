// How much of what is limited one address may have.
#pragma once

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace Agent {

/// Shares out places, or bytes, by where clients come from, so that no one address takes all. Used by one thread.
class AddressShares {
 public:
  /// An address of IPv4, or the network of one of IPv6: its first 64 bits, as its owner has all that begin with them.
  using Origin = std::uint64_t;
  static Origin originOf(boost::asio::ip::address const& address) {
    if (address.is_v4()) return address.to_v4().to_uint();
    auto const six = address.to_v6();
    if (six.is_v4_mapped()) return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, six).to_uint();
    Origin network = 0;
    auto const bytes = six.to_bytes();
    for (std::size_t at = 0; at < sizeof network; ++at) network = network << 8 | bytes[at];
    return network;
  }

  /// What one address has of so much: three quarters, and never all unless there is but one.
  static constexpr std::size_t shareOf(std::size_t most) {
    return most - std::max<std::size_t>(most / 4, most > 1 ? 1 : 0);
  }

  /// At most `most` at a time, and `ofOne` for one address.
  AddressShares(std::size_t most, std::size_t ofOne) : most_(most), ofOne_(ofOne) {}

  enum class Taken { kYes, kAllAreTaken, kAddressHasItsShare };
  Taken take(Origin origin, std::size_t count = 1) {
    if (count > most_ - taken_) return Taken::kAllAreTaken;
    auto const known = byOrigin_.find(origin);
    if (count + (known != byOrigin_.end() ? known->second : 0) > ofOne_) return Taken::kAddressHasItsShare;
    taken_ += count;
    byOrigin_[origin] += count;
    return Taken::kYes;
  }
  void giveBack(Origin origin, std::size_t count = 1) {
    taken_ -= count;
    auto const known = byOrigin_.find(origin);
    known->second -= count;
    if (known->second == 0) byOrigin_.erase(known);
  }

 private:
  std::size_t most_;
  std::size_t ofOne_;
  std::size_t taken_ = 0;
  std::unordered_map<Origin, std::size_t> byOrigin_;
};

}  // namespace Agent
