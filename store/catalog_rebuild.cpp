#include "store/catalog_rebuild.h"

#include <algorithm>

#include "base/calendar.h"
#include "store/archive_error.h"
#include "store/content_erasure.h"
#include "store/lost_messages.h"
#include "store/rebuild_run.h"
#include "store/restore_annotations.h"
#include "store/restore_holds.h"
#include "store/restore_messages.h"
#include "store/unnamed_records.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

/// The highest number a message ever had: its key and its erasure are filed under it.
std::int64_t highestNumber(MailArchive& archive, const JournalArrivals& arrivals) {
  std::int64_t highest = arrivals.highestID();
  if (const auto ids = archive.keys().messagesWithKey(); !ids.empty()) {
    highest = std::max(highest, ids.back());
  }
  for (const Erasure& erasure : archive.keys().erasures()) {
    highest = std::max(highest, erasure.messageID);
  }
  return highest;
}

/// Whether nothing is missing but what was erased.
bool isErasedAlone(MailArchive& archive, const JournalArrivals& arrivals,
                   const UnprovedMessages& unproved) {
  const auto erased = archive.keys().shreddedMessages();
  return std::ranges::all_of(unproved, [&](const auto& message) {
    const JournalArrival* const arrival = arrivals.find(message.first);
    return arrival != nullptr && std::ranges::binary_search(erased, arrival->id);
  });
}

void restoreContent(RebuildRun& run, const std::vector<std::int64_t>& packs) {
  MailArchive& archive = run.archive();
  RebuildProgress& progress = run.progress();
  archive.catalog().atomically([&] {
    for (const std::int64_t pack : packs) restoreBlobs(run, pack);
  });
  UnprovedMessages unproved;
  archive.catalog().beginBatch();
  try {
    for (const std::int64_t pack : packs) {
      restoreMessages(run, pack, unproved);
      ++progress.packsDone;
      run.report();
    }
    const std::int64_t recovered = restoreUnnamed(run, packs, unproved);
    if (recovered > 0) {
      progress.note += "; " + std::to_string(recovered) +
                       " messages that no sidecar names are in the folder \"" + kRecoveredFolder +
                       "\"";
    }
    progress.skipped += static_cast<std::int64_t>(unproved.size());
    // An erasure that was broken off is known by what it has left: attachments that nobody uses. So
    // are those of a message that could not be read, and their keys must stay.
    if (!unproved.empty() && isErasedAlone(archive, run.arrivals(), unproved)) {
      noteUnfinishedErasure(archive);
    }
    archive.catalog().commitBatch();
  } catch (...) {
    archive.catalog().rollbackBatch();
    throw;
  }
}

void restoreAnnotations(MailArchive& archive, RebuildProgress& progress) {
  Catalog& catalog = archive.catalog();
  const AuditJournal& journal = archive.journal();
  progress.holds = restoreHolds(archive);
  progress.smartFolders = restoreSmartFolders(journal, catalog);
  progress.tagRules = restoreTagRules(journal, catalog);
  progress.notes = restoreNotes(journal, catalog);
  progress.tags = restoreTags(journal, catalog);
  catalog.bumpMutationGeneration();
}

}  // namespace

std::string nameOfCatalogSetAside(const MailArchive& archive) {
  std::string time = iso8601(archive.now());
  std::ranges::replace(time, ':', '-');
  const std::string name = "catalog.sqlite.broken-" + time;
  std::error_code ignored;
  for (int number = 1;; ++number) {
    std::string candidate = number == 1 ? name : name + "-" + std::to_string(number);
    if (!fs::exists(fs::symlink_status(archive.url() / candidate, ignored))) return candidate;
  }
}

RebuildProgress rebuildCatalog(MailArchive& archive, const std::string& keptAs,
                               const std::function<void(const RebuildProgress&)>& report) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  const auto packs = archive.packFiles();
  archive.journal().append(
      AuditAction::policyChanged, "catalog",
      {{"action", "rebuild started"}, {"packs", std::to_string(packs.size())}});
  archive.startCatalogAnew();
  Catalog& catalog = archive.catalog();

  const JournalArrivals arrivals(archive.journal());
  RebuildRun run(archive, arrivals, report);
  RebuildProgress& progress = run.progress();
  progress.packsTotal = static_cast<std::int64_t>(packs.size());
  progress.note =
      std::to_string(archive.dictionaries().restoreProgress()) + " dictionaries restored";
  catalog.setMessageIDFloor(highestNumber(archive, arrivals));
  restoreContent(run, packs);
  try {
    catalog.optimizeSearchIndex();
  } catch (const SQLiteError&) {
    // Only a matter of speed.
  }
  restoreAnnotations(archive, progress);

  archive.journal().append(AuditAction::policyChanged, "catalog",
                           {{"action", "rebuild finished"},
                            {"messages", std::to_string(progress.messages)},
                            {"blobs", std::to_string(progress.blobs)},
                            {"skipped", std::to_string(progress.skipped)},
                            {"smartFolders", std::to_string(progress.smartFolders)},
                            {"tags", std::to_string(progress.tags)}});
  noteJournalCommitted(archive);
  archive.installCatalog(keptAs);
  if (completeErasures(archive)) archive.sealNow();
  return progress;
}

}  // namespace ambervane
