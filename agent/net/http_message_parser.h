// Reads HTTP messages out of bytes as they come.
#pragma once

#include <boost/beast/http/basic_parser.hpp>
#include <boost/beast/http/error.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

#include "agent/net/http.h"

namespace Agent {

/// A message has no more fields than this, with its trailers: each takes more memory than its bytes on the line,
/// however small it is.
inline constexpr std::size_t kMostFields = 100;

/// Gathers the fields and the body of one message.
template <bool kIsRequest, class Message>
class HttpMessageParser : public boost::beast::http::basic_parser<kIsRequest> {
 protected:
  using ErrorCode = boost::beast::error_code;
  using Text = boost::beast::string_view;

  Message message_;

 private:
  std::size_t fields_ = 0;

  void on_field_impl(boost::beast::http::field, Text name, Text value, ErrorCode& to) override {
    if (++fields_ > kMostFields) to = boost::beast::http::error::buffer_overflow;
    // Trailers come when the message has been judged by its header, and may add nothing to that.
    if (to || this->is_header_done()) return;
    message_.fields.emplace_back(std::string(name), std::string(value));
  }
  std::size_t on_body_impl(Text body, ErrorCode&) override {
    // No more memory than the whole of it takes, where that is known.
    std::size_t const known = message_.body.size() + this->content_length_remaining().value_or(0);
    if (known > message_.body.capacity() && known < 2 * message_.body.capacity()) message_.body.reserve(known);
    message_.body.append(body.data(), body.size());
    return body.size();
  }
  std::size_t on_chunk_body_impl(std::uint64_t, Text body, ErrorCode& to) override { return on_body_impl(body, to); }
  void on_request_impl(boost::beast::http::verb, Text, Text, int, ErrorCode&) override {}
  void on_response_impl(int, Text, int, ErrorCode&) override {}
  void on_header_impl(ErrorCode&) override {}
  void on_body_init_impl(boost::optional<std::uint64_t> const&, ErrorCode&) override {}
  void on_chunk_header_impl(std::uint64_t, Text, ErrorCode&) override {}
  void on_finish_impl(ErrorCode&) override {}
};

}  // namespace Agent
