// How an HTTP server keeps to its limits: time, connections, descriptors.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "support/http_texts.h"
#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpServerLimitsTest {
namespace {

using std::chrono::milliseconds;
using Test::chunked;
using Test::echo;
using Test::get;
using Test::longText;
using Test::RawConnection;
using Test::RunningServer;
using Test::smallLimits;
using Test::text;

TEST(HttpServerLimits, AllBodiesShareOneBudget) {
  Agent::HttpLimits limits = smallLimits();
  limits.idle = std::chrono::seconds(30);
  limits.allBodiesBytes = 2500;
  // The program keeps its requests as long as it is told to.
  std::deque<Agent::HttpAnswer> kept;
  RunningServer server(
      [&](Agent::HttpRequest const& request, Agent::HttpAnswer const& answer) {
        if (request.target == "/keep")
          kept.push_back(answer);
        else
          echo(request, answer);
      },
      limits);
  std::string const head = " HTTP/1.1\r\nHost: here\r\nContent-Length: 1000\r\n\r\n";
  std::string const part(900, 'x');
  std::string const rest(100, 'y');
  RawConnection first(server.port());
  RawConnection second(server.port(), 0, 2);
  first.send("PUT /a" + head + part);
  second.send("PUT /keep" + head + part + rest);
  while (server.call([&] { return kept.size(); }) == 0) std::this_thread::yield();

  for (int const from : {1, 3}) {
    RawConnection third(server.port(), 0, from);
    third.send("PUT /a" + head + part + rest);
    EXPECT_EQ(third.response().status, 503) << from;
  }
  RawConnection small(server.port());
  small.send(get("/b"));
  EXPECT_EQ(small.response().status, 200);

  // A body that has been answered, and one whose client has gone, make room.
  server.call([&] {
    kept.front()(text("done"));
    kept.clear();
    return true;
  });
  EXPECT_EQ(second.response().status, 200);
  first.close();
  for (int round = 0; round < 5; ++round) {
    RawConnection again(server.port());
    again.send("PUT /a" + head + part + rest);
    EXPECT_EQ(again.response().status, 200) << round;
  }
}

TEST(HttpServerLimits, LosesPatience) {
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
TEST(HttpServerLimits, LosesPatienceWithAHeaderThatDrips) {
  RunningServer server(echo, smallLimits());
  RawConnection client(server.port());
  client.send("GET /a HTTP/1.1\r\nA: ");
  while (!client.isReadable()) {
    client.send("x");
    std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_EQ(client.response().status, 408);
}

TEST(HttpServerLimits, HasPatienceWithABodyThatKeepsItsRate) {
  // Of 30 bytes, one comes every 20 ms; all take longer than a header may.
  struct {
    std::size_t bytesPerSecond;
    int status;
  } const cases[] = {{20, 200}, {100'000, 408}};
  for (auto const& c : cases) {
    HttpLimits limits = smallLimits();
    limits.bytesPerSecond = c.bytesPerSecond;
    RunningServer server(echo, limits);
    RawConnection client(server.port());
    client.send("PUT /a HTTP/1.1\r\nHost: here\r\nContent-Length: 30\r\n\r\n");
    for (int i = 0; i < 30 && !client.isReadable(); ++i) {
      client.send("x");
      std::this_thread::sleep_for(milliseconds(20));
    }
    EXPECT_EQ(client.response().status, c.status) << c.bytesPerSecond;
  }
}

TEST(HttpServerLimits, ClosesOnAReaderThatDoesNotRead) {
  auto limits = smallLimits();
  limits.idle = milliseconds(500);
  RunningServer server([](HttpRequest const&, HttpAnswer const& answer) { answer(text(longText())); }, limits);
  RawConnection client(server.port(), 4096);
  client.send(get("/a"));
  server.await([&] { return server.server().connections() == 1; });
  server.await([&] { return server.server().connections() == 0; });
  EXPECT_LT(client.rest().size(), 20'000'000U);
}

// One takes 100 kB a second, always something, and never so much that it would be idle.
TEST(HttpServerLimits, ClosesOnAReaderThatIsSlowerThanItMayBe) {
  struct {
    std::size_t bytesPerSecond;
    bool isServed;
  } const cases[] = {{20'000, true}, {5'000'000, false}};
  for (auto const& c : cases) {
    HttpLimits limits = smallLimits();
    limits.idle = std::chrono::seconds(1);
    limits.bytesPerSecond = c.bytesPerSecond;
    RunningServer server([](HttpRequest const&, HttpAnswer const& answer) { answer(text(longText())); }, limits);
    RawConnection client(server.port(), 4096);
    client.send(get("/a"));
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::size_t taken = 0;
    while (std::chrono::steady_clock::now() < end) {
      taken += client.take(1000);
      std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_GT(taken, 100'000U);
    EXPECT_EQ(server.call([&] { return server.server().connections(); }), c.isServed ? 1U : 0U) << c.bytesPerSecond;
  }
}

TEST(HttpServerLimits, ServesAThousandConnections) {
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
TEST(HttpServerLimits, OutlivesWantOfDescriptors) {
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

}  // namespace
}  // namespace Agent::HttpServerLimitsTest
