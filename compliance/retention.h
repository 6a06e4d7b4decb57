#ifndef AMBERVANE_COMPLIANCE_RETENTION_H_
#define AMBERVANE_COMPLIANCE_RETENTION_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "evidence/retention_policy.h"
#include "store/mail_archive.h"

namespace ambervane {

// The retention policy over the messages an archive holds. Nothing here deletes anything. What
// changes something throws ArchiveError (ReadOnly), SQLiteError, FileError, and then has changed
// nothing unless it says otherwise.

inline constexpr std::size_t kReviewedExpired = 5000;
inline constexpr int kExpiringSoonDays = 90;

/// What is past its period. Lists end at `kReviewedExpired`; counts and `eligibleIDs` do not.
struct RetentionOutcome {
  std::vector<MessageRow> expired;
  std::vector<MessageRow> heldBack;  ///< past their period, and under an active legal hold
  std::int64_t expiredCount = 0;
  std::int64_t heldBackCount = 0;
  std::int64_t erased = 0;  ///< a review erases nothing
  DisposalPolicy disposalPolicy = DisposalPolicy::reportOnly;
  std::vector<std::int64_t> eligibleIDs;  ///< of all expired
  Date reviewedAt;
  std::optional<Date> nextExpiry;  ///< the first after the review
  std::int64_t expiringSoonCount = 0;
  std::int64_t examinedCount = 0;
};

/// Sorts what is past its period at `asOf`, that second included. `record`: journals that where the
/// journal can be written. Throws SQLiteError, FileError.
RetentionOutcome reviewRetention(MailArchive& archive, Date asOf, bool record);

/// How long a message is kept under the archive's policy as it stands: absent without end, or when
/// the policy does not know its class. `isKnownClass` tells which.
struct KeptUntil {
  bool isKnownClass = false;
  std::optional<Date> date;
};
KeptUntil keptUntil(const RetentionPolicy& policy, const MessageRow& row);

using RetentionProgress = std::function<void(std::int64_t done, std::int64_t total)>;

/// Applies the policy's rules to every message that is not erased, as if it came in anew into the
/// mailboxes it lies in; returns how many are of each class now.
std::map<std::string, std::int64_t> reclassify(MailArchive& archive,
                                               const RetentionProgress& progress);

/// Works the keep-until date of every message out again from its class; returns how many moved. A
/// message of a class the policy does not know keeps its date.
std::int64_t recomputeRetentionDates(MailArchive& archive, const RetentionProgress& progress);

/// Puts `policy` in place of the archive's, in the manifest first and then in the journal. Dates of
/// messages stay as they are; `areRetentionDatesDue` tells that they are to be worked out again.
void updatePolicy(MailArchive& archive, const RetentionPolicy& policy, const std::string& reason);

/// Whether the policy was changed in a way that moves dates and they have not been worked out again
/// since, after a crash too.
bool areRetentionDatesDue(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_RETENTION_H_
