// Which connections an HTTP server has places for, and what becomes of the others.
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <string>
#include <thread>

#include "agent/net/address_shares.h"
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
  auto clients = servedClients(server, 3);
  for (int round = 0; round < 100; ++round) {
    auto const refused = answerTo(server, get("/a"));
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

// Twelve of the sixteen spare places are one address's; a client that is silent, or that drips, holds one for two
// seconds.
TEST(HttpPlaces, NoClientHoldsTheSparePlaces) {
  RunningServer server(echo, placesFor(1));
  auto const clients = servedClients(server, 1);
  std::deque<RawConnection> silent;
  for (int client = 0; client < 12; ++client) silent.emplace_back(server.port());
  RawConnection tooMany(server.port());
  EXPECT_EQ(tooMany.response().status, 503) << "at once, without a question";
  EXPECT_EQ(answerTo(server, get("/vital"), 2).status, 200);
  auto const begin = std::chrono::steady_clock::now();
  while (!silent.front().isReadable()) {
    silent.front().send("G");
    std::this_thread::sleep_for(milliseconds(50));
  }
  for (RawConnection& client : silent) EXPECT_EQ(client.response().status, 503);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  silent.clear();
  while (answerTo(server, get("/vital")).status != 200) std::this_thread::sleep_for(milliseconds(10));
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
