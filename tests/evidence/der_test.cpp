#include "evidence/der.h"

#include <gtest/gtest.h>

#include "base/calendar.h"
#include "evidence/timestamp_authority.h"

namespace ambervane {
namespace {

TEST(DER, writesTheFewestBytes) {
  EXPECT_EQ(hexEncode(DER::length(127) + DER::length(128) + DER::length(256)), "7f8180820100");
  EXPECT_EQ(hexEncode(DER::integer(BytesView("\0\0\x7f", 3))), "02017f");
  // What "openssl ts -query -sha256 -cert" writes for the same digest and nonce.
  const Bytes digest(32, 'd');
  EXPECT_EQ(hexEncode(TimestampAuthority::request(digest, *hexDecode("8001020304050607"), true)),
            "30440201013031300d060960864801650304020105000420" + hexEncode(digest) +
                "0209008001020304050607" + "0101ff");
}

TEST(DER, elementsMustLieWithinTheBytes) {
  EXPECT_TRUE(DER::element(*hexDecode("04810161"), 0));
  for (const char* hex : {"", "30", "040261", "048201", "30800000", "0488ffffffffffffffff61",
                          "048900000000000000000161", "1f1f00"}) {
    EXPECT_FALSE(DER::element(*hexDecode(hex), 0)) << hex;
  }
  EXPECT_FALSE(DER::element("\x05", 7));
  // The second child claims a byte that belongs to what follows its parent.
  const Bytes overlapping = *hexDecode("3005050004026161");
  EXPECT_EQ(DER::children(*DER::element(overlapping, 0), overlapping).size(), 1U);
}

TEST(DER, searchGoesFortyLevelsDown) {
  for (const std::size_t depth : {0, 40, 41, 2000}) {
    SCOPED_TRACE(depth);
    Bytes tree = DER::integer(7);
    for (std::size_t i = 0; i < depth; ++i) tree = DER::encode(0xa0, tree);
    EXPECT_EQ(DER::firstElement(tree, DER::kInteger, 0, tree.size()).has_value(), depth <= 40);
  }
}

TEST(DER, generalizedTimes) {
  static constexpr std::pair<const char*, double> kCases[] = {
      {"20260301101530Z", 1772360130},   {"20260301101530.25Z", 1772360130.25},
      {"20161231235960Z", 1483228800},   {"20260301101530", -1},
      {"20260301101530.Z", -1},          {"20260301101530+0100", -1},
      {"20260230101530Z", -1},           {"2026030110153xZ", -1},
      {"00001231000000Z", -1},           {"00010101000000Z", -62135596800},
      {"99991231235959Z", 253402300799}, {"99991231235960Z", -1}};
  for (const auto& [text, seconds] : kCases) {
    SCOPED_TRACE(text);
    const Bytes written = DER::encode(DER::kGeneralizedTime, text);
    const Date time = DER::generalizedTime(*DER::element(written, 0), written).value_or(Date{-1});
    EXPECT_EQ(time, Date{seconds});
    // A seal with a time that does not read back would be lost whole.
    EXPECT_TRUE(parseIso8601(iso8601(time)));
  }
}

}  // namespace
}  // namespace ambervane
