#ifndef AMBERVANE_BASE_DAY_CALENDAR_H_
#define AMBERVANE_BASE_DAY_CALENDAR_H_

#include <cstdint>
#include <memory>
#include <string>

#include "base/date.h"

namespace ambervane {

/// A calendar day, Gregorian, counted from 1 January 1970. Days of one zone are compared and
/// counted as numbers.
using DayNumber = std::int32_t;

/// 1 for Sunday to 7 for Saturday.
int weekdayOf(DayNumber day) noexcept;
/// "2024-02-05"
std::string dayText(DayNumber day);
/// "2024-02"
std::string monthText(DayNumber day);

/// Tells on which day a moment falls in one time zone. Safe from any thread.
class DayCalendar {
 public:
  /// The machine's own zone.
  DayCalendar();
  /// A zone by its IANA name; UTC for a name that is none.
  explicit DayCalendar(const std::string& zone);
  /// A moment too far away to be a day counts as the furthest one.
  DayNumber dayOf(Date date) const;

 private:
  struct Zone;
  std::shared_ptr<const Zone> zone_;
};

}  // namespace ambervane

#endif  // AMBERVANE_BASE_DAY_CALENDAR_H_
