#include "store/recorded_change.h"

#include <exception>
#include <string>

#include "base/text.h"
#include "store/archive_error.h"

namespace ambervane {
namespace {

/// In the catalog's meta table: the journal's count when the last change was kept.
constexpr const char* kKeptKey = "recorded_change";

}  // namespace

bool RecordedChange::isKnownUnkept(MailArchive& archive, std::int64_t entry) {
  const auto kept = parseInteger(archive.catalog().meta(kKeptKey).value_or(""));
  return kept && entry > *kept;
}

RecordedChange::RecordedChange(MailArchive& archive) : archive_(archive) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  isNested_ = archive.catalog().batchDepth() > 0;
  if (isNested_) return;
  archive.catalog().beginBatch();
  archive.journal().beginBatch();
  entriesBefore_ = archive.journal().count();
}

void RecordedChange::finish() {
  archive_.catalog().setMeta(kKeptKey, std::to_string(archive_.journal().count()));
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
