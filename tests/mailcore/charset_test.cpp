#include "mailcore/charset.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "base/file.h"
#include "base/text.h"

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

/// Every pair of bytes in every set gives well-formed text.
TEST(Charset, resultIsAlwaysUtf8) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += {static_cast<char>(i), static_cast<char>(i * 7 + 128)};
  for (const char* label : {"utf-8", "utf-16", "utf-16le", "utf-32", "cesu-8", "gb18030", "big5",
                            "shift_jis", "iso-2022-kr", "hz-gb-2312", "scsu", "macintosh"}) {
    SCOPED_TRACE(label);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      EXPECT_TRUE(isValidUtf8(Charset::decode(bytes.substr(at, 8), label)));
    }
  }
}

TEST(Charset, encodingNamesKnownLabelsOnly) {
  EXPECT_EQ(Charset::encoding(" UTF8 "), "UTF-8");
  EXPECT_EQ(Charset::encoding("utf-7"), "UTF-8");
  EXPECT_TRUE(Charset::encoding("IBM850"));
  EXPECT_FALSE(Charset::encoding("x-none"));
  EXPECT_FALSE(Charset::encoding(""));
}

TEST(Charset, sharedSamples) {
  static constexpr struct {
    const char* file;
    const char* label;
    const char* expected;
  } kCases[] = {
      {"cyrillic.cp1251.txt", "windows-1251", "cyrillic.utf-8.txt"},
      {"cyrillic.iso-8859-5.txt", "iso-8859-5", "cyrillic.utf-8.txt"},
      {"cyrillic.koi8-r.txt", "koi8-r", "cyrillic.utf-8.txt"},
      {"japanese.iso-2022-jp.txt", "iso-2022-jp", "japanese.utf-8.txt"},
      {"japanese.shift-jis.txt", "shift_jis", "japanese.utf-8.txt"},
  };
  const auto folder =
      std::filesystem::path(__FILE__).parent_path() / "../../../shared/samples/charsets/gmime";
  for (const auto& c : kCases) {
    const auto bytes = readFileIfPossible(folder / c.file);
    const auto expected = readFileIfPossible(folder / c.expected);
    if (!bytes || !expected) continue;
    SCOPED_TRACE(c.file);
    EXPECT_EQ(Charset::decode(*bytes, c.label), *expected);
  }
}

}  // namespace
}  // namespace ambervane
