#ifndef AMBERVANE_EVIDENCE_AUDIT_ENTRY_H_
#define AMBERVANE_EVIDENCE_AUDIT_ENTRY_H_

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/date.h"

// One line of the audit journal and the hash that chains it. Format: docs/format/journal.md.

namespace ambervane {

/// What happened. The strings recorded are in `auditActionName`.
enum class AuditAction {
  archiveCreated,
  policyChanged,
  messageIngested,
  messageDuplicate,
  packSealed,
  searchPerformed,
  messageRead,
  messageExported,
  messageErased,
  retentionApplied,
  tagApplied,
  tagRemoved,
  tagDeleted,
  noteAdded,
  noteEdited,
  noteRemoved,
  mailboxMembershipChanged,
  smartFolderSaved,
  smartFolderDeleted,
  legalHoldPlaced,
  legalHoldReleased,
  integrityVerified,
  integrityFailed,
  chainSealed,
  scheduledSync,
  syncIncomplete,
  syncStarted,
  syncFinished,
  importStarted,
  importFinished,
};

/// Every action in the order above.
std::span<const AuditAction> allAuditActions() noexcept;
/// The string recorded, such as "message.ingested".
std::string_view auditActionName(AuditAction action) noexcept;
/// Inverse of `auditActionName`; absent for a string no action has.
std::optional<AuditAction> auditActionFromName(std::string_view name) noexcept;
/// False only for the routine reads, `searchPerformed` and `messageRead`.
bool isCritical(AuditAction action) noexcept;

/// One entry of the chain. All strings are well-formed UTF-8.
struct AuditEntry {
  std::int64_t seq = 0;  ///< position in the chain; the first entry has 1
  Date timestamp;
  AuditAction action = AuditAction::archiveCreated;
  std::string actor;                   ///< who did it
  std::optional<std::string> subject;  ///< what it was done to
  std::map<std::string, std::string> details;
  std::string previousHash;  ///< `entryHash` of the entry before, or the genesis value
  std::string entryHash;     ///< 64 lower-case hexadecimal digits
  friend bool operator==(const AuditEntry&, const AuditEntry&) = default;
};

/// What stands as `previousHash` in the first entry: "0", 64 times.
const std::string& genesisHash();

/// The bytes the hash runs over, made from the fields so that the rendering of the line cannot
/// change it. `entryHash` does not enter.
std::string canonicalPayload(const AuditEntry& entry);
/// SHA-256 over `previousHash` followed by the canonical payload, in lower-case hexadecimal.
std::string computeEntryHash(const AuditEntry& entry);

/// The entry as one line of JSON, without its line feed.
std::string encodeAuditEntry(const AuditEntry& entry);
/// Reads one line. Absent unless every required key is there once, with its type, and the action is
/// known; other keys are passed over. Hashes are not checked. Linear in the line; never throws but
/// for want of memory.
std::optional<AuditEntry> decodeAuditEntry(std::string_view line);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_AUDIT_ENTRY_H_
