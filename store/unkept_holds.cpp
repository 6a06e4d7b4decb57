#include "store/unkept_holds.h"

#include <string>

#include "store/catalog_holds.h"
#include "store/mail_archive.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

/// What openings for reading record; any other entry is a writer's.
bool isReaders(AuditAction action) {
  return action == AuditAction::searchPerformed || action == AuditAction::messageRead ||
         action == AuditAction::messageExported;
}

/// Whether the change that the entry tells of was kept, as all are but a hold's that was
/// interrupted. What was kept and has gone since is for a verification to find.
bool isKept(MailArchive& archive, const AuditEntry& entry) {
  const bool isPlaced = entry.action == AuditAction::legalHoldPlaced;
  if (!isPlaced && entry.action != AuditAction::legalHoldReleased) return true;
  if (!RecordedChange::isKnownUnkept(archive, entry.seq)) return true;
  const auto hold = CatalogHolds(archive.catalog()).hold(entry.subject.value_or(""));
  return hold && (isPlaced || !hold->isActive());
}

}  // namespace

bool nameUnkeptHold(MailArchive& archive) {
  std::size_t looked = 0;
  for (std::size_t count = 1;; count *= 8) {
    const auto entries = archive.journal().recent(count);
    for (; looked < entries.size(); ++looked) {
      const AuditEntry& entry = entries[looked];
      if (isReaders(entry.action)) continue;
      if (isKept(archive, entry)) return false;
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
