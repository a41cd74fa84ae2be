// The HTTP client: against the server, and against answers that no server should give.
#include "agent/net/http_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpClientTest {
namespace {

using std::chrono::milliseconds;
using Test::RunningServer;
using testing::HasSubstr;
using testing::StartsWith;

std::string urlOf(std::uint16_t port) { return "http://127.0.0.1:" + std::to_string(port); }

void echo(HttpRequest const& request, HttpAnswer const& answer) {
  HttpResponse response;
  response.body = request.method + " " + request.target + " " + request.body;
  response.fields = {{"Host-Was", std::string(findField(request.fields, "host").value_or("none"))}};
  answer(std::move(response));
}

HttpRequest requestTo(std::string target) {
  HttpRequest request;
  request.target = std::move(target);
  return request;
}

// Gives every connection the next of its answers when a whole header has come, and closes it.
class Impostor {
 public:
  explicit Impostor(std::vector<std::string> answers) : listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(listener_, 10), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, answers = std::move(answers)] {
      for (auto const& answer : answers) serve(answer);
    });
  }
  ~Impostor() {
    thread_.join();
    ::close(listener_);
  }
  Impostor(Impostor const&) = delete;
  Impostor& operator=(Impostor const&) = delete;

  std::uint16_t port() const { return port_; }

 private:
  void serve(std::string const& answer) const {
    int const connection = ::accept(listener_, nullptr, nullptr);
    std::string header;
    char byte = 0;
    while (header.find("\r\n\r\n") == std::string::npos && ::recv(connection, &byte, 1, 0) == 1) header += byte;
    ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
    ::shutdown(connection, SHUT_WR);
    while (::recv(connection, &byte, 1, 0) == 1) {
    }
    ::close(connection);
  }

  int listener_;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

std::string failureOf(HttpClient& client, HttpRequest const& request) {
  try {
    return "answered: " + client.request(request).body;
  } catch (HttpError const& error) {
    return error.what();
  }
}

TEST(HttpClient, TakesServersByTheirUrl) {
  for (char const* const server :
       {"http://127.0.0.1:7400", "HTTP://localhost", "http://[::1]:80", "http://[::1]/", "http://a.b:65535/"})
    EXPECT_NO_THROW(HttpClient client(server)) << server;
  for (char const* const server : {"",
                                   "here",
                                   "https://here",
                                   "http://",
                                   "http://:80",
                                   "http://here:",
                                   "http://here:0",
                                   "http://here:65536",
                                   "http://here:8x",
                                   "http://here/path",
                                   "http://[::1",
                                   "http://[::1]80",
                                   "http://you@here",
                                   "http://a b"})
    EXPECT_THROW(HttpClient client(server), std::invalid_argument) << server;
}

TEST(HttpClient, SendsAndReceives) {
  RunningServer server(echo);
  HttpClient client(urlOf(server.port()));
  HttpRequest put = requestTo("/a");
  put.method = "PUT";
  for (std::size_t const size : {0U, 1U, 100'000U, 16'000'000U}) {
    put.body.resize(size, 'x');
    auto const response = client.request(put);
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(response.body == "PUT /a " + put.body);
    EXPECT_EQ(findField(response.fields, "host-was"), "127.0.0.1:" + std::to_string(server.port()));
  }
  HttpRequest head = requestTo("/a");
  head.method = "HEAD";
  EXPECT_EQ(client.request(head).body, "");
  EXPECT_EQ(client.request(requestTo("/b")).body, "GET /b ");
  EXPECT_EQ(server.call([&] { return server.server().connections(); }), 1U) << "one connection served all";
}

TEST(HttpClient, SpeaksToIpv6) {
  RunningServer server(echo, {}, "::1");
  std::string const name = "[::1]:" + std::to_string(server.port());
  HttpClient client("http://" + name);
  EXPECT_EQ(findField(client.request(requestTo("/")).fields, "Host-Was"), name);
}

TEST(HttpClient, HearsWhyABodyIsTooLong) {
  HttpLimits limits;
  limits.bodyBytes = 1000;
  RunningServer server(echo, limits);
  HttpClient client(urlOf(server.port()));
  HttpRequest put = requestTo("/a");
  put.method = "PUT";
  put.body.resize(10'000'000, 'x');
  EXPECT_EQ(client.request(put).status, 413);
  put.body = "short";
  EXPECT_EQ(client.request(put).status, 200);
}

TEST(HttpClient, ConnectsAnewWhenItsConnectionIsGone) {
  HttpLimits limits;
  limits.idle = milliseconds(50);
  RunningServer server(echo, limits);
  HttpClient client(urlOf(server.port()));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(client.request(requestTo("/a")).status, 200);
    server.await([&] { return server.server().connections() == 0; });
  }
}

TEST(HttpClient, SendsAgainOnceWhenAKeptConnectionGivesNoAnswer) {
  std::string const kept = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n";
  Impostor server({kept + "a", kept + "b", ""});
  HttpClient client(urlOf(server.port()));
  EXPECT_EQ(client.request(requestTo("/")).body, "a");
  EXPECT_EQ(client.request(requestTo("/")).body, "b");
  EXPECT_THAT(failureOf(client, requestTo("/")), HasSubstr("closed before an answer came"));
}

TEST(HttpClient, ReadsAnswersAndFailsInOneLine) {
  struct Answer {
    std::string bytes;
    std::string result;
  };
  std::string const ok = "HTTP/1.1 200 OK\r\n";
  for (auto const& answer :
       std::vector<Answer>{{ok + "\r\nto the end", "answered: to the end"},
                           {ok + "Content-Length: 2\r\n\r\nabc", "answered: ab"},
                           {ok + "Transfer-Encoding: chunked\r\n\r\n1\r\na\r\n2\r\nbc\r\n0\r\n\r\n", "answered: abc"},
                           {"HTTP/1.1 100 Continue\r\n\r\n" + ok + "Content-Length: 1\r\n\r\na", "answered: a"},
                           {"HTTP/1.0 404 Not Found\r\nContent-Length: 1\r\n\r\na", "answered: a"},
                           {"HTTP/1.1 204 No Content\r\n\r\n", "answered: "},
                           {"", "the connection was closed before an answer came"},
                           {"HTTP/1.1 200", "the connection was closed in the middle of an answer"},
                           {ok + "Content-Length: 2\r\n\r\na", "the connection was closed in the middle of an answer"},
                           {ok + "Transfer-Encoding: chunked\r\n\r\n1\r\na\r\n",
                            "the connection was closed in the middle of an answer"},
                           {"SSH-2.0-something\r\n\r\n", "no answer in HTTP: "},
                           {ok + "Transfer-Encoding: chunked\r\n\r\nx\r\n", "no answer in HTTP: "},
                           {ok + "A: " + std::string(100'000, 'x'), "no answer in HTTP: "}}) {
    SCOPED_TRACE(answer.bytes.substr(0, 100));
    Impostor server({answer.bytes});
    std::string const url = urlOf(server.port());
    HttpClient client(url);
    std::string const result = failureOf(client, requestTo("/"));
    EXPECT_THAT(result, StartsWith((answer.result.starts_with("answered") ? "" : url + ": ") + answer.result));
    EXPECT_EQ(result.find('\n'), std::string::npos);
  }
}

TEST(HttpClient, SaysThatNobodyListens) {
  std::string url;
  {
    Impostor server({});
    url = urlOf(server.port());
  }
  HttpClient client(url);
  EXPECT_EQ(failureOf(client, requestTo("/")), url + ": cannot connect: Connection refused");
}

TEST(HttpClient, LosesPatience) {
  std::vector<HttpAnswer> answers;
  RunningServer server([&](HttpRequest const& request, HttpAnswer answer) {
    if (request.target == "/now")
      answer({});
    else
      answers.push_back(std::move(answer));
  });
  HttpClient client(urlOf(server.port()), milliseconds(100));
  EXPECT_THAT(failureOf(client, requestTo("/later")), HasSubstr("no answer for 100 ms"));
  EXPECT_EQ(client.request(requestTo("/now")).status, 200);
}

// Gives a number when it is told to.
class Counter final : public BodySource {
 public:
  explicit Counter(EventLoop& loop) : loop_(loop) {}
  std::optional<std::string> next() override {
    if (given_ == 5) return std::nullopt;
    if ((isReady_ = !isReady_)) return std::to_string(given_++) + ";";
    loop_.at(loop_.now() + milliseconds(100), [this] { wake(); });
    return "";
  }

 private:
  EventLoop& loop_;
  bool isReady_ = false;
  int given_ = 0;
};

TEST(HttpClient, StreamsWithPausesBeyondItsPatience) {
  EventLoop* loop = nullptr;
  RunningServer server([&](HttpRequest const&, HttpAnswer const& answer) {
    HttpResponse response;
    response.source = std::make_unique<Counter>(*loop);
    answer(std::move(response));
  });
  loop = &server.server();
  HttpClient client(urlOf(server.port()), milliseconds(50));
  int status = 0;
  std::string pieces;
  auto const begun = [&](HttpResponse const& head) { return (status = head.status) == 200; };
  EXPECT_TRUE(client.stream(requestTo("/"), begun, [&](std::string_view piece) {
    pieces += piece;
    return true;
  }));
  EXPECT_EQ(status, 200);
  EXPECT_EQ(pieces, "0;1;2;3;4;");
}

TEST(HttpClient, EndsAStreamWhenTold) {
  RunningServer server(echo);
  HttpClient client(urlOf(server.port()));
  bool isAsked = false;
  EXPECT_FALSE(client.stream(
      requestTo("/"), [](HttpResponse const&) { return false; }, [&](std::string_view) { return isAsked = true; }));
  EXPECT_FALSE(isAsked);
  EXPECT_FALSE(client.stream(
      requestTo("/"), [](HttpResponse const&) { return true; }, [](std::string_view) { return false; }));
  EXPECT_EQ(client.request(requestTo("/a")).body, "GET /a ");
}

}  // namespace
}  // namespace Agent::HttpClientTest
