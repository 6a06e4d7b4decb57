#ifndef AMBERVANE_EVIDENCE_SYNC_SCHEDULE_H_
#define AMBERVANE_EVIDENCE_SYNC_SCHEDULE_H_

#include <optional>
#include <string_view>

#include "base/localized_message.h"

namespace ambervane {

/// When an archive wants its mail collected by itself; the catalog's setting "sync-schedule".
struct SyncSchedule {
  enum class Interval { hourly, daily, weekly };

  bool enabled = false;
  Interval interval = Interval::daily;
  int hour = 3;
  int minute = 0;
  int weekday = 2;  ///< 1 is Sunday, 7 Saturday

  /// Such as "every day at 03:00"; the name of a weekday is an argument of its own.
  LocalizedMessage summary() const;
  /// Seconds after which a run that has not come counts as overdue: three intervals.
  double staleAfter() const noexcept;
  /// Reads the JSON of the setting; absent when it is none.
  static std::optional<SyncSchedule> fromJson(std::string_view text);
  friend bool operator==(const SyncSchedule&, const SyncSchedule&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_SYNC_SCHEDULE_H_
