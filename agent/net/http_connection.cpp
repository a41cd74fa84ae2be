// Reads requests, and keeps the time.
#include "agent/net/http_connection.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <cassert>
#include <exception>
#include <utility>

namespace Agent {
namespace {

constexpr char kTooSlow[] = "the request does not come to its end";
constexpr char kStopping[] = "the server is stopping";
constexpr char kEndsEarly[] = "the request ends early";

}  // namespace

// The promise of a response: if it is forgotten, the client is told.
struct HttpConnection::Promise {
  Promise(std::weak_ptr<HttpConnection> to, std::optional<BodyBudget::Share> of)
      : connection(std::move(to)), share(std::move(of)) {}
  Promise(Promise const&) = delete;
  Promise& operator=(Promise const&) = delete;
  ~Promise() {
    if (auto const open = kept ? nullptr : connection.lock())
      open->host_.post([open] { open->answer(open->host_.problem(500, "the request was left without an answer")); });
  }
  void keep(HttpResponse response) {
    assert(!kept && "a request is answered once");
    kept = true;
    if (auto const open = connection.lock()) open->answer(std::move(response));
  }

  std::weak_ptr<HttpConnection> connection;
  // As long as the program may have the request; none if it reads the body itself.
  std::optional<BodyBudget::Share> share;
  bool kept = false;
};

HttpConnection::HttpConnection(HttpConnectionHost& host, HttpSocket socket, AddressShares::Origin origin,
                               std::string wanting)
    : host_(host), socket_(std::move(socket)), origin_(origin), wanting_(std::move(wanting)), moved_(Clock::now()) {
  boost::system::error_code ignored;
  socket_.non_blocking(true, ignored);
}

void HttpConnection::checkTime(Clock::time_point now) {
  auto const idle = host_.limits().idle;
  if (body_ && body_->isLate(now, host_.limits())) failBody(408, kTooSlow);
  bool const stands =
      now - moved_ > (wanting_.empty() ? Clock::duration(idle) : std::min<Clock::duration>(idle, kLongestSpare));
  switch (phase_) {
    case Phase::Reading:
      if (!wanting_.empty()) {
        if (stands) turnAway();
      } else if (!hasBegun()) {
        if (stands) close();
      } else if (stands || now - begun_ > 2 * idle + host_.limits().timeOf(parser_->bodyBytes())) {
        refuse(408, kTooSlow);
      }
      return;
    case Phase::Writing:
      // What the system takes, it takes in bursts: of a reader that keeps the rate, too, nothing is seen for a while.
      if (stands || (awaitsRoom_ && behind_ + (now - waits_) > 2 * idle)) close();
      return;
    case Phase::Draining:
      if (now - moved_ > std::min<Clock::duration>(idle, kLongestSpare)) close();
      return;
    case Phase::Answering:
    case Phase::Waiting:
    case Phase::Skipping:
    case Phase::Closed:
      return;
  }
}

void HttpConnection::failBody(int status, std::string const& reason) {
  // The program may answer meanwhile, and the connection let go of it.
  auto const body = body_;
  body->fail(status, reason);
  advance();
}

void HttpConnection::stop() {
  if (body_) failBody(503, kStopping);
  if (phase_ == Phase::Waiting) wakeLater();
  if (phase_ != Phase::Reading) return;
  if (hasBegun())
    refuse(503, kStopping);
  else
    close();
}

void HttpConnection::close() {
  if (phase_ == Phase::Closed) return;
  auto const self = shared_from_this();
  phase_ = Phase::Closed;
  boost::system::error_code ignored;
  socket_.close(ignored);
  parser_.reset();
  share_.reset();
  source_.reset();
  if (auto const body = std::exchange(body_, nullptr)) body->fail(400, kEndsEarly);
  host_.left(*this);
}

void HttpConnection::advance() {
  // A handler that answers at once does so from within a step.
  if (advancing_ || isPosted_) return;
  auto const self = shared_from_this();
  advancing_ = true;
  int steps = 0;
  while (step())
    if (++steps == kStepsInTurn) {
      isPosted_ = true;
      auto goOn = [self] {
        self->isPosted_ = false;
        self->advance();
      };
      if (source_)
        host_.postPiece(std::move(goOn));
      else
        host_.post(std::move(goOn));
      break;
    }
  advancing_ = false;
  awaitBytes();
}

bool HttpConnection::step() {
  if (phase_ == Phase::Reading) return read();
  if (phase_ == Phase::Writing) return write();
  if (phase_ == Phase::Skipping) return skip();
  return false;
}

bool HttpConnection::read() {
  if (!in_.empty() && !parser_) {
    parser_.emplace(host_.limits());
    share_.emplace(host_.bodies(), origin_);
    begun_ = Clock::now();
  }
  if (parser_) {
    HttpRequestParser::State const state = parser_->feed(in_);
    bool const isHeaderIn = state == HttpRequestParser::State::HeaderIn || state == HttpRequestParser::State::Complete;
    if (isHeaderIn && !wanting_.empty() && !host_.isVital(parser_->request())) {
      turnAway();
      return true;
    }
    if (!share_->sizeIs(parser_->bodyBytes())) {
      refuse(503, kNoRoomForBodies);
      return true;
    }
    switch (state) {
      case HttpRequestParser::State::HeaderIn:
        if (host_.isReadAsItComes(parser_->request()))
          handle();
        else if (parser_->expectsContinue() && in_.empty())
          sayContinue();
        return true;
      case HttpRequestParser::State::Complete:
        handle();
        return true;
      case HttpRequestParser::State::Refused:
        refuse(parser_->status(), parser_->reason());
        return true;
      case HttpRequestParser::State::WantsMore:
        break;
    }
  }
  if (!ended_) return false;
  if (hasBegun())
    refuse(400, kEndsEarly);
  else
    close();
  return true;
}

void HttpConnection::turnAway() {
  if (phase_ != Phase::Reading) return close();
  host_.turnedAway(wanting_);
  refuse(503, wanting_);
}

void HttpConnection::handle() {
  phase_ = Phase::Answering;
  http11_ = parser_->isHttp11();
  keepsAlive_ = parser_->keep_alive();
  HttpRequest request = parser_->takeRequest();
  request.isPipelined = isPipelined_;
  if (!parser_->is_done()) {
    isAsked_ = !parser_->expectsContinue();
    auto taken = [self = weak_from_this()] {
      if (auto const open = self.lock()) open->bodyTaken();
    };
    body_ = std::make_shared<ArrivingBody>(std::move(*parser_), *std::move(share_), begun_, std::move(taken));
    share_.reset();
    body_->feed(in_);
    request.reader = body_;
  }
  parser_.reset();
  isHead_ = request.method == "HEAD";
  auto const promise = std::make_shared<Promise>(weak_from_this(), std::move(share_));
  share_.reset();
  try {
    host_.handle(std::move(request), [promise](HttpResponse response) { promise->keep(std::move(response)); });
  } catch (std::exception const& error) {
    if (!promise->kept) promise->keep(host_.problem(500, error.what()));
  }
}

void HttpConnection::bodyTaken() {
  bool const isWanted = body_ && body_->isAwaited() && !body_->hasBegun();
  if (isWanted && !std::exchange(isAsked_, true)) sayContinue();
  awaitBytes();
}

void HttpConnection::dropBody() {
  // A client that waits to be asked for its body may send none.
  auto const body = body_;
  if (!isAsked_ && !body->hasBegun()) body->fail(417, "the body was not asked for");
  body->drop();
  if (body->isOver() && !body->isComplete()) keepsAlive_ = false;
}

bool HttpConnection::skip() {
  if (!body_->isOver()) return false;
  finish();
  return true;
}

void HttpConnection::sayContinue() {
  static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
  // Nothing else is on its way to the client, so there is room for it.
  ErrorCode error;
  socket_.write_some(boost::asio::buffer(kContinue), error);
  if (error) close();
}

void HttpConnection::refuse(int status, std::string const& reason) {
  HttpResponse response = host_.problem(status, reason);
  phase_ = Phase::Answering;
  keepsAlive_ = false;
  isHead_ = parser_ && parser_->request().method == "HEAD";
  parser_.reset();
  share_.reset();
  in_.clear();
  answer(std::move(response));
}

void HttpConnection::awaitBytes() {
  // What has come in is answered first.
  if (awaitsBytes_ || isPosted_ || ended_ || phase_ == Phase::Closed) return;
  bool const isBody = body_ && !body_->isOver();
  bool const isAhead = phase_ != Phase::Reading && in_.size() >= host_.limits().headerBytes;
  if (isBody ? !body_->hasRoom() : isAhead) return;
  awaitsBytes_ = true;
  socket_.async_wait(HttpSocket::wait_read, [self = shared_from_this()](ErrorCode const& error) {
    self->awaitsBytes_ = false;
    if (!error) self->takeBytes();
  });
}

void HttpConnection::takeBytes() {
  if (phase_ == Phase::Closed) return;
  std::size_t const most = body_ ? body_->wanted() : parser_ ? parser_->wanted() : host_.limits().headerBytes;
  auto const scratch = host_.scratch().first(std::min(most, host_.scratch().size()));
  ErrorCode error;
  std::size_t const count = socket_.read_some(boost::asio::buffer(scratch.data(), scratch.size()), error);
  if (error == boost::asio::error::eof) {
    ended_ = true;
    // No client waits behind a half-closed connection for what may never come.
    if (phase_ == Phase::Waiting || phase_ == Phase::Draining) close();
    if (auto const body = body_) body->fail(400, kEndsEarly);
  } else if (error && error != boost::asio::error::would_block) {
    close();
  } else if (!error && phase_ != Phase::Draining) {
    in_.append(scratch.data(), count);
    if (auto const body = body_) body->feed(in_);
    // Without a place there is one deadline for all of a request.
    if (phase_ == Phase::Reading && wanting_.empty()) moved_ = Clock::now();
  }
  if (phase_ == Phase::Reading || phase_ == Phase::Skipping)
    advance();
  else
    awaitBytes();
}

}  // namespace Agent
