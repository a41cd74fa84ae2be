// How much clients may have kept: what goes beyond is refused before anything is done.
#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <random>

#include "support/api_world.h"

namespace Agent::StoredQuotaTest {
namespace {

using testing::HasSubstr;

ServiceOptions quota(std::uint64_t documents, std::uint64_t bytes) {
  ServiceOptions options;
  options.stored = {.documents = documents, .bytes = bytes};
  return options;
}

using Texts = std::map<std::string, std::string>;

Texts textsOf(Documents const& documents) {
  Texts texts;
  for (auto const& [path, document] : documents) texts[path] = *document.text;
  return texts;
}

std::size_t bytesOf(Texts const& texts) {
  std::size_t bytes = 0;
  for (auto const& [path, text] : texts) bytes += path.size() + text.size();
  return bytes;
}

/// What the operations make of the texts, where the registry writes nothing.
Texts appliedTo(Texts texts, std::vector<Operation> const& operations) {
  for (Operation const& operation : operations) {
    std::string const path = toText(operation.path);
    if (operation.isPut())
      texts[path] = operation.value->dump();
    else
      std::erase_if(texts, [&](auto const& one) {
        return one.first == path || (operation.path.place.isFolder() && one.first.starts_with(path + "/"));
      });
  }
  return texts;
}

std::vector<Operation> randomBatch(std::mt19937& random) {
  std::vector<Operation> batch;
  for (std::size_t left = 1 + random() % 4 * (random() % 2); left > 0; --left) {
    Path const note = parsePath("registration/s/note" + std::to_string(random() % 12));
    if (random() % 20 == 0)
      batch.push_back({parsePath("registration/s"), std::nullopt});
    else if (random() % 3 == 0)
      batch.push_back({note, std::nullopt});
    else
      batch.push_back({note, Json(std::string(random() % 100, 'x'))});
  }
  return batch;
}

TEST(StoredQuota, TakesABatchIfItFitsOrDoesNotGrow) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::size_t const alwaysThere = bytesOf(textsOf(ServiceWorld().service->latest().documents));
    std::size_t const count = ServiceWorld().service->latest().documents.size();
    auto const limits = quota(count + 6 + random() % 6, alwaysThere + 300 + random() % 300);
    ServiceWorld world(limits);
    int refusals = 0;
    for (int step = 0; step < 200; ++step) {
      auto const batch = randomBatch(random);
      Texts const before = textsOf(world.service->latest().documents);
      Texts const after = appliedTo(before, batch);
      bool const isTooMany = after.size() > limits.stored.documents && after.size() > before.size();
      bool const isTooLong = bytesOf(after) > limits.stored.bytes && bytesOf(after) > bytesOf(before);
      std::string reason;
      try {
        world.service->apply(batch);
        world.loop.run();
      } catch (QuotaRefusal const& refusal) {
        reason = refusal.reason();
        EXPECT_NE(refusal.path(), "");
      } catch (InputError const&) {
        continue;  // a registration that goes and comes back
      }
      ASSERT_EQ(!reason.empty(), isTooMany || isTooLong) << "step " << step << " " << reason;
      ASSERT_EQ(textsOf(world.service->latest().documents), reason.empty() ? after : before) << "step " << step;
      refusals += reason.empty() ? 0 : 1;
    }
    EXPECT_GT(refusals, 10);
  }
}

class StoredQuotaApi : public ApiWorld {
 protected:
  StoredQuotaApi() : ApiWorld(quota(ServiceWorld().service->latest().documents.size() + 2, 100'000)) {}

  void fill() {
    EXPECT_EQ(put("registration/a/one", "\"long\"").status, 200);
    EXPECT_EQ(put("heartbeat/02:00:00:aa:00:01", "1").status, 200);
  }
};

TEST_F(StoredQuotaApi, WhatGrowsIsRefusedAndAllElseGoesOn) {
  fill();
  Reply const refused = put("registration/a/two", "2");
  EXPECT_EQ(refused.status, 507);
  EXPECT_EQ(refused.json()["error"]["path"], "registration/a/two");
  EXPECT_THAT(refused.json()["error"]["reason"].get<std::string>(), HasSubstr("that are kept at most"));
  EXPECT_EQ(world.read("registration/a/two"), "nothing");
  EXPECT_EQ(get("/readyz").status, 200) << "it is no full disk";
  EXPECT_EQ(put("heartbeat/02:00:00:aa:00:01", "1").status, 200);
  EXPECT_EQ(put("registration/a/one", "\"short\"").status, 200);
  EXPECT_EQ(ask("DELETE", "/v1/tree/registration/a/one").status, 200);
  EXPECT_EQ(put("registration/a/two", "2").status, 200);
}

TEST_F(StoredQuotaApi, ALineOfABatchIsRefusedLikeAPut) {
  fill();
  char const* const two = R"({"put": "registration/a/two", "value": 2})";
  char const* const drop = R"({"delete": "registration/a/one"})";
  Reply const some = post("", {R"({"put": "registration/a/one", "value": 1})", two, drop});
  EXPECT_EQ(some.status, 507);
  EXPECT_EQ(some.json()["applied"], 1);
  EXPECT_EQ(some.json()["error"]["line"], 2);
  Reply const none = post("?atomic=1", {R"({"put": "registration/a/one", "value": 0})", two});
  EXPECT_EQ(none.status, 507);
  EXPECT_EQ(none.json()["applied"], 0);
  EXPECT_EQ(none.json()["error"]["line"], 2);
  EXPECT_EQ(world.read("registration/a/one"), "1");
  EXPECT_EQ(post("?atomic=1", {two, drop}).status, 200) << "what goes makes room for what comes";
}

// What the registry answers is counted, and is there whatever the limit is.
TEST(StoredQuota, TheRegistryIsNotRefused) {
  ServiceWorld world(quota(ServiceWorld().service->latest().documents.size() + 3, 100'000));
  world.put("controller/config", R"({"enabled": true})");
  for (std::string const& line : enrolment("a", "02:00:00:aa:00:01")) world.apply(line);
  EXPECT_NE(world.read("controller/switch/02:00:00:aa:00:01"), "nothing");
  EXPECT_THROW(world.put("registration/a/more", "1"), QuotaRefusal);
}

// Each switch watches each service of the controller, whether or not it has it.
TEST(StoredQuota, ServicesTimesSwitchesAreLimited) {
  ServiceOptions options;
  options.stored.pairs = 6;
  ServiceWorld world(options);
  auto const enrol = [&](std::string const& name) {
    world.put("registration/" + name + "/config", R"({"systemId": "02:00:00:aa:00:01"})");
  };
  for (char const* const name : {"a", "b", "c"}) enrol(name);
  for (char const* const path : {"service/config/x", "service/override/x"}) world.put(path, "{}");
  EXPECT_THROW(enrol("d"), QuotaRefusal);
  EXPECT_THROW(world.put("service/config/y", "{}"), QuotaRefusal);
  world.put("registration/d/status", "{}");
  world.put("service/config/x", R"({"enabled": true})");
  world.remove("service/override/x");
  enrol("d");
  world.remove("registration/d");
  world.put("service/config/y", "{}");
  EXPECT_THROW(world.put("service/config/z", "{}"), QuotaRefusal);
}

// The registry keeps in a status what a switch offered and configured for services that it has left since.
TEST(StoredQuota, NoStatusGrowsForEver) {
  ServiceOptions options;
  options.stored.status = 4000;
  std::string const id = "02:00:00:aa:00:01";
  struct Row {
    char const* what;
    std::string path;
    std::function<std::string(std::string const& service)> document;
  };
  for (Row const& row : {Row{"mounts",
                             "mount/offer/" + id,
                             [](std::string const& service) {
                               return R"({"publishedMount": {"/m": {"service": ")" + service + R"("}}})";
                             }},
                         Row{"services", "registration/a/config", [&](std::string const& service) {
                               return R"({"systemId": ")" + id + R"(", "enabled": true, "serviceConfig": {")" +
                                      service + R"(": {"enabled": true}}})";
                             }}}) {
    SCOPED_TRACE(row.what);
    ServiceWorld world(options);
    world.put("controller/config", R"({"enabled": true})");
    for (std::string const& line : enrolment("a", id)) world.apply(line);
    for (std::string const& line : enrolment("b", "02:00:00:aa:00:02")) world.apply(line);
    int taken = 0;
    auto const refuses = [&] {
      try {
        world.put(row.path, row.document("s" + std::to_string(taken)));
        // The registration is looked at anew, so that it is negotiated.
        world.remove("heartbeat/" + id);
        world.put("heartbeat/" + id, "1");
        return false;
      } catch (QuotaRefusal const& refusal) {
        EXPECT_EQ(refusal.path(), row.path);
        EXPECT_THAT(refusal.reason(), HasSubstr("registration/a/status has "));
        return true;
      }
    };
    while (taken < 100 && !refuses()) ++taken;
    ASSERT_GT(taken, 5);
    ASSERT_LT(taken, 100);
    EXPECT_LT(world.read("registration/a/status").size(), 5000u);
    world.put("heartbeat/" + id, "2");
    world.put("registration/b/config", R"({"systemId": "02:00:00:aa:00:02"})");
    world.put("mount/offer/02:00:00:aa:00:02", "{}");
    world.put("registration/a/note", "1");
    EXPECT_TRUE(refuses());
    world.put("registration/a/status", "{}");
    EXPECT_TRUE(refuses()) << "it stands as it is";
    world.remove("registration/a/status");
    world.put("registration/a/status", "{}");
    EXPECT_FALSE(refuses());
  }
}

TEST(StoredQuota, AStateThatIsLargerIsLoaded) {
  ServiceWorld world;
  for (int note = 0; note < 5; ++note) world.put("registration/a/n" + std::to_string(note), "1");
  Service small(world.loop, world.library, *world.store, quota(3, 10), world.log);
  EXPECT_EQ(small.latest().documents.size(), world.service->latest().documents.size());
  Operation const more{parsePath("registration/a/more"), Json(1)};
  EXPECT_THROW(small.apply({&more, 1}), QuotaRefusal);
  Operation const same{parsePath("registration/a/n1"), Json(2)};
  small.apply({&same, 1});
  Operation const gone{parsePath("registration/a"), std::nullopt};
  small.apply({&gone, 1});
  EXPECT_EQ(small.latest().documents.count("registration/a/n0"), 0u);
}

}  // namespace
}  // namespace Agent::StoredQuotaTest
