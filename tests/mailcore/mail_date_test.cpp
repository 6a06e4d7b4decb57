#include "mailcore/mail_date.h"

#include <gtest/gtest.h>

#include <string>

namespace ambervane {
namespace {

TEST(MailDate, parse) {
  static constexpr struct {
    const char* name;
    std::string_view text;
    const char* expected;  // "" for absent
  } kCases[] = {
      {"full", "Mon, 05 Feb 2024 10:00:00 +0100", "2024-02-05T09:00:00Z"},
      {"folded", "Mon,\r\n\t5 Feb 2024\r\n 10:00:00 -0030", "2024-02-05T10:30:00Z"},
      {"noWeekday", "5 Feb 2024 10:00:00 GMT", "2024-02-05T10:00:00Z"},
      {"glued", "Mon,5 Feb 2024 10:00 z", "2024-02-05T10:00:00Z"},
      {"twoDigitYear", "Mon, 3 Feb 24 10:00 +0100", "2024-02-03T09:00:00Z"},
      {"year49", "1 Jan 49 00:00:00", "2049-01-01T00:00:00Z"},
      {"year50", "1 Jan 50 00:00:00", "1950-01-01T00:00:00Z"},
      {"longNames", "Monday 5 February 2024 10:00:00 PDT", "2024-02-05T17:00:00Z"},
      {"namedZoneOfSummer", "5 Jul 2024 10:00:00 MEST", "2024-07-05T08:00:00Z"},
      {"unknownZoneIsUtc", "5 Feb 2024 10:00:00 XYZ", "2024-02-05T10:00:00Z"},
      {"zoneWithColonIsUtc", "5 Feb 2024 10:00:00 +01:00", "2024-02-05T10:00:00Z"},
      {"zoneWithoutSign", "5 Feb 2024 10:00:00 0130", "2024-02-05T08:30:00Z"},
      {"noZone", "5 Feb 2024 10:00:00", "2024-02-05T10:00:00Z"},
      {"comment", "Mon, 5 Feb (the (5th)) 2024 10:00:00 (x) +0100 (CET)", "2024-02-05T09:00:00Z"},
      {"fractionOfSecond", "5 Feb 2024 10:00:12.5 +0000", "2024-02-05T10:00:12Z"},
      {"leapSecond", "31 Dec 2016 23:59:60 +0000", "2017-01-01T00:00:00Z"},
      {"hourOnly", "5 Feb 2024 10 +0100", "2024-02-04T23:00:00Z"},
      {"brokenTime", "5 Feb 2024 x:y +0000", "2024-02-05T00:00:00Z"},
      {"asctime", "Mon Feb  5 10:00:00 2024", "2024-02-05T10:00:00Z"},
      {"asctimeTwoDigitDay", "Mon Feb 15 10:00:00 2024", "2024-02-15T10:00:00Z"},
      {"iso", "2024-02-05T10:00:00+0100", "2024-02-05T09:00:00Z"},
      {"isoWithBlank", "2024-02-05 10:00:00", "2024-02-05T10:00:00Z"},
      {"noSuchDay", "31 Feb 2024 10:00:00 +0000", ""},
      {"hour24", "31 Dec 2024 24:00:00 +0100", "2024-12-31T23:00:00Z"},
      {"minute60", "5 Feb 2024 10:60:60 +0000", "2024-02-05T11:01:00Z"},
      {"noSuchDayInAsctime", "Mon Feb 30 10:00:00 2024", ""},
      {"leapDay", "29 Feb 2024 10:00:00 +0000", "2024-02-29T10:00:00Z"},
      {"threeTokens", "3 Feb 2024", ""},
      {"monthFirst", "Feb 3 2024 10:00:00", ""},
      {"hugeNumbers", "5 Feb 99999999999999999999 10:00:00 +0000", ""},
      {"hugeYear", "5 Feb 99999 10:00:00 +0000", ""},
      {"onlyWords", "a b c d e f", ""},
      {"unclosedComment", "5 Feb 2024 10:00:00 (", "2024-02-05T10:00:00Z"},
      {"empty", "", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto date = MailDate::parse(c.text);
    EXPECT_EQ(date ? iso8601(*date) : "", c.expected);
  }
  EXPECT_FALSE(MailDate::parse(std::nullopt));
}

TEST(MailDate, format) {
  static constexpr struct {
    const char* name;
    double seconds;
    Zone zone;
    const char* expected;
  } kCases[] = {
      {"utc", 1707127200, Zone::utc, "Mon, 05 Feb 2024 10:00:00 +0000"},
      {"winter", 1707127200, Zone::zurich, "Mon, 05 Feb 2024 11:00:00 +0100"},
      {"summerNextDay", 1720044000, Zone::zurich, "Thu, 04 Jul 2024 00:00:00 +0200"},
      {"beforeEpoch", -0.5, Zone::utc, "Wed, 31 Dec 1969 23:59:59 +0000"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(MailDate::format(Date{c.seconds}, c.zone), c.expected);
  }
}

}  // namespace
}  // namespace ambervane
