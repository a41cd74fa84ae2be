// Batches that are applied while they come.
#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "agent/server/tree_api.h"
#include "support/api_world.h"
#include "support/gated_store.h"
#include "support/raw_connection.h"
#include "support/served.h"

namespace Agent::ArrivingBatchTest {
namespace {

using Test::Api;
using Test::RawConnection;
using Test::Served;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// A body that comes as the test sends it.
class Sent final : public BodyReader {
 public:
  std::optional<std::string> next() override {
    ++asked;
    if (pieces.empty() && error) throw BodyError(*error);
    if (pieces.empty()) return isEnded ? std::nullopt : std::optional(std::string());
    std::string piece = std::move(pieces.front());
    pieces.pop_front();
    heldIs(held + piece.size());
    return piece;
  }
  void heldIs(std::size_t bytes) override { most = std::max(most, held = bytes); }

  void send(std::string piece) {
    pieces.push_back(std::move(piece));
    wake();
  }
  void end() {
    isEnded = true;
    wake();
  }
  void fail(int status) {
    error.emplace(status, "gone");
    wake();
  }

  std::deque<std::string> pieces;
  bool isEnded = false;
  std::optional<BodyError> error;
  std::size_t asked = 0;
  std::size_t held = 0;
  std::size_t most = 0;
};

std::string note(std::string const& name, std::string const& value) {
  return R"({"put": "registration/a/)" + name + R"(", "value": )" + value + "}\n";
}

/// Sends batches as they come; the last answer.
struct Client {
  std::shared_ptr<Sent> begin(std::string const& query, HttpFields fields = {}) {
    auto sent = std::make_shared<Sent>();
    HttpRequest request{"POST", "/v1/tree" + query, std::move(fields), ""};
    request.reader = sent;
    told = "";
    api.handle(std::move(request),
               [this](HttpResponse const& response) { told += std::to_string(response.status) + " " + response.body; });
    loop.run();
    return sent;
  }
  void send(Sent& sent, std::string piece) const {
    sent.send(std::move(piece));
    loop.run();
  }
  void end(Sent& sent) const {
    sent.end();
    loop.run();
  }
  void fail(Sent& sent, int status) const {
    sent.fail(status);
    loop.run();
  }
  /// The answer to a batch that is sent in such pieces.
  std::string answer(std::string const& query, std::vector<std::string> const& pieces) {
    auto const sent = begin(query);
    for (std::string const& piece : pieces) send(*sent, piece);
    end(*sent);
    return told;
  }

  FakeLoop& loop;
  TreeApi& api;
  std::string told{};
};

class ArrivingBatch : public ApiWorld {
 protected:
  Client client{world.loop, api};
};

std::string randomLine(std::mt19937& random) {
  std::string const name(1, static_cast<char>('a' + random() % 5));
  std::string const value = std::to_string(random() % 3);
  switch (random() % 12) {
    case 0:
      return "# " + std::string(random() % 50, '#') + "\n";
    case 1:
      return std::string(random() % 50, ' ') + "\r\n";
    case 2:
      return R"({"delete": "registration/a/)" + name + "\"}\r\n";
    case 3:
      return note(name, '"' + std::string(random() % 500, 'x') + '"');
    case 4:
      if (random() % 8 == 0) return std::string(kBad) + "\n";
      if (random() % 8 == 0) return "no line\n";
      if (random() % 8 == 0) return note(name, '"' + std::string(3000, 'x') + '"');
      [[fallthrough]];
    default:
      return note(name, value);
  }
}

TEST_F(ArrivingBatch, ComesToTheSameInWhateverPieces) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  ServiceWorld otherWorld;
  TreeApi otherApi{otherWorld.loop, *otherWorld.service, limits};
  Client other{otherWorld.loop, otherApi};
  for (int round = 0; round < 300; ++round) {
    std::string const query = random() % 2 == 0 ? "?atomic=1" : "";
    std::string body = random() % 4 == 0 ? "\xEF\xBB\xBF" : "";
    for (auto lines = random() % 14; lines > 0; --lines) body += randomLine(random);
    if (!body.empty() && body.back() == '\n' && random() % 2 == 0) body.pop_back();
    std::vector<std::string> pieces;
    for (std::size_t at = 0, size = 0; at < body.size(); at += size)
      pieces.push_back(body.substr(at, size = 1 + random() % (random() % 2 == 0 ? 10 : 400)));
    std::string const whole = other.answer(query, {body});
    ASSERT_THAT(whole, Not(IsEmpty()));
    ASSERT_EQ(client.answer(query, pieces), whole) << round << " " << body;
    Reply const unread = ask("POST", "/v1/tree" + query);
    ASSERT_EQ(unread.status, 200);
    ASSERT_EQ(world.text(), otherWorld.text()) << round << " " << body;
  }
}

TEST_F(ArrivingBatch, IsHeldInSmallPartsAlone) {
  auto const sent = client.begin("");
  std::size_t total = 0;
  for (int i = 0; total < 16u * 1024 * 1024; ++i) {
    std::string piece = "#" + std::string(kPieceBytes, 'x') + "\n";
    if (i < 49) piece += note("x", std::to_string(i));
    total += piece.size();
    client.send(*sent, std::move(piece));
  }
  client.end(*sent);
  EXPECT_THAT(client.told, StartsWith(R"(200 {"applied":49,)"));
  EXPECT_LT(sent->most, 4 * kPieceBytes);
}

TEST_F(ArrivingBatch, IsAppliedAsFarAsItHasCome) {
  auto const sent = client.begin("");
  client.send(*sent, note("x", "1") + note("y", "2") + R"({"put": "registr)");
  EXPECT_EQ(world.read("registration/a/y"), "2");
  client.send(*sent, R"(ation/a/z", "value": 3})");
  EXPECT_EQ(world.read("registration/a/z"), "nothing");
  EXPECT_THAT(client.told, IsEmpty());
  client.fail(*sent, 400);
  EXPECT_THAT(client.told, StartsWith(R"(400 {"error":{"status":400,"reason":"gone"},"applied":2,)"));
  EXPECT_EQ(world.read("registration/a/z"), "nothing") << "nothing said that this was the whole line";
}

TEST_F(ArrivingBatch, IsNotAppliedAtAllIfItIsAtomicAndDoesNotComeToItsEnd) {
  auto const sent = client.begin("?atomic=1");
  client.send(*sent, note("x", "1") + note("y", "2"));
  client.fail(*sent, 408);
  EXPECT_THAT(client.told, StartsWith(R"(408 {"error":{"status":408,"reason":"gone"},"applied":0,)"));
  EXPECT_EQ(world.read("registration/a/x"), "nothing");
}

TEST_F(ArrivingBatch, OfASlowClientHoldsUpNoOtherThatIsAtomic) {
  Client slow{world.loop, api};
  auto const sent = slow.begin("?atomic=1");
  slow.send(*sent, note("x", "1"));
  EXPECT_THAT(client.answer("?atomic=1", {note("y", "2")}), StartsWith("200"));
  EXPECT_EQ(sent->held >= note("x", "1").size(), true) << "what it has sent counts until it is applied";
  slow.end(*sent);
  EXPECT_THAT(slow.told, StartsWith("200"));
  EXPECT_EQ(world.read("registration/a/x"), "1");
}

TEST_F(ArrivingBatch, IsForTheRevisionAtWhichItIsApplied) {
  int value = 0;
  for (char const* const query : {"", "?atomic=1"}) {
    Client conditional{world.loop, api};
    auto const revision = std::to_string(world.service->kept().revision);
    auto const sent = conditional.begin(query, {{"If-Match", revision}});
    put("registration/a/y", std::to_string(++value));
    conditional.send(*sent, note("x", "1"));
    conditional.end(*sent);
    EXPECT_THAT(conditional.told, StartsWith("412")) << query;
    EXPECT_EQ(world.read("registration/a/x"), "nothing");
  }
  // Its own lines are no others.
  auto const own = client.begin("", {{"If-Match", std::to_string(world.service->kept().revision)}});
  client.send(*own, note("x", "1"));
  client.send(*own, note("z", "2"));
  client.end(*own);
  EXPECT_THAT(client.told, StartsWith("200"));
}

TEST_F(ArrivingBatch, IsNotAskedForIfItsHeaderIsRefused) {
  struct {
    std::string query;
    HttpFields fields;
    std::string status;
  } const cases[] = {{"?prefix=a", {}, "400"},
                     {"?atomic=2", {}, "400"},
                     {"", {{"If-Match", "77"}}, "412"},
                     {"?atomic=1", {{"If-Match", "77"}}, "412"},
                     {"", {{"Host", "elsewhere"}}, "421"},
                     {"", {{"Origin", "http://elsewhere"}}, "403"}};
  for (auto const& c : cases) {
    auto const sent = client.begin(c.query, c.fields);
    EXPECT_THAT(client.told, StartsWith(c.status));
    EXPECT_EQ(sent->asked, 0u) << c.status;
  }
}

TEST_F(ArrivingBatch, EndsWhenTheAgentStops) {
  for (char const* query : {"", "?atomic=1"}) {
    TreeApi other{world.loop, *world.service, limits};
    Client stopped{world.loop, other};
    auto const sent = stopped.begin(query);
    stopped.send(*sent, note("x", "1"));
    other.stop();
    stopped.fail(*sent, 503);
    EXPECT_THAT(stopped.told, StartsWith("503"));
  }
}

class ArrivingAtASlowStore : public GatedWorld {};

TEST_F(ArrivingAtASlowStore, IsNotReadFurtherThanTheStoreIs) {
  Client client{loop, api};
  store.isOpenIs(false);
  auto const sent = client.begin("");
  int const pieces = 50;
  for (int i = 0; i < pieces; ++i) client.send(*sent, note("x", std::to_string(i)));
  sent->isEnded = true;
  awaitCommit();
  loop.run();
  EXPECT_GT(sent->pieces.size(), 40u);
  EXPECT_THAT(client.told, IsEmpty());
  store.isOpenIs(true);
  runUntil([&] { return !client.told.empty(); });
  EXPECT_THAT(client.told, StartsWith(R"(200 {"applied":50,)"));
}

TEST_F(ArrivingAtASlowStore, EndsWithAStoreThatTakesNothing) {
  Client client{loop, api};
  store.isOpenIs(false);
  auto const sent = client.begin("");
  client.send(*sent, note("x", "1"));
  awaitCommit();
  memory->isFullIs(true);
  store.isOpenIs(true);
  // Although its client has not ended it.
  runUntil([&] { return !client.told.empty(); });
  EXPECT_THAT(client.told, StartsWith("507"));
  EXPECT_THAT(client.told, HasSubstr(R"("applied":0)"));
}

TEST(ServedBatch, IsAppliedWhileItComesAndEndsWithTheAgent) {
  Served served({"--memory"});
  Api api(served);
  std::string const first = note("x", "1");
  std::string const second = note("y", "2");
  std::string const head = "POST /v1/tree HTTP/1.1\r\nHost: localhost\r\nContent-Length: ";
  RawConnection client(served.port());
  client.send(head + std::to_string(first.size() + second.size()) + "\r\n\r\n" + first);
  ::Test::await([&] { return api.text("registration/a/x") == "1"; });
  client.send(second);
  EXPECT_THAT(client.response().body, StartsWith(R"({"applied":2,)"));
  // A line that is refused leaves the connection as it is, whatever else comes.
  client.send(head + "1000\r\n\r\n" + std::string(kBad) + "\n");
  EXPECT_EQ(client.response().status, 422);
  client.send(std::string(1000 - sizeof(kBad), ' ') + head + std::to_string(first.size()) + "\r\n\r\n" + first);
  EXPECT_THAT(client.response().body, StartsWith(R"({"applied":1,)"));
  client.send(head + "1000\r\n\r\n" + note("z", "3"));
  ::Test::await([&] { return api.text("registration/a/z") == "3"; });
  served.signal(SIGTERM);
  auto const response = client.response();
  EXPECT_EQ(response.status, 503);
  EXPECT_THAT(response.body, HasSubstr(R"("applied":1)"));
  EXPECT_EQ(served.stopped(), 0);
}

}  // namespace
}  // namespace Agent::ArrivingBatchTest
