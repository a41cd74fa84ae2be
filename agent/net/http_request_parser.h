// Reads HTTP requests out of bytes as they come.
#pragma once

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <cstdint>
#include <string>
#include <utility>

#include "agent/net/http_message_parser.h"
#include "agent/net/http_server.h"

namespace Agent {

/// Reads one request. Beyond the grammar it sees to the limits and to what would let two readers of the same bytes find
/// different requests in them.
class HttpRequestParser final : public HttpMessageParser<true, HttpRequest> {
 public:
  enum class State {
    WantsMore,  // all bytes are taken that could be
    HeaderIn,   // the header has been read, the body is still to come; feed again
    Complete,
    Refused  // see status() and reason()
  };

  explicit HttpRequestParser(HttpLimits const& limits) : headerLimit_(limits.headerBytes) {
    header_limit(static_cast<std::uint32_t>(std::min<std::size_t>(limits.headerBytes, UINT32_MAX)));
    body_limit(limits.bodyBytes);
    eager(false);
  }

  /// Takes from the front of `bytes` what belongs to the request.
  State feed(std::string& bytes) {
    if (skipEmptyLine(bytes)) return State::WantsMore;
    std::size_t used = 0;
    State result = State::WantsMore;
    while (result == State::WantsMore && used < bytes.size()) {
      bool const inHeader = !is_header_done();
      boost::beast::error_code error;
      std::size_t const taken = put(boost::asio::buffer(bytes.data() + used, bytes.size() - used), error);
      used += taken;
      if (inHeader) headerBytes_ += taken;
      bool const wantsMore = error == boost::beast::http::error::need_more;
      if (error && !wantsMore)
        result = refuse(statusOf(error), error.message());
      else if (tooLong(inHeader ? headerBytes_ : 0, wantsMore ? bytes.size() - used : 0))
        result = refuse(431, "the header is longer than " + std::to_string(headerLimit_) + " bytes");
      else if (wantsMore)
        break;
      else if (inHeader && is_header_done())
        result = checkHeader();
      else if (is_done())
        result = State::Complete;
    }
    bytes.erase(0, used);
    return result;
  }

  int status() const { return status_; }
  std::string const& reason() const { return reason_; }

  /// Whether the client waits for a word before it sends the body.
  bool expectsContinue() const { return expectsContinue_; }
  bool isHttp11() const { return version_ == 11; }
  /// The memory of what has been read of the body.
  std::size_t bodyBytes() const { return message_.body.capacity(); }
  HttpRequest takeRequest() { return std::move(message_); }

 private:
  static int statusOf(ErrorCode const& error) {
    if (error == boost::beast::http::error::header_limit) return 431;
    if (error == boost::beast::http::error::body_limit) return 413;
    return 400;
  }

  State refuse(int status, std::string reason) {
    status_ = status;
    reason_ = std::move(reason);
    return State::Refused;
  }

  // The grammar's own limit is for each call alone, and there is none for a chunk's head and for trailers.
  bool tooLong(std::size_t taken, std::size_t left) const { return taken + left > headerLimit_; }

  // Some clients end a body with a line end too many. Whether there may be more to skip.
  bool skipEmptyLine(std::string& bytes) {
    if (got_some() || skippedLine_ || !bytes.starts_with('\r')) return false;
    if (bytes.size() == 1) return true;
    skippedLine_ = bytes[1] == '\n';
    if (skippedLine_) bytes.erase(0, 2);
    return false;
  }

  State checkHeader() {
    int hosts = 0;
    for (auto const& [name, value] : message_.fields) {
      if (sameWithoutCase(name, "Host")) ++hosts;
      if (sameWithoutCase(name, "Transfer-Encoding")) {
        if (!isHttp11()) return refuse(400, "Transfer-Encoding in a request of HTTP/1.0");
        if (!sameWithoutCase(value, "chunked")) return refuse(501, "expected no transfer coding but chunked");
      }
      if (sameWithoutCase(name, "Expect")) {
        if (!sameWithoutCase(value, "100-continue")) return refuse(417, "expected 100-continue");
        expectsContinue_ = isHttp11();
      }
    }
    if (hosts > 1 || (hosts == 0 && isHttp11())) return refuse(400, "expected one field Host");
    takeTheOrigin();
    return is_done() ? State::Complete : State::HeaderIn;
  }

  // "http://host/path" is another way to write "/path".
  void takeTheOrigin() {
    constexpr std::string_view kScheme = "http://";
    std::string& target = message_.target;
    if (!sameWithoutCase(std::string_view(target).substr(0, kScheme.size()), kScheme)) return;
    target.erase(0, std::min(target.find_first_of("/?", kScheme.size()), target.size()));
    if (target.empty() || target.front() == '?') target.insert(0, "/");
  }

  void on_request_impl(boost::beast::http::verb, Text method, Text target, int version, ErrorCode&) override {
    message_.method.assign(method.data(), method.size());
    message_.target.assign(target.data(), target.size());
    version_ = version;
  }

  std::size_t const headerLimit_;
  std::size_t headerBytes_ = 0;
  bool skippedLine_ = false;
  int version_ = 0;
  bool expectsContinue_ = false;
  int status_ = 0;
  std::string reason_;
};

}  // namespace Agent
