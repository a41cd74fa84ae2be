// The memory that the bodies of all requests share.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "agent/net/address_shares.h"

namespace Agent {

/// What a request is told for whose body there is no room.
inline constexpr char kNoRoomForBodies[] =
    "the bodies of all requests take as much memory as they may; expected to be sent again later";

/// A body is short up to here, in bytes; what has been read of one may take twice as much memory.
inline constexpr std::size_t kShortBody = std::size_t{64} * 1024;
/// Of all bodies, one part of so many is for short ones.
inline constexpr std::size_t kShortBodiesPart = 16;

/// How many bytes all bodies may have together, and how many they have: no one address fills it, and long bodies leave
/// room for short ones. Used by one thread.
class BodyBudget {
  struct Books {
    AddressShares shares;
    std::size_t leftForLong;
  };

 public:
  BodyBudget(std::size_t most, std::size_t ofOne)
      : books_(std::make_shared<Books>(Books{AddressShares(most, ofOne), most - most / kShortBodiesPart})) {}
  /// For what is none of any address, however long it is.
  explicit BodyBudget(std::size_t most) : books_(std::make_shared<Books>(Books{AddressShares(most, most), most})) {}

  /// What one request has of it, given back when it goes, which may be later than the budget does.
  class Share {
   public:
    explicit Share(BodyBudget& budget, AddressShares::Origin origin = 0) : books_(budget.books_), origin_(origin) {}
    Share(Share&& other) noexcept : books_(std::move(other.books_)), origin_(other.origin_), bytes_(other.bytes_) {}
    Share& operator=(Share&&) = delete;
    ~Share() {
      if (books_ == nullptr || bytes_ == 0) return;
      books_->shares.giveBack(origin_, bytes_);
      books_->leftForLong += ofLong(bytes_);
    }

    /// The body has so many bytes by now; false, and as many as before, if there is no room for them.
    bool sizeIs(std::size_t bytes) {
      // One that becomes long is long as a whole.
      std::size_t const leftForLong = books_->leftForLong + ofLong(bytes_);
      if (bytes > bytes_) {
        if (ofLong(bytes) > leftForLong) return false;
        if (books_->shares.take(origin_, bytes - bytes_) != AddressShares::Taken::kYes) return false;
      } else if (bytes < bytes_) {
        books_->shares.giveBack(origin_, bytes_ - bytes);
      }
      books_->leftForLong = leftForLong - ofLong(bytes);
      bytes_ = bytes;
      return true;
    }

   private:
    static std::size_t ofLong(std::size_t bytes) { return bytes > 2 * kShortBody ? bytes : 0; }

    std::shared_ptr<Books> books_;
    AddressShares::Origin origin_;
    std::size_t bytes_ = 0;
  };

 private:
  std::shared_ptr<Books> books_;
};

}  // namespace Agent
