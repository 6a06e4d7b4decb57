#include "base/text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/localized_message.h"

namespace ambervane {
namespace {

TEST(Text, trimTakesUnicodeBlanksAndStopsAtDamage) {
  static constexpr struct {
    const char* name;
    std::string_view text, trimmed;
  } kCases[] = {
      {"ascii", " \t\r\n a b \v\f", "a b"},
      {"noBreakSpace", "\u00a0a\u3000", "a"},
      {"onlyBlanks", " \u2003 ", ""},
      {"strayContinuation", "\x80 a \xa0", "\x80 a \xa0"},
      {"cutCharacter", "a \xe3\x80", "a \xe3\x80"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(trim(c.text), c.trimmed);
  }
}

TEST(Text, repairedUtf8) {
  static constexpr struct {
    const char* name;
    std::string_view text, repaired;
  } kCases[] = {
      {"wellFormed", "gr\u00fcn \U0001f600", "gr\u00fcn \U0001f600"},
      {"latin1", "gr\xfcn", "gr\ufffdn"},
      {"cutAtTheEnd", "a\xe2\x82", "a\ufffd"},
      {"surrogate", "\xed\xa0\x80", "\ufffd\ufffd\ufffd"},
      {"overlong", "\xc0\xaf", "\ufffd\ufffd"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(repairedUtf8(c.text), c.repaired);
    EXPECT_TRUE(isValidUtf8(repairedUtf8(c.text)));
    EXPECT_EQ(isValidUtf8(c.text), c.text == c.repaired);
  }
}

TEST(Text, foldingAndCase) {
  EXPECT_EQ(lowercase("ÄPFEL Straße"), "äpfel straße");
  EXPECT_TRUE(containsIgnoringCase("Die STRASSE", "straße"));
  EXPECT_TRUE(containsIgnoringCase("INBOX/Archiv", "inbox"));
  EXPECT_TRUE(containsIgnoringCase("Archiv/Lo\u0308hne", "LÖHNE"));
  EXPECT_FALSE(containsIgnoringCase("INBOX", "outbox"));
}

TEST(Text, parseInteger) {
  EXPECT_EQ(parseInteger("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(parseInteger("+7"), 7);
  for (const char* wrong : {"", "+", "+-7", " 7", "7 ", "7.0", "9223372036854775808", "0x1"}) {
    EXPECT_FALSE(parseInteger(wrong)) << wrong;
  }
}

TEST(Text, splitting) {
  EXPECT_EQ(split("a,,b,", ',').size(), 4U);
  EXPECT_EQ(split("", ',').size(), 1U);
  EXPECT_EQ(splitOmittingEmpty(" a  b ", " "), (std::vector<std::string_view>{"a", "b"}));
}

TEST(Text, prefixCountsCharacters) {
  EXPECT_EQ(prefixCharacters("äöü", 2), "äö");
  EXPECT_EQ(prefixCharacters("ab", 5), "ab");
  EXPECT_EQ(characterCount("äöü"), 3U);
}

TEST(Text, printableDisarmsATerminal) {
  EXPECT_EQ(printable("a\x1b[2Jb\n\tc\x7f"), "a\\x1b[2Jb\\n\\tc\\x7f");
  EXPECT_EQ(printable("Büro \u009b1m"), "Büro \\x9b1m");
}

TEST(Text, jsonString) {
  EXPECT_EQ(jsonString("a/b\"\\\n\x01", true), "\"a\\/b\\\"\\\\\\n\\u0001\"");
  EXPECT_EQ(jsonString("a/b", false), "\"a/b\"");
}

TEST(Text, decimalNumberReadsBackExactly) {
  for (const double value : {0.0, 1772360130.0, 1772360130.1234567, 1e-7, 1e21, -0.1, 1.0 / 3}) {
    const std::string text = decimalNumber(value);
    EXPECT_EQ(text.find_first_of("eE"), std::string::npos) << text;
    EXPECT_EQ(std::stod(text), value) << text;
  }
}

TEST(Text, humanBytes) {
  static constexpr struct {
    std::int64_t bytes;
    const char* text;
  } kCases[] = {{0, "0 B"},
                {1023, "1023 B"},
                {1024, "1.0 KB"},
                {1536, "1.5 KB"},
                {1048576, "1.0 MB"},
                {std::int64_t{5} << 40, "5.0 TB"},
                {std::int64_t{5000} << 40, "5000.0 TB"}};
  for (const auto& c : kCases) EXPECT_EQ(humanBytes(c.bytes), c.text);
}

TEST(LocalizedMessage, placeholders) {
  static const struct {
    const char* name;
    LocalizedMessage message;
    const char* text;
  } kCases[] = {
      {"inOrder", {"%@ and %@", {"a", "b"}}, "a and b"},
      {"numbered", {"%2$@ before %1$@", {"a", "b"}}, "b before a"},
      {"bareWithoutArguments", {"100 % of %@", {}}, "100 % of %@"},
      {"argumentIsNotAFormat", {"%@!", {"%@"}}, "%@!"},
      {"tooFew", {"%@ %@", {"a"}}, "a "},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.message.text(), c.text);
  }
}

}  // namespace
}  // namespace ambervane
