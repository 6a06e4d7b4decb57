#ifndef AMBERVANE_QUERY_FILTER_VALUE_H_
#define AMBERVANE_QUERY_FILTER_VALUE_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "base/date.h"

/// What is written as the value of a condition of a filter tree.
namespace ambervane::FilterValue {

/// A day, month or year, at 00:00 UTC of its first day. Tried in this order: yyyy-MM-dd,
/// dd.MM.yyyy, d.M.yyyy, yyyy/MM/dd, MM/dd/yyyy (American), yyyy-MM, yyyy.
std::optional<Date> date(std::string_view text);

/// A number of bytes: a whole number, or any number followed by gb, mb, kb, g, m, k (units of 1024)
/// or b, in either case; fractions of a byte are cut off.
std::optional<std::int64_t> size(std::string_view text);

}  // namespace ambervane::FilterValue

#endif  // AMBERVANE_QUERY_FILTER_VALUE_H_
