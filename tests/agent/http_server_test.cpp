// What an HTTP server answers, and how it begins and ends.
#include "agent/net/http_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <vector>

#include "support/http_texts.h"
#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpServerTest {
namespace {

using std::chrono::milliseconds;
using Test::echo;
using Test::get;
using Test::RawConnection;
using Test::RunningServer;
using Test::text;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

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

TEST(HttpServer, ARefusalHasABodyUnlessItIsToHead) {
  RunningServer server(echo);
  for (bool const toHead : {false, true}) {
    RawConnection client(server.port());
    client.send(std::string("HEAD /a HTTP/1.1\r\nHost: here\r\n\r\n") + (toHead ? "HEAD" : "GET") +
                " /b HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.response(true).status, 200);
    auto const refusal = client.response(toHead);
    EXPECT_EQ(refusal.status, 400);
    EXPECT_EQ(refusal.body.empty(), toHead);
    EXPECT_TRUE(client.ends());
  }
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
