#include "doctext/number_format.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(NumberFormat, wordsByWhichACellIsFound) {
  static constexpr struct {
    const char *stored, *format, *words;
  } kCases[] = {
      {"20240815", "", "20240815"},
      {"0.30000000000000004", "General", "0.3"},
      {"1E+20", "", "100000000000000000000"},
      {"4711", "000000", "004711"},
      {"42", "\"RE-\"00000", "RE-00042 00042"},
      {"1234567890", "0000 000 000", "1234 567 890 1234567890"},
      {"12", "00-00", "00-12 0012"},
      {"1234.5", "#,##0.00 [$€-407]", "1,234.50 € 1234.50"},
      {"1234.5", "_-* #,##0.00\\ _€_-;-* #,##0.00\\ _€_-", "1,234.50 1234.50"},
      {"-7.005", "0.00;[Red]-0.00", "-7.01 7.01"},
      {"-7.005", "0.00", "-7.01"},
      {"0", "0.00;-0.00;\"-\"", "0"},
      {"2.5", "0", "3"},
      {"999999999999999", "0", "999999999999999"},
      {"0.195", "0.0%", "19.5% 19.5"},
      {"12345678", "0.0,,\" Mio\"", "12.3 Mio"},
      {"1.5", "0.###", "1.5"},
      {"2", "#.##", "2"},
      {"0.5", "#.00", ".50"},
      {"1234", "0.00E+00", "1234"},
      {"0.5", "# ?/?", "0.5"},
      {"5", "\"bezahlt\"", "5"},
      {"45351", "dd.mm.yyyy", "29.02.2024 2024-02-29"},
      {"45351", "[$-409]mmmm d, yyyy;@", "02 29, 2024 29.02.2024 2024-02-29"},
      {"45351.75", "m/d/yy h:mm AM/PM", "2/29/24 6:00 PM 29.02.2024 2024-02-29"},
      {"0.5208333333", "hh:mm:ss", "12:30:00"},
      {"1.25", "[h]:mm", "30:00"},
      {"59", "yyyy-mm-dd", "1900-02-28 28.02.1900"},
      {"-1", "dd.mm.yyyy", "-1"},
      {"9e99", "yyyy", "9e99"},
      {"kein Wert", "0.00", "kein Wert"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.stored) + " as " + c.format);
    EXPECT_EQ(NumberFormat(c.format).words(c.stored, false), c.words);
  }
  EXPECT_EQ(NumberFormat("dd.mm.yyyy").words("43889", true), "29.02.2024 2024-02-29");
}

TEST(NumberFormat, takesAnyCode) {
  constexpr std::string_view kCharacters = "0#?.,;%[]$-\"\\_*@/ymdhsE+AG\xc3";
  std::uint32_t state = 7;
  for (int round = 0; round < 20'000; ++round) {
    std::string code;
    for (state = state * 1664525 + 1013904223; code.size() < state >> 29;) {
      state = state * 1664525 + 1013904223;
      code.push_back(kCharacters[(state >> 16) % kCharacters.size()]);
    }
    const NumberFormat format(code);
    for (const char* const value : {"0", "-1.5", "45351.123", "1e300", "5e-324"}) {
      EXPECT_LT(format.words(value, round % 2 == 0).size(), 1000U) << code;
    }
  }
}

}  // namespace
}  // namespace ambervane
