#include "mailcore/looks_like_mail.h"

#include <gtest/gtest.h>

#include <string>

namespace ambervane {
namespace {

TEST(LooksLikeMail, readings) {
  static const struct {
    const char* name;
    std::string bytes;
    bool expected;
  } kCases[] = {
      {"empty", "", false},
      {"oneField", "Return-Path: x", true},
      {"otherField", "Note: x\n", false},
      {"byteOrderMark", "\xef\xbb\xbfSUBJECT: x", true},
      {"blankBeforeColon", "date : x", true},
      {"behindEnvelopeLine", "From x Mon Feb  5 10:00:00 2024\nTo: y\n", true},
      {"envelopeLineAlone", "From x Mon Feb  5 10:00:00 2024\n", false},
      {"inBody", "hello\n\nworld\ncc: x\n", true},
      {"continuation", "x\n to: y\n", false},
      {"justWithin64K", std::string(65'532, '\n') + "to:x", true},
      {"justBehind64K", std::string(65'534, '\n') + "to:x", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(looksLikeMail(c.bytes), c.expected);
  }
}

}  // namespace
}  // namespace ambervane
