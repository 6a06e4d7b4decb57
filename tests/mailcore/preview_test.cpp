#include "mailcore/preview.h"

#include <gtest/gtest.h>

#include <string_view>

namespace ambervane {
namespace {

TEST(CollapsedForPreview, readings) {
  static constexpr struct {
    const char* name;
    std::string_view text;
    std::size_t limit;
    std::string_view expected;
  } kCases[] = {
      {"collapses", " \n a \t\r\n\u00a0b\u2028c ", 99, "a b c"},
      {"limitCountsBlanks", "ab cd", 4, "ab c"},
      {"noBlankAtLimit", "ab cd", 3, "ab"},
      {"limitCountsCodePoints", "äöü", 2, "äö"},
      {"limitZero", "a", 0, ""},
      {"stopsAtQuote", "a\n  > b", 99, "a"},
      {"quoteFirst", "> b\nc", 99, ""},
      {"angleInsideLine", "a > b", 99, "a > b"},
      {"signature", "hello\n-- \nJane", 99, "hello"},
      {"signatureAtEnd", "hello\n--", 99, "hello"},
      {"signatureGlued", "hello --Jane", 99, "hello"},
      {"dashesInWord", "a--b - c", 99, "a--b - c"},
      {"signatureFirst", "-- \nJane", 99, "-- Jane"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(collapsedForPreview(c.text, c.limit), c.expected);
  }
}

}  // namespace
}  // namespace ambervane
