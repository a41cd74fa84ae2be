// Bodies of requests that the program reads as they come.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "support/http_texts.h"
#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpBodyTest {
namespace {

using std::chrono::milliseconds;
using Test::get;
using Test::RawConnection;
using Test::RawResponse;
using Test::RunningServer;
using Test::text;
using testing::HasSubstr;

std::string head(std::string const& fields) { return "PUT /reads HTTP/1.1\r\nHost: here\r\n" + fields + "\r\n"; }
std::string headOf(std::size_t bytes) { return head("Content-Length: " + std::to_string(bytes) + "\r\n"); }

// Answers what it has read, or why there is no more: "408 after 3". All on the server's thread.
struct Reading : std::enable_shared_from_this<Reading> {
  Reading(std::shared_ptr<BodyReader> from, HttpAnswer to) : reader(std::move(from)), answer(std::move(to)) {}

  // Takes what there is; whether it waits for more.
  bool take() {
    for (;;) {
      auto const piece = reader->next();
      if (!piece) return answerWith(body), false;
      if (piece->empty()) return true;
      largest = std::max(largest, piece->size());
      body += *piece;
      if (isForgetful) reader->heldIs(0);
    }
  }
  void goOn() {
    try {
      if (take()) reader->wakeIs([self = shared_from_this()] { self->goOn(); });
    } catch (BodyError const& error) {
      answerWith(std::to_string(error.status()) + " after " + std::to_string(body.size()));
    }
  }
  void answerWith(std::string const& what) {
    if (auto const call = std::exchange(answer, nullptr)) call(text(what));
  }

  std::shared_ptr<BodyReader> reader;
  HttpAnswer answer;
  std::string body;
  std::size_t largest = 0;
  bool isForgetful = true;
};

class HttpBody : public testing::Test {
 protected:
  static HttpLimits limits() {
    HttpLimits limits;
    limits.headerBytes = 1000;
    limits.bodyBytes = 4'000'000;
    limits.allBodiesBytes = 1'000'000;
    limits.idle = milliseconds(300);
    return limits;
  }

  void handle(HttpRequest request, HttpAnswer const& answer) {
    if (!request.reader) return answer(text(request.method + " " + request.target + " " + request.body));
    reading = std::make_shared<Reading>(std::move(request.reader), answer);
    reading->isForgetful = isForgetful;
    if (isRead) reading->goOn();
  }
  void await() {
    server.await([this] { return reading != nullptr; });
  }
  void goOn() {
    server.call([this] { return reading->goOn(), true; });
  }
  void answerEarly() {
    server.call([this] { return reading->answerWith("early"), true; });
  }

  // Of the server's thread.
  std::shared_ptr<Reading> reading;
  bool isRead = true;
  bool isForgetful = true;
  RunningServer server{[this](HttpRequest request, HttpAnswer const& answer) { handle(std::move(request), answer); },
                       limits()};
};

// Cuts a text into chunks.
std::string chunksOf(std::string const& body, std::mt19937& random) {
  std::string chunks;
  for (std::size_t at = 0; at < body.size();) {
    std::size_t const size = std::min<std::size_t>(body.size() - at, 1 + random() % 20'000);
    std::array<char, 16> hex{};
    std::snprintf(hex.data(), hex.size(), "%zx\r\n", size);
    chunks += hex.data() + body.substr(at, size) + "\r\n";
    at += size;
  }
  return chunks + "0\r\n\r\n";
}

TEST_F(HttpBody, ComesToTheProgramInWhateverPieces) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 40; ++round) {
    std::string body;
    for (std::size_t size = random() % (round % 2 == 0 ? 300 : 300'000); size > 0; --size)
      body += static_cast<char>(random());
    bool const isOld = round % 4 == 3;
    bool const isChunked = !isOld && random() % 2 == 0;
    std::string bytes =
        isChunked ? head("Transfer-Encoding: chunked\r\n") + chunksOf(body, random) : headOf(body.size()) + body;
    if (isOld) bytes.replace(bytes.find("1.1"), 3, "1.0");
    bytes += get("/behind");
    RawConnection client(server.port());
    std::size_t const most = random() % 2 == 0 ? 100'000 : 3'000;
    for (std::size_t at = 0; at < bytes.size();) {
      std::size_t const size = 1 + random() % most;
      client.send(std::string_view(bytes).substr(at, size));
      at += size;
      if (random() % 8 == 0) std::this_thread::sleep_for(milliseconds(1));
    }
    RawResponse const response = client.response();
    EXPECT_EQ(response.status, 200);
    ASSERT_EQ(response.body == (body.empty() && !isChunked ? "PUT /reads " : body), true) << "round " << round;
    if (!isOld) {
      EXPECT_EQ(client.response().body, "GET /behind ");
    }
  }
}

TEST_F(HttpBody, StaysWithTheClientUntilItIsAskedFor) {
  isRead = false;
  std::string const body(3'000'000, 'x');
  RawConnection client(server.port());
  client.send(headOf(body.size()));
  std::thread sender([&] { client.send(body); });
  await();
  // For longer than a client may stand still: it is not the client that is late.
  std::this_thread::sleep_for(4 * limits().idle);
  goOn();
  EXPECT_EQ(client.response().body.size(), body.size());
  sender.join();
  EXPECT_LE(reading->largest, 2 * kPieceBytes);
}

TEST_F(HttpBody, EndsWithAClientThatIsLateOrGone) {
  struct {
    char const* way;
    std::string sent;
    std::string told;
  } const cases[] = {{"nothing more", headOf(10) + "abc", "408 after 3"},
                     {"end", headOf(10) + "abc", "400 after 3"},
                     {"broken chunk", head("Transfer-Encoding: chunked\r\n") + "3\r\nabcd\r\n0\r\n\r\n", "400 after 3"},
                     {"too long", head("Transfer-Encoding: chunked\r\n") + "3\r\nabc\r\n3d0900\r\n", "413 after 3"}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.way);
    RawConnection client(server.port());
    client.send(c.sent);
    if (std::string_view(c.way) == "end") client.endSending();
    RawResponse const response = client.response();
    EXPECT_EQ(response.body, c.told);
    EXPECT_EQ(RawConnection::field(response.head, "Connection") == "close", true);
    EXPECT_TRUE(client.ends());
  }
  RawConnection client(server.port());
  client.send(headOf(5'000'000));
  EXPECT_EQ(client.response().status, 413);
  EXPECT_TRUE(client.ends());
}

TEST_F(HttpBody, IsToldOfAResetAndOfAStop) {
  for (bool const isStop : {false, true}) {
    reading = nullptr;
    RawConnection client(server.port());
    client.send(headOf(10) + "abc");
    server.await([this] { return reading != nullptr && reading->body == "abc"; });
    if (isStop) {
      server.stop(milliseconds(5000));
      EXPECT_EQ(client.response().body, "503 after 3");
      client.close();
      server.join();
    } else {
      client.reset();
      server.await([this] { return reading->answer == nullptr; });
    }
  }
}

// A byte every 20 ms is never idle, and is too slow.
TEST_F(HttpBody, KeepsItsRate) {
  RawConnection client(server.port());
  client.send(headOf(1000));
  while (!client.isReadable()) {
    client.send("x");
    std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_THAT(client.response().body, HasSubstr("408 after "));
}

TEST_F(HttpBody, MayBeAnsweredBeforeItHasCome) {
  isRead = false;
  RawConnection client(server.port());
  client.send(headOf(1'000'000) + std::string(300'000, 'x'));
  await();
  answerEarly();
  EXPECT_EQ(client.response().body, "early");
  // The rest is thrown away, and the connection goes on.
  client.send(std::string(700'000, 'y') + get("/behind"));
  EXPECT_EQ(client.response().body, "GET /behind ");

  // As long as it comes in time.
  reading = nullptr;
  client.send(headOf(10) + "abc");
  await();
  answerEarly();
  EXPECT_EQ(client.response().body, "early");
  EXPECT_TRUE(client.ends());
}

TEST_F(HttpBody, IsAskedForWhenItIsWanted) {
  isRead = false;
  for (bool const isWanted : {true, false}) {
    reading = nullptr;
    RawConnection client(server.port());
    client.send(head("Content-Length: 3\r\nExpect: 100-continue\r\n"));
    await();
    EXPECT_FALSE(client.isReadable());
    if (!isWanted) {
      answerEarly();
      RawResponse const response = client.response();
      EXPECT_EQ(response.body, "early");
      EXPECT_EQ(RawConnection::field(response.head, "Connection"), "close");
      EXPECT_TRUE(client.ends());
      continue;
    }
    goOn();
    EXPECT_EQ(client.response().status, 100);
    client.send("abc" + get("/behind"));
    EXPECT_EQ(client.response().body, "abc");
    EXPECT_EQ(client.response().body, "GET /behind ");
  }
}

// Three times what all bodies may have passes through, unless it is kept.
TEST_F(HttpBody, CountsAsLongAsItIsHeld) {
  for (bool const isKept : {false, true}) {
    isForgetful = !isKept;
    RawConnection client(server.port());
    client.send(headOf(3'000'000));
    std::thread sender([&] { client.send(std::string(3'000'000, 'x')); });
    RawResponse const response = client.response();
    sender.join();
    if (isKept)
      EXPECT_THAT(response.body, HasSubstr("503 after "));
    else
      EXPECT_EQ(response.body.size(), 3'000'000U);
    reading = nullptr;
  }
}

}  // namespace
}  // namespace Agent::HttpBodyTest
