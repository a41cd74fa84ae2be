// The table of switches says the same of documents wherever they come from.
#include "agent/view/switch_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "support/tree_world.h"

namespace Agent::SwitchTableTest {
namespace {

using testing::HasSubstr;
using testing::Not;

SwitchDocuments documentsOf(TreeWorld const& world) {
  SwitchDocuments documents;
  world.tree.forEach([&](std::string const& path, Json const& document) { documents.put(path, document); });
  return documents;
}

TreeWorld& fill(TreeWorld& world) {
  for (
      char const* line :
      {R"({"put": "controller/config", "value": {"enabled": true}})",
       R"({"put": "service/config/s", "value": {"enabled": true, "versionConfig": {"version": {"1": "one"}}}})",
       R"({"put": "heartbeat/02:00:00:00:00:01", "value": {}})",
       R"({"put": "mount/offer/02:00:00:00:00:01", "value": {"publishedMount": {"m": {"service": "s"}}}})",
       R"({"put": "mount/ready/s", "value": true})",
       R"({"put": "registration/a/config", "value": {"systemId": "02:00:00:00:00:01", "enabled": true, "registrationGenId": 4, "serviceConfig": {"s": {"enabled": true, "versionConfig": {"version": {"1": "", "2": ""}}}}}})",
       R"({"put": "registration/a/status", "value": {}})",
       R"({"put": "registration/a-b/config", "value": {}})",
       R"({"put": "registration/silent/config", "value": {"systemId": "02:00:00:00:00:02", "enabled": true}})",
       R"({"put": "registration/silent/status", "value": {}})",
       R"({"put": "registration/off/config", "value": {"systemId": "02:00:00:00:00:03"}})",
       R"({"put": "registration/off/status", "value": {}})"})
    world.apply(line);
  return world;
}

TEST(SwitchTable, SortsByNameAndLinesUp) {
  TreeWorld world;
  EXPECT_EQ(switchTable(switchRows(documentsOf(fill(world))), false),
            "SWITCH  SYSTEM ID          STATE                    GENERATION asked/answered\n"
            "a       02:00:00:00:00:01  ready                    4/4\n"
            "    s  version 1  mounts m (ready)\n"
            "a-b     00:00:00:00:00:00  incomplete: no \"status\"  0/-\n"
            "off     02:00:00:00:00:03  not enabled              0/0\n"
            "silent  02:00:00:00:00:02  no heartbeat             0/0\n");
}

TEST(SwitchTable, ColoursTheStateAloneAndKeepsTheColumns) {
  TreeWorld world;
  auto const rows = switchRows(documentsOf(fill(world)));
  std::string text = switchTable(rows, true);
  EXPECT_THAT(text, HasSubstr("\x1B[32mready\x1B[0m  "));
  EXPECT_THAT(text, HasSubstr("\x1B[33mnot enabled\x1B[0m  "));
  EXPECT_THAT(text, HasSubstr("\x1B[31mno heartbeat\x1B[0m  "));
  for (std::size_t at = text.find('\x1B'); at != std::string::npos; at = text.find('\x1B'))
    text.erase(at, text.find('m', at) + 1 - at);
  EXPECT_EQ(text, switchTable(rows, false));
}

TEST(SwitchTable, IsAlsoLinesOfJson) {
  TreeWorld world;
  EXPECT_THAT(
      switchLines(switchRows(documentsOf(fill(world)))),
      testing::StartsWith(
          R"({"switch":"a","systemId":"02:00:00:00:00:01","ready":true,"state":"ready","generationAsked":4,"generationAnswered":4,"services":[{"service":"s","outcome":"version 1","published":{"mounts":["m"],"ready":true}}]})"
          "\n"
          R"({"switch":"a-b","systemId":"00:00:00:00:00:00","ready":false,"state":"incomplete: no \"status\"","generationAsked":0,"generationAnswered":null,"services":[]})"
          "\n"));
}

TEST(SwitchTable, ForgetsWhatHasGone) {
  TreeWorld world;
  SwitchDocuments documents = documentsOf(fill(world));
  documents.remove("registration/a/config");
  documents.remove("registration/a-b/config");
  std::string const table = switchTable(switchRows(documents), false);
  EXPECT_THAT(table, HasSubstr("\na       -                  incomplete: no \"config\"  -/4\n"));
  EXPECT_THAT(table, Not(HasSubstr("a-b")));
  documents.clear();
  EXPECT_TRUE(switchRows(documents).empty());
}

TEST(SwitchTable, KeepsOnlyDocumentsThatTellOfSwitches) {
  SwitchDocuments documents;
  for (char const* path : {"mount/offer/02:00:00:00:00:01", "service/status/a/s", "controller/status", "mount/ready/s"})
    documents.put(path, Json::object());
  EXPECT_TRUE(documents.all().empty());
}

TEST(SwitchTable, ShowsNoControlCharactersOfDocuments) {
  SwitchDocuments documents;
  documents.put("registration/a/config", {{"systemId", "\x1B[2J"}});
  documents.put("registration/\x1B/x", 1);
  EXPECT_THAT(switchTable(switchRows(documents), false), Not(HasSubstr("\x1B")));
}

TEST(SwitchTable, RefusesDocumentsOfAnotherShape) {
  for (Json const& config : {Json{{"systemId", 5}}, Json{{"registrationGenId", "x"}}}) {
    SwitchDocuments documents;
    documents.put("registration/a/config", config);
    EXPECT_THROW(switchRows(documents), Json::exception) << config;
  }
}

}  // namespace
}  // namespace Agent::SwitchTableTest
