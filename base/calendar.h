#ifndef AMBERVANE_BASE_CALENDAR_H_
#define AMBERVANE_BASE_CALENDAR_H_

#include <optional>
#include <string>
#include <string_view>

#include "base/date.h"

namespace ambervane {

inline constexpr double kSecondsPerDay = 86'400;

/// Year, month (1 to 12), day (1 to 31) and time of day in some zone.
struct CivilTime {
  int year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  double second = 0;
  friend bool operator==(const CivilTime&, const CivilTime&) = default;
};

/// The zones the system reckons in; never the machine's own.
enum class Zone { utc, zurich };

/// Gregorian reading of `date` in `zone`.
CivilTime civilTime(Date date, Zone zone = Zone::utc);

/// Gregorian reading in the zone of this machine and user (TZ): for showing to a person, never for
/// reckoning or records.
CivilTime localCivilTime(Date date);

/// The moment of a UTC reading. Absent when a field is out of its range or the day does not exist
/// in that month. A second up to below 61 is taken (leap seconds), an hour of 24 is not.
std::optional<Date> dateFromCivil(const CivilTime& time);

/// `date` with `years` added in the UTC Gregorian calendar; 29 February becomes 28 February where
/// the year has none.
Date addYears(Date date, int years);

/// The last second of a month in UTC. `month` is 1 to 12.
Date endOfMonth(int month, int year);

/// "2026-03-01T10:15:30Z": UTC, whole seconds, rounded down.
std::string iso8601(Date date);
/// Reads what `iso8601` writes, and a numeric offset ("+01:00") in place of "Z".
std::optional<Date> parseIso8601(std::string_view text);

/// `date` in UTC by an ICU pattern (Unicode TR 35) in the locale en_US_POSIX.
std::string formatDate(Date date, const std::string& pattern);
/// Reads `text` whole by an ICU pattern, strictly (no 31 February, no trailing text), in UTC unless
/// the text names a zone. Safe from any thread.
std::optional<Date> parseDate(std::string_view text, const std::string& pattern);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_CALENDAR_H_
