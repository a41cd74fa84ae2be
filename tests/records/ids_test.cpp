// Tests of the Ethernet address and of the system id that is built on it.
#include "records/ids.h"

#include <gmock/gmock.h>

#include <sstream>

namespace IdsTest {

using Controller::SystemId;
using Lumo::EthAddr;

struct TextCase {
  std::uint64_t bits;
  char const* text;
};
static constexpr TextCase kTexts[] = {{0x000000000000, "00:00:00:00:00:00"},
                                      {0x000000000001, "00:00:00:00:00:01"},
                                      {0x0123456789AB, "01:23:45:67:89:ab"},
                                      {0xFEDCBA987654, "fe:dc:ba:98:76:54"},
                                      {0x020000AA0001, "02:00:00:aa:00:01"},
                                      {0xFFFFFFFFFFFF, "ff:ff:ff:ff:ff:ff"}};

TEST(EthAddr, IsWrittenInLowerCaseAndReadBack) {
  for (TextCase const& c : kTexts) {
    EXPECT_EQ(EthAddr(c.bits).stringValue(), c.text);
    EXPECT_EQ(EthAddr::parse(c.text), EthAddr(c.bits)) << c.text;
  }
}

TEST(EthAddr, IsReadInEitherCase) {
  EXPECT_EQ(EthAddr::parse("AB:CD:EF:ab:cd:ef"), EthAddr(0xABCDEFABCDEF));
  EXPECT_EQ(EthAddr::parse("aB:Cd:eF:0a:A0:fF"), EthAddr(0xABCDEF0AA0FF));
}

TEST(EthAddr, IsNothingElse) {
  for (std::string_view const text : {"",
                                      "02",
                                      "02:00:00:aa:00",
                                      "02:00:00:aa:00:0",
                                      "02:00:00:aa:00:001",
                                      "02:00:00:aa:00:01:",
                                      "02:00:00:aa:00:01:02",
                                      "02-00-00-aa-00-01",
                                      "02:00:00:aa:00-01",
                                      "020:0:00:aa:00:01",
                                      "02:00:00:ag:00:01",
                                      "02:00:00:Ga:00:01",
                                      "02:00:00: a:00:01",
                                      "02:00:00:+a:00:01",
                                      "02:00:00:0x:00:01",
                                      " 02:00:00:aa:00:0",
                                      "02:00:00:aa:00/01",
                                      "::::::::::::::::2",
                                      "02:00:00:aa:00:\xC3\xA4"})
    EXPECT_FALSE(EthAddr::parse(text)) << text;
  EXPECT_FALSE(EthAddr::parse(std::string_view("02:00:00:aa:00:0\0", 17)));
}

TEST(EthAddr, KeepsTheLower48BitsOfANumber) {
  EXPECT_EQ(EthAddr(0xFFFF000000000001).bits(), 1U);
  EXPECT_EQ(EthAddr(0xFFFF000000000001), EthAddr(1));
}

// The order in which collections iterate depends on it.
TEST(EthAddr, HashIsFrozen) {
  EXPECT_EQ(EthAddr().hash(), 0U);
  EXPECT_EQ(EthAddr(1).hash(), 0x9E3779B9U);
  EXPECT_EQ(EthAddr(0x0200000000FF).hash(), 0x2E3A69C5U);
  EXPECT_EQ(EthAddr(0x020000AA0001).hash(), 0x085E2B2FU);
  EXPECT_EQ(EthAddr(0xFFFFFFFFFFFF).hash(), 0xDDDD8646U);
}

TEST(SystemId, HashesComparesAndPrintsAsItsAddress) {
  for (TextCase const& a : kTexts) {
    SystemId const id((EthAddr(a.bits)));
    EXPECT_EQ(id.address(), EthAddr(a.bits));
    EXPECT_EQ(id.hash(), EthAddr(a.bits).hash());
    EXPECT_EQ(id.stringValue(), a.text);
    std::ostringstream out;
    out << id;
    EXPECT_EQ(out.str(), a.text);
    for (TextCase const& b : kTexts) {
      SystemId const other(b.bits);
      EXPECT_EQ(id == other, a.bits == b.bits);
      EXPECT_EQ(id != other, a.bits != b.bits);
      EXPECT_EQ(id < other, a.bits < b.bits);
    }
  }
}

TEST(SystemId, DefaultIsTheEmptyIdWhichIsNoBookmark) {
  EXPECT_EQ(SystemId(), SystemId(EthAddr(0)));
  EXPECT_FALSE(isBookmark(SystemId()));
  EXPECT_TRUE(isBookmark(SystemId(std::uint64_t{1})));
}

}  // namespace IdsTest
