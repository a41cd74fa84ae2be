// Trees that come back from where they were kept, before there is a registry.
#include <gmock/gmock.h>

#include <filesystem>

#include "support/tree_world.h"

namespace Agent::RestoreTest {
namespace {

using ::testing::HasSubstr;

/// Tables without a registry, and their tree.
struct BareTree {
  Controllerdb::AgentTables tables;
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

TEST(Restore, EveryDocumentOfATreeButTheRowsReadsAsItDid) {
  std::size_t documents = 0;
  for (auto const& file : std::filesystem::directory_iterator(ENROLIX_EXAMPLES)) {
    if (file.path().extension() != ".jsonl") continue;
    TreeWorld world;
    ScenarioReader reader(openScenario(file.path().string()));
    while (auto const operation = reader.next()) world.apply(*operation);
    BareTree bare;
    std::string expected;
    world.tree.forEach([&](std::string const& path, Json const& document) {
      bare.tree.restore(parsePath(path), document);
      // The rows of the table of switches are the registry's to write.
      if (!path.starts_with("controller/switch/")) expected += path + " " + document.dump() + "\n";
      ++documents;
    });
    EXPECT_EQ(bare.text(), expected) << file.path();
  }
  EXPECT_GT(documents, 100u);
}

TEST(Restore, RefusesWhatNoTreeCanHaveHeld) {
  BareTree bare;
  std::string const before = bare.text();
  EXPECT_THAT(bare.restore("controller/config", R"({"enabled": 1})"), HasSubstr("enabled: expected"));
  EXPECT_THAT(bare.restore("controller/status", R"({"enabled": 1})"), HasSubstr("enabled: expected"));
  EXPECT_THAT(bare.restore("registration/a", "{}"), HasSubstr("has no document"));
  EXPECT_THAT(bare.restore("registration/a/status", R"({"serviceStatus": {"x": {"enabled": 0}}})"),
              HasSubstr("serviceStatus.x.enabled: expected"));
  EXPECT_THAT(bare.restore("service/status/a/x", R"({"versionStatus": {"negotiatedVersion": {"version": 1}}})"),
              HasSubstr("versionStatus.negotiatedVersion.desc: missing"));
  EXPECT_EQ(bare.text(), before);
}

}  // namespace
}  // namespace Agent::RestoreTest
