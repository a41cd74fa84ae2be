// What the JSON reader takes, what it refuses, and what it says.
#include "agent/document/json_reader.h"

#include <gtest/gtest.h>

#include <random>

#include "agent/document/utf8.h"

namespace Agent::JsonReaderTest {
namespace {

std::string arrays(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

std::string objects(std::size_t depth) {
  std::string text;
  for (std::size_t level = 1; level < depth; ++level) text += "{\"a\":";
  return text + "{}" + std::string(depth - 1, '}');
}

// "FIELD: reason" of the refusal, or "accepted".
std::string refusal(std::string_view text) {
  try {
    readJson(text);
    return "accepted";
  } catch (InputError const& error) {
    return error.field() + ": " + error.reason();
  }
}

TEST(JsonReader, KeepsEveryValueAndTheOrderOfMembers) {
  for (std::string_view const text : {
           R"(null)",
           R"(true)",
           R"(false)",
           R"(0)",
           R"(4294967296)",
           R"(18446744073709551615)",
           R"(-1)",
           R"(-9223372036854775808)",
           R"(1.5)",
           R"("")",
           R"("ä\u0000\n\"€😀")",
           R"([])",
           R"({})",
           R"([1,[2,[],{}],"x"])",
           R"({"z":1,"a":{"y":[{"b":null,"a":true}]},"":0})",
       }) {
    EXPECT_EQ(readJson(text).dump(), text);
  }
}

TEST(JsonReader, SkipsBlanksAroundTokens) {
  EXPECT_EQ(readJson(" \t\r\n{ \"a\" : [ 1 , 2 ] }\r\n").dump(), R"({"a":[1,2]})");
}

TEST(JsonReader, DecodesEscapes) {
  EXPECT_EQ(readJson(R"("\u0041\u00e4\ud83d\ude00\/\b")").get<std::string>(), "Aä😀/\b");
}

TEST(JsonReader, KeepsApartHowNumbersWereWritten) {
  struct {
    std::string_view text;
    bool isUnsigned32;
  } const cases[] = {{"0", true},
                     {"7", true},
                     {"4294967295", true},
                     {"4294967296", false},
                     {"18446744073709551616", false},
                     {"-0", false},
                     {"-1", false},
                     {"1.0", false},
                     {"1e0", false},
                     {"0.0", false},
                     {"1E2", false}};
  for (auto const& [text, isUnsigned32] : cases) {
    Json const value = readJson(text);
    ASSERT_TRUE(value.is_number()) << text;
    if (isUnsigned32) {
      EXPECT_EQ(std::to_string(requireUnsigned(value, "f")), text);
    } else {
      EXPECT_THROW(requireUnsigned(value, "f"), InputError) << text;
    }
  }
}

TEST(JsonReader, KeepsTheSignOfZero) { EXPECT_EQ(readJson("-0").dump(), "-0.0"); }

TEST(JsonReader, TypeErrorsNameTheFieldAndWhatWasFound) {
  auto const reason = [](auto&& require) {
    try {
      require();
      return std::string("accepted");
    } catch (InputError const& error) {
      return error.field() + ": " + error.reason();
    }
  };
  std::string const whole = "expected a whole number from 0 to 4294967295, written without sign, fraction and exponent";
  EXPECT_EQ(reason([&] { requireUnsigned(readJson("1.0"), "v"); }), "v: " + whole + ", found the number 1.0");
  EXPECT_EQ(reason([&] { requireUnsigned(readJson("-1"), "v"); }), "v: " + whole + ", found the number -1");
  EXPECT_EQ(reason([&] { requireUnsigned(readJson("\"1\""), "v"); }), "v: " + whole + ", found the string \"1\"");
  EXPECT_EQ(reason([] { requireBool(readJson("null"), "v"); }), "v: expected true or false, found null");
  EXPECT_EQ(reason([] { requireString(readJson("true"), "v"); }), "v: expected a string, found true");
  EXPECT_EQ(reason([] { requireObject(readJson("[]"), "v"); }), "v: expected an object, found an array");
  EXPECT_EQ(reason([] { requireString(readJson("{}"), "v"); }), "v: expected a string, found an object");
}

TEST(JsonReader, SaysWhereAndWhyATextIsNotJson) {
  struct {
    std::string_view text;
    std::string_view refusal;
  } const cases[] = {
      {"", ": not valid JSON at byte 1: the text ends where a value was expected"},
      {"  ", ": not valid JSON at byte 3: the text ends where a value was expected"},
      {"{", ": not valid JSON at byte 2: the text ends where a quoted field name or \"}\" was expected"},
      {"{\"a\"", "a: not valid JSON at byte 5: the text ends where \":\" was expected"},
      {"{\"a\":", "a: not valid JSON at byte 6: the text ends where a value was expected"},
      {"{\"a\":1", ": not valid JSON at byte 7: the text ends where \",\" or \"}\" was expected"},
      {"{\"a\":1,", ": not valid JSON at byte 8: the text ends where a quoted field name was expected"},
      {"[1", "[1]: not valid JSON at byte 3: the text ends where \",\" or \"]\" was expected"},
      {"{\"a\" 1}", "a: not valid JSON at byte 6: expected \":\", found \"1\""},
      {"{\"a\" \"b\"}", "a: not valid JSON at byte 6: expected \":\", found the string \"b\""},
      {"{\"a\":}", "a: not valid JSON at byte 6: expected a value, found \"}\""},
      {"{\"a\":True}", "a: not valid JSON at byte 6: expected a value, found \"True\""},
      {"{\"a\":nul}", "a: not valid JSON at byte 6: expected a value, found \"nul\""},
      {"{\"a\":tru", "a: not valid JSON at byte 6: expected a value, found \"tru\""},
      {"{\"a\":'b'}", "a: not valid JSON at byte 6: expected a value, found \"'b'\""},
      {"{\"a\":NaN}", "a: not valid JSON at byte 6: expected a value, found \"NaN\""},
      {"{a:1}", ": not valid JSON at byte 2: expected a quoted field name or \"}\", found \"a\""},
      {"{\"a\":1,}", ": not valid JSON at byte 8: expected a quoted field name, found \"}\""},
      {"{\"a\":1 \"b\":2}", ": not valid JSON at byte 8: expected \",\" or \"}\", found the string \"b\""},
      {"[1,]", "[1]: not valid JSON at byte 4: expected a value, found \"]\""},
      {"[1 2]", "[1]: not valid JSON at byte 4: expected \",\" or \"]\", found \"2\""},
      {"{}{}", ": not valid JSON at byte 3: expected nothing more, found \"{\""},
      {"1 // x", ": not valid JSON at byte 3: expected nothing more, found \"//\""},
      {"{\"a\":01}", ": not valid JSON at byte 6: \"01\" is not a number as JSON writes it"},
      {"{\"a\":-}", "a: not valid JSON at byte 6: \"-\" is not a number as JSON writes it"},
      {"{\"a\":1.}", "a: not valid JSON at byte 6: \"1.\" is not a number as JSON writes it"},
      {"{\"a\":1e+", "a: not valid JSON at byte 6: \"1e+\" is not a number as JSON writes it"},
      {"{\"a\":+1}", "a: not valid JSON at byte 6: expected a value, found \"+1\""},
      {"{\"a\":.5}", "a: not valid JSON at byte 6: expected a value, found \".5\""},
      {"{\"a\":1e999}", "a: the number \"1e999\" is beyond the range of a double"},
      {"{\"a\":\"b", "a: not valid JSON at byte 6: the string \"b\" is not closed"},
      {"{\"a\":\"b\\", "a: not valid JSON at byte 6: the string \"b\\\\\" is not closed"},
      {"{\"a", ": not valid JSON at byte 2: the string \"a\" is not closed"},
      {"\"a\tb\"", ": not valid JSON at byte 1: a control character inside a string must be written as an escape"},
      {std::string_view("{}\0{}", 5), ": not valid JSON at byte 3: a zero byte"},
      {std::string_view("\"\0\"", 3), ": not valid JSON at byte 2: a zero byte"},
      {"\xEF\xBB\xBF{}", ": not valid JSON at byte 1: a byte order mark in front of the value"},
  };
  for (auto const& [text, expected] : cases) EXPECT_EQ(refusal(text), expected) << text;
}

TEST(JsonReader, RefusesBadEscapes) {
  for (std::string_view const text : {R"("\q")",
                                      R"("\u12")",
                                      R"("\u12g4")",
                                      R"("\ud800")",
                                      R"("\ud800x")",
                                      R"("\ud800\u0041")",
                                      R"("\udc00")",
                                      R"("\x41")"}) {
    EXPECT_NE(refusal(text).find("bad escape inside a string"), std::string::npos) << text << " " << refusal(text);
  }
}

TEST(JsonReader, RefusesInvalidUtf8) {
  struct {
    std::string_view text;
    std::string_view byte;
  } const cases[] = {
      {"\"\x80\"", "\\x80"},              // a continuation byte alone
      {"\"\xC3\"", "\\xc3"},              // cut short
      {"\"\xC0\xAF\"", "\\xc0"},          // overlong in two bytes
      {"\"\xE0\x80\xAF\"", "\\xe0"},      // overlong in three
      {"\"\xF0\x80\x80\xAF\"", "\\xf0"},  // overlong in four
      {"\"\xED\xA0\x80\"", "\\xed"},      // a surrogate
      {"\"\xF4\x90\x80\x80\"", "\\xf4"},  // beyond U+10FFFF
      {"\"\xFF\"", "\\xff"},
      {"\"\xE2\x82", "\\xe2"},
  };
  for (auto const& [text, byte] : cases) {
    EXPECT_EQ(refusal(text), ": not valid JSON at byte 2: invalid UTF-8: \"" + std::string(byte) + "\"");
  }
  EXPECT_EQ(readJson("\"\xF4\x8F\xBF\xBF\xEE\x80\x80\xED\x9F\xBF\"").get<std::string>().size(), 10u);
}

TEST(JsonReader, RefusesAKeyThatIsTwiceInOneObject) {
  struct {
    std::string_view text;
    std::string_view field;
  } const cases[] = {
      {R"({"a":1,"a":1})", "a"},
      {R"({"a":1,"b":2,"\u0061":3})", "a"},
      {R"({"v":{"x":{"k":1,"k":2}}})", "v.x.k"},
      {R"({"v":[0,{"k":1,"k":2}]})", "v[1].k"},
      {R"({"v":{"a.b":{"":1,"":2}}})", R"(v["a.b"][""])"},
  };
  for (auto const& [text, field] : cases) {
    EXPECT_EQ(refusal(text), std::string(field) + ": the same field twice in one object");
  }
  EXPECT_EQ(refusal(R"({"a":{"k":1},"b":{"k":1},"k":[{"k":1},{"k":1}]})"), "accepted");
}

TEST(JsonReader, NestingIsLimitedWhileReading) {
  EXPECT_EQ(refusal(arrays(64)), "accepted");
  EXPECT_EQ(refusal(objects(64)), "accepted");
  EXPECT_EQ(refusal(arrays(65)), ": nested deeper than 64 objects and arrays");
  EXPECT_EQ(refusal(objects(65)), "a: nested deeper than 64 objects and arrays");
  EXPECT_EQ(refusal(std::string(10'000, '[')), refusal(arrays(65)));
  EXPECT_EQ(refusal(arrays(5'000'000)), refusal(arrays(65)));
  EXPECT_EQ(refusal(objects(1'000'000)), refusal(objects(65)));
}

TEST(JsonReader, TellsWhatWasReadBeforeTheError) {
  struct {
    std::string_view text;
    std::string_view begun;
  } const cases[] = {
      {R"({"put":"a","value":{"x":1,"x":2}})", "put "},
      {R"({"put":"a","value":[1,2)", "put "},
      {R"({"a":1,"b":2,"a":3})", "a b a "},
      {R"([1,)", ""},
      {R"(nonsense)", ""},
      {R"({"a":1}})", ""},
  };
  for (auto const& [text, expected] : cases) {
    JsonMembers members;
    EXPECT_THROW(readJson(text, &members), InputError) << text;
    std::string keys;
    for (auto const& member : members) keys += member.first + " ";
    EXPECT_EQ(keys, expected) << text;
  }
}

TEST(JsonReader, AHugeObjectCostsNoMoreThanItsSize) {
  std::string text = "{";
  for (int member = 0; member < 200'000; ++member) text += "\"" + std::to_string(member) + "\":{},";
  text.back() = '}';
  EXPECT_EQ(readJson(text).size(), 200'000u);
}

TEST(InputErrorLine, LeavesOutWhatDoesNotExist) {
  InputError error("", "wrong");
  EXPECT_EQ(errorLine("f", 3, error), "f:3: wrong");
  error.pathIs("heartbeat/x");
  EXPECT_EQ(errorLine("f", 3, error), "f:3: heartbeat/x: wrong");
  EXPECT_EQ(errorLine("f", 3, InputError("value.x", "wrong")), "f:3: value.x: wrong");
  InputError whole("value.x", "wrong");
  whole.pathIs("p");
  EXPECT_EQ(errorLine("f", 3, whole), "f:3: p: value.x: wrong");
  EXPECT_STREQ(FileError("no\nfile", ENOENT).what(), "no\\nfile: No such file or directory");
}

TEST(InputErrorLine, EscapesAndShortensWhatItQuotes) {
  EXPECT_EQ(inQuotes("a\"b\\c\nd\te\x01\x7F\xFF\u0085\u2028é"), R"("a\"b\\c\nd\te\u0001\u007f\xff\u0085\u2028é")");
  EXPECT_EQ(printable("a\\b\r", 10), R"(a\b\u000d)");
  EXPECT_EQ(inQuotes(std::string(80, 'x')), "\"" + std::string(80, 'x') + "\"");
  EXPECT_EQ(inQuotes(std::string(1000, 'x') + "end"),
            "\"" + std::string(54, 'x') + "…" + std::string(23, 'x') + "end\"");
  EXPECT_EQ(printable("ääääää", 6), "ää…ä");
}

TEST(InputErrorLine, IsOneLineOfUtf8ForAnyBytes) {
  std::mt19937 random(7);
  for (int round = 0; round < 3000; ++round) {
    std::string bytes(random() % 2000, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    InputError error(memberField("value", bytes), inQuotes(bytes));
    error.pathIs(bytes);
    std::string const line = errorLine(bytes, 1, error);
    ASSERT_EQ(findInvalidUtf8(line), std::string::npos);
    for (char const byte : line) ASSERT_FALSE(static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) << line;
  }
}

}  // namespace
}  // namespace Agent::JsonReaderTest
