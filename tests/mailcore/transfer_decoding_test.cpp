#include "mailcore/transfer_decoding.h"

#include <gtest/gtest.h>

#include <string>

namespace ambervane {
namespace {

TEST(TransferEncoding, names) {
  EXPECT_EQ(transferEncodingFromHeader(std::nullopt), TransferEncoding::sevenBit);
  EXPECT_EQ(transferEncodingFromHeader(" \t"), TransferEncoding::sevenBit);
  EXPECT_EQ(transferEncodingFromHeader(" Quoted-Printable\n"), TransferEncoding::quotedPrintable);
  EXPECT_EQ(transferEncodingFromHeader("x-uuencode"), TransferEncoding::unknown);
  EXPECT_EQ(transferEncodingFromHeader("base64;"), TransferEncoding::unknown);
  for (const char* name : {"7bit", "8bit", "binary", "base64", "quoted-printable", "unknown"}) {
    EXPECT_EQ(transferEncodingName(transferEncodingFromHeader(name)), name);
  }
}

TEST(DecodeBase64, readings) {
  static constexpr struct {
    const char* name;
    BytesView text, bytes;
  } kCases[] = {
      {"empty", "", ""},
      {"groups", "YWJjZGVm", "abcdef"},
      {"padded", "YWI=", "ab"},
      {"twoDigitsLeft", "YWJjYQ", "abca"},
      {"threeDigitsLeft", "YWJjYWI", "abcab"},
      {"oneDigitLeft", "YWJjY", "abc"},
      {"lineEndsInsideGroups", "YW\r\nJj\nZG\rVm\r\n", "abcdef"},
      {"strayBytes", "Y-W\x80J_j ZGV\0m", "abcde"},
      {"endsAtFirstPadding", "YWI=YWJj", "ab"},
      {"onlyPadding", "====", ""},
      {"highBits", "/+//gA==", "\xff\xef\xff\x80"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ContentTransferDecoder::decodeBase64(c.text), c.bytes);
  }
}

TEST(EncodeBase64Wrapped, everyLineEndsWithCrlf) {
  using ContentTransferDecoder::encodeBase64Wrapped;
  EXPECT_EQ(encodeBase64Wrapped("", 76), "");
  EXPECT_EQ(encodeBase64Wrapped("abcd", 4), "YWJj\r\nZA==\r\n");
  EXPECT_EQ(encodeBase64Wrapped("abcd", 5), "YWJjZ\r\nA==\r\n");
  EXPECT_EQ(encodeBase64Wrapped("abcd", 100), "YWJjZA==\r\n");
}

TEST(DecodeQuotedPrintable, readings) {
  static constexpr struct {
    const char* name;
    BytesView text, bytes;
  } kCases[] = {
      {"plain", "abc \t\r\n", "abc \t\r\n"},
      {"bothCases", "=C3=a9=3d", "\xc3\xa9="},
      {"softBreaks", "a=\r\nb=\nc", "abc"},
      {"blankBehindEquals", "a= \nb", "a= \nb"},
      {"notHexadecimal", "=4G=G4==41", "=4G=G4=A"},
      {"cutShort", "a=", "a="},
      {"cutShortInDigits", "a=4", "a=4"},
      {"bareCrBehindEquals", "a=\rb", "a=\rb"},
      {"encodedLineEndStays", "a=0D=0Ab", "a\r\nb"},
      {"encodedCrBeforeLf", "a=0D\nb", "a\nb"},
      {"encodedCrBeforeCrlf", "a=0D\r\nb", "a\r\nb"},
      {"encodedCrBeforeSoftBreaks", "a=0D=\r\n=\n\r\nb", "a\r\nb"},
      {"encodedCrThenText", "a=0D=\nb", "a\rb"},
      {"encodedCrAtEnd", "a=0D", "a\r"},
      {"nul", BytesView("a\0=00", 5), BytesView("a\0\0", 3)},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ContentTransferDecoder::decodeQuotedPrintable(c.text), c.bytes);
  }
}

TEST(DecodedBytes, ownsOnlyWhatWasDecoded) {
  const Bytes text = "YWJj";
  DecodedBytes same = ContentTransferDecoder::decode(text, TransferEncoding::unknown);
  EXPECT_EQ(same.view().data(), text.data());
  EXPECT_EQ(std::move(same).take(), text);
  // A short buffer lies inside the object, so the view must follow a move.
  DecodedBytes decoded = ContentTransferDecoder::decode(text, TransferEncoding::base64);
  DecodedBytes moved = std::move(decoded);
  EXPECT_EQ(moved.view(), "abc");
  EXPECT_EQ(std::move(moved).take(), "abc");
}

}  // namespace
}  // namespace ambervane
