// Responses whose body comes piece by piece: to readers that are quick, slow, gone, or never read at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <random>
#include <set>

#include "agent/net/http_server.h"
#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpSourceTest {
namespace {

using std::chrono::milliseconds;
using Test::RawConnection;
using Test::RunningServer;
using testing::HasSubstr;

std::string get(std::string const& target, std::string const& version = "1.1") {
  return "GET " + target + " HTTP/" + version + "\r\nHost: here\r\n\r\n";
}

// What the test gives, in pieces: empty while there is nothing more.
class Feed final : public BodySource {
 public:
  explicit Feed(std::set<Feed*>& all) : all_(all) { all_.insert(this); }
  ~Feed() override { all_.erase(this); }

  std::optional<std::string> next() override {
    ++asked;
    if (pieces.empty()) return isAtEnd ? std::nullopt : std::optional(std::string());
    std::string piece = std::move(pieces.front());
    pieces.pop_front();
    return piece;
  }

  void give(std::string piece) {
    pieces.push_back(std::move(piece));
    wake();
  }
  void end() {
    isAtEnd = true;
    wake();
  }

  std::deque<std::string> pieces;
  bool isAtEnd = false;
  int asked = 0;

 private:
  std::set<Feed*>& all_;
};

// Never at a loss.
class Flood final : public BodySource {
 public:
  explicit Flood(std::atomic<int>& asked) : asked_(asked) {}
  std::optional<std::string> next() override {
    ++asked_;
    std::string piece;
    piece.resize(64 * 1024, 'x');
    return piece;
  }

 private:
  std::atomic<int>& asked_;
};

class Broken final : public BodySource {
 public:
  std::optional<std::string> next() override { throw std::runtime_error("broken"); }
};

class HttpSource : public testing::Test {
 protected:
  static HttpLimits limits() {
    HttpLimits limits;
    limits.idle = std::chrono::minutes(10);
    return limits;
  }

  void answer(HttpRequest const& request, HttpAnswer const& answer) {
    HttpResponse response;
    if (request.target == "/flood")
      response.source = std::make_unique<Flood>(floodAsked_);
    else if (request.target == "/broken")
      response.source = std::make_unique<Broken>();
    else if (request.target == "/feed")
      response.source = std::make_unique<Feed>(feeds_);
    else
      response.body = "whole";
    answer(std::move(response));
  }

  // The feed to the only reader.
  Feed& feed() {
    server_.await([this] { return feeds_.size() == 1; });
    return **feeds_.begin();
  }
  void give(Feed& feed, std::string const& piece) {
    server_.call([&] { return feed.give(piece), true; });
  }

  // Of the server's thread.
  std::set<Feed*> feeds_;
  std::atomic<int> floodAsked_ = 0;
  RunningServer server_{[this](HttpRequest const& request, HttpAnswer const& answer) { this->answer(request, answer); },
                        limits()};
};

TEST_F(HttpSource, SendsEveryPieceInOrder) {
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    bool const isOld = round % 4 == 3;
    RawConnection client(server_.port(), round % 2 == 0 ? 4096 : 0);
    client.send(get("/feed", isOld ? "1.0" : "1.1"));
    Feed& source = feed();
    std::string expected;
    for (int i = 0; i < 60; ++i) {
      std::string piece;
      piece.resize(1 + random() % (random() % 4 == 0 ? 100'000 : 100), static_cast<char>('a' + i % 26));
      expected += piece;
      give(source, piece);
    }
    server_.call([&] { return source.end(), true; });
    auto const response = client.response();
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(RawConnection::field(response.head, "Transfer-Encoding"), isOld ? "" : "chunked");
    ASSERT_EQ(response.body == expected, true) << "round " << round;
    server_.await([this] { return feeds_.empty(); });
    // The connection goes on, if there is another way to tell the end.
    if (!isOld) {
      client.send(get("/whole"));
      EXPECT_EQ(client.response().body, "whole");
    }
    client.close();
  }
}

TEST_F(HttpSource, TellsOfAPieceWhenItIsThere) {
  RawConnection client(server_.port());
  client.send(get("/feed"));
  EXPECT_THAT(client.head(), HasSubstr(" 200 "));
  Feed& source = feed();
  for (std::string const piece : {"one", "two", "three"}) {
    give(source, piece);
    EXPECT_EQ(client.chunk(), piece);
  }
}

TEST_F(HttpSource, IsNotAskedForWhatIsNotTaken) {
  RawConnection lazy(server_.port(), 4096);
  lazy.send(get("/flood"));
  // It comes to rest: two looks apart by many turns of the loop find the same.
  int before = -1;
  while (before != floodAsked_ || before == 0) {
    before = floodAsked_;
    for (int i = 0; i < 200; ++i) {
      RawConnection other(server_.port());
      other.send(get("/whole"));
      ASSERT_EQ(other.response().body, "whole");
    }
  }
  EXPECT_LT(floodAsked_, 50);
}

TEST_F(HttpSource, IsDroppedWithItsReader) {
  for (int way = 0; way < 3; ++way) {
    RawConnection client(server_.port());
    client.send(get("/feed"));
    client.head();
    feed();
    if (way == 0) client.close();
    if (way == 1) client.reset();
    if (way == 2) client.endSending();
    server_.await([this] { return feeds_.empty() && server_.server().connections() == 0; });
  }
}

TEST_F(HttpSource, IsReadToItsEndByAClientThatHasEndedSending) {
  RawConnection client(server_.port());
  server_.call([this] {
    server_.server().handlerIs(
        [this](HttpRequest const&, HttpAnswer const& answer) {
          auto source = std::make_unique<Feed>(feeds_);
          for (int i = 0; i < 100; ++i) source->pieces.push_back(std::to_string(i) + ";" + std::string(10'000, 'x'));
          source->isAtEnd = true;
          HttpResponse response;
          response.source = std::move(source);
          answer(std::move(response));
        },
        [](int, std::string const&) { return HttpResponse(); });
    return true;
  });
  client.send(get("/"));
  client.endSending();
  EXPECT_THAT(client.response().body, HasSubstr("99;"));
  EXPECT_TRUE(client.ends());
}

TEST_F(HttpSource, BreaksOffWhenItFails) {
  RawConnection client(server_.port());
  client.send(get("/broken"));
  EXPECT_EQ(client.response().status, 0);
  EXPECT_TRUE(client.ends());
}

TEST_F(HttpSource, IsNotAskedByHead) {
  RawConnection client(server_.port());
  client.send("HEAD /feed HTTP/1.1\r\nHost: here\r\n\r\n" + get("/whole"));
  EXPECT_EQ(RawConnection::field(client.response(true).head, "Transfer-Encoding"), "chunked");
  EXPECT_EQ(client.response().body, "whole");
  EXPECT_TRUE(server_.call([this] { return feeds_.empty(); }));
}

TEST_F(HttpSource, IsAskedForItsLastWordsAtAStop) {
  RawConnection told(server_.port());
  told.send(get("/feed"));
  told.head();
  Feed& talker = feed();
  RawConnection left(server_.port());
  left.send(get("/feed"));
  left.head();
  RawConnection lazy(server_.port(), 4096);
  lazy.send(get("/flood"));
  server_.await([this] { return feeds_.size() == 2 && floodAsked_ > 0; });
  server_.call([&] {
    talker.pieces.emplace_back("goodbye");
    talker.isAtEnd = true;
    server_.server().stop(milliseconds(500));
    return true;
  });
  EXPECT_EQ(told.rest(), "7\r\ngoodbye\r\n0\r\n\r\n");
  EXPECT_EQ(left.rest(), "");
  told.close();
  left.close();
  server_.join();
  EXPECT_TRUE(feeds_.empty());
}

TEST_F(HttpSource, GoesToAThousandReadersOfWhichSomeNeverRead) {
  std::vector<RawConnection> readers;
  for (int i = 0; i < 1000; ++i) {
    readers.emplace_back(server_.port(), i % 10 == 0 ? 4096 : 0);
    readers.back().send(get("/feed"));
  }
  server_.await([this] { return feeds_.size() == 1000; });
  std::string const piece(10'000, 'x');
  for (int round = 0; round < 5; ++round) {
    server_.call([&] {
      for (Feed* const feed : feeds_) feed->give(piece);
      return true;
    });
    for (std::size_t i = 0; i < readers.size(); ++i) {
      if (i % 10 == 0) continue;
      if (round == 0) readers[i].head();
      ASSERT_EQ(readers[i].chunk().size(), piece.size());
    }
  }
}

}  // namespace
}  // namespace Agent::HttpSourceTest
