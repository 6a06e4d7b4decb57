#include "store/recorded_change.h"

#include <exception>
#include <string>

#include "store/archive_error.h"
#include "store/lost_messages.h"

namespace ambervane {
RecordedChange::RecordedChange(MailArchive& archive) : archive_(archive) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  isNested_ = archive.catalog().batchDepth() > 0;
  if (isNested_) return;
  archive.catalog().beginBatch();
  archive.journal().beginBatch();
  entriesBefore_ = archive.journal().count();
}

void RecordedChange::finish() {
  noteJournalCommitted(archive_);
  if (!isNested_) {
    archive_.journal().endBatch();
    archive_.catalog().commitBatch();
  }
  finished_ = true;
}

RecordedChange::~RecordedChange() {
  if (finished_ || isNested_) return;
  archive_.catalog().rollbackBatch();
  try {
    AuditJournal& journal = archive_.journal();
    const std::int64_t entriesAfter = journal.count();
    if (entriesAfter > entriesBefore_) {
      journal.append(
          AuditAction::integrityFailed, "catalog",
          {{"note", "entries " + std::to_string(entriesBefore_ + 1) + " to " +
                        std::to_string(entriesAfter) + " tell of a change that was not kept"}});
    }
    journal.endBatch();
  } catch (const std::exception&) {
    // The disk that failed the change may fail this too; the change's own failure is told.
  }
}

}  // namespace ambervane
