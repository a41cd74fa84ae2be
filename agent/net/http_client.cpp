// Sends requests and reads responses over one connection.
#include "agent/net/http_client.h"

#include <array>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/impl/src.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_static_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/src.hpp>
#include <limits>
#include <optional>

#include "agent/document/number.h"
#include "agent/net/http_message_parser.h"
#include "agent/net/http_text.h"

namespace Agent {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;

using ErrorCode = boost::system::error_code;
using Socket = asio::basic_stream_socket<asio::ip::tcp, asio::io_context::executor_type>;
using Resolver = asio::ip::basic_resolver<asio::ip::tcp, asio::io_context::executor_type>;

// More than this of one header is no header of our server.
constexpr std::size_t kMostHeaderBytes = 64 * 1024;

struct ServerName {
  std::string host;  // without the brackets of an IPv6 address
  std::string port;
  std::string field;  // as the field Host has it
};

ServerName readServer(std::string const& server) {
  auto const refuse = [&server] {
    throw std::invalid_argument("expected a server like http://127.0.0.1:7400, found \"" + server + "\"");
  };
  constexpr std::string_view kScheme = "http://";
  std::string_view rest = server;
  if (!sameWithoutCase(rest.substr(0, kScheme.size()), kScheme)) refuse();
  rest.remove_prefix(kScheme.size());
  if (rest.ends_with('/')) rest.remove_suffix(1);

  ServerName name{"", "80", std::string(rest)};
  std::size_t hostEnd = rest.find(':');
  if (rest.starts_with('[')) {
    hostEnd = rest.find(']');
    if (hostEnd == std::string_view::npos) refuse();
    name.host = rest.substr(1, hostEnd - 1);
    ++hostEnd;
  } else {
    name.host = rest.substr(0, hostEnd);
  }
  if (name.host.empty() || name.host.find_first_of("/?#@[] \t\r\n") != std::string::npos) refuse();
  if (hostEnd >= rest.size()) return name;

  std::string_view const port = rest.substr(hostEnd + 1);
  std::uint16_t number = 0;
  if (rest[hostEnd] != ':' || !readNumber(port, number) || number == 0) refuse();
  name.port = port;
  return name;
}

// Reads one response; pieces of its body gather in `response().body`, and the caller may take them out.
class ResponseParser final : public HttpMessageParser<false, HttpResponse> {
 public:
  explicit ResponseParser(bool toHead) {
    skip(toHead);
    header_limit(kMostHeaderBytes);
    // No limit at all would be taken for one of nothing.
    body_limit(std::numeric_limits<std::uint64_t>::max());
  }

  HttpResponse& response() { return message_; }

 private:
  void on_response_impl(int status, Text, int, ErrorCode&) override { message_.status = status; }
};

}  // namespace

class HttpClient::Impl {
 public:
  Impl(std::string const& server, std::chrono::milliseconds patience)
      : server_(server), name_(readServer(server)), patience_(patience) {}

  HttpResponse request(HttpRequest const& request) {
    begin(request);
    while (!parser_->is_done()) takeBytes(patience_);
    keepOrClose();
    return std::move(parser_->response());
  }

  bool stream(HttpRequest const& request, std::function<bool(HttpResponse const&)> const& begun,
              std::function<bool(std::string_view)> const& piece) {
    begin(request);
    // The pieces that came with the header are given after it.
    std::string body = std::exchange(parser_->response().body, {});
    bool goesOn = begun(parser_->response());
    for (;;) {
      if (goesOn && !body.empty()) goesOn = piece(body);
      if (!goesOn) {
        close();
        return false;
      }
      if (parser_->is_done()) break;
      takeBytes(std::nullopt);
      body = std::exchange(parser_->response().body, {});
    }
    keepOrClose();
    return true;
  }

 private:
  using Patience = std::optional<std::chrono::milliseconds>;

  [[noreturn]] void fail(std::string const& reason) {
    close();
    throw HttpError(server_ + ": " + reason);
  }

  // Sends the request and reads the header of its response.
  void begin(HttpRequest const& request) {
    // A server may close a kept connection at any time, just now too.
    bool const mayBeStale = socket_.is_open() && !hasEnded();
    if (!mayBeStale) connect();
    if (tryRequest(request)) return;
    if (mayBeStale) {
      connect();
      if (tryRequest(request)) return;
    }
    fail("the connection was closed before an answer came");
  }

  // False if the connection ended before a byte of the response.
  bool tryRequest(HttpRequest const& request) {
    parser_.emplace(request.method == "HEAD");
    // A server that has refused the request may not have read all of it, but its response is there to be read.
    bool const isSent = send(request);
    while (!parser_->is_header_done() || parser_->response().status / 100 == 1) {
      // What follows an interim response is the response.
      if (parser_->is_header_done()) parser_.emplace(request.method == "HEAD");
      if (takeBytes(patience_)) continue;
      if (!parser_->got_some() && in_.size() == 0) return false;
      fail(isSent ? "the connection was closed in the middle of an answer" : "the connection was closed");
    }
    return true;
  }

  void connect() {
    close();
    Resolver resolver(context_);
    ErrorCode error;
    auto const found = resolver.resolve(name_.host, name_.port, error);
    if (error) fail("cannot find the host: " + error.message());
    for (auto const& entry : found) {
      close();
      auto const result = await(patience_, [&](auto done) { socket_.async_connect(entry.endpoint(), done); });
      error = result.value_or(asio::error::timed_out);
      if (error) continue;
      socket_.non_blocking(true, error);
      socket_.set_option(asio::ip::tcp::no_delay(true), error);
      return;
    }
    fail("cannot connect: " + error.message());
  }

  // False if the connection broke on the way.
  bool send(HttpRequest const& request) {
    HttpFields fields{{"Host", name_.field}};
    fields.insert(fields.end(), request.fields.begin(), request.fields.end());
    bool const mayHaveBody = request.method == "POST" || request.method == "PUT" || !request.body.empty();
    if (mayHaveBody) fields.emplace_back("Content-Length", std::to_string(request.body.size()));
    std::string const text = messageHead(request.method + " " + request.target + " HTTP/1.1", fields) + request.body;
    for (std::size_t sent = 0; sent < text.size();) {
      ErrorCode error;
      sent += socket_.write_some(asio::buffer(text) + sent, error);
      if (error == asio::error::would_block)
        awaitMovement(Socket::wait_write, patience_);
      else if (error)
        return false;
    }
    return true;
  }

  // Waits for bytes of the response, and takes them. False if the connection has ended, and the response is not one
  // that ends with it.
  bool takeBytes(Patience const& patience) {
    ErrorCode error;
    while (http::read_some(socket_, in_, *parser_, error), error == asio::error::would_block)
      awaitMovement(Socket::wait_read, patience);
    if (!error) return true;
    bool const hasEnded = error == http::error::end_of_stream || error == http::error::partial_message ||
                          error.category() == boost::system::system_category();
    if (!hasEnded) fail("no answer in HTTP: " + error.message());
    if (parser_->is_header_done()) fail("the connection was closed in the middle of an answer");
    return false;
  }

  void keepOrClose() {
    if (!parser_->keep_alive() || in_.size() != 0) close();
  }

  void close() {
    ErrorCode ignored;
    socket_.close(ignored);
    in_.clear();
  }

  // Whether the server has closed the kept connection, or sent what was not asked for.
  bool hasEnded() {
    std::array<char, 1> byte;
    ErrorCode error;
    socket_.receive(asio::buffer(byte), Socket::message_peek, error);
    return error != asio::error::would_block;
  }

  void awaitMovement(Socket::wait_type direction, Patience const& patience) {
    auto const result = await(patience, [&](auto done) { socket_.async_wait(direction, done); });
    if (!result) fail("no answer for " + std::to_string(patience_.count()) + " ms");
  }

  // What came of the operation; nothing if it took longer than that.
  template <class Start>
  std::optional<ErrorCode> await(Patience const& patience, Start const& start) {
    std::optional<ErrorCode> result;
    start([&result](ErrorCode const& error) { result = error; });
    context_.restart();
    if (!patience) {
      context_.run();
      return result;
    }
    context_.run_for(*patience);
    if (result) return result;
    close();
    context_.run();
    return std::nullopt;
  }

  std::string const server_;
  ServerName const name_;
  std::chrono::milliseconds const patience_;
  asio::io_context context_{1};
  Socket socket_{context_};
  // Bytes that the response has not taken yet.
  boost::beast::flat_static_buffer<kMostHeaderBytes> in_;
  std::optional<ResponseParser> parser_;
};

HttpClient::HttpClient(std::string const& server, std::chrono::milliseconds patience)
    : impl_(std::make_unique<Impl>(server, patience)) {}
HttpClient::~HttpClient() = default;

HttpResponse HttpClient::request(HttpRequest const& request) { return impl_->request(request); }

bool HttpClient::stream(HttpRequest const& request, std::function<bool(HttpResponse const& head)> const& begun,
                        std::function<bool(std::string_view piece)> const& piece) {
  return impl_->stream(request, begun, piece);
}

}  // namespace Agent
