#ifndef AMBERVANE_BASE_DATE_H_
#define AMBERVANE_BASE_DATE_H_

#include <compare>
#include <functional>

namespace ambervane {

/// A moment: seconds since 1 January 1970 00:00 UTC, fractions included.
struct Date {
  double seconds = 0;
  friend auto operator<=>(const Date&, const Date&) = default;
};

/// Where the time comes from, so that a test can hold it.
using Clock = std::function<Date()>;

/// The system's clock.
Date systemNow();

}  // namespace ambervane

#endif  // AMBERVANE_BASE_DATE_H_
