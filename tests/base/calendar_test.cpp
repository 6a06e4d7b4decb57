#include "base/calendar.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(Calendar, zurichFollowsItsSummerTime) {
  // 2024-03-31 01:00 UTC is the change; the day of the year's turn differs from UTC's.
  static constexpr struct {
    const char* name;
    double seconds;
    CivilTime local;
  } kCases[] = {
      {"winter", 1704063599, {2023, 12, 31, 23, 59, 59}},
      {"beforeTheChange", 1711846799, {2024, 3, 31, 1, 59, 59}},
      {"afterTheChange", 1711846800, {2024, 3, 31, 3, 0, 0}},
      {"utcIsStillLastYear", 1704065400, {2024, 1, 1, 0, 30, 0}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(civilTime({c.seconds}, Zone::zurich), c.local);
  }
}

TEST(Calendar, civilTimeTakesAnyNumber) {
  EXPECT_EQ(civilTime({-1}), (CivilTime{1969, 12, 31, 23, 59, 59}));
  EXPECT_EQ(civilTime({1e300}).month, civilTime({2e300}).month);
  EXPECT_EQ(civilTime({-1e300}).month, civilTime({-2e300}).month);
}

TEST(Calendar, dateFromCivilRefusesWhatDoesNotExist) {
  EXPECT_TRUE(dateFromCivil({2024, 2, 29}));
  static constexpr struct {
    const char* name;
    CivilTime time;
  } kCases[] = {{"noLeapYear", {2023, 2, 29}},     {"day31", {2024, 4, 31}},
                {"month0", {2024, 0, 1}},          {"hour24", {2024, 1, 1, 24}},
                {"minute60", {2024, 1, 1, 1, 60}}, {"negative", {2024, 1, 1, -1}}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(dateFromCivil(c.time));
  }
}

TEST(Calendar, yearsAndMonthEnds) {
  const Date leapDay = *dateFromCivil({2024, 2, 29, 12, 0, 1});
  EXPECT_EQ(civilTime(addYears(leapDay, 1)), (CivilTime{2025, 2, 28, 12, 0, 1}));
  EXPECT_EQ(civilTime(addYears(leapDay, 4)), (CivilTime{2028, 2, 29, 12, 0, 1}));
  EXPECT_EQ(iso8601(endOfMonth(2, 2024)), "2024-02-29T23:59:59Z");
  EXPECT_EQ(iso8601(endOfMonth(12, 2034)), "2034-12-31T23:59:59Z");
}

TEST(Calendar, iso8601) {
  EXPECT_EQ(iso8601({1772360130.9}), "2026-03-01T10:15:30Z");
  EXPECT_EQ(iso8601({-0.5}), "1969-12-31T23:59:59Z");
  EXPECT_EQ(parseIso8601("2026-03-01T10:15:30Z"), (Date{1772360130}));
  EXPECT_EQ(parseIso8601("2026-03-01T11:15:30+01:00"), (Date{1772360130}));
  EXPECT_EQ(parseIso8601("2026-03-01T04:45:30.25-05:30"), (Date{1772360130.25}));
  for (const char* wrong :
       {"", "2026-03-01", "2026-02-30T10:15:30Z", "2026-03-01T10:15:30Zx", "2026-03-01T10:15:30",
        "2026-03-01T10:15:60Z", "2026-03-01T10:15:30.Z", "2026-03-01T10:15:30+24:00",
        "2026-03-01T10:15:30+01", "26-03-01T10:15:30Z", "2026-03-01 10:15:30Z"}) {
    EXPECT_FALSE(parseIso8601(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace ambervane
