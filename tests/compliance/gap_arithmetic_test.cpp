#include "compliance/gap_arithmetic.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

// 2024-01-01 is a Monday.
constexpr DayNumber kMonday = 19723;

/// One digit a day from 2024-01-01 on: that many messages, "." for none.
DayCounts days(std::string_view counts, int factor = 1) {
  DayCounts result;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (counts[i] == '.') continue;
    result[kMonday + static_cast<DayNumber>(i)] = (counts[i] - '0') * factor;
  }
  return result;
}

TEST(GapArithmetic, medianAndBaseline) {
  EXPECT_EQ(median({}), 0);
  EXPECT_EQ(median({7, 1, 3}), 3);
  EXPECT_EQ(median({4, 1, 9, 2}), 3);
  ASSERT_EQ(weekdayOf(kMonday), 2);
  // Empty Tuesdays do not lower the Tuesdays' baseline.
  const auto baseline = weekdayBaseline(days("14.....2.....39......."));
  EXPECT_EQ(baseline[2], 2);
  EXPECT_EQ(baseline[3], 4);
  EXPECT_EQ(baseline[4], std::nullopt);
}

TEST(GapArithmetic, poisson) {
  EXPECT_EQ(poissonLowerTail(3, 0), 1);
  EXPECT_EQ(poissonLowerTail(3, -1), 1);
  EXPECT_EQ(poissonLowerTail(-1, 5), 0);
  EXPECT_NEAR(poissonLowerTail(0, 5), 0.006737947, 1e-9);
  EXPECT_NEAR(poissonLowerTail(3, 20), 3.2e-6, 5e-8);
  EXPECT_NEAR(1 / poissonLowerTail(3, 20), 310'000, 5'000);
  EXPECT_NEAR(poissonLowerTail(990, 1000), 0.3839, 1e-3);  // exp(-1000) alone would be nothing
  EXPECT_EQ(poissonLowerTail(1, 5000), 0);
}

TEST(GapArithmetic, quietRuns) {
  static const struct {
    const char* name;
    std::string_view counts;
    int quietDays;
    double expected;
    bool weekends;                          // skipped
    std::vector<std::pair<int, int>> runs;  // first and last day
  } kCases[] = {
      {"threeDays", "55...55", 3, 1, true, {}},  // no baseline for Wednesday to Friday
      {"threeDaysThatAreBusyElsewhere", "55555..55...", 3, 1, true, {}},  // mail must follow
      {"closedByMail", "55555..5...5", 3, 1, true, {{8, 10}}},
      {"fridayAndMondayAreTwo", "55555..5555....5555", 3, 1, true, {}},
      {"acrossTheWeekend", "55555..555......555", 3, 1, true, {{10, 15}}},
      {"weekendsCount", "5555555555.......55", 3, 1, false, {{10, 16}}},
      {"mailAtWeekendsDoesNotEndARun", "55555..555..1...555", 3, 1, true, {{10, 15}}},
      {"tooLittleMailToTell", "11111..1...1", 3, 1.5, true, {}},
      {"shorter", "55555..5...5", 4, 1, true, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    GapOptions options;
    options.minimumQuietWorkingDays = c.quietDays;
    options.minimumExpectedPerDay = c.expected;
    options.skipWeekends = c.weekends;
    const DayCounts counts = days(c.counts);
    std::vector<std::pair<int, int>> runs;
    for (const QuietRun& run : quietRuns(counts, weekdayBaseline(counts), options)) {
      runs.emplace_back(run.start - kMonday, run.end - kMonday);
    }
    EXPECT_EQ(runs, c.runs);
  }
  const DayCounts counts = days("24555..2...2");
  EXPECT_EQ(quietRuns(counts, weekdayBaseline(counts), {}),
            (std::vector<QuietRun>{{kMonday + 8, kMonday + 10, 3, 14.0 / 3}}));
  GapOptions none;
  none.maximumFindings = 0;
  EXPECT_TRUE(quietRuns(counts, weekdayBaseline(counts), none).empty());
}

TEST(GapArithmetic, volumeAnomalies) {
  WeekdayBaseline baseline;
  baseline[2] = 4.9;
  baseline[3] = 20;
  baseline[4] = 100;
  baseline[7] = 100;
  // Monday 0 of 4.9, Tuesday 3 of 20, Wednesday 50 of 100, Saturday 1 of 100.
  const DayCounts low = {{kMonday, 0}, {kMonday + 1, 3}, {kMonday + 2, 50}, {kMonday + 5, 1}};
  const auto found = volumeAnomalies(low, baseline, {});
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].day, kMonday + 2);
  EXPECT_EQ(found[1].day, kMonday + 1);
  EXPECT_EQ(found[1].observed, 3);
  EXPECT_EQ(found[1].expected, 20);
  GapOptions all;
  all.skipWeekends = false;
  EXPECT_EQ(volumeAnomalies(low, baseline, all).size(), 3U);
  all.anomalyThreshold = 1e-20;
  EXPECT_EQ(volumeAnomalies(low, baseline, all).size(), 1U);
}

TEST(GapArithmetic, accountSilences) {
  const std::map<std::string, DayCounts> accounts = {{"anna", days("11111..1....")},
                                                     {"bert", days("22222..222222")}};
  EXPECT_TRUE(accountSilences({{"anna", days("1....1")}}, {}).empty());
  EXPECT_TRUE(accountSilences(accounts, {}).empty()) << "only within the account's own time";
  const auto found = accountSilences({{"anna", days("1...1")}, {"bert", days("22.22")}},
                                     {.minimumQuietWorkingDays = 2});
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].account, "anna");
  EXPECT_EQ(found[0].start, kMonday + 1);
  EXPECT_EQ(found[0].end, kMonday + 3);
  EXPECT_EQ(found[0].workingDays, 2);  // on Wednesday nobody had mail
  EXPECT_EQ(found[0].otherAccountsMessages, 4);
}

TEST(GapArithmetic, directionAnomalies) {
  std::map<std::string, MonthCounts> months;
  const auto add = [&months](int month, std::int64_t in, std::int64_t out) {
    months["2024-" + std::string(month < 10 ? "0" : "") + std::to_string(month)] = {in, out};
  };
  for (int month = 1; month <= 11; ++month) add(month, 40, 20);
  add(5, 40, 1);
  EXPECT_TRUE(directionAnomalies(months, {}).empty()) << "eleven months say nothing";
  add(12, 40, 20);
  add(3, 3, 20);  // incoming below a tenth of 40
  add(7, 9, 1);   // outgoing collapsed, but nothing came in either
  const auto found = directionAnomalies(months, {});
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].month, "2024-03");
  EXPECT_EQ(found[0].direction, MailDirection::incoming);
  EXPECT_EQ(found[0].observed, 3);
  EXPECT_EQ(found[0].expected, 40);
  EXPECT_EQ(found[0].otherDirection, 20);
  EXPECT_EQ(found[1].month, "2024-05");
  EXPECT_EQ(found[1].direction, MailDirection::outgoing);
  for (auto& [month, counts] : months) counts.outgoing = std::min<std::int64_t>(counts.outgoing, 4);
  EXPECT_EQ(directionAnomalies(months, {}).size(), 0U) << "a median below 5 says nothing";
}

}  // namespace
}  // namespace ambervane
