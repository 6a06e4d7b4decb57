#include "mailcore/rfc2047.h"

#include <gtest/gtest.h>

#include <string>

namespace ambervane {
namespace {

std::string withCharset(std::size_t length) { return "=?" + std::string(length, 'x') + "?q?a?="; }

TEST(Rfc2047, decode) {
  static const struct {
    const char* name;
    std::string text, expected;
  } kCases[] = {
      {"plain", "  a b\r\n", "a b"},
      {"q", "=?ISO-8859-1?Q?a_=E9=5F=3d?=", "a é_="},
      {"b", "=?utf-8?b?w6k=?=", "é"},
      {"language", "=?utf-8*fr?q?=C3=A9?=", "é"},
      {"betweenText", "a =?utf-8?q?b?= c", "a b c"},
      {"adjacentWordsJoin", "=?utf-8?q?a?=\r\n \t=?utf-8?q?b?=", "ab"},
      {"plainWordBetweenKeepsBlanks", "=?utf-8?q?a?= x =?utf-8?q?b?=", "a x b"},
      {"blankBeforeFailedWordStays", "=?utf-8?q?a?= =?bad", "a =?bad"},
      {"blankBehindFailedWordStays", "=?bad?= =?utf-8?q?a?=", "=?bad?= a"},
      {"noClosing", "=?utf-8?q?abc", "=?utf-8?q?abc"},
      {"emptyCharset", "=??q?a?=", "=??q?a?="},
      {"unknownEncoding", "=?utf-8?x?a?=", "=?utf-8?x?a?="},
      {"longEncoding", "=?utf-8?qq?a?=", "=?utf-8?qq?a?="},
      {"wordInsideFailedWord", "=?=?utf-8?q?a?=", "=?a"},
      {"charsetOf80", withCharset(80), "a"},
      {"charsetOf81", withCharset(81), withCharset(81)},
      {"emptyText", "x=?utf-8?q?\?=y", "xy"},
      {"questionMarkInQ", "=?utf-8?q?a?b?=", "a?b"},
      {"badEscapeInQ", "=?utf-8?q?=4=zz=4?=", "=4=zz=4"},
      {"unpaddedB", "=?utf-8?b?YWI?= =?utf-8?b?YQ?=", "aba"},
      {"blanksAndStrayBytesInB", "=?utf-8?b?Y W\tI-=?=", "ab"},
      {"lineFoldInsideB", "=?utf-8?b?YW\r\n Jj?=", "abc"},
      {"oneDigitLeftInB", "=?utf-8?b?YWJjY?=", "=?utf-8?b?YWJjY?="},
      {"dataBehindPaddingInB", "=?utf-8?b?YQ==YQ==?=", "=?utf-8?b?YQ==YQ==?="},
      {"unknownCharset", "=?x-none?q?=C3=A9?=", "é"},
      {"trimmedAtTheEnd", "=?utf-8?q?_a_?=", "a"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(RFC2047::decode(c.text), c.expected);
  }
}

TEST(Rfc2047, encodeIfNeeded) {
  EXPECT_EQ(RFC2047::encodeIfNeeded("a =?b?="), "a =?b?=");
  EXPECT_EQ(RFC2047::encodeIfNeeded("é"), "=?UTF-8?B?w6k=?=");
  const std::string longText(3000, '\xc3');
  EXPECT_EQ(RFC2047::encodeIfNeeded(longText).find(' '), std::string::npos);
}

}  // namespace
}  // namespace ambervane
