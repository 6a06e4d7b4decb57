#include "mailcore/mail_date.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "base/text.h"

namespace ambervane::MailDate {
namespace {

constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct NamedZone {
  std::string_view name;
  int seconds;
};
constexpr NamedZone kZones[] = {
    {"ut", 0},       {"gmt", 0},      {"utc", 0},      {"z", 0},
    {"est", -18000}, {"edt", -14400}, {"cst", -21600}, {"cdt", -18000},
    {"mst", -25200}, {"mdt", -21600}, {"pst", -28800}, {"pdt", -25200},
    {"cet", 3600},   {"cest", 7200},  {"met", 3600},   {"mest", 7200},
};

/// What the strict reading does not take, each in ICU's pattern language.
constexpr const char* kFallbackPatterns[] = {
    "EEE, dd MMM yyyy HH:mm:ss Z", "dd MMM yyyy HH:mm:ss Z",  "yyyy-MM-dd'T'HH:mm:ssZ",
    "yyyy-MM-dd HH:mm:ss",         "EEE MMM d HH:mm:ss yyyy",
};

std::string withoutComments(std::string_view text) {
  std::string out;
  std::size_t depth = 0;
  for (const char c : text) {
    if (c == '(') {
      ++depth;
    } else if (c == ')' && depth > 0) {
      --depth;
    } else if (depth == 0) {
      out.push_back(c);
    }
  }
  return out;
}

/// 1 to 12 by the first three letters, absent for anything else.
std::optional<int> monthNumber(std::string_view token) {
  const std::string_view letters = token.substr(0, 3);
  for (std::size_t i = 0; i < kMonths.size(); ++i) {
    if (asciiEqualIgnoringCase(kMonths[i], letters)) return static_cast<int>(i) + 1;
  }
  return std::nullopt;
}

/// Seconds east of UTC.
std::optional<int> parseZone(std::string_view token) {
  for (const NamedZone& zone : kZones) {
    if (asciiEqualIgnoringCase(zone.name, token)) return zone.seconds;
  }
  const int sign = token.starts_with('-') ? -1 : 1;
  if (token.starts_with('-') || token.starts_with('+')) token.remove_prefix(1);
  if (token.size() != 4 || token.find_first_not_of("0123456789") != token.npos) return std::nullopt;
  const auto number = [&](std::size_t at) { return (token[at] - '0') * 10 + token[at + 1] - '0'; };
  return sign * (number(0) * 3600 + number(2) * 60);
}

/// `text` as a number that is small enough to calculate with, or `otherwise`.
int numberOr(int otherwise, std::string_view text) {
  const auto number = parseInteger(text);
  if (!number || *number < -99'999 || *number > 99'999) return otherwise;
  return static_cast<int>(*number);
}

/// The seconds since midnight. An hour of 24 or a minute of 60 runs over, as it does on the clocks
/// that write them.
double secondsOfDay(std::string_view token) {
  const auto pieces = split(token, ':');
  if (pieces.size() < 2) return 0;
  // Some clocks write "12.5" or "12Z".
  const int second = pieces.size() > 2 ? numberOr(0, pieces[2].substr(0, 2)) : 0;
  return numberOr(0, pieces[0]) * 3600.0 + numberOr(0, pieces[1]) * 60.0 + second;
}

std::optional<Date> parseTokens(const std::vector<std::string_view>& tokens) {
  if (tokens.size() < 4) return std::nullopt;
  const bool hasWeekday =
      !parseInteger(tokens[0]) && characterCount(tokens[0]) >= 3 && !monthNumber(tokens[0]);
  const std::size_t first = hasWeekday ? 1 : 0;
  const auto month = monthNumber(tokens[first + 1]);
  const auto year = parseInteger(tokens[first + 2]);
  if (!month || !year || *year < -99'999 || *year > 99'999) return std::nullopt;
  CivilTime time;  // the midnight before
  time.day = numberOr(0, tokens[first]);
  time.month = *month;
  time.year = static_cast<int>(*year);
  if (time.year < 50) {
    time.year += 2000;
  } else if (time.year < 100) {
    time.year += 1900;
  }
  auto date = dateFromCivil(time);
  if (!date) return std::nullopt;
  if (tokens.size() > first + 3) date->seconds += secondsOfDay(tokens[first + 3]);
  if (tokens.size() > first + 4) date->seconds -= parseZone(tokens[first + 4]).value_or(0);
  return date;
}

}  // namespace

std::optional<Date> parse(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  // No date is as long as this; what a hostile field holds behind it is not looked at.
  constexpr std::size_t kLongestDate = 1000;
  const std::string bare = withoutComments(*text);
  const std::string_view head = std::string_view(bare).substr(0, kLongestDate);
  if (const auto date = parseTokens(splitOmittingEmpty(head, " \t\r\n,"))) return date;
  // The patterns want single blanks; asctime pads the day with a second one.
  std::string collapsed;
  for (const std::string_view word : splitOmittingEmpty(head, " \t\r\n")) {
    if (!collapsed.empty()) collapsed.push_back(' ');
    collapsed += word;
  }
  for (const char* const pattern : kFallbackPatterns) {
    if (const auto date = parseDate(collapsed, pattern)) return date;
  }
  return std::nullopt;
}

std::string format(Date date, Zone zone) {
  static constexpr std::array<const char*, 7> kWeekdays = {"Thu", "Fri", "Sat", "Sun",
                                                           "Mon", "Tue", "Wed"};
  const Date whole{std::floor(date.seconds)};
  const CivilTime time = civilTime(whole, zone);
  // The local reading taken for UTC lies off by just the zone's offset.
  const double local = dateFromCivil(time).value_or(whole).seconds;
  const auto weekday = static_cast<std::size_t>(
      ((static_cast<std::int64_t>(std::floor(local / 86'400)) % 7) + 7) % 7);
  const int minutes = static_cast<int>((local - whole.seconds) / 60);
  return fmt::format("{}, {:02} {} {:04} {:02}:{:02}:{:02} {}{:02}{:02}", kWeekdays[weekday],
                     time.day, kMonths[static_cast<std::size_t>(time.month) - 1], time.year,
                     time.hour, time.minute, static_cast<int>(time.second), minutes < 0 ? '-' : '+',
                     std::abs(minutes) / 60, std::abs(minutes) % 60);
}

}  // namespace ambervane::MailDate
