#ifndef AMBERVANE_QUERY_VALUE_READING_H_
#define AMBERVANE_QUERY_VALUE_READING_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "base/date.h"

namespace ambervane {

/// A finite decimal number, with or without fraction and exponent, filling all of `text`.
std::optional<double> readNumber(std::string_view text) noexcept;

/// The reading of `text` by the first of `patterns` (ICU, in UTC) that fits it.
std::optional<Date> readDate(std::string_view text, std::span<const char* const> patterns);

struct SizeUnit {
  std::string_view suffix;  ///< in lower case
  double bytes;
};
/// A number in the first of `units` that fits, cut to whole bytes, or a whole number of bytes.
std::optional<std::int64_t> readSize(std::string_view text, std::span<const SizeUnit> units);

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_VALUE_READING_H_
