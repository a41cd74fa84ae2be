// Requests of every kind to an HTTP server: what it takes, what it refuses, and how it keeps to its limits.
#include "agent/net/http_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <deque>
#include <random>
#include <vector>

#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpServerTest {
namespace {

using std::chrono::milliseconds;
using Test::RawConnection;
using Test::RunningServer;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

HttpResponse text(std::string body) {
  HttpResponse response;
  response.body = std::move(body);
  return response;
}

// Answers with what was asked.
void echo(HttpRequest const& request, HttpAnswer const& answer) {
  answer(text(request.method + " " + request.target + " " + request.body));
}

// More than a connection takes without being read.
std::string longText() {
  std::string text;
  text.resize(20'000'000, 'x');
  return text;
}

HttpLimits smallLimits() {
  HttpLimits limits;
  limits.bodyBytes = 1000;
  limits.headerBytes = 500;
  limits.idle = milliseconds(200);
  return limits;
}

std::string get(std::string const& target, std::string const& fields = "") {
  return "GET " + target + " HTTP/1.1\r\nHost: here\r\n" + fields + "\r\n";
}

std::string put(std::string const& target, std::string const& body) {
  return "PUT " + target + " HTTP/1.1\r\nHost: here\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

std::string chunked(std::string const& chunks, std::string const& fields = "") {
  return "PUT /a HTTP/1.1\r\nHost: here\r\nTransfer-Encoding: chunked\r\n" + fields + "\r\n" + chunks;
}

struct Refusal {
  char const* what;
  std::string request;
  int status;
};

std::vector<Refusal> const kRefusals{
    {"no request line", "hello\r\n\r\n", 400},
    {"no version", "GET /\r\n\r\n", 400},
    {"no target", "GET HTTP/1.1\r\n\r\n", 400},
    {"two spaces", "GET  / HTTP/1.1\r\nHost: here\r\n\r\n", 400},
    {"no token as method", "GE(T / HTTP/1.1\r\nHost: here\r\n\r\n", 400},
    {"control character in the target", "GET /\x01 HTTP/1.1\r\nHost: here\r\n\r\n", 400},
    {"version to come", "GET / HTTP/2.0\r\nHost: here\r\n\r\n", 400},
    {"version of another protocol", "GET / HTTQ/1.1\r\nHost: here\r\n\r\n", 400},
    {"bare line feeds", "GET / HTTP/1.1\nHost: here\n\n", 400},
    {"no host", "GET / HTTP/1.1\r\n\r\n", 400},
    {"two hosts", get("/", "Host: there\r\n"), 400},
    {"space before the colon", get("/", "A : b\r\n"), 400},
    {"no colon", get("/", "A\r\n"), 400},
    {"no name", get("/", ": b\r\n"), 400},
    {"null character in a value", get("/", std::string("A: b\0c\r\n", 8)), 400},
    {"carriage return in a value", get("/", "A: b\rc\r\n"), 400},
    {"negative length", get("/", "Content-Length: -1\r\n"), 400},
    {"length that is no number", get("/", "Content-Length: 1x\r\n"), 400},
    {"length beyond all numbers", get("/", "Content-Length: 99999999999999999999\r\n"), 400},
    {"two lengths", get("/", "Content-Length: 1\r\nContent-Length: 2\r\n") + "ab", 400},
    {"two lengths in one", get("/", "Content-Length: 1, 2\r\n") + "ab", 400},
    {"length, then chunks", get("/", "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n") + "0\r\n\r\n", 400},
    {"chunks, then length", get("/", "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n") + "0\r\n\r\n", 400},
    {"chunks twice", get("/", "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n") + "0\r\n\r\n", 400},
    {"unknown coding", get("/", "Transfer-Encoding: gzip\r\n"), 501},
    {"unknown coding in chunks", get("/", "Transfer-Encoding: gzip, chunked\r\n"), 501},
    {"unknown coding beside chunks", get("/", "Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n"), 501},
    {"chunks of old", "PUT / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
    {"chunk size that is no number", chunked("x\r\n"), 400},
    {"chunk size beyond all numbers", chunked("10000000000000001\r\n"), 400},
    {"chunk without its end", chunked("3\r\nabcd\r\n0\r\n\r\n"), 400},
    {"chunk size in front of a bare line feed", chunked("3\nabc\r\n0\r\n\r\n"), 400},
    {"trailer that is no field", chunked("0\r\nA\r\n\r\n"), 400},
    {"length in the trailer", chunked("0\r\nContent-Length: 3\r\n\r\n"), 400},
    {"unknown expectation", get("/", "Expect: miracles\r\n"), 417},
    {"long body", "PUT / HTTP/1.1\r\nHost: here\r\nContent-Length: 1001\r\n\r\n", 413},
    {"long body that waits", get("/", "Content-Length: 1001\r\nExpect: 100-continue\r\n"), 413},
    {"long body all there", put("/", std::string(500'000, 'x')), 413},
    {"long chunk", chunked("3e9\r\n"), 413},
    {"long sum of chunks", chunked("1f4\r\n" + std::string(500, 'x') + "\r\n1f5\r\n"), 413},
    {"long target", get("/" + std::string(600, 'x')), 431},
    {"long target without an end", "GET /" + std::string(600, 'x'), 431},
    {"long field", get("/", "A: " + std::string(600, 'x') + "\r\n"), 431},
    {"many fields",
     get("/",
         [] {
           std::string fields;
           for (int i = 0; i < 100; ++i) fields += "A: b\r\n";
           return fields;
         }()),
     431},
    {"long end of a chunk's head", chunked("3;" + std::string(600, 'x')), 431},
    {"long trailer", chunked("0\r\nA: " + std::string(600, 'x')), 431},
};

TEST(HttpServer, RefusesWhatIsNoRequest) {
  RunningServer server(echo, smallLimits());
  for (auto const& refusal : kRefusals) {
    SCOPED_TRACE(refusal.what);
    RawConnection client(server.port());
    client.send(refusal.request);
    auto const response = client.response();
    EXPECT_EQ(response.status, refusal.status) << response.body;
    EXPECT_EQ(RawConnection::field(response.head, "Connection"), "close");
    EXPECT_NE(response.body, "");
    EXPECT_TRUE(client.ends());
  }
}

// The limits hold for a request as a whole, however it comes.
TEST(HttpServer, RefusesTheSameByteForByte) {
  RunningServer server(echo, smallLimits());
  for (auto const& refusal : kRefusals) {
    if (refusal.request.size() > 2000) continue;
    SCOPED_TRACE(refusal.what);
    RawConnection client(server.port());
    for (char const byte : refusal.request)
      if (!client.send({&byte, 1})) break;
    client.endSending();
    EXPECT_EQ(client.response().status, refusal.status);
    EXPECT_TRUE(client.ends());
  }
}

struct Exchange {
  std::string request;
  std::string answer;
};

std::vector<Exchange> const kExchanges{
    {get("/a"), "GET /a "},
    {get("/a?b=c%20d"), "GET /a?b=c%20d "},
    {get("*"), "GET * "},
    {get("http://here/a"), "GET /a "},
    {get("HTTP://here"), "GET / "},
    {get("http://here?b"), "GET /?b "},
    {"\r\n" + get("/a"), "GET /a "},
    {"GET /a HTTP/1.1\r\nhOST:here\r\n\r\n", "GET /a "},
    {get("/a", "Long: one\r\n two\r\n"), "GET /a "},
    {put("/a", ""), "PUT /a "},
    {put("/a", "body\r\n\r\n"), "PUT /a body\r\n\r\n"},
    {chunked("0\r\n\r\n"), "PUT /a "},
    {chunked("3\r\nabc\r\n0\r\n\r\n"), "PUT /a abc"},
    {chunked("3;x=\"y\"\r\nabc\r\n0A\r\n0123456789\r\n000;z\r\nAfter: all\r\nHost: there\r\n\r\n"),
     "PUT /a abc0123456789"},
    {"DELETE /a HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", "DELETE /a "},
};

TEST(HttpServer, ReadsRequestsInAnyPieces) {
  RunningServer server(echo);
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    RawConnection client(server.port());
    std::string bytes;
    std::vector<Exchange> sent(1 + random() % 20);
    for (auto& exchange : sent) {
      exchange = kExchanges[random() % kExchanges.size()];
      bytes += exchange.request;
    }
    std::size_t const longest = std::size_t{1} << (random() % 10);
    for (std::size_t at = 0, size = 0; at < bytes.size(); at += size) {
      size = 1 + random() % longest;
      client.send(std::string_view(bytes).substr(at, size));
    }
    for (auto const& exchange : sent) {
      auto const response = client.response();
      ASSERT_EQ(response.status, 200) << response.body;
      ASSERT_EQ(response.body, exchange.answer);
    }
    client.endSending();
    ASSERT_TRUE(client.ends());
  }
}

TEST(HttpServer, OutlivesAnyBytes) {
  RunningServer server(echo, smallLimits());
  std::mt19937 random(2);
  for (int round = 0; round < 1000; ++round) {
    std::string bytes;
    for (std::size_t count = 1 + random() % 3; count > 0; --count)
      bytes += random() % 2 == 0 ? kExchanges[random() % kExchanges.size()].request
                                 : kRefusals[random() % kRefusals.size()].request;
    for (std::size_t changes = random() % 4; changes > 0 && !bytes.empty(); --changes) {
      std::size_t const at = random() % std::min<std::size_t>(bytes.size(), 300);
      if (random() % 2 == 0)
        bytes[at] = static_cast<char>(random());
      else
        bytes.erase(at, 1 + random() % 4);
    }
    RawConnection client(server.port());
    std::size_t const cut = random() % (bytes.size() + 1);
    client.send(std::string_view(bytes).substr(0, cut));
    client.send(std::string_view(bytes).substr(cut));
    client.endSending();
    client.rest();
  }
  RawConnection client(server.port());
  client.send(get("/a"));
  EXPECT_EQ(client.response().body, "GET /a ");
}

TEST(HttpServer, KeepsAConnectionAsTheClientWishes) {
  RunningServer server(echo);
  struct Wish {
    std::string version;
    std::string fields;
    bool keeps;
    std::string told;
  };
  for (auto const& wish : std::vector<Wish>{{"1.1", "", true, ""},
                                            {"1.1", "Connection: close\r\n", false, "close"},
                                            {"1.1", "Connection: te, Close\r\n", false, "close"},
                                            {"1.0", "", false, "close"},
                                            {"1.0", "Connection: Keep-Alive\r\n", true, "keep-alive"}}) {
    SCOPED_TRACE(wish.version + " " + wish.fields);
    RawConnection client(server.port());
    client.send("GET /a HTTP/" + wish.version + "\r\nHost: here\r\n" + wish.fields + "\r\n");
    auto const response = client.response();
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(RawConnection::field(response.head, "Connection"), wish.told);
    client.send(get("/b"));
    EXPECT_EQ(client.response().status, wish.keeps ? 200 : 0);
  }
}

TEST(HttpServer, WritesFieldsAndFramesBodies) {
  RunningServer server([](HttpRequest const& request, HttpAnswer const& answer) {
    HttpResponse response = text("four");
    response.status = std::stoi(request.target.substr(1));
    response.fields = {{"One", "1"}, {"Two", "2\r\nThree: 3"}};
    answer(std::move(response));
  });
  RawConnection client(server.port());
  client.send(get("/200"));
  auto response = client.response();
  EXPECT_THAT(response.head, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_EQ(RawConnection::field(response.head, "One"), "1");
  EXPECT_EQ(RawConnection::field(response.head, "Two"), "2  Three: 3");
  EXPECT_NE(RawConnection::field(response.head, "Date"), "");
  EXPECT_EQ(response.body, "four");

  client.send("HEAD /200 HTTP/1.1\r\nHost: here\r\n\r\n" + get("/507"));
  EXPECT_EQ(RawConnection::field(client.response(true).head, "Content-Length"), "4");
  EXPECT_THAT(client.response().head, StartsWith("HTTP/1.1 507 Insufficient Storage\r\n"));

  client.send(get("/204") + get("/299"));
  EXPECT_THAT(client.response().head, Not(HasSubstr("Content-Length")));
  EXPECT_EQ(client.response().status, 299);
}

TEST(HttpServer, TellsThatItWantsTheBody) {
  RunningServer server(echo);
  RawConnection client(server.port());
  client.send("PUT /a HTTP/1.1\r\nHost: here\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n");
  EXPECT_EQ(client.response().status, 100);
  client.send("body");
  EXPECT_EQ(client.response().body, "PUT /a body");
}

TEST(HttpServer, AnswersOneRequestAtATimeAndInOrder) {
  std::deque<HttpAnswer> answers;
  RunningServer server([&](HttpRequest const&, HttpAnswer answer) { answers.push_back(std::move(answer)); });
  RawConnection client(server.port());
  client.send(get("/1") + get("/2"));
  for (char const* const body : {"one", "two"}) {
    server.await([&] { return !answers.empty(); });
    EXPECT_EQ(server.call([&] { return answers.size(); }), 1U);
    server.call([&] {
      answers.front()(text(body));
      answers.pop_front();
      return true;
    });
    EXPECT_EQ(client.response().body, body);
  }
}

TEST(HttpServer, TellsOfAHandlerThatFails) {
  RunningServer server([](HttpRequest const& request, HttpAnswer const& answer) {
    if (request.target == "/late") answer(text("done"));
    if (request.target != "/forgotten") throw std::runtime_error("out of ideas");
  });
  RawConnection client(server.port());
  client.send(get("/a") + get("/forgotten") + get("/late"));
  auto const response = client.response();
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.body, "out of ideas");
  EXPECT_EQ(client.response().status, 500);
  EXPECT_EQ(client.response().body, "done");
}

TEST(HttpServer, AnswersAClientThatHasEndedSending) {
  std::vector<HttpAnswer> answers;
  RunningServer server([&](HttpRequest const& request, HttpAnswer answer) {
    if (request.target == "/now")
      answer(text("now"));
    else
      answers.push_back(std::move(answer));
  });
  RawConnection client(server.port());
  client.send(get("/now") + get("/later") + get("/now"));
  client.endSending();
  EXPECT_EQ(client.response().body, "now");
  server.await([&] { return !answers.empty(); });
  server.call([&] { return answers.front()(text("later")), true; });
  EXPECT_EQ(client.response().body, "later");
  EXPECT_EQ(client.response().body, "now");
  EXPECT_TRUE(client.ends());

  RawConnection hasty(server.port());
  hasty.send("GET /now HTTP/1.1\r\nHo");
  hasty.endSending();
  EXPECT_EQ(hasty.response().status, 400);
}

TEST(HttpServer, DropsTheAnswerToAClientThatHasGone) {
  std::vector<HttpAnswer> answers;
  RunningServer server([&](HttpRequest const&, HttpAnswer answer) { answers.push_back(std::move(answer)); });
  RawConnection client(server.port());
  client.send(get("/a"));
  server.await([&] { return !answers.empty(); });
  client.reset();
  server.await([&] { return server.server().connections() == 0; });
  server.call([&] { return answers.front()(text("too late")), true; });
}

TEST(HttpServer, LosesPatience) {
  RunningServer server(echo, smallLimits());
  struct Pause {
    char const* where;
    std::string sent;
    int status;
  };
  for (auto const& pause :
       std::vector<Pause>{{"before a request", "", 0},
                          {"in a header", "GET /a HT", 408},
                          {"in a body", "PUT /a HTTP/1.1\r\nHost: here\r\nContent-Length: 4\r\n\r\nbo", 408},
                          {"in a chunk", chunked("3\r\na"), 408}}) {
    SCOPED_TRACE(pause.where);
    RawConnection client(server.port());
    client.send(pause.sent);
    EXPECT_EQ(client.response().status, pause.status);
    EXPECT_TRUE(client.ends());
  }
  RawConnection kept(server.port());
  kept.send(get("/a"));
  EXPECT_EQ(kept.response().status, 200);
  EXPECT_TRUE(kept.ends());
}

// A byte now and then would hold a connection for ever.
TEST(HttpServer, LosesPatienceWithAHeaderThatDrips) {
  RunningServer server(echo, smallLimits());
  RawConnection client(server.port());
  client.send("GET /a HTTP/1.1\r\nA: ");
  while (!client.isReadable()) {
    client.send("x");
    std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_EQ(client.response().status, 408);
}

TEST(HttpServer, HasPatienceWithABodyThatMoves) {
  RunningServer server(echo, smallLimits());
  RawConnection client(server.port());
  client.send("PUT /a HTTP/1.1\r\nHost: here\r\nContent-Length: 30\r\n\r\n");
  for (int i = 0; i < 30; ++i) {
    client.send("x");
    std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_EQ(client.response().status, 200);
}

TEST(HttpServer, ClosesOnAReaderThatDoesNotRead) {
  auto limits = smallLimits();
  limits.idle = milliseconds(500);
  RunningServer server([](HttpRequest const&, HttpAnswer const& answer) { answer(text(longText())); }, limits);
  RawConnection client(server.port(), 4096);
  client.send(get("/a"));
  server.await([&] { return server.server().connections() == 1; });
  server.await([&] { return server.server().connections() == 0; });
  EXPECT_LT(client.rest().size(), 20'000'000U);
}

TEST(HttpServer, TurnsAwayWhoIsOneTooMany) {
  HttpLimits limits;
  limits.connections = 3;
  RunningServer server(echo, limits);
  std::vector<RawConnection> clients;
  for (int i = 0; i < 3; ++i) {
    clients.emplace_back(server.port());
    clients.back().send(get("/a"));
    EXPECT_EQ(clients.back().response().status, 200);
  }
  for (int i = 0; i < 100; ++i) {
    RawConnection client(server.port());
    if (i % 2 == 0) client.send(get("/a"));
    auto const response = client.response();
    EXPECT_EQ(response.status, 503);
    EXPECT_NE(RawConnection::field(response.head, "Retry-After"), "");
    EXPECT_EQ(server.call([&] { return server.server().connections(); }), 3U);
  }
  clients.pop_back();
  server.await([&] { return server.server().connections() == 2; });
  RawConnection client(server.port());
  client.send(get("/a"));
  EXPECT_EQ(client.response().status, 200);
}

TEST(HttpServer, ServesAThousandConnections) {
  RunningServer server(echo);
  std::vector<RawConnection> clients;
  for (int i = 0; i < 1000; ++i) clients.emplace_back(server.port());
  for (int round = 0; round < 3; ++round) {
    for (std::size_t i = 0; i < clients.size(); ++i) clients[i].send(get("/" + std::to_string(i)));
    for (std::size_t i = 0; i < clients.size(); ++i)
      ASSERT_EQ(clients[i].response().body, "GET /" + std::to_string(i) + " ");
  }
  EXPECT_EQ(server.call([&] { return server.server().connections(); }), 1000U);
}

// What the thread of that clock has worked in a while.
std::chrono::nanoseconds workOf(clockid_t clock) {
  timespec before{};
  timespec after{};
  clock_gettime(clock, &before);
  std::this_thread::sleep_for(milliseconds(500));
  clock_gettime(clock, &after);
  return std::chrono::seconds(after.tv_sec - before.tv_sec) + std::chrono::nanoseconds(after.tv_nsec - before.tv_nsec);
}

// When the system gives no more descriptors, the clients that are connected are served, and later the others too.
TEST(HttpServer, OutlivesWantOfDescriptors) {
  std::vector<std::string> told;
  RunningServer server(echo);
  server.call([&] {
    server.server().onPause([&](std::string const* reason) { told.push_back(reason != nullptr ? *reason : "over"); });
    return true;
  });
  RawConnection first(server.port());
  first.send(get("/a"));
  ASSERT_EQ(first.response().status, 200);
  clockid_t const clock = server.call([] {
    clockid_t own{};
    pthread_getcpuclockid(pthread_self(), &own);
    return own;
  });

  // Room for one more, which the client takes.
  int const next = ::dup(0);
  ::close(next);
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  rlimit const tight{static_cast<rlim_t>(next) + 1, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &tight);
  RawConnection second(server.port());
  second.send(get("/b"));
  first.send(get("/c"));
  auto const response = first.response();
  auto const work = workOf(clock);
  bool const isServed = second.isReadable();
  ::setrlimit(RLIMIT_NOFILE, &before);

  EXPECT_EQ(response.body, "GET /c ");
  EXPECT_LT(work, milliseconds(250)) << "the loop spins";
  EXPECT_FALSE(isServed);
  EXPECT_EQ(second.response().body, "GET /b ");
  server.await([&] { return told.size() == 2; });
  EXPECT_EQ(told, (std::vector<std::string>{"Too many open files", "over"}));
}

TEST(HttpServer, StopsAndLetsResponsesInProgressFinish) {
  std::vector<HttpAnswer> answers;
  RunningServer server([&](HttpRequest const&, HttpAnswer answer) { answers.push_back(std::move(answer)); });
  RawConnection idle(server.port());
  RawConnection halfway(server.port());
  halfway.send("GET /a HTTP/1.1\r\n");
  RawConnection busy(server.port());
  busy.send(get("/a"));
  server.await([&] { return answers.size() == 1 && server.server().connections() == 3; });
  server.stop(std::chrono::minutes(10));
  EXPECT_TRUE(idle.ends());
  server.call([&] { return answers.front()(text("still")), true; });
  auto const response = busy.response();
  EXPECT_EQ(response.body, "still");
  EXPECT_EQ(RawConnection::field(response.head, "Connection"), "close");
  EXPECT_TRUE(busy.ends());
  busy.close();
  halfway.rest();
  halfway.close();
  server.join();
}

TEST(HttpServer, StopsWithoutThoseWhoTakeTooLong) {
  std::vector<HttpAnswer> answers;
  RunningServer server([&](HttpRequest const&, HttpAnswer answer) { answers.push_back(std::move(answer)); });
  RawConnection busy(server.port());
  busy.send(get("/a"));
  server.await([&] { return answers.size() == 1; });
  server.stop(milliseconds(50));
  EXPECT_TRUE(busy.ends());
  server.join();
  answers.front()(text("too late"));
}

TEST(HttpServer, HearsSignals) {
  HttpServer server("127.0.0.1", 0, {});
  std::vector<int> signals;
  server.onSignal(SIGTERM, [&] {
    signals.push_back(SIGTERM);
    ::raise(SIGINT);
  });
  server.onSignal(SIGINT, [&] {
    signals.push_back(SIGINT);
    server.stop(milliseconds(0));
  });
  server.post([] { ::raise(SIGTERM); });
  server.run();
  EXPECT_EQ(signals, (std::vector<int>{SIGTERM, SIGINT}));
}

TEST(HttpServer, SaysInOneLineWhyItCannotListen) {
  HttpServer server("127.0.0.1", 0, {});
  auto const reason = [](std::string const& address, std::uint16_t port) -> std::string {
    try {
      HttpServer const refused(address, port, {});
      return "it listens";
    } catch (std::runtime_error const& error) {
      return error.what();
    }
  };
  EXPECT_THAT(reason("127.0.0.1", server.port()), HasSubstr("Address already in use"));
  EXPECT_EQ(reason("nowhere", 0), "cannot listen on \"nowhere\": expected an IP address");
  EXPECT_EQ(reason("::1", 0), "it listens");
}

TEST(HttpServer, RunsTasksInTheirOrder) {
  HttpServer server("127.0.0.1", 0, {});
  auto const begin = server.now();
  std::mt19937 random(3);
  std::vector<int> expected;
  std::vector<int> ran;
  std::vector<int> delays(5000);
  for (int& delay : delays) {
    delay = static_cast<int>(random() % 50);
    server.at(begin + milliseconds(delay), [&ran, &server, begin, delay] {
      EXPECT_GE(server.now(), begin + milliseconds(delay));
      ran.push_back(delay);
    });
  }
  server.at(begin + milliseconds(50), [&] { server.stop(milliseconds(0)); });
  server.post([&] { ran.push_back(-1); });
  server.run();
  expected = delays;
  expected.push_back(-1);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(ran.size(), expected.size());
  std::erase(ran, -1);
  std::erase(expected, -1);
  EXPECT_EQ(ran, expected);
}

}  // namespace
}  // namespace Agent::HttpServerTest
