// Tests of the choice of a version: what is easily got wrong, by name, and the search over all pairs.
#include "registry/version_negotiation.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <random>

#include "negotiation_model.h"

namespace VersionNegotiationTest {
namespace {

using namespace ServiceTest;
using Controller::ServiceVersionConfigV1;
using Controller::ServiceVersionV1;
using Controllerdb::sortFunction;
using Controllerdb::sortVersions;
using Controllerdb::updateVersionStatus;
using Nox::Ptr;
using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

// The cases that are easily got wrong, by name. `negotiated` says what both sides hold.

class Negotiation : public testing::Test {
 protected:
  std::string negotiated(Versions const& client, Versions const& controller) {
    OneSwitch one;
    one.start();
    one.configure("acl", {true, client});
    one.configureController("acl", {true, controller});
    TraceCapture const capture({7});
    one.sm->doVersionNegotiation("acl");
    text = capture.lines();
    EXPECT_EQ(one.ofSwitch("acl"), one.ofController("acl"));
    return one.ofSwitch("acl");
  }
  Lines text;
};

TEST_F(Negotiation, TakesTheHighestCommonVersionWithTheSwitchsDescription) {
  EXPECT_EQ(negotiated({{1, "s1"}, {2, "s2"}, {3, "s3"}}, {{2, "c2"}, {3, "c3"}, {4, "c4"}}), "1 1 1 3 s3");
}

TEST_F(Negotiation, ControllerWithoutVersionsIsComparedWithNothing) {
  EXPECT_EQ(negotiated({{7, "s7"}}, {}), "1 1 0 0");
  EXPECT_THAT(text,
              ElementsAre("7 249 Client ver=7", "7 270 Negotiated ver=0 for service=acl for client=02:00:00:00:00:01"));
}

TEST_F(Negotiation, SwitchWithoutVersionsTracesNoVersion) {
  EXPECT_EQ(negotiated({}, {{1, "c1"}}), "1 1 0 0");
  EXPECT_THAT(text, ElementsAre("7 270 Negotiated ver=0 for service=acl for client=02:00:00:00:00:01"));
}

TEST_F(Negotiation, TopBitSortsAboveOne) {
  EXPECT_EQ(negotiated({{1, "s1"}, {0x80000000, "top"}}, {{1, "c1"}, {0x80000000, "c"}}), "1 1 1 2147483648 top");
  EXPECT_EQ(negotiated({{1, "s1"}, {0xFFFFFFFF, "all"}}, {{1, "c1"}, {0xFFFFFFFF, "c"}}), "1 1 1 4294967295 all");
  EXPECT_THAT(text,
              ElementsAre("7 249 Client ver=4294967295",
                          "7 253 Controller ver=4294967295",
                          "7 270 Negotiated ver=4294967295 for service=acl for client=02:00:00:00:00:01"));
}

TEST_F(Negotiation, MatchOfNumberZeroIsAMatch) {
  EXPECT_EQ(negotiated({{0, "zero"}}, {{0, "c0"}, {1, "c1"}}), "1 1 1 0 zero");
  EXPECT_EQ(negotiated({{0, ""}}, {{0, "c0"}}), "1 1 1 0");
  EXPECT_EQ(negotiated({{0, "zero"}}, {{1, "c1"}}), "1 1 0 0");
}

TEST(NegotiationOfOverrides, OverrideReplacesTheControllersEntryWhole) {
  struct {
    char const* what;
    Service own;
    Service given;
    char const* outcome;
  } const cases[] = {
      {"fewer versions", {true, {{1, ""}, {2, ""}, {3, ""}}}, {true, {{1, ""}}}, "1 1 1 1 s1"},
      {"none in common", {true, {{3, ""}}}, {true, {{5, ""}}}, "1 1 0 0"},
      {"no version", {true, {{3, ""}}}, {true, {}}, "1 1 0 0"},
      {"disabled", {true, {{3, ""}}}, {false, {{3, ""}}}, "0 0 0 0"},
      {"enabled over a disabled one", {false, {{3, ""}}}, {true, {{2, ""}}}, "1 1 1 2 s2"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    OneSwitch one;
    one.start();
    one.configure("acl", {true, {{1, "s1"}, {2, "s2"}, {3, "s3"}}});
    one.configureController("acl", c.own);
    one.override("acl", c.given);
    one.sm->doVersionNegotiation("acl");
    EXPECT_EQ(one.ofSwitch("acl"), c.outcome);
    EXPECT_EQ(one.ofController("acl"), c.outcome);
  }
}

TEST(NegotiationOfOverrides, OverrideOfAnotherServiceIsNotUsed) {
  OneSwitch one;
  one.start();
  one.configure("acl", {true, {{1, "s1"}}});
  one.configureController("acl", {true, {{1, "c1"}}});
  one.override("acl2", {false, {}});
  one.sm->doVersionNegotiation("acl");
  EXPECT_EQ(one.ofSwitch("acl"), "1 1 1 1 s1");
}

TEST(NegotiationStatus, VersionStatusIsNamedAfterTheService) {
  for (char const* service : {"foo", "VersionStatus", "a b"}) {
    OneSwitch one;
    one.start();
    one.configure(service, {true, {}});
    one.configureController(service, {true, {}});
    one.sm->doVersionNegotiation(service);
    std::string const name = std::string("VersionStatus") + service;
    EXPECT_EQ(one.status->serviceStatus(service)->versionStatus()->name(), name);
    EXPECT_EQ(one.serviceStatusDir->service(service)->versionStatus()->name(), name);
  }
}

TEST(NegotiationStatus, WhatIsNotThereIsNotWritten) {
  // Each null input in turn: the other side's outcome is the one that it would be.
  struct {
    char const* what;
    void (*drop)(OneSwitch&);
    char const* ofSwitch;
    char const* ofController;
  } const cases[] = {
      {"status", [](OneSwitch& one) { one.status = nullptr; }, "null", "1 1 1 1 s1"},
      {"serviceStatusDir", [](OneSwitch& one) { one.serviceStatusDir = nullptr; }, "1 1 1 1 s1", "null"},
      {"config", [](OneSwitch& one) { one.config = nullptr; }, "none", "none"},
      {"serviceConfigDir", [](OneSwitch& one) { one.serviceConfigDir = nullptr; }, "0 1 0 0", "none"},
      {"overrides", [](OneSwitch& one) { one.overrides = nullptr; }, "1 1 1 1 s1", "1 1 1 1 s1"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    OneSwitch one;
    one.configure("acl", {true, {{1, "s1"}}});
    one.configureController("acl", {true, {{1, "c1"}}});
    c.drop(one);
    one.start();
    one.sm->doVersionNegotiation("acl");
    EXPECT_EQ(one.status ? one.ofSwitch("acl") : "null", c.ofSwitch);
    EXPECT_EQ(one.serviceStatusDir ? one.ofController("acl") : "null", c.ofController);
  }
}

// The parts.

TEST(SortFunction, OrdersByNumberAloneAsUnsigned) {
  unsigned const numbers[] = {0, 1, 2, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
  for (unsigned a : numbers)
    for (unsigned b : numbers)
      for (char const* desc : {"", "z"})
        EXPECT_EQ(sortFunction(ServiceVersionV1(a, desc), ServiceVersionV1(b, "m")), a > b);
}

Ptr<ServiceVersionConfigV1 const> versionConfig(Versions const& versions) {
  return makeService("acl", {true, versions})->versionConfig();
}
std::string textOf(std::vector<ServiceVersionV1> const& versions) {
  std::ostringstream out;
  for (ServiceVersionV1 const& v : versions) out << v << ", ";
  return out.str();
}

TEST(SortVersions, AppendsAndSortsTheWhole) {
  std::vector<ServiceVersionV1> out{ServiceVersionV1(2, "there"), ServiceVersionV1(9, "there")};
  sortVersions(versionConfig({{1, "one"}, {0x80000000, "top"}, {5, "five"}}), out, "client");
  EXPECT_EQ(textOf(out), "2147483648 top, 9 there, 5 five, 2 there, 1 one, ");
  sortVersions(versionConfig({}), out, "controller");
  EXPECT_EQ(textOf(out), "2147483648 top, 9 there, 5 five, 2 there, 1 one, ");
}

TEST(SortVersions, TakesItsRoomAtOnce) {
  Versions many;
  for (unsigned i = 0; i < 37; ++i) many[i] = "v";
  std::vector<ServiceVersionV1> out;
  sortVersions(versionConfig(many), out, "client");
  EXPECT_EQ(out.size(), 37U);
  EXPECT_EQ(out.capacity(), 37U) << "a list that grows step by step has room to spare";
}

TEST(UpdateVersionStatusDeathTest, NullStatusIsFatal) {
  EXPECT_DEATH(updateVersionStatus(nullptr, true, true, ServiceVersionV1(1)),
               HasSubstr("versionStatus && \"Null versionSts ptr passed to updateVersionStatus()\""));
}

TEST(UpdateVersionStatusDeathTest, StatusThatIsThereWithoutItsVersionStatusIsFatal) {
  // It is made together with a new entry alone.
  auto const negotiate = [](bool ofSwitch) {
    OneSwitch one;
    one.start();
    one.configure("acl", {true, {{1, "s1"}}});
    one.configureController("acl", {true, {{1, "c1"}}});
    if (ofSwitch)
      one.status->serviceStatusIs("acl");
    else
      one.serviceStatusDir->serviceIs("acl");
    one.sm->doVersionNegotiation("acl");
  };
  EXPECT_DEATH(negotiate(true), "Null versionSts ptr passed to updateVersionStatus");
  EXPECT_DEATH(negotiate(false), "Null versionSts ptr passed to updateVersionStatus");
}

TEST(UpdateVersionStatus, StatusWithoutItsVersionStatusIsLeftWhereNothingIsWritten) {
  OneSwitch one;
  one.start();
  one.configure("acl", {false, {}});
  one.status->serviceStatusIs("acl");
  one.sm->doVersionNegotiation("acl");
  EXPECT_EQ(one.ofSwitch("acl"), "0 -");
}

// The search, over many pairs of version sets: a pool of sets for each side, paired at random. An expectation counts
// comparisons without making them.

/// A set of up to `most` of these numbers.
Versions randomVersions(std::mt19937& random, std::vector<unsigned> const& numbers, unsigned most, char const* side) {
  Versions versions;
  for (unsigned left = static_cast<unsigned>(random() % (most + 1)); left > 0; --left) {
    unsigned const number = numbers[random() % numbers.size()];
    versions[number] = random() % 8 == 0 ? "" : side + std::to_string(number);
  }
  return versions;
}

TEST(NegotiationProperty, HighestCommonVersionOfEveryPair) {
  constexpr unsigned kPairs = kSanitized ? 100'000 : 1'000'000;
  constexpr unsigned kPool = 2048;
  constexpr unsigned kControllersOfAClient = 8;
  constexpr unsigned kTracedOf = 100;
  Nox::Name const acl = "acl";
  std::mt19937 random(20);
  std::vector<unsigned> const few = {0, 1, 2, 3, 4, 5, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
  std::vector<unsigned> many(64);
  std::generate(many.begin(), many.end(), [&] { return static_cast<unsigned>(random()); });

  using Pool = std::vector<std::pair<Versions, Nox::ValidPtr<Controller::ServiceConfigV1>>>;
  auto const makePool = [&](char const* side) {
    Pool pool;
    for (unsigned i = 0; i < kPool; ++i) {
      Versions const versions =
          i % 4 != 0 ? randomVersions(random, few, 6, side) : randomVersions(random, many, 24, side);
      pool.emplace_back(versions, makeService("acl", {true, versions}));
    }
    return pool;
  };
  Pool const clients = makePool("s");
  Pool const controllers = makePool("c");

  OneSwitch one;
  one.start();
  one.sm->hasNotificationActiveIs(false);  // each pair is negotiated once, below
  std::size_t clientAt = 0;
  for (unsigned i = 0; i < kPairs; ++i) {
    if (i % kControllersOfAClient == 0) clientAt = random() % kPool;
    auto const& [client, clientRecord] = clients[clientAt];
    auto const& [controller, controllerRecord] = controllers[random() % kPool];
    if (i % kControllersOfAClient == 0) one.config->serviceConfigIs(clientRecord);
    one.serviceConfigDir->serviceIs(controllerRecord);
    auto const expected = highestCommon(client, controller);
    if (i % kTracedOf == 0) {
      TraceCapture const capture({7});
      one.sm->doVersionNegotiation(acl);
      auto const count = [&](char const* text) {
        return static_cast<std::size_t>(
            std::count_if(capture.lines().begin(), capture.lines().end(), [&](auto const& line) {
              return line.find(text) != std::string::npos;
            }));
      };
      auto const from = [](Versions const& versions, unsigned number) {
        return static_cast<std::size_t>(std::distance(versions.lower_bound(number), versions.end()));
      };
      // Every client version above the match meets every controller version; the match meets those down to itself.
      std::size_t const tried = expected ? from(client, expected->version()) : client.size();
      std::size_t const met = expected ? (tried - 1) * controller.size() + from(controller, expected->version())
                                       : tried * controller.size();
      ASSERT_EQ(count("Client ver="), tried) << "pair " << i;
      ASSERT_EQ(count("Controller ver="), met) << "pair " << i;
    } else {
      one.sm->doVersionNegotiation(acl);
    }
    auto const ofSwitch = one.status->serviceStatus(acl)->versionStatus();
    auto const ofController = one.serviceStatusDir->service(acl)->versionStatus();
    bool const right = ofSwitch->negotiatedVersion() == expected.value_or(ServiceVersionV1()) &&
                       ofSwitch->versionCompatible() == expected.has_value() &&
                       ofSwitch->versionNegotiationComplete() &&
                       ofController->negotiatedVersion() == ofSwitch->negotiatedVersion() &&
                       ofController->versionCompatible() == ofSwitch->versionCompatible() &&
                       ofController->versionNegotiationComplete();
    ASSERT_TRUE(right) << "pair " << i << ": " << one.ofSwitch("acl") << " and " << one.ofController("acl");
  }
}

}  // namespace

}  // namespace VersionNegotiationTest
