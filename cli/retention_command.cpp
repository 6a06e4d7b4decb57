#include <fmt/format.h>

#include <algorithm>

#include "base/calendar.h"
#include "base/text.h"
#include "cli/commands.h"
#include "cli/display_columns.h"
#include "cli/message_list.h"
#include "compliance/disposal.h"
#include "compliance/retention.h"

namespace ambervane {
namespace {

constexpr std::size_t kListed = 25;

void printReview(const RetentionOutcome& outcome, std::ostream& out) {
  out << "Disposal setting     : " << facts(outcome.disposalPolicy).label << "\n"
      << "Past their period    : " << outcome.expiredCount << "\n"
      << "Held back (legal hold): " << outcome.heldBackCount << "\n";
  const std::size_t listed = std::min(kListed, outcome.expired.size());
  for (std::size_t i = 0; i < listed; ++i) {
    const MessageRow& row = outcome.expired[i];
    out << fmt::format("{:<7}", row.id) << "  expired "
        << (row.expiresAt ? formatDate(*row.expiresAt, "yyyy-MM-dd") : "?") << "  ["
        << printable(row.retentionClass) << "]  "
        << cutToCharacters(printable(row.subject), kShortSubjectCharacters) << "\n";
  }
  const auto unlisted = outcome.expiredCount - static_cast<std::int64_t>(listed);
  if (unlisted > 0) out << "  … and " << unlisted << " more\n";
}

void printAdvice(DisposalPolicy policy, std::ostream& out) {
  out << "Nothing was deleted. Nothing is ever deleted on a schedule.\n";
  if (policy == DisposalPolicy::reportOnly) {
    out << "This archive is set to report only. Change it with:\n"
           "  ambervane policy <archive> --disposal manualApproval --reason \"…\"\n";
  } else {
    out << "To dispose of the list above, after reviewing it:\n"
           "  ambervane retention <archive> --dispose --approved-by \"Name\" --reason \"…\" "
           "--confirm DISPOSE\n";
  }
}

void dispose(MailArchive& archive, const RetentionOutcome& outcome, const Arguments& arguments,
             Console& console) {
  const DisposalResult result =
      disposeApproved(archive,
                      {.messageIDs = outcome.eligibleIDs,
                       .approvedBy = arguments.option("approved-by").value_or(""),
                       .reason = arguments.option("reason").value_or(""),
                       .confirmation = arguments.option("confirm").value_or("")},
                      outcome.reviewedAt);
  console.out << "Erased               : " << result.erased << "\n"
              << "Skipped, on hold     : " << result.skippedOnHold << "\n"
              << "Skipped, not expired : " << result.skippedNoLongerExpired << "\n"
              << "Skipped, already gone: " << result.skippedAlreadyErased << "\n";
  noteRemnants(archive, result.isForgotten, console);
}

}  // namespace

int retention(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const RetentionOutcome outcome = reviewRetention(*archive, archive->now(), true);
  printReview(outcome, console.out);
  if (arguments.has("dispose")) {
    dispose(*archive, outcome, arguments, console);
  } else {
    printAdvice(outcome.disposalPolicy, console.out);
    noteUnrecorded(*archive, console.out);
  }
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
