// The limits of the HTTP interface: of batches and of documents.
#include <gmock/gmock.h>

#include "support/api_world.h"

namespace Agent::TreeApiLimitsTest {
namespace {

using ::testing::HasSubstr;

class TreeApiLimits : public ApiWorld {};

TEST_F(TreeApiLimits, ABatchHasALimit) {
  std::vector<std::string> lines(50, kPut);
  EXPECT_EQ(post("", lines).json()["applied"], 50);
  lines.insert(lines.end(), {"# a comment", kDrop});
  Reply const reply = post("", lines);
  EXPECT_EQ(reply.status, 413);
  EXPECT_EQ(reply.json()["applied"], 50);
  EXPECT_EQ(reply.json()["error"]["line"], 52);
  EXPECT_EQ(world.read("mount/ready/x"), "true");
}

TEST_F(TreeApiLimits, AnAtomicBatchHasALimitOfItsOwn) {
  std::vector<std::string> lines(11, kPut);
  EXPECT_EQ(post("", lines).status, 200);
  lines.emplace_back(kDrop);
  Reply const reply = post("?atomic=1", lines);
  EXPECT_EQ(reply.status, 413);
  EXPECT_EQ(reply.json()["applied"], 0);
  lines.erase(lines.begin(), lines.begin() + 1);
  EXPECT_EQ(post("?atomic=1", lines).status, 200);
}

TEST_F(TreeApiLimits, ADocumentHasLimits) {
  // The largest that is taken and the smallest that is not, of each measure.
  auto const text = [](std::size_t bytes) { return '"' + std::string(bytes - 2, 'x') + '"'; };
  auto const nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  auto const values = [](std::size_t count) {
    std::string list = "[";
    for (std::size_t at = 1; at < count; ++at) list += at == 1 ? "0" : ",0";
    return list + "]";
  };
  struct {
    std::string largest;
    std::string tooLarge;
    std::string reason;
  } const cases[] = {{text(1000), text(1001), "longer than 1000 bytes"},
                     {nested(5), nested(6), "nested deeper than 5"},
                     {values(20), values(21), "more than 20 values"}};
  for (auto const& c : cases) {
    EXPECT_EQ(put("registration/a/note", c.largest).status, 200) << c.reason;
    Reply const refused = put("registration/a/note", c.tooLarge);
    EXPECT_EQ(refused.status, 413) << c.reason;
    EXPECT_THAT(refused.json()["error"]["reason"].get<std::string>(), HasSubstr(c.reason));
    EXPECT_EQ(refused.json()["error"]["path"], "registration/a/note");
    EXPECT_EQ(Json::parse(world.read("registration/a/note")), Json::parse(c.largest));
    auto const line = [](std::string const& document) {
      return R"({"put": "registration/a/note", "value": )" + document + "}";
    };
    EXPECT_EQ(post("", {line(c.largest)}).status, 200) << c.reason;
    // Of its text a batch sees the whole line, for which there is some room beside.
    std::string const larger = c.tooLarge.size() > 1000 ? text(3000) : c.tooLarge;
    EXPECT_EQ(post("", {line(larger)}).status, 413) << c.reason;
  }
}

TEST_F(TreeApiLimits, ABatchLetsOthersHaveTheirTurn) {
  limits.batch = 2000;
  TreeApi other(world.loop, *world.service, limits);
  std::string body;
  for (int n = 0; n < 1000; ++n) body += std::string(n % 2 == 0 ? kPut : kDrop) + "\n";
  bool isBatchDone = false;
  int heard = 0;
  other.handle(HttpRequest{"POST", "/v1/tree", {}, body}, [&](HttpResponse const& response) {
    isBatchDone = true;
    EXPECT_EQ(response.status, 200);
  });
  std::function<void()> const ask = [&] {
    other.handle(HttpRequest{"GET", "/healthz", {}, ""}, [&](HttpResponse const& /*response*/) { ++heard; });
    if (!isBatchDone) world.loop.post(ask);
  };
  ask();
  world.loop.run();
  EXPECT_GE(heard, 3) << "1000 lines are four slices";
}

// Some of its lines take a millisecond each.
TEST_F(TreeApiLimits, ASliceOfABatchEndsAfterItsTime) {
  constexpr int kLines = 2000;
  limits.batch = kLines;
  TreeApi other(world.loop, *world.service, limits);
  std::string body;
  for (int n = 0; n < kLines; ++n) body += std::string(n % 2 == 0 ? kPut : kDrop) + "\n";
  for (bool const isSlow : {false, true}) {
    bool isBatchDone = false;
    int puts = -1;
    std::function<void()> const passTime = [&] {
      world.loop.isBusy(std::chrono::milliseconds(1));
      if (!isBatchDone) world.loop.post(passTime);
    };
    std::function<void()> const put = [&] {
      ++puts;
      if (isBatchDone) return;
      other.handle(HttpRequest{"PUT", "/v1/tree/registration/b/x", {}, std::to_string(puts)},
                   [&](HttpResponse const& /*response*/) { put(); });
    };
    if (isSlow) passTime();
    other.handle(HttpRequest{"POST", "/v1/tree", {}, body}, [&](HttpResponse const& response) {
      isBatchDone = true;
      EXPECT_EQ(response.status, 200);
    });
    put();
    world.loop.run();
    if (isSlow)
      EXPECT_GE(puts, kLines / 80);
    else
      EXPECT_LE(puts, kLines / 256 + 1);
  }
}

}  // namespace
}  // namespace Agent::TreeApiLimitsTest
