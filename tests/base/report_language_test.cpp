#include "base/report_language.h"

#include <gtest/gtest.h>

#include <map>

#include "base/day_calendar.h"
#include "base/message_table.h"

namespace ambervane {
namespace {

TEST(ReportLanguage, current) {
  using Environment = std::map<std::string, const char*>;
  static const struct {
    const char* name;
    Environment environment;
    ReportLanguage language;
  } kCases[] = {
      {"nothing", {}, ReportLanguage::english},
      {"lang", {{"LANG", "de_CH.UTF-8"}}, ReportLanguage::german},
      {"unknown", {{"LANG", "pt_BR"}}, ReportLanguage::english},
      {"order",
       {{"LANG", "de"}, {"LC_MESSAGES", "fr"}, {"LC_ALL", "it_CH"}},
       ReportLanguage::italian},
      {"emptyCountsAsUnset", {{"LANG", "es"}, {"LC_ALL", ""}}, ReportLanguage::spanish},
      {"list", {{"LANG", "de"}, {"LANGUAGE", "pt:fr_CH:it"}}, ReportLanguage::french},
      {"cLocale",
       {{"LANG", "de"}, {"LANGUAGE", "fr"}, {"LC_ALL", "C.UTF-8"}},
       ReportLanguage::english},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(currentReportLanguage([&](const char* variable) {
                const auto found = c.environment.find(variable);
                return found == c.environment.end() ? nullptr : found->second;
              }),
              c.language);
  }
  EXPECT_EQ(matchingLanguage("it"), ReportLanguage::italian);
  EXPECT_EQ(matchingLanguage("xx"), ReportLanguage::english);
}

TEST(MessageTable, parsing) {
  const MessageTable table = parseMessageTable(
      "// a note\n\nOne %@\nEins %@\n\n#Two\n// between\n#Zwei\n\nAlone\n\nThree\nDrei");
  EXPECT_EQ(table, (MessageTable{{"One %@", "Eins %@"}, {"#Two", "#Zwei"}, {"Three", "Drei"}}));
}

TEST(MessageTable, unknownTextsStayEnglish) {
  EXPECT_EQ(localized({"Chain break at entry %@", {"7"}}, ReportLanguage::german),
            "Bruch der Kette bei Eintrag 7");
  EXPECT_EQ(localized({"No such text %@", {"7"}}, ReportLanguage::german), "No such text 7");
}

TEST(DayCalendar, daysOfZones) {
  static const struct {
    const char* name;
    const char* zone;
    double seconds;
    const char* day;
    int weekday;
  } kCases[] = {
      {"epoch", "UTC", 0, "1970-01-01", 5},
      {"lastSecondBefore", "UTC", -1, "1969-12-31", 4},
      {"zurichInWinter", "Europe/Zurich", 1704063600, "2024-01-01", 2},  // 2023-12-31 23:00 UTC
      {"zurichInSummer", "Europe/Zurich", 1719784800, "2024-07-01", 2},  // 2024-06-30 22:00 UTC
      {"newYork", "America/New_York", 1704070800, "2023-12-31", 1},      // 2024-01-01 01:00 UTC
      {"unknownZone", "Nowhere/Else", 1704070800, "2024-01-01", 2},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const DayNumber day = DayCalendar(c.zone).dayOf({c.seconds});
    EXPECT_EQ(dayText(day), c.day);
    EXPECT_EQ(weekdayOf(day), c.weekday);
  }
  EXPECT_LT(DayCalendar().dayOf({-1e300}), DayCalendar().dayOf({1e300}));
}

}  // namespace
}  // namespace ambervane
