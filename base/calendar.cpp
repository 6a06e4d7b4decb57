#include "base/calendar.h"

#include <fmt/format.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <array>
#include <chrono>
#include <cmath>
#include <ctime>
#include <map>
#include <memory>

#include "base/text.h"

namespace ambervane {
namespace {

/// Offset of `zone` from UTC at `date`, in seconds.
double zoneOffset(Date date, Zone zone) {
  if (zone == Zone::utc) return 0;
  // getOffset is const and takes no shared state, so one zone serves all threads.
  static const std::unique_ptr<icu::TimeZone> kZurich(
      icu::TimeZone::createTimeZone("Europe/Zurich"));
  std::int32_t raw = 0;
  std::int32_t daylight = 0;
  UErrorCode status = U_ZERO_ERROR;
  kZurich->getOffset(date.seconds * 1000, 0, raw, daylight, status);
  return U_SUCCESS(status) ? (raw + daylight) / 1000.0 : 0;
}

/// One formatter per pattern and thread: ICU's are not safe to share.
icu::SimpleDateFormat* formatter(const std::string& pattern) {
  thread_local std::map<std::string, std::unique_ptr<icu::SimpleDateFormat>> cache;
  auto& entry = cache[pattern];
  if (!entry) {
    UErrorCode status = U_ZERO_ERROR;
    auto made = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(pattern),
                                                        icu::Locale("en", "US", "POSIX"), status);
    if (U_FAILURE(status)) return nullptr;
    made->adoptTimeZone(icu::TimeZone::createTimeZone("UTC"));
    made->setLenient(false);
    // 1601 came before the calendar's default switch to Julian; a Gregorian reading has no switch.
    auto* calendar = new icu::GregorianCalendar(icu::TimeZone::createTimeZone("UTC"),
                                                icu::Locale("en", "US", "POSIX"), status);
    calendar->setGregorianChange(-8.64e15, status);
    made->adoptCalendar(calendar);
    made->setLenient(false);
    entry = std::move(made);
  }
  return entry.get();
}

}  // namespace

Date systemNow() {
  using std::chrono::system_clock;
  return {std::chrono::duration<double>(system_clock::now().time_since_epoch()).count()};
}

CivilTime civilTime(Date date, Zone zone) {
  const double local = date.seconds + zoneOffset(date, zone);
  const double days = std::floor(local / kSecondsPerDay);
  double rest = local - days * kSecondsPerDay;
  // A date outside what the calendar type can hold reads as its nearest end.
  constexpr double kLastDay = 11'000'000;
  const double clamped = std::fmin(std::fmax(days, -kLastDay), kLastDay);
  if (clamped != days || !std::isfinite(rest)) rest = 0;
  const std::chrono::year_month_day ymd{
      std::chrono::sys_days{std::chrono::days{static_cast<int>(clamped)}}};
  CivilTime time;
  time.year = static_cast<int>(ymd.year());
  time.month = static_cast<int>(static_cast<unsigned>(ymd.month()));
  time.day = static_cast<int>(static_cast<unsigned>(ymd.day()));
  time.hour = static_cast<int>(rest / 3600);
  time.minute = static_cast<int>(std::fmod(rest, 3600) / 60);
  time.second = std::fmod(rest, 60);
  return time;
}

CivilTime localCivilTime(Date date) {
  // The C library reads one zone file; ICU would have to find out first which zone that is.
  const auto seconds = static_cast<std::time_t>(std::floor(date.seconds));
  std::tm local{};
  constexpr double kRange = 1e14;  // years far beyond what the calendar type holds
  if (!(std::fabs(date.seconds) < kRange) || ::localtime_r(&seconds, &local) == nullptr) {
    return civilTime(date);
  }
  return civilTime({date.seconds + static_cast<double>(local.tm_gmtoff)});
}

std::optional<Date> dateFromCivil(const CivilTime& time) {
  if (time.year < -32767 || time.year > 32767) return std::nullopt;
  const std::chrono::year_month_day ymd{std::chrono::year{time.year},
                                        std::chrono::month{static_cast<unsigned>(time.month)},
                                        std::chrono::day{static_cast<unsigned>(time.day)}};
  if (!ymd.ok()) return std::nullopt;
  if (time.hour < 0 || time.hour > 23 || time.minute < 0 || time.minute > 59 || time.second < 0 ||
      time.second >= 61) {
    return std::nullopt;
  }
  const auto days = std::chrono::sys_days{ymd}.time_since_epoch().count();
  return Date{static_cast<double>(days) * kSecondsPerDay + time.hour * 3600.0 + time.minute * 60.0 +
              time.second};
}

Date addYears(Date date, int years) {
  CivilTime time = civilTime(date);
  time.year += years;
  if (const auto moved = dateFromCivil(time)) return *moved;
  time.day = 28;
  return dateFromCivil(time).value_or(date);
}

Date endOfMonth(int month, int year) {
  const CivilTime next{.year = month == 12 ? year + 1 : year, .month = month == 12 ? 1 : month + 1};
  return {dateFromCivil(next).value_or(Date{}).seconds - 1};
}

std::string iso8601(Date date) {
  const CivilTime time = civilTime({std::floor(date.seconds)});
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", time.year, time.month, time.day,
                     time.hour, time.minute, static_cast<int>(time.second));
}

// Every opening of an archive reads dates of this form, and setting up ICU's formatter takes longer
// than all the rest of an opening.
std::optional<Date> parseIso8601(std::string_view text) {
  const auto number = [&text](std::size_t digits) -> std::optional<int> {
    int value = 0;
    if (text.size() < digits) return std::nullopt;
    for (std::size_t i = 0; i < digits; ++i) {
      if (!isAsciiDigit(text[i])) return std::nullopt;
      value = value * 10 + (text[i] - '0');
    }
    text.remove_prefix(digits);
    return value;
  };
  const auto skip = [&text](char c) {
    const bool found = text.starts_with(c);
    if (found) text.remove_prefix(1);
    return found;
  };

  CivilTime time;
  struct Field {
    int* value;
    std::size_t digits;
    char before;  ///< what stands in front of it, 0 for nothing
  };
  int second = 0;
  for (const Field& field :
       {Field{&time.year, 4, 0}, Field{&time.month, 2, '-'}, Field{&time.day, 2, '-'},
        Field{&time.hour, 2, 'T'}, Field{&time.minute, 2, ':'}, Field{&second, 2, ':'}}) {
    if (field.before != 0 && !skip(field.before)) return std::nullopt;
    const auto value = number(field.digits);
    if (!value) return std::nullopt;
    *field.value = *value;
  }
  if (second > 59) return std::nullopt;
  time.second = second;
  if (skip('.')) {
    double place = 0.1;
    do {
      const auto digit = number(1);
      if (!digit) return std::nullopt;
      time.second += *digit * place;
      place /= 10;
    } while (!text.empty() && isAsciiDigit(text.front()));
  }
  const auto date = dateFromCivil(time);
  if (!date || skip('Z')) return text.empty() ? date : std::nullopt;
  const bool isEast = text.starts_with('+');
  if (!isEast && !text.starts_with('-')) return std::nullopt;
  text.remove_prefix(1);
  const auto hours = number(2);
  if (!hours || !skip(':')) return std::nullopt;
  const auto minutes = number(2);
  if (!minutes || *hours > 23 || *minutes > 59 || !text.empty()) return std::nullopt;
  const double offset = (*hours * 60 + *minutes) * 60.0;
  return Date{date->seconds + (isEast ? -offset : offset)};
}

std::string formatDate(Date date, const std::string& pattern) {
  icu::SimpleDateFormat* format = formatter(pattern);
  if (format == nullptr) return {};
  icu::UnicodeString text;
  format->format(std::floor(date.seconds * 1000), text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

std::optional<Date> parseDate(std::string_view text, const std::string& pattern) {
  icu::SimpleDateFormat* format = formatter(pattern);
  if (format == nullptr || text.size() > 200) return std::nullopt;
  const auto input = icu::UnicodeString::fromUTF8({text.data(), static_cast<int>(text.size())});
  icu::ParsePosition position;
  const UDate parsed = format->parse(input, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != input.length()) return std::nullopt;
  return Date{parsed / 1000};
}

}  // namespace ambervane
