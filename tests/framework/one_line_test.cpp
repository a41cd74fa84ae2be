// Texts with control characters, as they are written on one line.
#include "framework/text/one_line.h"

#include <gtest/gtest.h>

#include <sstream>

namespace OneLineTest {
namespace {

TEST(WriteOneLine, EscapesControlCharactersAlone) {
  struct Case {
    std::string_view text;
    char const* written;
  };
  using namespace std::string_view_literals;
  for (auto const& [text, written] : {Case{"", ""},
                                      Case{"plain \\ text", "plain \\ text"},
                                      Case{"a\nb\r\tc\n", "a\\nb\\r\\tc\\n"},
                                      Case{"\0\x1B[1m\x7F"sv, "\\x00\\x1B[1m\\x7F"},
                                      Case{"\xC3\xA9\xC2\xA0", "\xC3\xA9\xC2\xA0"},
                                      Case{"\xC2\x9B|\xC2", "\\xC2\\x9B|\xC2"}}) {
    std::ostringstream out;
    Nox::writeOneLine(out, text);
    EXPECT_EQ(out.str(), written);
  }
}

}  // namespace
}  // namespace OneLineTest
