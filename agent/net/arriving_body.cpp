// Keeps account of what a body holds, and of which side waits for the other.
#include "agent/net/arriving_body.h"

#include <utility>

namespace Agent {

std::optional<std::string> ArrivingBody::next() {
  std::string piece = parser_.takeBody();
  if (piece.empty() && isComplete_) return std::nullopt;
  if (piece.empty() && !failure_) await();
  if (piece.empty() && failure_) throw BodyError(*failure_);
  heldIs(held_ + piece.size());
  taken_();
  // The connection may have ended just now.
  if (piece.empty() && failure_) throw BodyError(*failure_);
  return piece;
}

// What is there already is not refused; what comes next is, if it was too much.
void ArrivingBody::heldIs(std::size_t bytes) {
  held_ = bytes;
  count();
}

void ArrivingBody::feed(std::string& bytes) {
  if (isOver()) return;
  HttpRequestParser::State const state = parser_.feed(bytes);
  if (isDropped_) parser_.takeBody();
  isComplete_ = state == HttpRequestParser::State::Complete;
  if (state == HttpRequestParser::State::Refused) fail(parser_.status(), parser_.reason());
  if (!count()) fail(503, kNoRoomForBodies);
  moved_ = Clock::now();
  if (!isDropped_ && std::exchange(isAwaited_, false)) since_ = moved_;
  wake();
}

void ArrivingBody::fail(int status, std::string const& reason) {
  if (isOver()) return;
  failure_.emplace(status, reason);
  wake();
}

void ArrivingBody::drop() {
  if (isOver()) return;
  isDropped_ = true;
  parser_.takeBody();
  heldIs(0);
  await();
}

void ArrivingBody::await() {
  if (std::exchange(isAwaited_, true)) return;
  moved_ = Clock::now();
  begun_ += moved_ - since_;
}

bool ArrivingBody::count() { return share_.sizeIs(held_ + parser_.bodyBytes()); }

bool ArrivingBody::isLate(Clock::time_point now, HttpLimits const& limits) const {
  if (!isAwaited_ || isOver()) return false;
  return now - moved_ > limits.idle || now - begun_ > 2 * limits.idle + limits.timeOf(parser_.bodyRead());
}

}  // namespace Agent
