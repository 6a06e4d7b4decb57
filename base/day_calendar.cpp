#include "base/day_calendar.h"

#include <fmt/format.h>
#include <unicode/timezone.h>

#include <cmath>

#include "base/calendar.h"

namespace ambervane {
namespace {

constexpr double kFurthestDay = 11'000'000;  ///< either way: what the calendar type can hold
constexpr int kDaysPerWeek = 7;
constexpr int kThursday = 5;  ///< the first of all days

CivilTime civilDay(DayNumber day) { return civilTime({day * kSecondsPerDay}); }

}  // namespace

struct DayCalendar::Zone {
  explicit Zone(icu::TimeZone* adopted) : zone(adopted) {}
  std::unique_ptr<icu::TimeZone> zone;
};

int weekdayOf(DayNumber day) noexcept {
  const int offset = (day % kDaysPerWeek + kDaysPerWeek + kThursday - 1) % kDaysPerWeek;
  return offset + 1;
}

std::string dayText(DayNumber day) {
  const CivilTime time = civilDay(day);
  return fmt::format("{:04}-{:02}-{:02}", time.year, time.month, time.day);
}

std::string monthText(DayNumber day) {
  const CivilTime time = civilDay(day);
  return fmt::format("{:04}-{:02}", time.year, time.month);
}

DayCalendar::DayCalendar() : zone_(std::make_shared<Zone>(icu::TimeZone::detectHostTimeZone())) {}

DayCalendar::DayCalendar(const std::string& zone)
    : zone_(std::make_shared<Zone>(
          icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone)))) {}

DayNumber DayCalendar::dayOf(Date date) const {
  if (!(std::abs(date.seconds) < kFurthestDay * kSecondsPerDay)) {
    return static_cast<DayNumber>(date.seconds < 0 ? -kFurthestDay : kFurthestDay);
  }
  std::int32_t raw = 0;
  std::int32_t daylight = 0;
  UErrorCode status = U_ZERO_ERROR;
  zone_->zone->getOffset(date.seconds * 1000, 0, raw, daylight, status);
  const double offset = U_SUCCESS(status) ? (raw + daylight) / 1000.0 : 0;
  return static_cast<DayNumber>(std::floor((date.seconds + offset) / kSecondsPerDay));
}

}  // namespace ambervane
