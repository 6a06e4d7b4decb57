#include "compliance/disposal.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <vector>

#include "base/calendar.h"
#include "compliance/retention.h"
#include "store/archive_error.h"
#include "store/catalog_holds.h"
#include "store/content_erasure.h"

namespace ambervane {
namespace {

/// Both by the date it carries and by what the policy says now: a change of policy protects what it
/// lengthens.
bool isPastItsPeriod(const RetentionPolicy& policy, const MessageRow& row, Date asOf) {
  if (!row.expiresAt || *row.expiresAt > asOf) return false;
  const KeptUntil kept = keptUntil(policy, row);
  return kept.date && *kept.date <= asOf;
}

/// What of an approved list may be erased; counts the rest in `result`.
std::vector<std::int64_t> disposable(MailArchive& archive, const std::vector<std::int64_t>& ids,
                                     Date asOf, DisposalResult& result) {
  CatalogHolds holds(archive.catalog());
  std::vector<std::int64_t> chosen;
  std::unordered_set<std::int64_t> seen;
  for (const std::int64_t id : ids) {
    const auto row = archive.catalog().message(id);
    if (!row || row->erased || !seen.insert(id).second) {
      ++result.skippedAlreadyErased;
    } else if (!isPastItsPeriod(archive.policy(), *row, asOf)) {
      ++result.skippedNoLongerExpired;
    } else if (holds.isHeld(id)) {
      ++result.skippedOnHold;
    } else {
      chosen.push_back(id);
    }
  }
  return chosen;
}

}  // namespace

DisposalResult disposeApproved(MailArchive& archive, const DisposalApproval& given, Date asOf) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  if (archive.policy().disposalPolicy != DisposalPolicy::manualApproval) {
    throw DisposalRefusal(DisposalRefusal::NotPermitted{});
  }
  const DisposalApproval approval = completeApproval(given);
  if (!archive.policy().cryptoShreddingEnabled) {
    throw DisposalRefusal(DisposalRefusal::ShreddingUnavailable{});
  }
  DisposalResult result;
  // The write lock is ours, so no hold can come between this look and the erasure.
  const auto ids = disposable(archive, approval.messageIDs, asOf, result);
  if (!std::ranges::all_of(ids, [&](std::int64_t id) { return canShred(archive, id); })) {
    throw DisposalRefusal(DisposalRefusal::ShreddingUnavailable{});
  }

  const auto number = [](auto n) { return std::to_string(n); };
  const std::string subject = iso8601(asOf);
  archive.journal().append(AuditAction::retentionApplied, subject,
                           {{"action", "disposal approved"},
                            {"approved_by", approval.approvedBy},
                            {"reason", approval.reason},
                            {"approved_count", number(approval.messageIDs.size())}});
  const ErasedContent erased =
      shredContent(archive, ids,
                   "retention disposal approved by " + approval.approvedBy + ": " + approval.reason,
                   approval.approvedBy);
  result.erased = erased.messages;
  result.isForgotten = erased.isForgotten;
  archive.journal().append(AuditAction::retentionApplied, subject,
                           {{"action", "disposal finished"},
                            {"approved_by", approval.approvedBy},
                            {"erased", number(result.erased)},
                            {"skipped_on_hold", number(result.skippedOnHold)},
                            {"skipped_not_expired", number(result.skippedNoLongerExpired)},
                            {"skipped_already_erased", number(result.skippedAlreadyErased)}});
  archive.sealNow();
  return result;
}

}  // namespace ambervane
