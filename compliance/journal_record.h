#ifndef AMBERVANE_COMPLIANCE_JOURNAL_RECORD_H_
#define AMBERVANE_COMPLIANCE_JOURNAL_RECORD_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/digest.h"
#include "evidence/audit_journal.h"
#include "evidence/retention_policy.h"

namespace ambervane {

/// What the journal says of one message that was taken in. Small, because there are millions.
struct Arrival {
  RawDigest digest;
  std::int64_t seq = 0;
  double seconds = 0;      ///< when it was recorded
  std::int64_t size = -1;  ///< raw bytes; -1 where the entry does not say
  std::int32_t attachments = -1;
  std::int32_t ofClass = -1;  ///< into `JournalRecord::classes`
};

/// What the journal says of one seal.
struct RecordedSeal {
  std::string head;
  std::int64_t entries = 0;
  std::int64_t messages = 0;
};

/// A retention policy as far as the journal records it. Absent is what no entry has told yet.
struct RecordedPolicy {
  std::optional<std::set<ComplianceRegime>> regimes;
  std::optional<std::int64_t> minimumYears;
  std::optional<std::int64_t> financialYearEndMonth;
};

/// One application of the rules to all messages held then.
struct RecordedClasses {
  std::int64_t seq = 0;  ///< 0: never
  double seconds = 0;
  std::map<std::string, std::int64_t> messages;  ///< by class; empty where the entry is unclear
};

struct RecordedHold {
  std::int64_t seq = 0;
  std::optional<bool> isActive;  ///< absent: it may be either
  std::int64_t messages = 0;     ///< found when it was placed
};

/// What the journal says the archive holds, read in one walk over all its entries.
class JournalRecord {
 public:
  /// Where a sequence number is given, the hash of that entry is kept.
  explicit JournalRecord(const AuditJournal& journal,
                         std::optional<std::int64_t> wantedSeq = std::nullopt);

  /// Of each digest, all arrivals, oldest first; grouped by digest.
  const std::vector<Arrival>& arrivals() const noexcept { return arrivals_; }
  /// Those of one digest.
  std::span<const Arrival> arrivalsOf(const RawDigest& digest) const;
  /// Whether the last word on these arrivals of one digest is that the message is here: it was
  /// neither in a batch that was not kept nor named as lost in a crash since.
  bool isExpected(std::span<const Arrival> ofOneDigest) const;
  /// How many of these missing messages may have gone in crashes that took more than were named.
  std::int64_t lostUnnamed(std::vector<std::int64_t> missingSeqs) const;
  /// The last arrival that counted, for what it says of the message.
  const Arrival& decisive(std::span<const Arrival> ofOneDigest) const;
  const std::string& className(const Arrival& arrival) const;

  /// The last entry that names this message as erased; 0 for none.
  std::int64_t erasedAt(const RawDigest& digest) const;
  /// How many messages approved lists may have erased without naming them.
  std::int64_t erasedByList() const noexcept { return erasedByList_; }
  /// The last entry on rebuilding the catalog; 0 for none.
  std::int64_t rebuiltAt() const noexcept { return rebuiltAt_; }

  /// The last application of the rules.
  const RecordedClasses& reclassified() const noexcept { return reclassified_; }
  /// Every policy, oldest first; the last is in force. Never empty.
  const std::vector<RecordedPolicy>& policies() const noexcept { return policies_; }
  /// Whether the keep-until date of a message that arrived so may still be that of an earlier
  /// policy: a later one has not been applied to what was held.
  bool mayPredatePolicy(const Arrival& arrival) const noexcept {
    return policyAt_ > datesAppliedAt_ && arrival.seq < policyAt_;
  }

  /// SHA-256 by pack file, of those sealed for good; every digest ever recorded of one.
  const std::map<std::string, std::vector<std::string>>& sealedPacks() const noexcept {
    return packs_;
  }
  const std::map<std::int64_t, std::vector<RecordedSeal>>& seals() const noexcept { return seals_; }
  const std::map<std::string, RecordedHold>& holds() const noexcept { return holds_; }
  const std::optional<std::string>& wantedHash() const noexcept { return wantedHash_; }

 private:
  struct Crash {
    std::int64_t seq;  ///< of the entry on it
    RawDigest first;   ///< the first message it names
    std::int64_t unnamed;
  };

  void take(const AuditEntry& entry);
  void takeArrival(const AuditEntry& entry);
  void takeLost(const AuditEntry& entry);
  void takeApproval(const AuditEntry& entry, const std::string& kind);
  void takeRetention(const AuditEntry& entry);
  void takePolicy(const AuditEntry& entry);
  void takeHold(const AuditEntry& entry);
  void takeSeal(const AuditEntry& entry);
  bool isVoid(std::int64_t seq) const;

  std::vector<Arrival> arrivals_;
  std::vector<std::string> classes_;
  std::map<std::string, std::int32_t, std::less<>> classNumbers_;
  std::vector<std::pair<std::int64_t, std::int64_t>> broken_;  ///< first and last `seq`
  std::map<RawDigest, std::int64_t> lost_;                     ///< the entry that said so last
  std::vector<Crash> crashes_;                         ///< that took more messages than they named
  std::map<RawDigest, std::int64_t> erased_;           ///< the entry that said so last
  std::map<std::string, std::int64_t> openApprovals_;  ///< by kind: how many messages
  std::int64_t erasedByList_ = 0;
  std::int64_t rebuiltAt_ = 0;
  RecordedClasses reclassified_;
  std::vector<RecordedPolicy> policies_{1};
  std::int64_t policyAt_ = 0;        ///< the last entry on a change of the policy
  std::int64_t datesAppliedAt_ = 0;  ///< the last on working all keep-until dates out again
  std::map<std::string, std::vector<std::string>> packs_;
  std::map<std::int64_t, std::vector<RecordedSeal>> seals_;
  std::map<std::string, RecordedHold> holds_;
  std::optional<std::string> wantedHash_;
};

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_JOURNAL_RECORD_H_
