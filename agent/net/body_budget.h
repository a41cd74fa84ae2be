// The memory that the bodies of all requests share.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace Agent {

/// What a request is told for whose body there is no room.
inline constexpr char kNoRoomForBodies[] =
    "the bodies of all requests take as much memory as they may; expected to be sent again later";

/// How many bytes all bodies may have together, and how many they have. Used by one thread.
class BodyBudget {
 public:
  explicit BodyBudget(std::size_t most) : most_(most) {}

  /// What one request has of it, given back when it goes, which may be later than the budget does.
  class Share {
   public:
    explicit Share(BodyBudget& budget) : most_(budget.most_), taken_(budget.taken_) {}
    Share(Share&& other) noexcept : most_(other.most_), taken_(std::move(other.taken_)), bytes_(other.bytes_) {}
    Share& operator=(Share&&) = delete;
    ~Share() {
      if (taken_ != nullptr) *taken_ -= bytes_;
    }

    /// The body has so many bytes by now; false, and as many as before, if there is no room for them.
    bool sizeIs(std::size_t bytes) {
      if (bytes > bytes_ && bytes - bytes_ > most_ - *taken_) return false;
      *taken_ += bytes - bytes_;
      bytes_ = bytes;
      return true;
    }

   private:
    std::size_t most_;
    std::shared_ptr<std::size_t> taken_;
    std::size_t bytes_ = 0;
  };

 private:
  std::size_t most_;
  std::shared_ptr<std::size_t> taken_ = std::make_shared<std::size_t>(0);
};

}  // namespace Agent
