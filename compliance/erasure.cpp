#include "compliance/erasure.h"

#include <algorithm>
#include <set>
#include <utility>

#include "query/query_builder.h"
#include "store/archive_error.h"
#include "store/catalog_holds.h"
#include "store/query_context.h"

namespace ambervane {
namespace {

constexpr const char* kRequest = "data subject request";

void requireShredding(MailArchive& archive, std::span<const std::int64_t> ids) {
  const bool canAll =
      std::ranges::all_of(ids, [&archive](std::int64_t id) { return canShred(archive, id); });
  if (!canAll) throw DisposalRefusal(DisposalRefusal::ShreddingUnavailable{});
}

/// What an approved list comes down to.
struct Selection {
  std::vector<std::int64_t> ids;
  DisposalResult result;
};

Selection stillErasable(MailArchive& archive, const std::vector<std::int64_t>& approved) {
  CatalogHolds holds(archive.catalog());
  Selection selection;
  std::set<std::int64_t> taken;
  for (const std::int64_t id : approved) {
    const auto row = archive.catalog().message(id);
    if (!row || row->erased || taken.contains(id)) {
      ++selection.result.skippedAlreadyErased;
    } else if (holds.isHeld(id)) {
      ++selection.result.skippedOnHold;
    } else {
      taken.insert(id);
      selection.ids.push_back(id);
    }
  }
  return selection;
}

void noteReviewed(std::vector<MessageRow>& rows, std::int64_t& count, MailArchive& archive,
                  std::int64_t id) {
  ++count;
  if (rows.size() >= kReviewedRows) return;
  if (auto row = archive.catalog().message(id)) rows.push_back(*std::move(row));
}

void recordReview(MailArchive& archive, const ErasureReview& review) {
  // On a medium that cannot be written a review is shown and not recorded, as a search is.
  if (!archive.journal().isWritable()) return;
  archive.journal().append(AuditAction::searchPerformed, "erasure review",
                           {{"action", "review"},
                            {"matches", std::to_string(review.erasableCount)},
                            {"held_back", std::to_string(review.heldBackCount)},
                            {"already_erased", std::to_string(review.alreadyErasedCount)},
                            {"within_retention", std::to_string(review.withinRetentionCount)},
                            {"deleted", "0"}});
}

}  // namespace

ErasedContent eraseMessage(MailArchive& archive, std::int64_t id, const std::string& reason,
                           const std::string& requester) {
  if (archive.readOnly() || !archive.policy().cryptoShreddingEnabled) {
    throw ArchiveError(ArchiveError::ReadOnly{});
  }
  if (CatalogHolds(archive.catalog()).isHeld(id)) {
    throw ArchiveError(ArchiveError::OnLegalHold{id});
  }
  if (!archive.catalog().messageDigest(id)) throw ArchiveError(ArchiveError::MessageMissing{id});
  requireShredding(archive, std::span(&id, 1));

  const auto record = [&](std::int64_t, const std::string& sha256, std::int64_t attachmentKeys) {
    archive.journal().append(AuditAction::messageErased, sha256,
                             erasureDetails(id, reason, requester, attachmentKeys));
  };
  const ErasedContent erased = shredContent(archive, std::span(&id, 1), reason, requester, record);
  archive.sealNow();
  return erased;
}

ErasureReview reviewErasure(MailArchive& archive, SearchQuery query, Date asOf) {
  query.includeErased = true;
  const BuiltQuery built = buildQuery(query, queryContext(archive));
  const std::string sql = "SELECT " + built.distinct +
                          "m.id AS id, m.erased AS erased, m.expires_at AS expires_at " +
                          built.from + " " + built.joins + built.where + " " + built.order;
  CatalogHolds holds(archive.catalog());
  ErasureReview review;
  archive.catalog().database().forEachRow(sql, bindingsOf(built.params), [&](const Row& row) {
    const std::int64_t id = row.integer("id");
    if (row.boolean("erased")) {
      noteReviewed(review.alreadyErased, review.alreadyErasedCount, archive, id);
    } else if (holds.isHeld(id)) {
      noteReviewed(review.heldBack, review.heldBackCount, archive, id);
    } else {
      noteReviewed(review.erasable, review.erasableCount, archive, id);
      review.erasableIDs.push_back(id);
      const auto expiry = row.date("expires_at");
      if (expiry && *expiry > asOf) ++review.withinRetentionCount;
    }
    return true;
  });
  recordReview(archive, review);
  return review;
}

DisposalResult eraseApproved(MailArchive& archive, const DisposalApproval& given) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  if (!archive.policy().cryptoShreddingEnabled) {
    throw DisposalRefusal(DisposalRefusal::ShreddingUnavailable{});
  }
  const DisposalApproval approval = completeApproval(given);
  Selection selection = stillErasable(archive, approval.messageIDs);
  requireShredding(archive, selection.ids);

  AuditJournal& journal = archive.journal();
  journal.append(AuditAction::messageErased, kRequest,
                 {{"action", "erasure approved"},
                  {"approved_by", approval.approvedBy},
                  {"reason", approval.reason},
                  {"approved_count", std::to_string(approval.messageIDs.size())}});
  const ErasedContent erased = shredContent(
      archive, selection.ids,
      "data subject request approved by " + approval.approvedBy + ": " + approval.reason,
      approval.approvedBy);
  DisposalResult result = selection.result;
  result.erased = erased.messages;
  result.isForgotten = erased.isForgotten;
  journal.append(AuditAction::messageErased, kRequest,
                 {{"action", "erasure finished"},
                  {"approved_by", approval.approvedBy},
                  {"erased", std::to_string(result.erased)},
                  {"skipped_on_hold", std::to_string(result.skippedOnHold)},
                  {"skipped_already_erased", std::to_string(result.skippedAlreadyErased)}});
  archive.sealNow();
  return result;
}

}  // namespace ambervane
