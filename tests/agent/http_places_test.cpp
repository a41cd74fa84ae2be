// Which connections an HTTP server has places for, and what becomes of the others.
#include <gmock/gmock.h>

#include <chrono>
#include <deque>
#include <string>
#include <thread>

#include "agent/net/address_shares.h"
#include "agent/net/spare_places.h"
#include "support/documents.h"
#include "support/http_texts.h"
#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpPlacesTest {
namespace {

using std::chrono::milliseconds;
using Test::echo;
using Test::get;
using Test::RawConnection;
using Test::RawResponse;
using Test::RunningServer;
using Test::text;
using ::testing::HasSubstr;

HttpLimits placesFor(std::size_t connections, milliseconds idle = std::chrono::minutes(10)) {
  HttpLimits limits;
  limits.connections = connections;
  limits.idle = idle;
  return limits;
}

/// Connections from 127.0.0.`from` that have been served.
std::deque<RawConnection> servedClients(RunningServer const& server, int count, int from = 1) {
  std::deque<RawConnection> clients;
  for (int client = 0; client < count; ++client) {
    clients.emplace_back(server.port(), 0, from).send(get("/a"));
    EXPECT_EQ(clients.back().response().status, 200);
  }
  return clients;
}

RawResponse answerTo(RunningServer const& server, std::string const& request, int from = 1) {
  RawConnection client(server.port(), 0, from);
  client.send(request);
  RawResponse response = client.response();
  EXPECT_TRUE(client.ends());
  return response;
}

TEST(HttpPlaces, TurnsAwayWhatIsOneTooManyButForWhatIsVital) {
  RunningServer server(echo, placesFor(3));
  auto clients = servedClients(server, 2);
  auto const other = servedClients(server, 1, 2);
  for (int round = 0; round < 100; ++round) {
    auto const refused = answerTo(server, get("/a"), 1 + round % 3);
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.body, "all 3 connections are taken");
    auto const vital = answerTo(server, get("/vital") + get("/vital"));
    EXPECT_EQ(vital.body, "GET /vital ") << "one request, and no other behind it";
    EXPECT_EQ(RawConnection::field(vital.head, "Connection"), "close");
    EXPECT_EQ(server.call([&] { return server.server().connections(); }), 3U);
  }
  clients.pop_back();
  server.await([&] { return server.server().connections() == 2; });
  servedClients(server, 1);
}

TEST(HttpPlaces, OneAddressHasThreeQuartersOfThem) {
  RunningServer server(echo, placesFor(8));
  auto clients = servedClients(server, 6);
  auto const refused = answerTo(server, get("/a"));
  EXPECT_EQ(refused.status, 503);
  EXPECT_EQ(refused.body, "one address may have 6 connections, and this one has");
  auto const others = servedClients(server, 2, 2);
  EXPECT_EQ(answerTo(server, get("/a"), 3).body, "all 8 connections are taken");
  clients.clear();
  server.await([&] { return server.server().connections() == 2; });
  servedClients(server, 6);
}

TEST(HttpPlaces, OneAddressHasAsManyAsItIsGiven) {
  HttpLimits limits = placesFor(8);
  limits.connectionsOfOne = 2;
  RunningServer server(echo, limits);
  auto const clients = servedClients(server, 2);
  EXPECT_EQ(answerTo(server, get("/a")).status, 503);
  servedClients(server, 2, 2);
}

// A client that is silent, or that drips, holds a spare place for two seconds.
TEST(HttpPlaces, NoClientHoldsASparePlace) {
  RunningServer server(echo, placesFor(1));
  auto const clients = servedClients(server, 1);
  RawConnection silent(server.port());
  auto const begin = std::chrono::steady_clock::now();
  while (!silent.isReadable()) {
    silent.send("G");
    std::this_thread::sleep_for(milliseconds(50));
  }
  EXPECT_EQ(silent.response().status, 503);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

// Each newcomer has the place of the client that is silent for longest, of its own address or, when all are taken, of
// any. A client that waits for its answer keeps its place.
TEST(HttpPlaces, ANewcomerHasTheSparePlaceOfAClientThatIsSilent) {
  std::deque<HttpAnswer> kept;
  RunningServer server(
      [&](HttpRequest const& request, HttpAnswer const& answer) {
        if (request.fields.size() > 1)
          kept.push_back(answer);
        else
          echo(request, answer);
      },
      placesFor(1));
  auto const clients = servedClients(server, 1);
  RawConnection waiting(server.port());
  waiting.send(get("/vital", "Keep: it\r\n"));
  server.await([&] { return !kept.empty(); });
  std::deque<RawConnection> silent;
  for (std::size_t client = 0; client < kSparePlacesOfOne; ++client) silent.emplace_back(server.port());
  EXPECT_EQ(silent.front().response().status, 503) << "at once, as its address has its share";
  for (std::size_t from = 2; from < 3 * kSparePlaces; ++from) {
    silent.emplace_back(server.port(), 0, static_cast<int>(from));
    if (from % kSparePlaces == 0) {
      EXPECT_EQ(answerTo(server, get("/vital")).status, 200);
    }
  }
  server.call([&] {
    kept.front()(text("kept"));
    kept.clear();
    return true;
  });
  EXPECT_EQ(waiting.response().body, "kept");
  EXPECT_FALSE(silent.back().isReadable());
}

TEST(HttpPlaces, AnAddressLeavesOneToOthersWhereThereAreTwo) {
  for (auto const& [most, ofOne] : {std::pair{1, 1}, {2, 1}, {3, 2}, {4, 3}, {5, 4}, {8, 6}, {65536, 49152}})
    EXPECT_EQ(AddressShares::shareOf(static_cast<std::size_t>(most)), static_cast<std::size_t>(ofOne));
}

TEST(HttpPlaces, AreWhatTheDocumentSays) {
  std::string const serving = wordsOf(documentNamed("docs/serving.md"));
  EXPECT_THAT(serving, HasSubstr("one of " + std::to_string(kSparePlaces) + " more."));
  EXPECT_THAT(serving, HasSubstr("an address has " + std::to_string(kSparePlacesOfOne) + " at a time"));
  EXPECT_THAT(serving, HasSubstr(std::to_string(kSparePlaces + kMostTurnedAway) + " connections more"));
  EXPECT_THAT(serving, HasSubstr("last " + std::to_string(kOwnDescriptors) + " are the agent's own"));
}

TEST(HttpPlaces, TellsHowManyWereTurnedAway) {
  RunningServer server(echo, placesFor(1, milliseconds(100)));
  std::size_t told = 0;
  std::string why;
  server.call([&] {
    server.server().onTurnedAway([&](std::size_t count, std::string const& reason) {
      told += count;
      why = reason;
    });
    return true;
  });
  RawConnection client(server.port());
  client.send("GET /a HTTP/1.1\r\n");
  server.await([&] { return server.server().connections() == 1; });
  EXPECT_EQ(answerTo(server, get("/a")).status, 503);
  server.await([&] { return told != 0; });
  EXPECT_EQ(told, 1U);
  EXPECT_EQ(why, "all 1 connections are taken");
}

TEST(HttpPlaces, AnAddressOfIpv6CountsAsItsNetwork) {
  auto const originOf = [](char const* text) { return AddressShares::originOf(boost::asio::ip::make_address(text)); };
  EXPECT_EQ(originOf("2001:db8:0:1::1"), originOf("2001:db8:0:1:ffff::2"));
  EXPECT_NE(originOf("2001:db8:0:1::1"), originOf("2001:db8:0:2::1"));
  EXPECT_EQ(originOf("::ffff:10.0.0.1"), originOf("10.0.0.1"));
  EXPECT_NE(originOf("10.0.0.1"), originOf("10.0.0.2"));
}

}  // namespace
}  // namespace Agent::HttpPlacesTest
