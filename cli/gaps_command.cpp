#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "base/text.h"
#include "cli/commands.h"
#include "compliance/gap_report.h"

namespace ambervane {
namespace {

constexpr std::size_t kDefaultLimit = 20;
/// Below this a probability says no more than "never".
constexpr double kLeastProbability = 1e-18;

/// A whole number of at least `least`, or `otherwise` where the option is not given.
std::int64_t numberOption(const Arguments& arguments, const std::string& name, std::int64_t least,
                          std::int64_t otherwise) {
  const auto text = arguments.option(name);
  if (!text && !arguments.has(name)) return otherwise;
  const auto number = text ? parseInteger(*text) : std::nullopt;
  if (!number || *number < least || *number > 1'000'000) {
    throw CLIError::usage(fmt::format("--{} expects a number of {} or more", name, least));
  }
  return *number;
}

/// Prints a report's sections, of each list as much as asked for.
class GapPrinter {
 public:
  GapPrinter(const GapReport& report, const DayCalendar& calendar, std::size_t limit,
             std::ostream& out)
      : report_(report), calendar_(calendar), limit_(limit), out_(out) {}

  void print() {
    printCoverage();
    printProven();
    printDirection();
    printUnexplained();
  }

 private:
  std::string day(const std::optional<Date>& date) const {
    return date ? dayText(calendar_.dayOf(*date)) : "?";
  }

  template <typename Item, typename Print>
  void list(const std::vector<Item>& items, Print print) {
    for (std::size_t i = 0; i < std::min(items.size(), limit_); ++i) print(items[i]);
    if (items.size() > limit_) out_ << "  … and " << items.size() - limit_ << " more\n";
  }

  void printCoverage() {
    const Coverage& coverage = report_.coverage;
    out_ << "Coverage\n";
    if (coverage.messages == 0) {
      out_ << "  Span  none: the archive holds no message with a date\n";
      return;
    }
    out_ << "  Span  " << day(coverage.firstMessage) << " to " << day(coverage.lastMessage) << "  ("
         << coverage.daysCovered << " days)\n"
         << "  Messages  : " << coverage.messages << "\n"
         << fmt::format("  Days with mail: {} of {} ({:.1f}%)\n", coverage.daysWithMail,
                        coverage.daysCovered,
                        100.0 * static_cast<double>(coverage.daysWithMail) /
                            static_cast<double>(coverage.daysCovered));
  }

  void printProven() {
    out_ << "\nPROVEN MISSING — the archive itself shows these existed\n";
    if (report_.uidGaps.empty() && report_.danglingReferences.empty()) {
      out_ << "Nothing is provably missing: no gaps in any mailbox's UID sequence,\n"
              "and every archived reply's parent is present.\n";
      return;
    }
    list(report_.uidGaps, [this](const UIDGap& gap) {
      // Odd numbers in a catalog may lie further apart than a signed number tells.
      const std::uint64_t missing =
          static_cast<std::uint64_t>(gap.to) - static_cast<std::uint64_t>(gap.from) + 1;
      out_ << "  " << printable(gap.account) << " › " << printable(gap.folder) << "  UID "
           << gap.from << "—" << gap.to << "  (" << day(gap.previousDate) << " to "
           << day(gap.nextDate) << ")  " << missing
           << (missing == 1 ? " missing message\n" : " missing messages\n");
    });
    if (report_.danglingReferences.empty()) return;
    out_ << "  " << report_.danglingReferences.size() << " replies whose parent is absent:\n";
    list(report_.danglingReferences, [this](const DanglingReference& reply) {
      out_ << "    " << day(reply.referencedByDate) << "  message " << reply.referencedBy << "  "
           << printable(reply.referencedBySubject) << "  (answers " << printable(reply.messageID)
           << ")\n";
    });
  }

  void printDirection() {
    const DirectionSummary& sum = report_.direction;
    out_ << "\nDIRECTION\n";
    if (sum.ownAddresses.empty()) {
      out_ << "  Cannot say: this archive holds no address for its own accounts, so\n"
              "  incoming and outgoing mail cannot be told apart.\n";
      return;
    }
    const auto both = static_cast<double>(std::max<std::int64_t>(1, sum.incoming + sum.outgoing));
    out_ << fmt::format(
        "  {} incoming, {} outgoing ({:.0f}% outgoing) — own address{} {}\n", sum.incoming,
        sum.outgoing, 100.0 * static_cast<double>(sum.outgoing) / both,
        sum.ownAddresses.size() == 1 ? "" : "es", printable(join(sum.ownAddresses, ", ")));
    if (sum.outgoing == 0) {
      out_ << "  No outgoing mail at all. If this account sends mail, its Sent\n"
              "  mailbox was not archived — the commonest way an archive is incomplete.\n";
    }
    list(report_.directionAnomalies, [this](const DirectionAnomaly& anomaly) {
      const bool outgoing = anomaly.direction == MailDirection::outgoing;
      out_ << fmt::format(
          "  {}  {} mail fell to {} where ~{:.0f} is usual, while {} came the other way\n",
          anomaly.month, outgoing ? "outgoing" : "incoming", anomaly.observed, anomaly.expected,
          anomaly.otherDirection);
    });
  }

  void printUnexplained() {
    out_ << "\nWORTH EXPLAINING — quiet periods, not proof of anything\n"
            "Weekends are excluded. Quiet periods have ordinary explanations — closures,\n"
            "holidays, a mailbox in use elsewhere — and this report cannot tell those from\n"
            "anything else. It says where to look, not what happened.\n";
    list(report_.quietRuns, [this](const QuietRun& run) {
      out_ << fmt::format(
          "  {} to {}  {} working days with no mail at all (normally ~{:.0f} a day)\n",
          dayText(run.start), dayText(run.end), run.workingDays, run.expectedPerDay);
    });
    list(report_.volumeAnomalies, [this](const VolumeAnomaly& low) {
      out_ << fmt::format("  {}  {} messages where ~{:.0f} is usual (1 chance in {:.0f})\n",
                          dayText(low.day), low.observed, low.expected,
                          1 / std::max(low.probability, kLeastProbability));
    });
    list(report_.accountSilences, [this](const AccountSilence& silence) {
      out_ << fmt::format("  {}: silent {} to {}  {} working days, {} messages arrived elsewhere\n",
                          printable(silence.account), dayText(silence.start), dayText(silence.end),
                          silence.workingDays, silence.otherAccountsMessages);
    });
  }

  const GapReport& report_;
  const DayCalendar& calendar_;
  const std::size_t limit_;
  std::ostream& out_;
};

}  // namespace

int gaps(const Arguments& arguments, Console& console) {
  GapOptions options;
  options.minimumQuietWorkingDays =
      static_cast<int>(numberOption(arguments, "quiet-days", 1, options.minimumQuietWorkingDays));
  const auto limit = static_cast<std::size_t>(
      numberOption(arguments, "limit", 0, static_cast<std::int64_t>(kDefaultLimit)));
  const auto archive = openArchive(arguments, console, OpenMode::readOnly);
  const GapReport report = findGaps(archive->catalog(), options);
  GapPrinter(report, options.calendar, limit, console.out).print();
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
