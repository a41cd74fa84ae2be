// Tests of a negotiation's cases, one by one: every write and every message in its order.
#include <gmock/gmock.h>

#include "negotiation_model.h"

namespace DecisionTableTest {
namespace {

using namespace ServiceTest;
using Controller::ServiceVersionV1;
using testing::ElementsAre;
using testing::ElementsAreArray;
using Lines = std::vector<std::string>;

/// One case of a negotiation of the service "acl".
struct Case {
  char const* name;
  std::optional<Service> client;
  std::optional<Service> controller;
  /// Statuses afterwards: of a fresh one, and of one that held `kOld`.
  std::string switchFresh, switchOld;
  std::string controllerFresh, controllerOld;
  /// Writes behind the making of statuses, and messages behind those of the entry and the override.
  Lines writes;
  Lines text;
  Lines ring;
};

Outcome const kOld{true, false, true, ServiceVersionV1(9, "old")};
std::string const kKept = "1 0 1 9 old";

std::string const kEntry = "void Controllerdb::SwitchConfigSm::doVersionNegotiation(Nox::Name) ";
std::string const kUpdate =
    "void Controllerdb::updateVersionStatus(Controller::ServiceVersionStatusV1::Ptr, bool, bool, "
    "Controller::ServiceVersionV1) ";

/// The writes of an outcome into one side's version status.
Lines outcomeWrites(std::string const& side, std::string const& version, bool compatible, bool complete) {
  std::string const status = side + "/acl/VersionStatusacl.";
  return {status + "negotiatedVersion = " + version,
          status + "versionCompatible = " + (compatible ? "1" : "0"),
          status + "versionNegotiationComplete = " + (complete ? "1" : "0")};
}
Lines operator+(Lines head, Lines const& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

std::vector<Case> const kCases = {
    {.name = "NoClient",
     .client = std::nullopt,
     .controller = Service{true, {{1, "c1"}}},
     .switchFresh = "none",
     .switchOld = kKept,
     .controllerFresh = "none",
     .controllerOld = kKept,
     .writes = {},
     .text = {},
     .ring = {}},
    {.name = "NobodyConfigures",
     .client = std::nullopt,
     .controller = std::nullopt,
     .switchFresh = "none",
     .switchOld = kKept,
     .controllerFresh = "none",
     .controllerOld = kKept,
     .writes = {},
     .text = {},
     .ring = {}},
    {.name = "NoControllerClientEnabled",
     .client = Service{true, {{1, "s1"}}},
     .controller = std::nullopt,
     .switchFresh = "0 1 0 0",
     .switchOld = "1 1 0 0",
     .controllerFresh = "none",
     .controllerOld = kKept,
     .writes = outcomeWrites("switch", "0", false, true),
     .text = {"4 201 Controller doesn't support service acl", "3 159 " + kUpdate + "1 0 0"},
     .ring = {"4 200 Controller doesn't support service acl", "3 157 " + kUpdate + "1 0 0"}},
    {.name = "NoControllerClientDisabled",
     .client = Service{false, {{1, "s1"}}},
     .controller = std::nullopt,
     .switchFresh = "0 0 0 0",
     .switchOld = kKept,
     .controllerFresh = "none",
     .controllerOld = kKept,
     .writes = {},
     .text = {"4 201 Controller doesn't support service acl"},
     .ring = {"4 200 Controller doesn't support service acl"}},
    {.name = "CommonVersion",
     .client = Service{true, {{1, "s1"}, {2, "s2"}, {3, "s3"}}},
     .controller = Service{true, {{2, "c2"}, {3, "c3"}, {4, "c4"}}},
     .switchFresh = "1 1 1 3 s3",
     .switchOld = "1 1 1 3 s3",
     .controllerFresh = "1 1 1 3 s3",
     .controllerOld = "1 1 1 3 s3",
     .writes = Lines{"controller/acl.enabled = 1", "switch/acl.enabled = 1"} +
               outcomeWrites("controller", "3 s3", true, true) + outcomeWrites("switch", "3 s3", true, true),
     .text = {"7 249 Client ver=3",
              "7 253 Controller ver=4",
              "7 253 Controller ver=3",
              "7 270 Negotiated ver=3 for service=acl for client=02:00:00:00:00:01",
              "3 159 " + kUpdate + "1 1 3 s3",
              "3 159 " + kUpdate + "1 1 3 s3"},
     .ring = {"7 267 Negotiated ver=3 service=acl client=02:00:00:00:00:01",
              "3 157 " + kUpdate + "1 1 1",
              "3 157 " + kUpdate + "1 1 1"}},
    {.name = "NoCommonVersion",
     .client = Service{true, {{1, "s1"}, {2, "s2"}}},
     .controller = Service{true, {{3, "c3"}}},
     .switchFresh = "1 1 0 0",
     .switchOld = "1 1 0 0",
     .controllerFresh = "1 1 0 0",
     .controllerOld = "1 1 0 0",
     .writes = Lines{"controller/acl.enabled = 1", "switch/acl.enabled = 1"} +
               outcomeWrites("controller", "0", false, true) + outcomeWrites("switch", "0", false, true),
     .text = {"7 249 Client ver=2",
              "7 253 Controller ver=3",
              "7 249 Client ver=1",
              "7 253 Controller ver=3",
              "7 270 Negotiated ver=0 for service=acl for client=02:00:00:00:00:01",
              "3 159 " + kUpdate + "1 0 0",
              "3 159 " + kUpdate + "1 0 0"},
     .ring = {"7 267 Negotiated ver=0 service=acl client=02:00:00:00:00:01",
              "3 157 " + kUpdate + "1 0 0",
              "3 157 " + kUpdate + "1 0 0"}},
    {.name = "ClientOffersNothing",
     .client = Service{true, {}},
     .controller = Service{true, {{1, "c1"}}},
     .switchFresh = "1 1 0 0",
     .switchOld = "1 1 0 0",
     .controllerFresh = "1 1 0 0",
     .controllerOld = "1 1 0 0",
     .writes = Lines{"controller/acl.enabled = 1", "switch/acl.enabled = 1"} +
               outcomeWrites("controller", "0", false, true) + outcomeWrites("switch", "0", false, true),
     .text = {"7 270 Negotiated ver=0 for service=acl for client=02:00:00:00:00:01",
              "3 159 " + kUpdate + "1 0 0",
              "3 159 " + kUpdate + "1 0 0"},
     .ring = {"7 267 Negotiated ver=0 service=acl client=02:00:00:00:00:01",
              "3 157 " + kUpdate + "1 0 0",
              "3 157 " + kUpdate + "1 0 0"}},
};

/// The three ways for a side to be disabled have one outcome.
std::vector<Case> allCases() {
  std::vector<Case> all = kCases;
  auto const add = [&](char const* name, bool client, bool controller) {
    all.push_back(
        {.name = name,
         .client = Service{client, {{1, "s1"}}},
         .controller = Service{controller, {{1, "c1"}}},
         .switchFresh = "0 0 0 0",
         .switchOld = "0 0 0 0",
         .controllerFresh = "0 0 0 0",
         .controllerOld = "0 0 0 0",
         .writes =
             Lines{"controller/acl.enabled = 0", "switch/acl.enabled = 0", "switch.servicePublishedInfo[acl] deleted"} +
             outcomeWrites("controller", "0", false, false) + outcomeWrites("switch", "0", false, false),
         .text = {"3 159 " + kUpdate + "0 0 0", "3 159 " + kUpdate + "0 0 0"},
         .ring = {"3 157 " + kUpdate + "0 0 0", "3 157 " + kUpdate + "0 0 0"}});
  };
  add("ClientDisabled", false, true);
  add("ControllerDisabled", true, false);
  add("BothDisabled", false, false);
  return all;
}

/// A case, and where its controller's configuration and its statuses come from.
struct Setting {
  Case row;
  bool isOverride;
  bool hasSwitchSide;
  bool hasControllerSide;

  friend std::ostream& operator<<(std::ostream& out, Setting const& s) {
    return out << s.row.name << (s.isOverride ? ", overridden" : "") << (s.hasSwitchSide ? ", switch's status" : "")
               << (s.hasControllerSide ? ", controller's status" : "");
  }
};

std::vector<Setting> allSettings() {
  std::vector<Setting> all;
  for (Case const& row : allCases())
    for (unsigned bits = 0; bits < 8; ++bits)
      if (row.controller || (bits & 1U) == 0)
        all.push_back({row, (bits & 1U) != 0, (bits & 2U) != 0, (bits & 4U) != 0});
  return all;
}

class DecisionTable : public testing::TestWithParam<Setting> {};

TEST_P(DecisionTable, WritesAndTracesInOrder) {
  auto const& [row, isOverride, hasSwitchSide, hasControllerSide] = GetParam();
  OneSwitch one;
  one.start();
  if (row.client) one.configure("acl", *row.client);
  if (isOverride) {
    one.override("acl", *row.controller);
    one.configureController("acl", {!row.controller->enabled, {{1, "not asked"}, {9, "not asked"}}});
  } else if (row.controller) {
    one.configureController("acl", *row.controller);
  }
  if (hasSwitchSide) enter(kOld, *one.status->serviceStatusIs("acl"));
  if (hasControllerSide) enter(kOld, *one.serviceStatusDir->serviceIs("acl"));
  one.status->servicePublishedInfoIs("acl");
  one.status->servicePublishedInfoIs("other");

  Lines made;
  if (row.client && !hasSwitchSide)
    made = {"switch.serviceStatus[acl] = {}", "switch/acl.versionStatus = \"VersionStatusacl\""};
  if (row.client && row.controller && !hasControllerSide)
    made = made + Lines{"controller.service[acl] = {}", "controller/acl.versionStatus = \"VersionStatusacl\""};
  Lines text = {"8 169 " + kEntry + "leaf-1 acl"};
  if (isOverride) text.emplace_back("4 177 using override versions for service: acl");
  text = text + row.text;
  Lines const ring = Lines{"8 168 " + kEntry + "1 acl"} + row.ring;

  Lines writes;
  {
    WriteHook const hook([&](std::string const& line) { writes.push_back(line); });
    TraceCapture const textCapture({1, 2, 3, 4, 5, 6, 7, 8, 9});
    RingCapture const ringCapture;
    one.sm->doVersionNegotiation("acl");
    EXPECT_THAT(textCapture.lines(), ElementsAreArray(text));
    EXPECT_THAT(ringCapture.messages(), ElementsAreArray(ring));
  }
  EXPECT_THAT(writes, ElementsAreArray(made + row.writes));
  EXPECT_EQ(one.ofSwitch("acl"), hasSwitchSide ? row.switchOld : row.switchFresh);
  EXPECT_EQ(one.ofController("acl"), hasControllerSide ? row.controllerOld : row.controllerFresh);
  bool const withdrawn = row.client && row.controller && !(row.client->enabled && row.controller->enabled);
  EXPECT_EQ(one.status->servicePublishedInfo().has("acl"), !withdrawn);
  EXPECT_TRUE(one.status->servicePublishedInfo().has("other"));

  // Again: the same values, with nothing left to make. The first two cases had nothing to write at all.
  std::string const ofSwitch = one.ofSwitch("acl");
  std::string const ofController = one.ofController("acl");
  writes.clear();
  WriteHook const hook([&](std::string const& line) { writes.push_back(line); });
  one.sm->doVersionNegotiation("acl");
  EXPECT_THAT(writes, ElementsAreArray(row.writes));
  EXPECT_EQ(one.ofSwitch("acl"), ofSwitch);
  EXPECT_EQ(one.ofController("acl"), ofController);
}

INSTANTIATE_TEST_SUITE_P(Settings, DecisionTable, testing::ValuesIn(allSettings()), [](auto const& setting) {
  Setting const& s = setting.param;
  return std::string(s.row.name) + (s.isOverride ? "Overridden" : "") + (s.hasSwitchSide ? "WithSwitchStatus" : "") +
         (s.hasControllerSide ? "WithControllerStatus" : "");
});

// The messages beside the cases.

TEST(NegotiationTrace, RingRecordsTextsThatAreLeftOutAsABoolean) {
  OneSwitch one;
  one.switchId = "";
  one.start();
  one.configure("acl", {true, {{4, ""}}});
  one.configureController("acl", {true, {{4, "described"}}});
  RingCapture const ring;
  one.sm->doVersionNegotiation("acl");
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 168 " + kEntry + "0 acl",
                          "7 267 Negotiated ver=4 service=acl client=02:00:00:00:00:01",
                          "3 157 " + kUpdate + "1 1 0",
                          "3 157 " + kUpdate + "1 1 0"));
}

TEST(NegotiationTrace, MessagesComeBeforeTheWritesThatTheyTellOfAndTheRingBeforeTheText) {
  OneSwitch one;
  one.start();
  one.configure("acl", {true, {{1, "s1"}}});
  one.configureController("acl", {true, {{1, "c1"}}});
  one.sm->doVersionNegotiation("acl");
  RingCapture const ring;
  TraceCapture const capture({3, 4, 7, 8});
  Lines steps;
  auto const before = Nox::traceSinkIs([&](Nox::TraceMessage const& message) {
    steps.push_back(std::to_string(message.line) + " behind " + std::to_string(ring.messages().size()));
  });
  WriteHook const hook([&](std::string const& line) { steps.push_back(line); });
  one.sm->doVersionNegotiation("acl");
  Nox::traceSinkIs(before);
  EXPECT_THAT(steps,
              ElementsAreArray(Lines{"169 behind 1",
                                     "controller/acl.enabled = 1",
                                     "switch/acl.enabled = 1",
                                     "249 behind 1",
                                     "253 behind 1",
                                     "270 behind 2",
                                     "159 behind 3"} +
                               outcomeWrites("controller", "1 s1", true, true) + Lines{"159 behind 4"} +
                               outcomeWrites("switch", "1 s1", true, true)));
}

TEST(NegotiationTrace, CoverageStreamSeesEveryComparisonWhileTheFacilityIsOff) {
  OneSwitch one;
  one.start();
  one.configure("acl", {true, {{1, "s1"}, {2, "s2"}}});
  one.configureController("acl", {true, {{1, "c1"}, {3, "c3"}}});
  std::ostringstream coverage;
  Nox::coverageStream_ = &coverage;
  one.sm->doVersionNegotiation("acl");
  Nox::coverageStream_ = nullptr;
  std::string const seen = coverage.str();
  std::size_t at = 0;
  for (char const* next : {"Client ver=2",
                           "Controller ver=3",
                           "Controller ver=1",
                           "Client ver=1",
                           "Controller ver=3",
                           "Controller ver=1",
                           "Negotiated ver=1"}) {
    at = seen.find(next, at);
    ASSERT_NE(at, std::string::npos) << next << " in " << seen;
    ++at;
  }
  EXPECT_EQ(one.ofSwitch("acl"), "1 1 1 1 s1");
}

}  // namespace

}  // namespace DecisionTableTest
