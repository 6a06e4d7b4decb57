#include "store/unkept_changes.h"

#include <string>

#include "store/mail_archive.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

/// What openings for reading record; any other entry is a writer's.
bool isReaders(AuditAction action) {
  return action == AuditAction::searchPerformed || action == AuditAction::messageRead ||
         action == AuditAction::messageExported;
}

/// Whether the entry is always part of a `RecordedChange`, and the only entry of it.
bool isRecordedChange(const AuditEntry& entry) {
  switch (entry.action) {
    case AuditAction::legalHoldPlaced:
    case AuditAction::legalHoldReleased:
    case AuditAction::noteAdded:
    case AuditAction::noteEdited:
    case AuditAction::noteRemoved:
    case AuditAction::smartFolderSaved:
    case AuditAction::smartFolderDeleted:
      return true;
    case AuditAction::retentionApplied:
      return entry.subject == "reclassify" || entry.subject == "retention dates";
    default:
      return false;
  }
}

}  // namespace

bool nameUnkeptChange(MailArchive& archive) {
  std::size_t looked = 0;
  for (std::size_t count = 1;; count *= 8) {
    const auto entries = archive.journal().recent(count);
    for (; looked < entries.size(); ++looked) {
      const AuditEntry& entry = entries[looked];
      if (isReaders(entry.action)) continue;
      if (!isRecordedChange(entry) || !RecordedChange::isKnownUnkept(archive, entry.seq)) {
        return false;
      }
      const std::string seq = std::to_string(entry.seq);
      archive.journal().append(
          AuditAction::integrityFailed, "catalog",
          {{"note", "entries " + seq + " to " + seq + " tell of a change that was not kept"}});
      return true;
    }
    if (entries.size() < count) return false;
  }
}

}  // namespace ambervane
