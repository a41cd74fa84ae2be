// What a thread does in the middle of work that takes long.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace Agent {

/// As long as it lives, long work on this thread is interrupted often, for `work`: that is where others are answered.
/// What runs there is not interrupted itself. Within another breath it changes nothing. `work` throws nothing.
class Breath {
 public:
  explicit Breath(std::function<void()> work) : work_(std::move(work)), isFirst_(now_ == nullptr) {
    if (isFirst_) now_ = this;
  }
  Breath(Breath const&) = delete;
  Breath& operator=(Breath const&) = delete;
  ~Breath() {
    if (isFirst_) now_ = nullptr;
  }

  /// A small piece of work has been done, about a microsecond. Costs next to nothing where there is no breath.
  static void take() {
    if (now_ != nullptr) now_->pieceDone();
  }

 private:
  static constexpr std::size_t kPieces = 64;

  void pieceDone() {
    if (++pieces_ % kPieces != 0 || std::exchange(isTaken_, true)) return;
    work_();
    isTaken_ = false;
  }

  static inline constinit thread_local Breath* now_ = nullptr;

  std::function<void()> work_;
  bool isFirst_;
  bool isTaken_ = false;
  std::size_t pieces_ = 0;
};

}  // namespace Agent
