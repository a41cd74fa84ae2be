// Requests of every kind to an HTTP server: what it takes, what it refuses, in whatever pieces they come.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/http_texts.h"
#include "support/raw_connection.h"
#include "support/running_server.h"

namespace Agent::HttpRequestTest {
namespace {

using Test::chunked;
using Test::echo;
using Test::get;
using Test::put;
using Test::RawConnection;
using Test::RunningServer;
using Test::smallLimits;
using Test::text;

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
    {"two hosts beside that of the target", get("http://here/", "Host: here\r\n"), 400},
    {"target with a host and no field", "GET http://here/ HTTP/1.1\r\n\r\n", 400},
    {"two origins", get("/", "Origin: http://here\r\nORIGIN: http://here\r\n"), 400},
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
    {"the same length twice", get("/", "Content-Length: 0\r\nContent-Length: 0\r\n"), 400},
    {"the same length twice in one", get("/", "Content-Length: 0,0\r\n"), 400},
    {"length, then chunks", get("/", "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n") + "0\r\n\r\n", 400},
    {"chunks, then length", get("/", "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n") + "0\r\n\r\n", 400},
    {"chunks twice", get("/", "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n") + "0\r\n\r\n", 400},
    {"unknown coding", get("/", "Transfer-Encoding: gzip\r\n"), 501},
    {"unknown coding in chunks", get("/", "Transfer-Encoding: gzip, chunked\r\n"), 501},
    {"unknown coding beside chunks", get("/", "Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n"), 501},
    {"chunks of old", "PUT / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
    {"chunk size that is no number", chunked("x\r\n"), 400},
    {"chunk size that is a number in C", chunked("0x0"), 400},
    {"second chunk size that is no number", chunked("3\r\nabc\r\nx"), 400},
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
    {"whole chunk's head that is long", chunked("3;" + std::string(600, 'x') + "\r\nabc\r\n0\r\n\r\n"), 431},
    {"whole trailer that is long", chunked("0\r\nA: " + std::string(600, 'x') + "\r\n\r\n"), 431},
};

TEST(HttpRequest, RefusesWhatIsNoRequest) {
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
TEST(HttpRequest, RefusesTheSameByteForByte) {
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

// However small they are: each costs more memory than its bytes.
TEST(HttpRequest, TakesAHundredFieldsWithTheTrailers) {
  RunningServer server(echo);
  for (int const count : {100, 101, 3000}) {
    std::string fields;
    for (int field = 2; field < count; ++field) fields += "a:\r\n";
    for (std::string const& request : {get("/a", "a:\r\n" + fields), chunked("0\r\n" + fields + "\r\n")}) {
      RawConnection client(server.port());
      client.send(request);
      auto const response = client.response();
      EXPECT_EQ(response.status, count <= 100 ? 200 : 431);
      if (count > 100) {
        EXPECT_EQ(response.body, "the header and the trailers have more than 100 fields");
      }
    }
  }
}

// Whatever the field Host says: the program sees the host of the target, and judges that.
TEST(HttpRequest, TheHostOfAnAbsoluteTargetCounts) {
  RunningServer server([](HttpRequest const& request, HttpAnswer const& answer) {
    answer(text(std::string(findField(request.fields, "Host").value_or("none")) + " " + request.target));
  });
  struct {
    char const* request;
    char const* seen;
  } const cases[] = {{"GET /a HTTP/1.1\r\nHost: here\r\n\r\n", "here /a"},
                     {"GET http://there:80/a HTTP/1.1\r\nHost: here\r\n\r\n", "there:80 /a"},
                     {"GET HTTP://there HTTP/1.0\r\n\r\n", "there /"},
                     {"GET http:///a HTTP/1.0\r\n\r\n", " /a"}};
  for (auto const& c : cases) {
    RawConnection client(server.port());
    client.send(c.request);
    EXPECT_EQ(client.response().body, c.seen);
  }
}

TEST(HttpRequest, ReadsRequestsInAnyPieces) {
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

TEST(HttpRequest, OutlivesAnyBytes) {
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

}  // namespace
}  // namespace Agent::HttpRequestTest
