#include "evidence/der.h"

#include <gtest/gtest.h>

#include "base/calendar.h"

namespace ambervane {
namespace {

TEST(DER, writesTheFewestBytes) {
  const struct {
    const char* name;
    Bytes written;
    const char* hex;
  } kCases[] = {
      {"longestShortLength", DER::length(127), "7f"},
      {"shortestLongLength", DER::length(128), "8180"},
      {"twoByteLength", DER::length(256), "820100"},
      {"zero", DER::integer(0), "020100"},
      {"noBytes", DER::integer(BytesView()), "020100"},
      {"topBit", DER::integer(128), "02020080"},
      {"leadingZeros", DER::integer(BytesView("\0\0\x7f", 3)), "02017f"},
      {"zeroKeptForSign", DER::integer(BytesView("\0\xff", 2)), "020200ff"},
      {"true", DER::boolean(true), "0101ff"},
      {"sequence", DER::sequence({DER::null(), DER::octetString("a")}), "30050500040161"},
      {"sha256", DER::objectIdentifier("2.16.840.1.101.3.4.2.1"), "0609608648016503040201"},
      {"tstInfo", DER::objectIdentifier("1.2.840.113549.1.9.16.1.4"), "060b2a864886f70d0109100104"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(hexEncode(c.written), c.hex);
  }
}

TEST(DER, elementsMustLieWithinTheBytes) {
  static constexpr struct {
    const char* name;
    const char* hex;
    int size;  ///< of the contents; -1: no element
  } kCases[] = {
      {"empty", "0500", 0},
      {"longForm", "04810161", 1},
      {"nothing", "", -1},
      {"tagAlone", "30", -1},
      {"pastTheEnd", "040261", -1},
      {"lengthCut", "048201", -1},
      {"indefinite", "30800000", -1},
      {"largestLength", "0488ffffffffffffffff61", -1},
      {"lengthOfNineBytes", "048900000000000000000161", -1},
      {"tagOfTwoBytes", "1f1f00", -1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto found = DER::element(*hexDecode(c.hex), 0);
    EXPECT_EQ(found ? static_cast<int>(found->contents.size()) : -1, c.size);
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
  const Bytes list = DER::sequence({DER::sequence({DER::integer(1)}), DER::integer(2)});
  const auto second = DER::firstElement(list, DER::kInteger, 0, list.size(), 0, [&](const auto& e) {
    return DER::integerValue(e, list) == 2;
  });
  ASSERT_TRUE(second);
  EXPECT_EQ(hexEncode(slice(list, second->whole())), "020102");
}

TEST(DER, generalizedTimes) {
  static constexpr struct {
    const char* text;
    double seconds;  ///< -1: not a time
  } kCases[] = {
      {"20260301101530Z", 1772360130},
      {"20260301101530.25Z", 1772360130.25},
      {"20161231235960Z", 1483228800},
      {"20260301101530", -1},
      {"20260301101530.Z", -1},
      {"20260301101530,5Z", -1},
      {"20260301101530+0100", -1},
      {"20260230101530Z", -1},
      {"2026030110153Z", -1},
      {"2026030110153xZ", -1},
      {"20260301101530.999999999999999999999999999Z", 1772360131},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    const Bytes written = DER::encode(DER::kGeneralizedTime, c.text);
    const auto time = DER::generalizedTime(*DER::element(written, 0), written);
    EXPECT_DOUBLE_EQ(time.value_or(Date{-1}).seconds, c.seconds);
  }
  // A seal with a time that does not read back would be lost whole.
  for (const char* text :
       {"00000101000000Z", "00010101000000Z", "15821010000000Z", "99991231235960Z"}) {
    SCOPED_TRACE(text);
    const Bytes written = DER::encode(DER::kGeneralizedTime, text);
    const auto time = DER::generalizedTime(*DER::element(written, 0), written);
    EXPECT_TRUE(!time || parseIso8601(iso8601(*time)) == time);
  }
}

}  // namespace
}  // namespace ambervane
