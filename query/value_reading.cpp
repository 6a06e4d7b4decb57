#include "query/value_reading.h"

#include <charconv>
#include <cmath>

#include "base/calendar.h"
#include "base/text.h"

namespace ambervane {

std::optional<double> readNumber(std::string_view text) noexcept {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc{} || stop != end || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::optional<Date> readDate(std::string_view text, std::span<const char* const> patterns) {
  for (const char* pattern : patterns) {
    if (const auto date = parseDate(text, pattern)) return date;
  }
  return std::nullopt;
}

std::optional<std::int64_t> readSize(std::string_view text, std::span<const SizeUnit> units) {
  constexpr double kTooLarge = 9.2e18;
  const std::string lower = asciiLowercase(text);
  for (const SizeUnit& unit : units) {
    if (!lower.ends_with(unit.suffix)) continue;
    const auto number =
        readNumber(std::string_view(lower).substr(0, lower.size() - unit.suffix.size()));
    if (!number) continue;
    const double bytes = *number * unit.bytes;
    if (std::fabs(bytes) > kTooLarge) return std::nullopt;
    return static_cast<std::int64_t>(bytes);
  }
  return parseInteger(text);
}

}  // namespace ambervane
