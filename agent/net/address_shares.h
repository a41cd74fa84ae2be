// How many connections there may be, and how many of them from one address.
#pragma once

#include <boost/asio/ip/address.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace Agent {

/// Counts connections by where they come from, so that no one address takes all places. Used by one thread.
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

  /// At most `most` at a time, and `ofOne` from one address: three quarters of all if that is 0.
  AddressShares(std::size_t most, std::size_t ofOne) : most_(most), ofOne_(ofOne != 0 ? ofOne : most - most / 4) {}

  /// Takes a place; if there is none, returns why.
  std::string take(Origin origin) {
    if (taken_ >= most_) return "all " + std::to_string(most_) + " connections are taken";
    auto const known = byOrigin_.find(origin);
    if (known != byOrigin_.end() && known->second >= ofOne_)
      return "one address may have " + std::to_string(ofOne_) + " connections, and this one has";
    ++taken_;
    ++byOrigin_[origin];
    return "";
  }
  void giveBack(Origin origin) {
    --taken_;
    auto const known = byOrigin_.find(origin);
    if (--known->second == 0) byOrigin_.erase(known);
  }

 private:
  std::size_t most_;
  std::size_t ofOne_;
  std::size_t taken_ = 0;
  std::unordered_map<Origin, std::size_t> byOrigin_;
};

}  // namespace Agent
