// Reads HTTP requests out of bytes as they come.
#pragma once

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <cstdint>
#include <string>
#include <string_view>
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

  explicit HttpRequestParser(HttpLimits const& limits)
      : headerLimit_(limits.headerBytes), bodyLimit_(limits.bodyBytes) {
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
      std::size_t const bodyBefore = message_.body.size();
      std::size_t const taken = put(boost::asio::buffer(bytes.data() + used, bytes.size() - used), error);
      used += taken;
      std::size_t const framing = taken - (message_.body.size() - bodyBefore);
      if (inHeader) headerBytes_ += taken;
      bool const wantsMore = error == boost::beast::http::error::need_more;
      if (error && !wantsMore)
        result = refuse(error);
      else if (wantsMore && !inHeader && !mayBeginChunk(std::string_view(bytes).substr(used)))
        result = refuse(boost::beast::http::error::bad_chunk);
      else if (tooLong(inHeader ? headerBytes_ : framing, wantsMore ? bytes.size() - used : 0))
        result = refuse(boost::beast::http::error::header_limit);
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
  /// The memory of what has been read of the body and has not been taken.
  std::size_t bodyBytes() const { return message_.body.capacity(); }
  std::size_t bodySize() const { return message_.body.size(); }
  /// All that has been read of it.
  std::uint64_t bodyRead() const { return taken_ + message_.body.size(); }
  std::string takeBody() {
    taken_ += message_.body.size();
    return std::exchange(message_.body, std::string());
  }
  /// How much there may be to read for it, as far as is known: of what follows behind it no more is to be read than a
  /// header.
  std::size_t wanted() const {
    auto const left = is_header_done() ? content_length_remaining() : boost::none;
    return static_cast<std::size_t>(std::max<std::uint64_t>(left.value_or(0), headerLimit_));
  }
  HttpRequest const& request() const { return message_; }
  /// With what has been read of the body.
  HttpRequest takeRequest() { return std::exchange(message_, HttpRequest()); }

 private:
  State refuse(ErrorCode const& error) {
    using Error = boost::beast::http::error;
    if (error == Error::header_limit) return refuse(431, longer("header", headerLimit_));
    if (error == Error::body_limit) return refuse(413, longer("body", bodyLimit_));
    if (error == Error::buffer_overflow)
      return refuse(431, "the header and the trailers have more than " + std::to_string(kMostFields) + " fields");
    return refuse(400, error.message());
  }
  static std::string longer(char const* what, std::uint64_t bytes) {
    return std::string("the ") + what + " is longer than " + std::to_string(bytes) + " bytes";
  }

  State refuse(int status, std::string reason) {
    status_ = status;
    reason_ = std::move(reason);
    return State::Refused;
  }

  // The grammar's own limit is for each call alone, and there is none for a chunk's head and for trailers.
  bool tooLong(std::size_t taken, std::size_t left) const { return taken + left > headerLimit_; }

  // The grammar looks at the size of a chunk at the end of its line, and at that of the last one behind all trailers.
  static bool mayBeginChunk(std::string_view text) {
    if (text.starts_with("\r")) text.remove_prefix(std::min<std::size_t>(text.size(), 2));
    std::size_t const end = text.find_first_not_of("0123456789abcdefABCDEF");
    return end == std::string_view::npos ||
           (end > 0 && std::string_view("\r; \t").find(text[end]) != std::string_view::npos);
  }

  // Some clients end a body with a line end too many. Whether there may be more to skip.
  bool skipEmptyLine(std::string& bytes) {
    if (got_some() || skippedLine_ || !bytes.starts_with('\r')) return false;
    if (bytes.size() == 1) return true;
    skippedLine_ = bytes[1] == '\n';
    if (skippedLine_) bytes.erase(0, 2);
    return false;
  }

  State checkHeader() {
    takeTheAuthority();
    int hosts = 0;
    int origins = 0;
    int lengths = 0;
    for (auto const& [name, value] : message_.fields) {
      if (sameWithoutCase(name, "Host")) ++hosts;
      if (sameWithoutCase(name, "Origin")) ++origins;
      if (sameWithoutCase(name, "Content-Length") && (++lengths > 1 || value.find(',') != std::string::npos))
        return refuse(400, "expected one length of the content");
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
    if (origins > 1) return refuse(400, "expected one field Origin at most");
    return is_done() ? State::Complete : State::HeaderIn;
  }

  // "http://host/path" is another way to write "/path", and its host counts instead of that of the field Host.
  void takeTheAuthority() {
    constexpr std::string_view kScheme = "http://";
    std::string& target = message_.target;
    if (!sameWithoutCase(std::string_view(target).substr(0, kScheme.size()), kScheme)) return;
    std::size_t const end = std::min(target.find_first_of("/?", kScheme.size()), target.size());
    std::string const host = target.substr(kScheme.size(), end - kScheme.size());
    target.erase(0, end);
    if (target.empty() || target.front() == '?') target.insert(0, "/");
    auto const isHost = [](auto const& field) { return sameWithoutCase(field.first, "Host"); };
    auto const field = std::find_if(message_.fields.begin(), message_.fields.end(), isHost);
    if (field != message_.fields.end())
      field->second = host;
    else if (!isHttp11())
      message_.fields.emplace_back("Host", host);
  }

  void on_request_impl(boost::beast::http::verb, Text method, Text target, int version, ErrorCode&) override {
    message_.method.assign(method.data(), method.size());
    message_.target.assign(target.data(), target.size());
    version_ = version;
  }

  std::size_t const headerLimit_;
  std::uint64_t const bodyLimit_;
  std::size_t headerBytes_ = 0;
  std::uint64_t taken_ = 0;
  bool skippedLine_ = false;
  int version_ = 0;
  bool expectsContinue_ = false;
  int status_ = 0;
  std::string reason_;
};

}  // namespace Agent
