// One connection of the HTTP server.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "agent/net/address_shares.h"
#include "agent/net/arriving_body.h"
#include "agent/net/body_budget.h"
#include "agent/net/http_request_parser.h"
#include "agent/net/http_server.h"

namespace Agent {

using HttpSocket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, boost::asio::io_context::executor_type>;

class HttpConnection;

/// What a connection needs of its server.
class HttpConnectionHost {
 public:
  HttpConnectionHost() = default;
  HttpConnectionHost(HttpConnectionHost const&) = delete;
  HttpConnectionHost& operator=(HttpConnectionHost const&) = delete;
  virtual ~HttpConnectionHost() = default;

  virtual HttpLimits const& limits() const = 0;
  virtual bool isStopping() const = 0;
  virtual BodyBudget& bodies() = 0;
  /// Where bytes may be read to; they are gone at the next call.
  virtual std::span<char> scratch() = 0;
  virtual void post(std::function<void()> task) = 0;
  /// Runs `task` behind all requests; of such tasks no more at a time than take a millisecond.
  virtual void postPiece(std::function<void()> task) = 0;
  virtual void handle(HttpRequest request, HttpAnswer answer) = 0;
  virtual HttpResponse problem(int status, std::string const& reason) = 0;
  /// Whether the request is answered even if its connection has no place.
  virtual bool isVital(HttpRequest const& request) const = 0;
  /// Whether its body is read by the program.
  virtual bool isReadAsItComes(HttpRequest const& request) const = 0;
  /// A client was refused, for want of a place.
  virtual void turnedAway(std::string const& reason) = 0;
  /// It has closed.
  virtual void left(HttpConnection& connection) = 0;
};

/// Reads a request, has it answered, writes the response, and so on. It never waits while it can go on, and holds no
/// buffer while there is nothing in it.
class HttpConnection final : public std::enable_shared_from_this<HttpConnection> {
 public:
  using Clock = EventLoop::Clock;

  /// `wanting` says why it has no place, and may ask for no more than one thing that is vital; empty if it has one.
  HttpConnection(HttpConnectionHost& host, HttpSocket socket, AddressShares::Origin origin, std::string wanting);

  AddressShares::Origin origin() const { return origin_; }
  /// A client that has connected has mostly sent its request already.
  void begin() { takeBytes(); }
  /// Whether no request of it is being answered.
  bool isIdle() const { return phase_ == Phase::Reading || phase_ == Phase::Draining; }
  /// Tells the client, unless it has had an answer, that there is no place for it, and ends.
  void turnAway();

  /// Answers without asking the program, and ends.
  void refuse(int status, std::string const& reason);

  /// Closes, or gives up a request, if nothing has moved for too long.
  void checkTime(Clock::time_point now);

  /// Ends what has not begun, and asks a source that waits.
  void stop();
  void close();

 private:
  enum class Phase {
    Reading,    // of a request, or waiting for one
    Answering,  // the program has the request
    Writing,    // of a response
    Waiting,    // for the source of a response
    Skipping,   // all is written, and the rest of the body is thrown away: another request may follow it
    Draining,   // all is written, and what the client still sends is thrown away, lest it miss the response
    Closed
  };
  using ErrorCode = boost::system::error_code;

  // How many requests or pieces a connection gets done before the others have their turn.
  static constexpr int kStepsInTurn = 8;

  struct Promise;

  // Goes on as far as it can without waiting.
  void advance();

  // Whether there is another step to take at once.
  bool step();
  bool read();

  // An empty line does not begin a request.
  bool hasBegun() const { return parser_ && parser_->got_some(); }

  void handle();
  void bodyTaken();
  void failBody(int status, std::string const& reason);
  void dropBody();
  bool skip();
  void sayContinue();
  void answer(HttpResponse response);
  void wakeLater();
  void woken();
  bool write();
  void ask();

  // Writes what is to be written; whether all of it has been.
  bool flush();
  void finish();
  void awaitRoom();

  // Also while a response is due: it is how the end of a client is noticed. What it sends meanwhile is kept, within
  // limits, for later.
  void awaitBytes();
  void takeBytes();

  HttpConnectionHost& host_;
  HttpSocket socket_;
  AddressShares::Origin const origin_;
  std::string const wanting_;
  Phase phase_ = Phase::Reading;
  bool advancing_ = false;
  // It goes on when the others have had their turn.
  bool isPosted_ = false;
  bool awaitsBytes_ = false;
  bool awaitsRoom_ = false;
  // The client sends no more.
  bool ended_ = false;
  // When a byte moved that one side waited for.
  Clock::time_point moved_;

  // Bytes that no request has taken yet.
  std::string in_;
  // The request that has begun.
  std::optional<HttpRequestParser> parser_;
  std::optional<BodyBudget::Share> share_;
  Clock::time_point begun_;
  // Of the request that is being answered, as long as there is more of it or the program has not answered.
  std::shared_ptr<ArrivingBody> body_;

  // Since when the response waits for its reader, and how far that is behind the rate that it is to keep.
  Clock::time_point waits_;
  Clock::duration behind_{0};

  // The client sent more before it had the answer.
  bool isPipelined_ = false;

  // Of the request that is being answered.
  bool http11_ = true;
  bool keepsAlive_ = true;
  bool isHead_ = false;
  // Its client has been told that the body is wanted.
  bool isAsked_ = false;

  // What is to be written next, and how much of it has been.
  std::string out_;
  std::size_t sent_ = 0;
  std::unique_ptr<BodySource> source_;
  bool sourceIsEmpty_ = false;
};

}  // namespace Agent
