// Places for a short question, where there are no others left.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "agent/net/http_connection.h"

namespace Agent {

/// There are so many, and for one address so many.
inline constexpr std::size_t kSparePlaces = 16;
inline constexpr std::size_t kSparePlacesOfOne = 2;

/// The connections that have one. Each newcomer gets a place as long as there is a connection that has not asked yet,
/// or has its answer: so clients that open many take places from each other, and none from a client that asks as soon
/// as it has connected.
class SparePlaces {
 public:
  using Connection = std::shared_ptr<HttpConnection>;

  /// Takes a connection, and returns which gives up its place for it: the one that is idle and came first, of the same
  /// address if that has as many as it may; null if there is room, and the newcomer itself if there is none.
  Connection add(Connection const& newcomer) {
    auto const isOfSame = [&](Connection const& one) { return one->origin() == newcomer->origin(); };
    std::size_t const ofSame = static_cast<std::size_t>(std::count_if(all_.begin(), all_.end(), isOfSame));
    bool const isShareTaken = ofSame >= kSparePlacesOfOne;
    Connection loser;
    if (isShareTaken || all_.size() >= kSparePlaces) {
      auto const found = std::find_if(all_.begin(), all_.end(), [&](Connection const& one) {
        return one->isIdle() && (!isShareTaken || isOfSame(one));
      });
      if (found == all_.end()) return newcomer;
      loser = *found;
      all_.erase(found);
    }
    all_.push_back(newcomer);
    return loser;
  }
  void remove(Connection const& connection) { std::erase(all_, connection); }

  /// In the order in which they came.
  std::vector<Connection> const& all() const { return all_; }

 private:
  std::vector<Connection> all_;
};

}  // namespace Agent
