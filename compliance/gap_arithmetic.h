#ifndef AMBERVANE_COMPLIANCE_GAP_ARITHMETIC_H_
#define AMBERVANE_COMPLIANCE_GAP_ARITHMETIC_H_

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "compliance/gap_report.h"

namespace ambervane {

/// Messages by day; only days with mail are in it.
using DayCounts = std::map<DayNumber, std::int64_t>;
/// How busy each weekday is when it is in use; by `weekdayOf`, the first entry unused.
using WeekdayBaseline = std::array<std::optional<double>, 8>;
struct MonthCounts {
  std::int64_t incoming = 0, outgoing = 0;
};

/// The middle value, or the mean of the two middle ones; 0 for no values.
double median(std::vector<std::int64_t> values);
/// The median over the days of each weekday that have mail. Empty days do not enter, so that the
/// gaps being looked for cannot weigh on it.
WeekdayBaseline weekdayBaseline(const DayCounts& days);
/// P(X <= k) of a Poisson distribution with mean `lambda`, between 0 and 1; 1 for a mean that is
/// not above 0, 0 for a negative `k`.
double poissonLowerTail(std::int64_t k, double lambda);
/// In order of time.
std::vector<QuietRun> quietRuns(const DayCounts& days, const WeekdayBaseline& baseline,
                                const GapOptions& options);
/// The least probable first.
std::vector<VolumeAnomaly> volumeAnomalies(const DayCounts& days, const WeekdayBaseline& baseline,
                                           const GapOptions& options);
/// `accounts` by name. By account and then in order of time; none for fewer than two accounts.
std::vector<AccountSilence> accountSilences(const std::map<std::string, DayCounts>& accounts,
                                            const GapOptions& options);
/// In order of months ("yyyy-MM").
std::vector<DirectionAnomaly> directionAnomalies(const std::map<std::string, MonthCounts>& months,
                                                 const GapOptions& options);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_GAP_ARITHMETIC_H_
