#include "doctext/shown_number.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "base/text.h"

namespace ambervane {
namespace {

using Kind = FormatToken::Kind;

constexpr std::size_t kMaxDecimals = 30;

/// Digits in groups of three.
std::string grouped(std::string_view digits) {
  std::string out;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out.push_back(',');
    out.push_back(digits[i]);
  }
  return out;
}

/// The places of a section for digits, and what its commas and percent signs mean.
struct Places {
  std::size_t whole = 0;             ///< before the point
  std::size_t leadingZeros = 0;      ///< of those, the ones that show a zero rather than nothing
  std::size_t decimals = 0;          ///< behind it
  std::size_t optionalDecimals = 0;  ///< of those, the last ones that show no zero
  bool groups = false;
  double scale = 1;

  explicit Places(const FormatSection& section) {
    bool behindPoint = false;
    std::size_t commas = 0;  // since the last place
    for (const FormatToken& token : section.tokens) {
      if (token.kind == Kind::point) behindPoint = true;
      if (token.kind == Kind::percent) scale *= 100;
      if (token.kind == Kind::comma) ++commas;
      if (token.kind != Kind::digit) continue;
      if (behindPoint) {
        ++decimals;
        optionalDecimals = token.text == "#" ? optionalDecimals + 1 : 0;
      } else {
        groups = groups || (commas > 0 && whole > 0);
        ++whole;
        if (token.text == "0") ++leadingZeros;
        commas = 0;
      }
    }
    // Commas behind the last place count thousands.
    for (; commas > 0; --commas) scale /= 1000;
    decimals = std::min(decimals, kMaxDecimals);
  }
};

/// A number as the digits before and behind its point.
struct Digits {
  std::string whole, fraction;

  Digits(double value, const Places& places) {
    // Halves are rounded up in decimal: 1.005 is shown as 1.01, although its double lies below.
    // Larger numbers have hardly a digit behind the point.
    if (value < 1e14) value *= 1 + 2 * std::numeric_limits<double>::epsilon();
    const std::string fixed = fmt::format("{:.{}f}", value, places.decimals);
    const std::size_t point = std::min(fixed.find('.'), fixed.size());
    whole = fixed.substr(0, point);
    if (point < fixed.size()) fraction = fixed.substr(point + 1);
    const std::size_t kept = places.decimals - std::min(places.optionalDecimals, places.decimals);
    while (fraction.size() > kept && fraction.back() == '0') fraction.pop_back();
    if (whole == "0" && places.leadingZeros == 0) whole.clear();
    if (whole.size() < places.leadingZeros) {
      whole.insert(0, places.leadingZeros - whole.size(), '0');
    }
  }
};

/// A day and a time of day from the days a cell counts.
struct Moment {
  int year = 0;
  unsigned month = 0, day = 0;
  int hour = 0, minute = 0, second = 0;
  std::int64_t elapsedSeconds = 0;

  Moment(double serial, bool from1904) : elapsedSeconds(std::llround(serial * 86'400)) {
    std::int64_t days = elapsedSeconds / 86'400;
    const auto rest = static_cast<int>(elapsedSeconds % 86'400);
    hour = rest / 3600;
    minute = rest / 60 % 60;
    second = rest % 60;
    if (from1904) {
      days += 1462;
    } else if (days < 60) {
      ++days;  // the count takes 1900 for a leap year
    }
    constexpr std::chrono::sys_days kDayZero = std::chrono::year(1899) / 12 / 30;
    const std::chrono::year_month_day date(kDayZero + std::chrono::days(days));
    year = static_cast<int>(date.year());
    month = static_cast<unsigned>(date.month());
    day = static_cast<unsigned>(date.day());
  }
};

/// With at most two digits asked for by as many letters.
std::string padded(std::int64_t number, std::size_t letters) {
  return fmt::format("{:0{}}", number, letters >= 2 ? 2 : 1);
}

std::string shownElapsed(const FormatToken& token, const Moment& moment) {
  const int unit = token.isTime('h') ? 3600 : token.isTime('m') ? 60 : 1;
  return padded(moment.elapsedSeconds / unit, token.text.size());
}

/// `isMinute` tells what an "m" stands for.
std::string shownPart(const FormatToken& token, const Moment& moment, bool isMinute,
                      bool halfDays) {
  const std::size_t letters = token.text.size();
  switch (token.text[0]) {
    case 'y':
      return letters > 2 ? std::to_string(moment.year) : padded(moment.year % 100, 2);
    case 'm':
      return padded(isMinute ? moment.minute : static_cast<int>(moment.month), letters);
    case 'd':  // more letters stand for the day's name
      return letters > 2 ? std::string() : padded(moment.day, letters);
    case 'h':
      return padded(halfDays ? (moment.hour + 11) % 12 + 1 : moment.hour, letters);
    default:
      return padded(moment.second, letters);
  }
}

}  // namespace

std::optional<double> parseDecimal(std::string_view text) noexcept {
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::string generalNumber(double value) {
  return decimalNumber(parseDecimal(fmt::format("{:.14e}", value)).value_or(value));
}

void addForm(std::string& forms, std::string_view form) {
  form = trim(form);
  const auto present = splitOmittingEmpty(forms, " ");
  if (form.empty() || std::find(present.begin(), present.end(), form) != present.end()) return;
  if (!forms.empty()) forms.push_back(' ');
  forms += form;
}

std::string shownNumber(const FormatSection& section, double value) {
  const Places places(section);
  const Digits digits(value * places.scale, places);
  std::string left = places.groups ? grouped(digits.whole) : digits.whole;
  std::string shown;
  bool behindPoint = false;
  std::size_t place = 0;
  for (const FormatToken& token : section.tokens) {
    if (token.kind == Kind::literal || token.kind == Kind::percent) {
      shown += token.text;
    } else if (token.kind == Kind::point) {
      behindPoint = true;
      // Places there may be none before it, and no digits behind it.
      shown += std::exchange(left, {});
      if (!digits.fraction.empty()) shown += "." + digits.fraction;
    } else if (token.kind == Kind::digit && !behindPoint) {
      // Each place takes one digit from the right, the first all that are left over.
      const std::size_t behind = places.groups ? 0 : places.whole - ++place;
      const std::size_t count = left.size() > behind ? left.size() - behind : 0;
      shown += left.substr(0, count);
      left.erase(0, count);
    }
  }
  std::string forms;
  addForm(forms, shown);
  addForm(forms, digits.whole + (digits.fraction.empty() ? "" : "." + digits.fraction));
  return forms;
}

bool isCellDate(double serial) noexcept {
  constexpr double kDaysUntil10000 = 2'958'466;
  return serial >= 0 && serial < kDaysUntil10000;
}

std::string shownDate(const FormatSection& section, double serial, bool from1904) {
  const Moment moment(serial, from1904);
  const auto& tokens = section.tokens;
  const auto hasKind = [&](Kind kind) {
    return std::any_of(tokens.begin(), tokens.end(), [&](const auto& t) { return t.kind == kind; });
  };
  const auto hasPart = [&](char letter) {
    return std::any_of(tokens.begin(), tokens.end(),
                       [&](const auto& t) { return t.isTime(letter); });
  };
  const bool halfDays = hasKind(Kind::halfDay);
  std::string shown;
  bool afterHour = false;
  for (auto at = tokens.begin(); at != tokens.end(); ++at) {
    if (at->kind == Kind::date) {
      const auto next = std::find_if(at + 1, tokens.end(), [](const FormatToken& t) {
        return t.kind == Kind::date || t.kind == Kind::elapsed;
      });
      const bool isMinute = afterHour || (next != tokens.end() && next->isTime('s'));
      shown += shownPart(*at, moment, isMinute, halfDays);
    } else if (at->kind == Kind::elapsed) {
      shown += shownElapsed(*at, moment);
    } else if (at->kind == Kind::halfDay) {
      shown += moment.hour < 12 ? "AM" : "PM";
    } else if (at->kind != Kind::digit) {  // a digit stands for parts of a second
      shown += at->text;
    }
    if (at->kind == Kind::date || at->kind == Kind::elapsed) afterHour = at->isTime('h');
  }
  std::string forms;
  addForm(forms, shown);
  if (hasPart('y') && hasPart('d')) {
    addForm(forms, fmt::format("{:02}.{:02}.{}", moment.day, moment.month, moment.year));
    addForm(forms, fmt::format("{}-{:02}-{:02}", moment.year, moment.month, moment.day));
  }
  return forms;
}

}  // namespace ambervane
