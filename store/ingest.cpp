#include "store/ingest.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "base/text.h"
#include "platform/volume.h"
#include "store/archive_error.h"
#include "store/ingest_batch.h"
#include "store/ingest_pipeline.h"

namespace ambervane {
namespace {

constexpr std::size_t kMaximumListedFailures = 50;
constexpr std::size_t kMaximumListedNotMail = 20;
constexpr std::uint64_t kRoomReserve = 67108864;

/// The committing side of a run.
class IngestRun {
 public:
  IngestRun(MailArchive& archive, const IngestOptions& options, const IngestProgress& progress)
      : archive_(archive),
        options_(options),
        progress_(progress),
        packBytesAtStart_(archive.packs().bytesAppended()) {
    summary_.throughput = ThroughputMeter(archive.now());
    logID_ = archive_.catalog().beginIngest(options.sourcePath.value_or(options.accountName));
    archive_.journal().append(
        AuditAction::importStarted, std::nullopt,
        {{"account", options.accountName}, {"source", options.sourcePath.value_or("")}});
    accountID_ =
        archive_.catalog().upsertAccount(options.accountName, options.accountKind, options.host,
                                         options.username, options.sourcePath);
    const auto account = archive_.catalog().account(options.accountName);
    takesUIDs_ = options.accountKind == kImapAccountKind || account->kind != kImapAccountKind;
  }

  void commitGroup(IngestPipeline::Batch first, IngestPipeline& pipeline) {
    try {
      commitReady(archive_, "import", std::move(first), pipeline,
                  [this](const IngestPipeline::Item& item) { commitItem(item); });
    } catch (const std::exception& error) {
      noteBrokenOff(error.what());
      throw;
    }
  }

  IngestSummary finish(bool cancelled) {
    archive_.flushSolidBlock();
    archive_.synchronize();
    try {
      archive_.catalog().optimizeSearchIndex();
    } catch (const SQLiteError&) {
      // Only a matter of speed.
    }
    summary_.cancelled = cancelled;
    archive_.catalog().finishIngest(logID_, summary_.added, summary_.duplicates, summary_.failed,
                                    summary_.bytesIn, summary_.bytesOut, note());
    archive_.journal().append(AuditAction::importFinished, std::nullopt,
                              {{"added", std::to_string(summary_.added)},
                               {"duplicates", std::to_string(summary_.duplicates)},
                               {"failed", std::to_string(summary_.failed)},
                               {"bytes_in", std::to_string(summary_.bytesIn)},
                               {"bytes_out", std::to_string(summary_.bytesOut)}});
    try {
      archive_.sealNow();
    } catch (const TranslatableError&) {
      // The mail is in; the next run seals what this one could not.
    }
    return std::move(summary_);
  }

 private:
  /// What the log of runs keeps besides the numbers.
  std::optional<std::string> note() const {
    std::string text = summary_.cancelled ? "cancelled" : "";
    if (summary_.unreadableAttachments > 0) {
      if (!text.empty()) text += "; ";
      text += "attachments whose text could not be read for the index: " +
              std::to_string(summary_.unreadableAttachments);
    }
    if (text.empty()) return std::nullopt;
    return text;
  }

  void noteBrokenOff(const std::string& error) noexcept {
    try {
      archive_.catalog().finishIngest(logID_, summary_.added, summary_.duplicates, summary_.failed,
                                      summary_.bytesIn, summary_.bytesOut, "broken off: " + error);
    } catch (const std::exception&) {
      // The disk that failed the batch may fail this too; the run's end is told in any case.
    }
  }

  void commitItem(const IngestPipeline::Item& item) {
    if (item.unreadable) {
      noteFailure(*item.unreadable);
    } else if (!item.prepared) {
      noteFailure(item.name + ": empty or unreadable message");
    } else if (!item.prepared->looksLikeMail && !options_.archivesFilesThatAreNotMail) {
      ++summary_.notMail;
      if (summary_.errors.size() < kMaximumListedNotMail) {
        summary_.errors.push_back(item.name + ": not a mail message");
      }
      return;
    } else {
      commitMessage(item);
    }
    summary_.throughput.record(1, static_cast<std::int64_t>(item.bytes), archive_.now());
    if (progress_) progress_(summary_, item.folderPath.empty() ? "INBOX" : item.folderPath);
  }

  void commitMessage(const IngestPipeline::Item& item) {
    const IngestOutcome outcome =
        commit(archive_, *item.prepared, mailbox(item.folderPath), options_.retentionClass);
    switch (outcome.kind) {
      case IngestOutcome::Kind::stored:
        ++summary_.added;
        summary_.unreadableAttachments += item.prepared->unreadableAttachments;
        summary_.bytesIn += static_cast<std::int64_t>(item.bytes);
        summary_.bytesOut =
            static_cast<std::int64_t>(archive_.packs().bytesAppended() - packBytesAtStart_);
        break;
      case IngestOutcome::Kind::duplicate:
        ++summary_.duplicates;
        break;
      case IngestOutcome::Kind::failed:
        noteFailure(item.name + ": " + outcome.reason);
        break;
    }
  }

  const MailboxRef& mailbox(const std::string& folderPath) {
    const std::string path = folderPath.empty() ? "INBOX" : folderPath;
    const auto known = mailboxes_.find(path);
    if (known != mailboxes_.end()) return known->second;
    const std::int64_t id = archive_.catalog().upsertFolder(accountID_, path);
    return mailboxes_.emplace(path, MailboxRef{id, path, options_.accountName, takesUIDs_})
        .first->second;
  }

  void noteFailure(const std::string& text) {
    ++summary_.failed;
    for (auto* list : {&summary_.errors, &summary_.failures}) {
      if (list->size() < kMaximumListedFailures) list->push_back(text);
    }
  }

  MailArchive& archive_;
  const IngestOptions& options_;
  const IngestProgress& progress_;
  const std::uint64_t packBytesAtStart_;
  IngestSummary summary_;
  std::int64_t logID_ = 0;
  std::int64_t accountID_ = 0;
  bool takesUIDs_ = true;
  std::map<std::string, MailboxRef> mailboxes_;
};

/// `bytes` are to come; a reserve is asked for besides.
void requireRoom(const std::filesystem::path& folder, std::uint64_t bytes,
                 const std::string& label) {
  const auto available = freeBytes(folder);
  if (!available) return;
  const std::uint64_t needed = bytes + kRoomReserve;
  if (*available >= needed) return;
  throw ArchiveError(
      ArchiveError::NotEnoughSpace{label, humanBytes(static_cast<std::int64_t>(needed)),
                                   humanBytes(static_cast<std::int64_t>(*available))});
}

}  // namespace

IngestOutcome ingest(MailArchive& archive, SourceMessage source, const MailboxRef& mailbox,
                     const std::optional<RetentionClass>& retentionClass) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  const auto prepared = prepareOne(std::move(source), prepareSettings(archive));
  if (!prepared) return {IngestOutcome::Kind::failed, "empty or unreadable message"};
  IngestBatch batch(archive);
  IngestOutcome outcome = commit(archive, *prepared, mailbox, retentionClass);
  batch.finish();
  afterBatch(archive);
  return outcome;
}

IngestSummary ingestAll(MailArchive& archive, MessageImporter& importer,
                        const IngestOptions& options, const std::function<bool()>& shouldCancel,
                        const IngestProgress& progress) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  IngestRun run(archive, options, progress);
  const KnownDigests known(archive.catalog().database().path());
  PrepareSettings atStart = prepareSettings(archive);
  atStart.known = &known;
  atStart.preparesWhatIsNotMail = options.archivesFilesThatAreNotMail;
  IngestPipeline pipeline(importer, currentSettings(archive, atStart), shouldCancel);
  while (auto batch = pipeline.next()) run.commitGroup(std::move(*batch), pipeline);
  if (pipeline.failure()) std::rethrow_exception(pipeline.failure());
  return run.finish(pipeline.cancelled());
}

void requireRoomToAdd(const MailArchive& archive, const std::filesystem::path& source,
                      const std::string& label) {
  requireRoomAt(archive.url(), source, label);
}

void requireRoomAt(const std::filesystem::path& folder, const std::filesystem::path& source,
                   const std::string& label) {
  requireRoom(folder, static_cast<std::uint64_t>(sizeOnDisk(source)), label);
}

void requireRoomToAdd(const MailArchive& archive, const std::string& label) {
  requireRoom(archive.url(), 0, label);
}

}  // namespace ambervane
