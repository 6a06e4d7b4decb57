#include "compliance/gap_arithmetic.h"

#include <algorithm>
#include <cmath>

namespace ambervane {
namespace {

constexpr int kSunday = 1;
constexpr int kSaturday = 7;
constexpr double kLeastTellingBaseline = 5.0;
constexpr std::size_t kLeastMonths = 12;
constexpr double kLeastTellingMonth = 5.0;  ///< messages
constexpr double kCollapse = 0.1;           ///< of the usual, below which a month has collapsed
constexpr double kFlowing = 0.5;            ///< of it, from which the other direction was flowing

bool isSkipped(DayNumber day, const GapOptions& options) {
  const int weekday = weekdayOf(day);
  return options.skipWeekends && (weekday == kSunday || weekday == kSaturday);
}

std::int64_t countOn(const DayCounts& days, DayNumber day) {
  const auto found = days.find(day);
  return found == days.end() ? 0 : found->second;
}

double usual(const WeekdayBaseline& baseline, DayNumber day) {
  return baseline[static_cast<std::size_t>(weekdayOf(day))].value_or(0);
}

/// A run of silent working days on its way.
struct OpenRun {
  DayNumber start = 0;
  DayNumber end = 0;
  int workingDays = 0;
  double sum = 0;  ///< of what its days would usually see

  void extend(DayNumber day, double expected) {
    if (workingDays == 0) start = day;
    end = day;
    ++workingDays;
    sum += expected;
  }
  double expectedPerDay() const { return workingDays == 0 ? 0 : sum / workingDays; }
  bool isWorthReporting(const GapOptions& options) const {
    return workingDays > 0 && workingDays >= options.minimumQuietWorkingDays &&
           expectedPerDay() >= options.minimumExpectedPerDay;
  }
};

template <typename Item>
void cut(std::vector<Item>& list, const GapOptions& options) {
  if (list.size() > options.maximumFindings) list.resize(options.maximumFindings);
}

void findSilences(const std::string& account, const DayCounts& own, const DayCounts& all,
                  const GapOptions& options, std::vector<AccountSilence>& found) {
  if (own.empty()) return;
  OpenRun run;
  const auto close = [&] {
    if (run.sum >= 1 && run.isWorthReporting(options)) {
      found.push_back({account, run.start, run.end, run.workingDays,
                       static_cast<std::int64_t>(std::llround(run.sum))});
    }
    run = {};
  };
  for (auto day = all.lower_bound(own.begin()->first);
       day != all.end() && day->first <= own.rbegin()->first; ++day) {
    if (isSkipped(day->first, options)) continue;
    if (countOn(own, day->first) > 0) {
      close();
    } else {
      run.extend(day->first, static_cast<double>(day->second));
    }
  }
  close();
}

/// Months in which `direction` all but stopped while the other went on.
void findCollapses(const std::map<std::string, MonthCounts>& months, MailDirection direction,
                   std::vector<DirectionAnomaly>& found) {
  const auto of = [](const MonthCounts& counts, bool outgoing) {
    return outgoing ? counts.outgoing : counts.incoming;
  };
  const bool outgoing = direction == MailDirection::outgoing;
  std::vector<std::int64_t> counts;
  for (const auto& [month, both] : months) counts.push_back(of(both, outgoing));
  const double expected = median(std::move(counts));
  if (expected < kLeastTellingMonth) return;
  for (const auto& [month, both] : months) {
    const std::int64_t observed = of(both, outgoing);
    const std::int64_t other = of(both, !outgoing);
    if (static_cast<double>(observed) < kCollapse * expected &&
        static_cast<double>(other) >= kFlowing * expected) {
      found.push_back({month, direction, observed, expected, other});
    }
  }
}

}  // namespace

double median(std::vector<std::int64_t> values) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  if (values.size() % 2 == 1) return static_cast<double>(values[middle]);
  return (static_cast<double>(values[middle - 1]) + static_cast<double>(values[middle])) / 2;
}

WeekdayBaseline weekdayBaseline(const DayCounts& days) {
  std::array<std::vector<std::int64_t>, 8> byWeekday;
  for (const auto& [day, count] : days) {
    byWeekday[static_cast<std::size_t>(weekdayOf(day))].push_back(count);
  }
  WeekdayBaseline baseline;
  for (std::size_t weekday = 0; weekday < byWeekday.size(); ++weekday) {
    if (!byWeekday[weekday].empty()) baseline[weekday] = median(std::move(byWeekday[weekday]));
  }
  return baseline;
}

double poissonLowerTail(std::int64_t k, double lambda) {
  if (!(lambda > 0)) return 1;
  if (k < 0) return 0;
  // In logarithms: exp(-lambda) underflows and factorials overflow for busy days.
  double logTerm = -lambda;
  double sum = std::exp(logTerm);
  for (std::int64_t i = 1; i <= k; ++i) {
    logTerm += std::log(lambda) - std::log(static_cast<double>(i));
    sum += std::exp(logTerm);
  }
  return std::clamp(sum, 0.0, 1.0);
}

std::vector<QuietRun> quietRuns(const DayCounts& days, const WeekdayBaseline& baseline,
                                const GapOptions& options) {
  std::vector<QuietRun> runs;
  if (days.empty()) return runs;
  OpenRun run;
  const auto close = [&] {
    if (run.isWorthReporting(options)) {
      runs.push_back({run.start, run.end, run.workingDays, run.expectedPerDay()});
    }
    run = {};
  };
  auto next = days.begin();
  for (DayNumber day = days.begin()->first; day <= days.rbegin()->first; ++day) {
    const bool hasMail = next != days.end() && next->first == day;
    const bool counts = hasMail && next->second > 0;
    if (hasMail) ++next;
    if (isSkipped(day, options)) continue;
    if (counts) {
      close();
    } else {
      run.extend(day, usual(baseline, day));
    }
  }
  close();
  cut(runs, options);
  return runs;
}

std::vector<VolumeAnomaly> volumeAnomalies(const DayCounts& days, const WeekdayBaseline& baseline,
                                           const GapOptions& options) {
  std::vector<VolumeAnomaly> anomalies;
  for (const auto& [day, count] : days) {
    if (isSkipped(day, options)) continue;
    const double expected = usual(baseline, day);
    if (expected < kLeastTellingBaseline || expected <= static_cast<double>(count)) continue;
    const double probability = poissonLowerTail(count, expected);
    if (probability < options.anomalyThreshold) {
      anomalies.push_back({day, count, expected, probability});
    }
  }
  std::ranges::stable_sort(anomalies, {}, &VolumeAnomaly::probability);
  cut(anomalies, options);
  return anomalies;
}

std::vector<AccountSilence> accountSilences(const std::map<std::string, DayCounts>& accounts,
                                            const GapOptions& options) {
  std::vector<AccountSilence> silences;
  if (accounts.size() < 2) return silences;
  DayCounts all;
  for (const auto& [account, days] : accounts) {
    for (const auto& [day, count] : days) all[day] += count;
  }
  for (const auto& [account, days] : accounts) findSilences(account, days, all, options, silences);
  cut(silences, options);
  return silences;
}

std::vector<DirectionAnomaly> directionAnomalies(const std::map<std::string, MonthCounts>& months,
                                                 const GapOptions& options) {
  std::vector<DirectionAnomaly> anomalies;
  if (months.size() < kLeastMonths) return anomalies;
  findCollapses(months, MailDirection::outgoing, anomalies);
  findCollapses(months, MailDirection::incoming, anomalies);
  std::ranges::stable_sort(anomalies, {}, &DirectionAnomaly::month);
  cut(anomalies, options);
  return anomalies;
}

}  // namespace ambervane
