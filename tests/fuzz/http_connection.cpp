// Connections of the HTTP server: the bytes of a client in pieces of random sizes, several requests at once among them.
// Each request is answered once and in its turn, well-formed, whatever the pieces; then the connection ends with its
// client.
#include "agent/net/http_connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/post.hpp>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "fuzz/fuzz.h"

namespace {

namespace asio = boost::asio;
using Agent::HttpRequest;
using Agent::HttpResponse;

/// A body in pieces of three bytes.
class Pieces final : public Agent::BodySource {
 public:
  explicit Pieces(std::string rest) : rest_(std::move(rest)) {}
  std::optional<std::string> next() override {
    if (rest_.empty()) return std::nullopt;
    std::string piece = rest_.substr(0, 3);
    rest_.erase(0, piece.size());
    return piece;
  }

 private:
  std::string rest_;
};

/// Answers each request with what it is, in the way that the length of its target has it. Of those that it reads
/// itself, some are answered before their bodies have come.
class Host final : public Agent::HttpConnectionHost {
 public:
  Host(asio::io_context& context, std::string_view text) : context_(context) {
    for (std::size_t at = text.find("HEAD"); at != std::string_view::npos; at = text.find("HEAD", at + 1)) ++headsLeft;
    limits_.headerBytes = 512;
    limits_.bodyBytes = 256;
  }

  Agent::HttpLimits const& limits() const override { return limits_; }
  bool isStopping() const override { return false; }
  Agent::BodyBudget& bodies() override { return bodies_; }
  std::span<char> scratch() override { return scratch_; }
  void post(std::function<void()> task) override { asio::post(context_, std::move(task)); }
  void postPiece(std::function<void()> task) override { post(std::move(task)); }
  void handle(HttpRequest request, Agent::HttpAnswer answer) override {
    bool const isEarly = request.target.size() % 5 == 1 && !Agent::findField(request.fields, "Expect");
    if (request.reader && !isEarly) return read(std::make_shared<HttpRequest>(std::move(request)), answer);
    asked.push_back(request.method + " " + request.target + " " + request.body);
    if (request.method == "HEAD") --headsLeft;
    HttpResponse response;
    switch (request.target.size() % 4) {
      case 0:
        // An exception tells no more than what stands before a zero.
        asked.back().resize(std::min(asked.back().find('\0'), asked.back().size()));
        throw std::runtime_error(asked.back());
      case 1:
        response.source = std::make_unique<Pieces>(asked.back());
        break;
      case 2:
        response.body = asked.back();
        break;
      default:
        later = [answer, body = asked.back()] { answer({200, {}, body, nullptr}); };
        return;
    }
    answer(std::move(response));
  }
  HttpResponse problem(int status, std::string const& reason) override {
    isRefused = asked.empty() || reason != asked.back();
    return {status, {}, reason, nullptr};
  }
  bool isVital(HttpRequest const&) const override { return false; }
  bool isReadAsItComes(HttpRequest const& request) const override { return request.target.size() % 5 < 2; }
  void turnedAway(std::string const&) override {}
  void left(Agent::HttpConnection&) override { hasLeft = true; }

  std::vector<std::string> asked;
  std::function<void()> later;
  bool isRefused = false;
  bool hasLeft = false;
  /// How often the word stands in what has not been asked: one of them may be refused.
  int headsLeft = 0;

 private:
  void read(std::shared_ptr<HttpRequest> const& request, Agent::HttpAnswer const& answer) {
    try {
      auto piece = request->reader->next();
      for (; piece && !piece->empty(); piece = request->reader->next()) request->body += *piece;
      if (piece) return request->reader->wakeIs([this, request, answer] { read(request, answer); });
      request->reader = nullptr;
      handle(*request, answer);
    } catch (Agent::BodyError const& error) {
      answer(problem(error.status(), error.what()));
    } catch (std::runtime_error const& error) {
      answer(problem(500, error.what()));
    }
  }

  asio::io_context& context_;
  Agent::HttpLimits limits_;
  Agent::BodyBudget bodies_{1 << 20};
  std::array<char, 1024> scratch_{};
};

class AnswerParser final : public Agent::HttpMessageParser<false, HttpResponse> {
 public:
  /// Takes one answer off the front of what was sent in all; the end of the connection may be that of its body.
  HttpResponse take(std::string_view& sent, bool toHead) {
    skip(toHead);
    eager(true);
    ErrorCode error;
    while (!is_done() && !error && !sent.empty()) sent.remove_prefix(put(asio::buffer(sent), error));
    if (sent.empty() && !is_done()) put_eof(error);
    Fuzz::require(is_done() && !error, "an answer is whole", error.message());
    return std::move(message_);
  }

 private:
  void on_response_impl(int status, Text, int, ErrorCode&) override { message_.status = status; }
};

/// What a client is sent is the answers to these requests, and a refusal behind them if there was one.
void requireAnswers(std::string_view sent, Host const& host) {
  std::size_t answered = 0;
  while (!sent.empty()) {
    bool const isRefusal = answered == host.asked.size();
    bool const toHead =
        isRefusal ? host.headsLeft > 0 && sent.ends_with("\r\n\r\n") : host.asked[answered].starts_with("HEAD ");
    HttpResponse const answer = AnswerParser().take(sent, toHead);
    if (answer.status == 100) continue;
    Fuzz::require(Agent::findField(answer.fields, "Date").has_value(), "an answer has its fields");
    if (isRefusal) Fuzz::require(host.isRefused && answer.status >= 400 && sent.empty(), "a refusal is the last");
    if (!isRefusal) Fuzz::requireEqual(answer.body, toHead ? "" : host.asked[answered], "answers have their order");
    ++answered;
  }
  Fuzz::require(answered == host.asked.size() + (host.isRefused ? 1 : 0), "each request is answered");
}

/// The requests that a connection finds in a text of which so many bytes at most come at a time.
std::vector<std::string> requestsOf(std::string_view text, std::size_t most) {
  static asio::io_context context;
  std::array<int, 2> ends{};
  Fuzz::require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) == 0, "there are sockets");
  Host host(context, text);
  Agent::HttpSocket socket(context);
  socket.assign(asio::ip::tcp::v4(), ends[0]);
  auto const connection = std::make_shared<Agent::HttpConnection>(host, std::move(socket), 0, "");
  std::string sent;
  auto const goOn = [&] {
    std::array<char, 4096> bytes;
    for (bool isDone = false; !isDone;) {
      context.restart();
      isDone = context.poll() == 0 && !host.later;
      if (auto const answer = std::exchange(host.later, nullptr)) answer();
      for (ssize_t count = 1; count > 0;) {
        count = ::recv(ends[1], bytes.data(), bytes.size(), 0);
        if (count > 0) sent.append(bytes.data(), static_cast<std::size_t>(count));
      }
    }
  };
  connection->begin();
  std::minstd_rand random(static_cast<unsigned>(most));
  while (!text.empty()) {
    std::string_view const piece = text.substr(0, 1 + random() % most);
    text.remove_prefix(piece.size());
    ::send(ends[1], piece.data(), piece.size(), MSG_NOSIGNAL);
    goOn();
  }
  ::shutdown(ends[1], SHUT_WR);
  goOn();
  ::close(ends[1]);
  Fuzz::require(host.hasLeft, "a connection ends with its client");
  requireAnswers(sent, host);
  return host.asked;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Fuzz::Bytes input(Fuzz::textOf(data, size));
  std::size_t const most = input.number(1) + 1;
  std::string_view const text = input.rest();
  Fuzz::require(requestsOf(text, most) == requestsOf(text, size + 1), "requests are found in any pieces");
  return 0;
}
