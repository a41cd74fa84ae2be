// Limits of the running program: each has an option, and a client that goes beyond is told so.
#include <gmock/gmock.h>

#include <deque>

#include "support/event_reader.h"
#include "support/served.h"

namespace Agent::ServeLimitsTest {
namespace {

using Test::Api;
using Test::await;
using Test::EventReader;
using Test::RawConnection;
using Test::Served;
using testing::HasSubstr;

/// The status in a problem's body, which says the same as that of its response.
int statusIn(std::string const& body) { return Json::parse(body)["error"]["status"]; }

TEST(ServeLimits, OfABody) {
  Served const served({"--memory", "--max-body", "1000"});
  Api api(served);
  auto const documentOf = [](std::size_t size) { return '"' + std::string(size - 2, 'x') + '"'; };
  EXPECT_EQ(api.put("registration/a/note", documentOf(1000)).status, 200);
  auto const refused = api.put("registration/a/note", documentOf(1001));
  EXPECT_EQ(refused.status, 413);
  EXPECT_EQ(statusIn(refused.body), 413);
  EXPECT_EQ(api.text("registration/a/note").size(), 1000u);
}

TEST(ServeLimits, OfAHeader) {
  Served const served({"--memory", "--max-header", "1000"});
  Api api(served);
  EXPECT_EQ(api.send("GET", "/healthz", "", {{"X-Long", std::string(500, 'x')}}).status, 200);
  auto const refused = api.send("GET", "/healthz", "", {{"X-Long", std::string(1000, 'x')}});
  EXPECT_EQ(refused.status, 431);
  EXPECT_EQ(statusIn(refused.body), 431);
  EXPECT_THAT(refused.body, HasSubstr("longer than 1000 bytes"));
  EXPECT_EQ(api.send("GET", "/healthz", "", HttpFields(200, {"a", "b"})).status, 431);
}

// A proxy is asked with the whole address, whose host is judged like the field Host.
TEST(ServeLimits, OfHosts) {
  Served const served({"--memory"});
  for (auto const& [target, status] :
       {std::pair{"http://localhost/healthz", 200}, {"http://evil.example/healthz", 421}}) {
    RawConnection client(served.port());
    client.send(std::string("GET ") + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_EQ(client.response().status, status) << target;
  }
}

TEST(ServeLimits, OfConnections) {
  Served const served({"--memory", "--max-connections", "3", "--max-per-address", "3"});
  auto const ask = [](RawConnection& connection, std::string const& target = "/v1/tree") {
    connection.send("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
    return connection.response();
  };
  std::deque<RawConnection> connections;
  for (int n = 0; n < 3; ++n) EXPECT_EQ(ask(connections.emplace_back(served.port())).status, 200);
  for (int n = 0; n < 3; ++n) {
    RawConnection fourth(served.port());
    auto const refused = ask(fourth);
    EXPECT_EQ(refused.status, 503);
    EXPECT_THAT(refused.body, HasSubstr("all 3 connections are taken"));
    EXPECT_EQ(statusIn(refused.body), 503);
    EXPECT_FALSE(RawConnection::field(refused.head, "Retry-After").empty());
    EXPECT_TRUE(fourth.ends());
  }
  RawConnection probe(served.port());
  EXPECT_EQ(ask(probe, "/healthz").status, 200);
  await([&] { return served.log().find(" turned_away count=") != std::string::npos; });
  // Clients that were there are served as before, and so is one that comes when one has gone.
  for (RawConnection& connection : connections) EXPECT_EQ(ask(connection).status, 200);
  connections.pop_front();
  await([&] {
    RawConnection next(served.port());
    return ask(next).status == 200;
  });
}

TEST(ServeLimits, OfWatches) {
  Served const served({"--memory", "--max-watches", "2"});
  Api api(served);
  std::deque<EventReader> readers;
  for (int n = 0; n < 2; ++n) EXPECT_THAT(readers.emplace_back("", 0).connect(served.port()), HasSubstr(" 200 "));
  auto const refused = api.send("GET", "/v1/watch");
  EXPECT_EQ(refused.status, 429);
  EXPECT_EQ(statusIn(refused.body), 429);
  EXPECT_TRUE(findField(refused.fields, "Retry-After"));
  readers.pop_front();
  await([&] { return api.health()["watches"] == 1; });
  EXPECT_THAT(readers.emplace_back("", 0).connect(served.port()), HasSubstr(" 200 "));
}

TEST(ServeLimits, OfABatch) {
  Served const served({"--memory", "--max-batch", "3"});
  Api api(served);
  std::string lines;
  for (int n = 0; n < 3; ++n)
    lines += R"({"put": "mount/ready/x)" + std::to_string(n) +
             R"(", "value": true})"
             "\n";
  EXPECT_EQ(api.post(lines).status, 200);
  for (char const* query : {"", "?atomic=1"}) {
    auto const refused = api.post(lines + R"({"put": "mount/ready/y", "value": true})", query);
    EXPECT_EQ(refused.status, 413);
    EXPECT_EQ(statusIn(refused.body), 413);
  }
  EXPECT_EQ(api.documents("mount/").size(), 3u);
}

TEST(ServeLimits, OfWhatIsKept) {
  std::string const note = '"' + std::string(1000, 'x') + '"';
  for (Served::Options const& limit :
       {Served::Options{"--max-documents", "6"}, Served::Options{"--max-stored", "5000"}}) {
    Served::Options options = limit;
    options.push_back("--memory");
    Served const served(options);
    Api api(served);
    int count = 0;
    while (count < 10 && api.put("registration/a/n" + std::to_string(count), note).status == 200) ++count;
    EXPECT_THAT(count, testing::AllOf(testing::Ge(1), testing::Le(6))) << limit[0];
    auto const refused = api.put("registration/a/more", note);
    EXPECT_EQ(refused.status, 507);
    EXPECT_EQ(statusIn(refused.body), 507);
    EXPECT_EQ(api.remove("registration/a/n0").status, 200);
    EXPECT_EQ(api.put("registration/a/more", note).status, 200);
  }
}

TEST(ServeLimits, OfServicesForEachSwitch) {
  Served const served({"--memory", "--max-pairs", "2"});
  Api api(served);
  EXPECT_EQ(api.put("registration/a/config", R"({"systemId": "02:00:00:00:00:01"})").status, 200);
  EXPECT_EQ(api.put("service/config/x", "{}").status, 200);
  EXPECT_EQ(api.put("service/config/y", "{}").status, 200);
  EXPECT_EQ(api.put("service/config/z", "{}").status, 507);
}

TEST(ServeLimits, OfPatience) {
  Served const served({"--memory", "--idle-timeout", "0.2"});
  RawConnection silent(served.port());
  EXPECT_TRUE(silent.ends());
  RawConnection slow(served.port());
  slow.send("PUT /v1/tree/mount/ready/x HTTP/1.1\r\nHost: localhost\r\nContent-Length: 4\r\n\r\ntr");
  auto const refused = slow.response();
  EXPECT_EQ(refused.status, 408);
  EXPECT_EQ(statusIn(refused.body), 408);
  EXPECT_TRUE(slow.ends());
  // A watch to which nothing happens is not idle.
  EventReader reader("mount/", 0);
  reader.connect(served.port());
  RawConnection other(served.port());
  EXPECT_TRUE(other.ends());
  Revision const last = revisionOf(Api(served).put("mount/ready/x", "true"));
  EXPECT_TRUE(reader.readTo(last));
}

// A reader that is behind the history is told so, by the number of changes or by their size.
TEST(ServeLimits, OfTheHistory) {
  for (Served::Options const& limit :
       {Served::Options{"--history", "2"}, Served::Options{"--history-bytes", "200"}, Served::Options{}}) {
    Served::Options options = limit;
    options.push_back("--memory");
    Served const served(options);
    Api api(served);
    Revision const begin = api.health()["revision"];
    Revision last = 0;
    for (int n = 0; n < 20; ++n) last = revisionOf(api.put("mount/ready/x" + std::to_string(n), "true"));
    EventReader reader("mount/", begin);
    reader.connect(served.port());
    EXPECT_TRUE(reader.readTo(last));
    EXPECT_EQ(reader.mirror().resyncs(), limit.empty() ? 0 : 1);
    EXPECT_EQ(reader.mirror().documents().size(), 20u);
  }
}

}  // namespace
}  // namespace Agent::ServeLimitsTest
