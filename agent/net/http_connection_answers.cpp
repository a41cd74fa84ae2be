// Writes responses.
#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/beast/http/status.hpp>
#include <ctime>
#include <exception>
#include <utility>

#include "agent/net/http_connection.h"
#include "agent/net/http_text.h"

namespace Agent {

void HttpConnection::answer(HttpResponse response) {
  if (phase_ != Phase::Answering) return;
  if (body_) dropBody();
  if (host_.isStopping() || !wanting_.empty()) keepsAlive_ = false;
  int const status = response.status;
  HttpFields& fields = response.fields;
  fields.emplace(fields.begin(), "Date", httpDate(std::time(nullptr)));
  bool const isBodiless = status / 100 == 1 || status == 204 || status == 304;
  if (!isBodiless && !response.source)
    fields.emplace_back("Content-Length", std::to_string(response.body.size()));
  else if (!isBodiless && http11_)
    fields.emplace_back("Transfer-Encoding", "chunked");
  else if (!isBodiless)
    keepsAlive_ = false;  // the end of the connection is that of the body
  if (!keepsAlive_ || !http11_) fields.emplace_back("Connection", keepsAlive_ ? "keep-alive" : "close");

  auto const phrase = boost::beast::http::obsolete_reason(boost::beast::http::int_to_status(unsigned(status)));
  out_ = messageHead("HTTP/1.1 " + std::to_string(status) + " " + std::string(phrase), fields);
  moved_ = Clock::now();
  bool const hasBody = !isBodiless && !isHead_;
  if (hasBody && response.source) {
    source_ = std::move(response.source);
    // No source is asked while its handler is still handing it over.
    phase_ = Phase::Waiting;
    wakeLater();
    return;
  }
  if (hasBody) out_ += response.body;
  phase_ = Phase::Writing;
  advance();
}

void HttpConnection::wakeLater() {
  host_.postPiece([self = shared_from_this()] { self->woken(); });
}

void HttpConnection::woken() {
  sourceIsEmpty_ = false;
  if (phase_ != Phase::Waiting) return;
  phase_ = Phase::Writing;
  moved_ = Clock::now();
  ask();
  advance();
}

bool HttpConnection::write() {
  if (source_ && out_.empty() && !sourceIsEmpty_) ask();
  if (phase_ == Phase::Closed || !flush()) return false;
  if (!source_) {
    finish();
    return true;
  }
  if (!sourceIsEmpty_) return true;
  if (host_.isStopping() || ended_) {
    // Without the last chunk, so that no client takes it for the whole body.
    keepsAlive_ = false;
    source_.reset();
    finish();
    return false;
  }
  phase_ = Phase::Waiting;
  return false;
}

void HttpConnection::ask() {
  std::optional<std::string> piece;
  try {
    piece = source_->next();
  } catch (std::exception const&) {
    // The status has gone out already; what is left is to break off.
    close();
    return;
  }
  if (!piece) {
    source_.reset();
    if (http11_) appendChunk(out_, {});
  } else if (piece->empty()) {
    sourceIsEmpty_ = true;
    source_->wakeIs([connection = weak_from_this()] {
      if (auto const open = connection.lock()) open->wakeLater();
    });
  } else if (http11_) {
    appendChunk(out_, *piece);
  } else {
    out_ += *piece;
  }
}

bool HttpConnection::flush() {
  if (awaitsRoom_) return false;
  while (sent_ < out_.size()) {
    ErrorCode error;
    std::size_t const count = socket_.write_some(boost::asio::buffer(out_) + sent_, error);
    if (error == boost::asio::error::would_block) {
      awaitRoom();
      return false;
    }
    if (error) {
      close();
      return false;
    }
    sent_ += count;
    moved_ = Clock::now();
    behind_ -= std::min<Clock::duration>(behind_, host_.limits().timeOf(count));
  }
  sent_ = 0;
  out_ = std::string();
  return true;
}

void HttpConnection::finish() {
  moved_ = Clock::now();
  if (keepsAlive_ && body_ && !body_->isOver()) {
    phase_ = Phase::Skipping;
    return;
  }
  if (body_ && !body_->isComplete()) keepsAlive_ = false;
  body_.reset();
  if (keepsAlive_ && !host_.isStopping()) {
    phase_ = Phase::Reading;
    isPipelined_ = !in_.empty();
    if (in_.empty()) in_ = std::string();
    return;
  }
  if (ended_) {
    close();
    return;
  }
  in_ = std::string();
  ErrorCode error;
  socket_.shutdown(HttpSocket::shutdown_send, error);
  phase_ = Phase::Draining;
}

void HttpConnection::awaitRoom() {
  awaitsRoom_ = true;
  waits_ = Clock::now();
  socket_.async_wait(HttpSocket::wait_write, [self = shared_from_this()](ErrorCode const& error) {
    self->awaitsRoom_ = false;
    self->behind_ += Clock::now() - self->waits_;
    if (!error) self->advance();
  });
}

}  // namespace Agent
