#ifndef AMBERVANE_COMPLIANCE_GAP_REPORT_H_
#define AMBERVANE_COMPLIANCE_GAP_REPORT_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "base/day_calendar.h"

namespace ambervane {

class Catalog;

struct GapOptions {
  int minimumQuietWorkingDays = 3;     ///< shortest run of silent working days worth reporting
  double minimumExpectedPerDay = 1.0;  ///< messages such a run's days usually see at least
  double anomalyThreshold = 0.001;     ///< largest probability of a low day that is reported
  std::size_t maximumFindings = 500;   ///< in each list
  bool skipWeekends = true;            ///< Saturday and Sunday neither count nor break a run
  DayCalendar calendar{};              ///< decides on which day a message falls
};

/// How much of time the archive's mail spans.
struct Coverage {
  std::optional<Date> firstMessage, lastMessage;
  std::int64_t daysCovered = 0;   ///< from the first to the last, both counted
  std::int64_t daysWithMail = 0;  ///< of those in UTC
  std::int64_t messages = 0;      ///< that have a date
};

/// UIDs that a mailbox had and the archive has not.
struct UIDGap {
  std::string account, folder;
  std::int64_t from = 0, to = 0;               ///< the first and last missing
  std::optional<Date> previousDate, nextDate;  ///< of the messages on both sides
};

/// A reply to a message that is not here.
struct DanglingReference {
  std::string messageID;  ///< the missing message's
  std::int64_t referencedBy = 0;
  std::string referencedBySubject;
  std::optional<Date> referencedByDate;
};

/// Working days in a row without any mail.
struct QuietRun {
  DayNumber start = 0, end = 0;
  int workingDays = 0;
  double expectedPerDay = 0;
  friend bool operator==(const QuietRun&, const QuietRun&) = default;
};

/// A day with far less mail than such days have.
struct VolumeAnomaly {
  DayNumber day = 0;
  std::int64_t observed = 0;
  double expected = 0, probability = 0;
};

/// Working days in a row when one account had no mail and others had.
struct AccountSilence {
  std::string account;
  DayNumber start = 0, end = 0;
  int workingDays = 0;
  std::int64_t otherAccountsMessages = 0;
};

enum class MailDirection { incoming, outgoing };

struct DirectionSummary {
  std::int64_t incoming = 0, outgoing = 0, undetermined = 0;
  std::vector<std::string> ownAddresses;  ///< of the archive's accounts, sorted
};

/// A month in which one direction of mail all but stopped.
struct DirectionAnomaly {
  std::string month;  ///< "yyyy-MM"
  MailDirection direction = MailDirection::incoming;
  std::int64_t observed = 0;
  double expected = 0;
  std::int64_t otherDirection = 0;
};

/// Mail the archive should hold and does not. `uidGaps` and `danglingReferences` are proved by the
/// archive's own data; all else is only worth explaining.
struct GapReport {
  Coverage coverage;
  std::vector<UIDGap> uidGaps;
  std::vector<DanglingReference> danglingReferences;
  std::vector<QuietRun> quietRuns;
  std::vector<VolumeAnomaly> volumeAnomalies;
  std::vector<AccountSilence> accountSilences;
  std::vector<DirectionAnomaly> directionAnomalies;
  DirectionSummary direction;
};

/// Looks through the catalog alone; writes nothing. Without any dated message all lists are empty.
/// Memory follows the days with mail, not the messages. Throws SQLiteError.
GapReport findGaps(Catalog& catalog, const GapOptions& options = {});

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_GAP_REPORT_H_
