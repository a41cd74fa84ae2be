// Which texts are paths of the state tree, and which place each of them names.
#include "agent/document/path.h"

#include <gtest/gtest.h>

#include <random>

namespace Agent::PathTest {
namespace {

constexpr SystemId kSystemId{0x020000aa0001};

std::string refusal(std::string_view text) {
  try {
    return "accepted as " + toText(parsePath(text));
  } catch (InputError const& error) {
    EXPECT_EQ(error.field(), "");
    return error.reason();
  }
}

TEST(Path, NamesEveryPlaceAndIsWrittenAsItWasRead) {
  struct {
    std::string_view text;
    Path path;
  } const cases[] = {
      {"controller/config", Path{"controller/config"}},
      {"controller/status", Path{"controller/status"}},
      {"controller/switch/02:00:00:aa:00:01", Path{"controller/switch/<systemId>", kSystemId}},
      {"registration/leaf-1", Path{"registration/<switch>", {}, {"leaf-1"}}},
      {"registration/leaf-1/config", Path{"registration/<switch>/config", {}, {"leaf-1"}}},
      {"registration/leaf-1/status", Path{"registration/<switch>/status", {}, {"leaf-1"}}},
      {"registration/leaf-1/notes", Path{"registration/<switch>/<entry>", {}, {"leaf-1", "notes"}}},
      {"registration/leaf-1/Config", Path{"registration/<switch>/<entry>", {}, {"leaf-1", "Config"}}},
      {"registration/config/config", Path{"registration/<switch>/config", {}, {"config"}}},
      {"registration/./..", Path{"registration/<switch>/<entry>", {}, {".", ".."}}},
      {"heartbeat/02:00:00:aa:00:01", Path{"heartbeat/<systemId>", kSystemId}},
      {"heartbeat/ff:ff:ff:ff:ff:ff", Path{"heartbeat/<systemId>", SystemId{0xffffffffffff}}},
      {"service/config/topology", Path{"service/config/<service>", {}, {"topology"}}},
      {"service/override/topology", Path{"service/override/<service>", {}, {"topology"}}},
      {"service/status/leaf 1/topo logy", Path{"service/status/<switch>/<service>", {}, {"leaf 1", "topo logy"}}},
      {"mount/offer/02:00:00:aa:00:01", Path{"mount/offer/<systemId>", kSystemId}},
      {"mount/ready/tópøl😀", Path{"mount/ready/<service>", {}, {"tópøl😀"}}},
  };
  for (auto const& [text, path] : cases) {
    EXPECT_TRUE(parsePath(text) == path) << text;
    EXPECT_EQ(toText(path), text);
  }
}

TEST(Path, SystemIdsAreReadInEitherCaseAndWrittenInLower) {
  EXPECT_EQ(toText(parsePath("heartbeat/02:0a:AB:cD:Ef:01")), "heartbeat/02:0a:ab:cd:ef:01");
  EXPECT_TRUE(parsePath("mount/offer/AA:BB:CC:DD:EE:FF") == (Path{"mount/offer/<systemId>", SystemId{0xaabbccddeeff}}));
}

TEST(Path, SystemIdsKeepTheirForm) {
  for (std::string_view const text : {"",
                                      "02:00:00:aa:00",
                                      "02:00:00:aa:00:01:02",
                                      "02-00-00-aa-00-01",
                                      "0200.00aa.0001",
                                      "2:0:0:aa:0:1",
                                      "02:00:00:aa:00:0g",
                                      " 2:00:00:aa:00:01",
                                      "02:00:00:aa:00:01 ",
                                      "+2:00:00:aa:00:01",
                                      "02:00:00:aa:00:1:",
                                      "02:00:00:aa:0:001",
                                      "020000aa0001",
                                      "02:00:00:aa:00:0é"}) {
    EXPECT_NE(refusal("heartbeat/" + std::string(text)).find("expected a system id like"), std::string::npos) << text;
  }
  std::mt19937_64 random(11);
  for (int round = 0; round < 1000; ++round) {
    SystemId const systemId{random() & 0xffffffffffff};
    Path const path = Path{"heartbeat/<systemId>", systemId};
    EXPECT_TRUE(parsePath(toText(path)) == path);
  }
}

TEST(Path, SaysWhyATextIsNone) {
  struct {
    std::string_view text;
    std::string_view reason;
  } const cases[] = {
      {"", "the path is empty"},
      {"/", "no such path; paths start with controller/, registration/, heartbeat/, service/ or mount/"},
      {"/controller/config",
       "no such path; paths start with controller/, registration/, heartbeat/, service/ or mount/"},
      {"Controller/config",
       "no such path; paths start with controller/, registration/, heartbeat/, service/ or mount/"},
      {"controller", "no such path; expected controller/config, controller/status or controller/switch/<systemId>"},
      {"controller/config/",
       "no such path; expected controller/config, controller/status or controller/switch/<systemId>"},
      {"controller/config/x",
       "no such path; expected controller/config, controller/status or controller/switch/<systemId>"},
      {"controller/switch",
       "no such path; expected controller/config, controller/status or controller/switch/<systemId>"},
      {"controller/switch/x", "expected a system id like 02:00:00:aa:00:01, found \"x\""},
      {"registration", "no such path; expected registration/<switch>/<entry>"},
      {"registration/", "\"\" is not a switch name: it is empty"},
      {"registration//config", "\"\" is not a switch name: it is empty"},
      {"registration/a/", "\"\" is not an entry name: it is empty"},
      {"registration/a/config/", "no such path; expected registration/<switch>/<entry>"},
      {"registration/a/b/c", "no such path; expected registration/<switch>/<entry>"},
      {"registration/a/b/c/d/e/f", "no such path; expected registration/<switch>/<entry>"},
      {"registration/a\nb/config", "\"a\\nb\" is not a switch name: it contains a control character"},
      {"registration/a\x7F/config", "\"a\\u007f\" is not a switch name: it contains a control character"},
      {"registration/a\u009F/config", "\"a\\u009f\" is not a switch name: it contains a control character"},
      {"registration/a/\xC0\xAF", "\"\\xc0\\xaf\" is not an entry name: it is not valid UTF-8"},
      {"heartbeat", "no such path; expected heartbeat/<systemId>"},
      {"heartbeat/02:00:00:aa:00:01/x", "no such path; expected heartbeat/<systemId>"},
      {"service/config",
       "no such path; expected service/config/<service>, service/override/<service> or "
       "service/status/<switch>/<service>"},
      {"service/config/", "\"\" is not a service name: it is empty"},
      {"service/status/a",
       "no such path; expected service/config/<service>, service/override/<service> or "
       "service/status/<switch>/<service>"},
      {"service/status//b", "\"\" is not a switch name: it is empty"},
      {"mount/offer", "no such path; expected mount/offer/<systemId> or mount/ready/<service>"},
      {"mount/ready/a/b", "no such path; expected mount/offer/<systemId> or mount/ready/<service>"},
  };
  for (auto const& [text, reason] : cases) EXPECT_EQ(refusal(text), reason) << text;
}

TEST(Path, NamesHoldUpTo255Bytes) {
  std::string const longest(255, 'n');
  EXPECT_TRUE(parsePath("registration/" + longest + "/" + longest) ==
              (Path{"registration/<switch>/<entry>", {}, {longest, longest}}));
  EXPECT_NE(refusal("registration/" + longest + "n").find("it has 256 bytes, at most 255 are allowed"),
            std::string::npos);
  std::string twoBytesEach;
  for (int character = 0; character < 128; ++character) twoBytesEach += "é";
  EXPECT_NE(refusal("service/config/" + twoBytesEach).find("it has 256 bytes"), std::string::npos);
}

TEST(Path, NameErrorsNameTheirField) {
  try {
    requireName("a/b", "a service name", "value.serviceConfig");
    FAIL();
  } catch (InputError const& error) {
    EXPECT_EQ(error.field(), "value.serviceConfig");
    EXPECT_EQ(error.reason(), "\"a/b\" is not a service name: it contains a slash");
  }
}

TEST(Path, WhateverIsAcceptedIsReadBackAsTheSamePlace) {
  std::string_view const parts[] = {"controller",
                                    "config",
                                    "status",
                                    "switch",
                                    "registration",
                                    "heartbeat",
                                    "service",
                                    "override",
                                    "mount",
                                    "offer",
                                    "ready",
                                    "02:00:00:aa:00:01",
                                    "02:00:00:AA:00:01",
                                    "",
                                    "x",
                                    "é",
                                    "\x80",
                                    "a\x01"};
  std::mt19937 random(3);
  int accepted = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::string text(parts[random() % std::size(parts)]);
    for (auto more = random() % 5; more > 0; --more) text.append("/").append(parts[random() % std::size(parts)]);
    try {
      Path const path = parsePath(text);
      ++accepted;
      EXPECT_TRUE(parsePath(toText(path)) == path) << text;
    } catch (InputError const& error) {
      EXPECT_FALSE(error.reason().empty());
    }
  }
  EXPECT_GT(accepted, 100);
}

}  // namespace
}  // namespace Agent::PathTest
