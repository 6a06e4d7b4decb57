#include "mailcore/charset.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace ambervane {
namespace {

TEST(Charset, decode) {
  static const struct {
    const char* name;
    std::optional<std::string> label;
    std::string bytes, text;
  } kCases[] = {
      {"unlabelledUtf8", {}, "\xc3\xa9", "é"},
      {"unlabelledWindows", {}, "\x80\xe9", "€é"},
      {"unlabelledLatin1", {}, "\x80\x81", "\xc2\x80\xc2\x81"},
      {"empty", "koi8-r", "", ""},
      {"labelInAnyDress", " UTF-8\r\n", "\xc3\xa9", "é"},
      {"latin1HasControls", "iso-8859-1", "\x80\x9f", "\xc2\x80\xc2\x9f"},
      {"asciiIsSevenBit", "us-ascii", "\xe9", "é"},
      {"asciiHoldingUtf8", "us-ascii", "\xc3\xa9", "é"},
      {"wrongUtf8Label", "utf-8", "caf\xe9", "café"},
      {"overlongUtf8", "utf-8", "\xc0\x80", "À€"},
      {"utf7IsUtf8", "utf-7", "+AOk-", "+AOk-"},
      {"utf7Label8Bit", "utf-7", "\xe9", "é"},
      {"windows1252Undefined", "windows-1252", "\x80\x9d", "\xc2\x80\xc2\x9d"},
      {"windows1251", "windows-1251", "\xe4\xe0", "да"},
      {"windows1251Undefined", "windows-1251", "\xe4\x98", "ä˜"},
      {"windows1253", "windows-1253", "\xe1", "α"},
      {"latin2", "iso8859-2", "\xb1", "ą"},
      {"latin2HasControls", "iso-8859-2", "\xb1\x8a", "ą\xc2\x8a"},
      {"latin9ByAlias", "ISO-8859-15", "\xa4", "€"},
      {"macRoman", "x-mac-roman", "\x8e\xa0", "é†"},
      {"koi8r", "koi8-r", "\xc4\xc1", "да"},
      {"koi8u", "koi8-u", "\xa6", "і"},
      {"utf16WithMark", "utf-16", std::string("\xff\xfe\xe9\0", 4), "é"},
      {"utf16WithoutMark", "utf-16", std::string("\0a\x4e\x2d", 4), "a中"},
      {"utf16WithoutMarkLittleEndian", "utf-16", std::string("a\0\x2d\x4e", 4), "a中"},
      {"iso2022JpHoldingJisX0212", "iso-2022-jp", "\x1b$(D\"/\x1b(B", "˘"},
      {"utf16LittleEndian", "utf-16le", std::string("\xe9\0", 2), "é"},
      {"utf16LoneSurrogate", "utf-16be", "\xd8\x3d", "Ø="},
      {"shiftJis", "shift_jis", "\x82\xa0\x87\x40", "あ①"},
      {"eucJp", "euc-jp", "\xa4\xa2", "あ"},
      {"iso2022Jp", "iso-2022-jp", "\x1b$B%7%s\x1b(B", "シン"},
      {"iso2022JpCutShort", "iso-2022-jp", "\x1b$B%7%", "\x1b$B%7%"},
      {"gb2312", "gb2312", "\xc4\xe3", "你"},
      {"gb2312HoldingGbk", "gb2312", "\xc4\xe3\x81\x40", "你丂"},
      {"gb2312HoldingGb18030", "gb_2312-80", "\x81\x39\xef\x30", "㐁"},
      {"gb18030Control", "gb18030", "\x81\x30\x81\x30", "\xc2\x80"},
      {"big5", "big5", "\xa4\xa4", "中"},
      {"big5HoldingHkscs", "big5", "\x87\x40", "䏰"},
      {"eucKr", "euc-kr", "\xb0\xa1", "가"},
      {"eucKrHoldingCodePage949", "euc-kr", "\xb0\xa1\x81\x41", "가갂"},
      {"koreanByStandardName", "ks_c_5601-1987", "\x81\x41", "갂"},
      {"nothingButAnEscapeSequence", "iso-2022-jp", "\x1b(B", "\x1b(B"},
      {"prefixOnce", "x-koi8-u", "\xa6", "і"},
      {"prefixTwice", "x-x-koi8-u", "\xe9", "é"},
      {"unknownLabel", "x-unknown", "\xe9", "é"},
      {"labelLikePath", "../../x", "\xe9", "é"},
      {"labelWithConverterOptions", "utf-16,version=1", "a", "a"},
      {"labelWithNul", std::string("utf-8\0x", 7), "\xe9", "é"},
      {"emptyLabel", "", "\xe9", "é"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Charset::decode(c.bytes, c.label), c.text);
  }
}

/// Longer than any buffer on the way, with characters of every length at each place.
TEST(Charset, longTextPassesThroughWhole) {
  std::string expected;
  std::string bytes;
  for (int i = 0; i < 5000; ++i) {
    expected += i % 7 == 0 ? "a" : "あ";
    bytes += i % 7 == 0 ? "a" : "\x82\xa0";
  }
  EXPECT_EQ(Charset::decode(bytes, "shift_jis"), expected);
}

}  // namespace
}  // namespace ambervane
