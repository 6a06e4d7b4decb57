#ifndef AMBERVANE_MAILCORE_MAIL_DATE_H_
#define AMBERVANE_MAILCORE_MAIL_DATE_H_

#include <optional>
#include <string>
#include <string_view>

#include "base/calendar.h"
#include "base/date.h"

/// The dates of mail. Safe from any thread.
namespace ambervane::MailDate {

/// Reads a Date field (RFC 5322 section 3.3) with the liberties old mail takes, and the line that
/// `asctime` writes. A missing or unknown zone is UTC, a time of day beyond the day's
/// end runs over. Absent for what cannot be read, an impossible day included.
std::optional<Date> parse(std::optional<std::string_view> text);
/// "Mon, 05 Feb 2024 10:00:00 +0100"
std::string format(Date date, Zone zone = Zone::utc);

}  // namespace ambervane::MailDate

#endif  // AMBERVANE_MAILCORE_MAIL_DATE_H_
