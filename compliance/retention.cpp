#include "compliance/retention.h"

#include <cmath>
#include <set>
#include <utility>

#include "base/calendar.h"
#include "base/text.h"
#include "store/archive_error.h"
#include "store/catalog_holds.h"
#include "store/policy_change.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

constexpr std::int64_t kMessagesBetweenReports = 500;
constexpr const char* kUnerased = "SELECT COUNT(*) FROM message WHERE erased = 0";
constexpr const char* kDatesDueSetting = "retention_dates_due";
/// The row of a message knows the moment it came in a little less exactly than its date does.
constexpr double kClockGrain = 1;

std::string number(std::int64_t n) { return std::to_string(n); }

/// From when a message counts where it says nothing itself.
Date dateOf(const MessageRow& row) {
  return row.sentAt.value_or(row.internalAt.value_or(row.ingestedAt));
}

/// Hands out every message that is not erased, and reports progress.
void forEachMessage(MailArchive& archive, const RetentionProgress& progress,
                    const std::function<void(const MessageRow&)>& body) {
  const std::int64_t total = archive.catalog().database().count(kUnerased);
  std::int64_t done = 0;
  archive.catalog().database().forEachRow(
      "SELECT * FROM message WHERE erased = 0 ORDER BY id", {}, [&](const Row& row) {
        body(MessageRow(row));
        ++done;
        if (progress && (done % kMessagesBetweenReports == 0 || done == total)) {
          progress(done, total);
        }
        return true;
      });
}

/// The paths of all mailboxes a message lies in, in one text.
std::string foldersOf(MailArchive& archive, std::int64_t messageID) {
  std::vector<std::string> paths;
  for (Membership& filed : archive.catalog().memberships(messageID)) {
    paths.push_back(std::move(filed.folder));
  }
  return join(paths, "\n");
}

bool isMoved(const std::optional<Date>& from, const std::optional<Date>& to) {
  if (!from || !to) return from != to;
  return std::abs(from->seconds - to->seconds) >= kClockGrain;
}

void recordReview(MailArchive& archive, const RetentionOutcome& outcome) {
  archive.journal().append(
      AuditAction::retentionApplied, iso8601(outcome.reviewedAt),
      {{"action", "review"},
       {"past_retention", number(outcome.expiredCount)},
       {"held_back", number(outcome.heldBackCount)},
       {"disposal_policy", std::string(facts(outcome.disposalPolicy).identifier)},
       {"deleted", "0"}});
}

}  // namespace

RetentionOutcome reviewRetention(MailArchive& archive, Date asOf, bool record) {
  SQLiteDatabase& db = archive.catalog().database();
  CatalogHolds holds(archive.catalog());
  RetentionOutcome outcome;
  outcome.disposalPolicy = archive.policy().disposalPolicy;
  outcome.reviewedAt = asOf;
  const auto add = [](const MessageRow& row, std::vector<MessageRow>& list, std::int64_t& count) {
    ++count;
    if (list.size() < kReviewedExpired) list.push_back(row);
  };
  db.forEachRow(
      "SELECT * FROM message WHERE erased = 0 AND expires_at IS NOT NULL AND expires_at <= ? ORDER "
      "BY expires_at ASC",
      {asOf}, [&](const Row& columns) {
        const MessageRow row(columns);
        if (holds.isHeld(row.id)) {
          add(row, outcome.heldBack, outcome.heldBackCount);
        } else {
          add(row, outcome.expired, outcome.expiredCount);
          outcome.eligibleIDs.push_back(row.id);
        }
        return true;
      });
  outcome.examinedCount = db.count(kUnerased);
  for (const Row& row : db.query(
           "SELECT MIN(expires_at) AS next FROM message WHERE erased = 0 AND expires_at IS NOT "
           "NULL AND expires_at > ?",
           {asOf})) {
    outcome.nextExpiry = row.date("next");
  }
  outcome.expiringSoonCount = db.count(
      "SELECT COUNT(*) FROM message WHERE erased = 0 AND expires_at > ? AND expires_at <= ?",
      {asOf, asOf.seconds + kExpiringSoonDays * kSecondsPerDay});
  if (record && archive.journal().isWritable()) recordReview(archive, outcome);
  return outcome;
}

KeptUntil keptUntil(const RetentionPolicy& policy, const MessageRow& row) {
  const auto ofClass = policy.retentionClass(row.retentionClass);
  if (!ofClass) return {};
  return {true, policy.expiryDate(dateOf(row), row.ingestedAt, ofClass)};
}

std::map<std::string, std::int64_t> reclassify(MailArchive& archive,
                                               const RetentionProgress& progress) {
  RecordedChange change(archive);
  SQLiteDatabase& db = archive.catalog().database();
  const RetentionPolicy& policy = archive.policy();
  std::map<std::string, std::int64_t> counts;
  std::int64_t messages = 0;
  forEachMessage(archive, progress, [&](const MessageRow& row) {
    const RetentionClass ofClass = policy.classify(row.participants, foldersOf(archive, row.id),
                                                   row.subject, row.attachmentCount > 0);
    const auto expires = policy.expiryDate(dateOf(row), row.ingestedAt, ofClass);
    ++messages;
    ++counts[ofClass.identifier];
    if (row.retentionClass == ofClass.identifier && !isMoved(row.expiresAt, expires)) return;
    db.run("UPDATE message SET retention_class = ?, expires_at = ? WHERE id = ?",
           {ofClass.identifier, expires, row.id});
  });
  archive.catalog().bumpMutationGeneration();
  std::vector<std::string> classes;
  for (const auto& [identifier, count] : counts) {
    classes.push_back(identifier + "=" + number(count));
  }
  archive.journal().append(AuditAction::retentionApplied, "reclassify",
                           {{"action", "reclassify"},
                            {"messages", number(messages)},
                            {"classes", join(classes, ",")},
                            {"deleted", "0"}});
  change.finish();
  return counts;
}

std::int64_t recomputeRetentionDates(MailArchive& archive, const RetentionProgress& progress) {
  RecordedChange change(archive);
  const RetentionPolicy& policy = archive.policy();
  std::vector<std::pair<std::int64_t, std::optional<Date>>> moved;
  std::int64_t messages = 0;
  forEachMessage(archive, progress, [&](const MessageRow& row) {
    ++messages;
    const KeptUntil kept = keptUntil(policy, row);
    if (kept.isKnownClass && isMoved(row.expiresAt, kept.date))
      moved.emplace_back(row.id, kept.date);
  });
  for (const auto& [id, date] : moved) {
    archive.catalog().database().run("UPDATE message SET expires_at = ? WHERE id = ?", {date, id});
  }
  if (!moved.empty()) archive.catalog().bumpMutationGeneration();
  if (areRetentionDatesDue(archive)) archive.catalog().setMeta(kDatesDueSetting, "");
  const auto count = static_cast<std::int64_t>(moved.size());
  archive.journal().append(AuditAction::retentionApplied, "retention dates",
                           {{"action", "dates recomputed"},
                            {"messages", number(messages)},
                            {"moved", number(count)},
                            {"financial_year_end_month", number(policy.financialYearEndMonth)},
                            {"deleted", "0"}});
  change.finish();
  return count;
}

void updatePolicy(MailArchive& archive, const RetentionPolicy& policy, const std::string& reason) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  const RetentionPolicy old = archive.policy();
  // First, so that a crash behind the next line cannot leave dates of the old policy for good.
  if (policy.movesRetentionDates(old)) archive.catalog().setMeta(kDatesDueSetting, "yes");
  std::map<std::string, std::string> details = {{"reason", reason},
                                                {"regimes", listOf(policy.regimes)},
                                                {"from_years", number(old.minimumYears())},
                                                {"to_years", number(policy.minimumYears())}};
  if (old.financialYearEndMonth != policy.financialYearEndMonth) {
    details["from_financial_year_end_month"] = number(old.financialYearEndMonth);
    details["to_financial_year_end_month"] = number(policy.financialYearEndMonth);
  }
  replacePolicyOnRecord(archive, policy, details);
}

bool areRetentionDatesDue(MailArchive& archive) {
  return archive.catalog().meta(kDatesDueSetting) == "yes";
}

}  // namespace ambervane
