// Trees that come back from where they were kept, before there is a registry.
#include <gmock/gmock.h>

#include <filesystem>

#include "support/tree_world.h"

namespace Agent {
namespace {

using ::testing::HasSubstr;

/// Tables without a registry, and their tree.
struct BareTree {
  Tables tables{.publishedMountsTable = Nox::make<Controller::PublishedMountsTable>("publishedMounts")};
  StateTree tree{tables};

  std::string restore(std::string const& path, std::string const& document) {
    try {
      tree.restore(parsePath(path), readJson(document));
      return "taken";
    } catch (InputError const& error) {
      return error.field() + ": " + error.reason();
    }
  }
  std::string text() const {
    std::string all;
    tree.forEach([&](std::string const& path, Json const& document) { all += path + " " + document.dump() + "\n"; });
    return all;
  }
};

TEST(Restore, EveryDocumentOfATreeReadsAsItDid) {
  std::size_t documents = 0;
  for (auto const& file : std::filesystem::directory_iterator(ENROLIX_EXAMPLES)) {
    if (file.path().extension() != ".jsonl") continue;
    TreeWorld world;
    ScenarioReader reader(openScenario(file.path().string()));
    while (auto const operation = reader.next()) world.apply(*operation);
    BareTree bare;
    for (bool const isRow : {false, true}) {
      world.tree.forEach([&](std::string const& path, Json const& document) {
        Path const place = parsePath(path);
        if (std::holds_alternative<At::ControllerSwitch>(place) == isRow) bare.tree.restore(place, document);
        documents += isRow;
      });
    }
    EXPECT_EQ(bare.text(), world.text()) << file.path();
  }
  EXPECT_GT(documents, 100u);
}

TEST(Restore, ARowOfARegistrationThatHasGoneKeepsItsName) {
  BareTree bare;
  std::string const row = R"({"switchConfig":"gone","switchStatus":null,"registeredSwitch":true})";
  EXPECT_EQ(bare.restore("controller/switch/02:00:00:aa:00:01", row), "taken");
  EXPECT_THAT(bare.text(), HasSubstr("controller/switch/02:00:00:aa:00:01 " + row));
}

TEST(Restore, RefusesWhatNoTreeCanHaveHeld) {
  BareTree bare;
  std::string const before = bare.text();
  EXPECT_THAT(bare.restore("controller/config", R"({"enabled": 1})"), HasSubstr("enabled: expected"));
  EXPECT_THAT(bare.restore("controller/status", R"({"enabled": 1})"), HasSubstr("enabled: expected"));
  EXPECT_THAT(bare.restore("controller/switch/02:00:00:aa:00:01", R"({"what": 1})"), HasSubstr("no such field"));
  EXPECT_THAT(bare.restore("registration/a", "{}"), HasSubstr("has no document"));
  EXPECT_THAT(bare.restore("registration/a/status", R"({"serviceStatus": {"x": {"enabled": 0}}})"),
              HasSubstr("serviceStatus.x.enabled: expected"));
  EXPECT_THAT(bare.restore("service/status/a/x", R"({"versionStatus": {"negotiatedVersion": {"version": 1}}})"),
              HasSubstr("versionStatus.negotiatedVersion.desc: missing"));
  EXPECT_EQ(bare.text(), before);
}

}  // namespace
}  // namespace Agent
