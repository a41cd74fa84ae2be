// What an assertion that fails says before it ends the process.
#include "framework/text/assertion_about.h"

#include <gtest/gtest.h>

namespace AssertionTest {
namespace {

TEST(AssertionDeathTest, SaysWhereAndWhatFailed) {
  EXPECT_DEATH(NOX_ASSERT(false, "a queue is empty"),
               "assertion_test\\.cpp:[0-9]+: assertion failed: a queue is empty\n");
}

TEST(AssertionDeathTest, NamesWhatItIsAboutOnOneLine) {
  EXPECT_DEATH(
      NOX_ASSERT_ABOUT(false, "it is on", "switch", "leaf\n1"),
      "assertion_test\\.cpp:[0-9]+: this is about the switch leaf\\\\n1\n.*:[0-9]+: assertion failed: it is on\n");
}

TEST(Assertion, LetsPassWhatHolds) {
  NOX_ASSERT(true, "a queue is empty");
  NOX_ASSERT_ABOUT(true, "it is on", "switch", "leaf-1");
}

}  // namespace
}  // namespace AssertionTest
