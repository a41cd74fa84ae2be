// The body of a request on its way from its connection to the program.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "agent/net/body_budget.h"
#include "agent/net/event_loop.h"
#include "agent/net/http.h"
#include "agent/net/http_request_parser.h"
#include "agent/net/http_server.h"

namespace Agent {

/// What has come and has not been taken stays here, and no more is to be read once that is a piece. The time that the
/// request may take passes only while the program waits for the client.
class ArrivingBody final : public BodyReader {
 public:
  using Clock = EventLoop::Clock;

  /// The header is in, of a request that began at `begun`. `taken` is called when the program has taken what there was,
  /// or waits.
  ArrivingBody(HttpRequestParser parser, BodyBudget::Share share, Clock::time_point begun, std::function<void()> taken)
      : parser_(std::move(parser)), share_(std::move(share)), begun_(begun), taken_(std::move(taken)) {}

  std::optional<std::string> next() override;
  void heldIs(std::size_t bytes) override;

  /// Takes from the front of `bytes` what belongs to the body.
  void feed(std::string& bytes);
  /// The rest will not come.
  void fail(int status, std::string const& reason);
  /// The program wants no more of it: what still comes is thrown away.
  void drop();

  bool isComplete() const { return isComplete_; }
  /// Whether no more will come.
  bool isOver() const { return isComplete_ || failure_; }
  bool hasRoom() const { return isDropped_ || parser_.bodySize() < kPieceBytes; }
  bool hasBegun() const { return parser_.bodyRead() > 0; }
  bool isAwaited() const { return isAwaited_; }
  std::size_t wanted() const { return parser_.wanted(); }
  /// Whether the client takes longer than it may.
  bool isLate(Clock::time_point now, HttpLimits const& limits) const;

 private:
  void await();
  bool count();

  HttpRequestParser parser_;
  BodyBudget::Share share_;
  /// What the program has.
  std::size_t held_ = 0;
  std::optional<BodyError> failure_;
  bool isComplete_ = false;
  bool isDropped_ = false;

  /// Whether the program waits for the client, or otherwise since when it does not.
  bool isAwaited_ = false;
  Clock::time_point since_ = Clock::now();
  /// When the request would have begun if its client had never waited for the program, and when something came last.
  Clock::time_point begun_;
  Clock::time_point moved_ = since_;
  std::function<void()> taken_;
};

}  // namespace Agent
