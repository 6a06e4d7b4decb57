// One mailbox. A run can end anywhere, and the next one must neither skip a message nor trust what
// it cannot know. It goes on above the highest UID that the folder holds, which rests on two rules:
// batches are committed in ascending order, and whatever a batch lacks is in `pending_fetch` before
// anything of that batch is stored. The UIDNEXT kept is that of the last visit that came to its end
// and saw the whole mailbox. Where the highest UID says nothing, because the messages held were
// chosen by other dates or because the server contradicted itself, the folder's coverage says so;
// then the next visit starts from UIDNEXT and asks for whatever is not held.

#include "syncengine/folder_collection.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "base/text.h"
#include "store/catalog_sync_state.h"
#include "store/commit.h"
#include "store/ingest_batch.h"
#include "store/ingest_pipeline.h"
#include "store/recorded_change.h"
#include "syncengine/arrived_uids.h"

namespace ambervane {
namespace {

using UIDs = std::vector<std::int64_t>;

constexpr int kMaximumAttempts = 10;
constexpr std::size_t kMaximumListedFailures = 50;
/// The coverage of a folder in which the highest UID held says nothing.
constexpr const char* kUnknownCoverage = "unknown";

std::string numberText(const std::optional<std::int64_t>& number) {
  return number ? std::to_string(*number) : "none";
}

class FolderCollection {
 public:
  FolderCollection(SyncRun& run, const IMAPFolder& folder)
      : run_(run),
        archive_(run.archive),
        progress_(run.progress),
        states_(run.archive.catalog()),
        path_(folder.path),
        folderID_(run.archive.catalog().upsertFolder(run.accountID, folder.path, folder.delimiter)),
        mailbox_{folderID_, folder.path, run.accountName} {}

  bool collect() {
    progress_.folder = path_;
    progress_.messagesInFolder = progress_.messagesTotalInFolder = 0;
    run_.report();
    open();
    const UIDs wanted = wantedUIDs();
    if (!wanted.empty() && !fetch(wanted)) return false;
    finish();
    ++progress_.foldersDone;
    return true;
  }

 private:
  void note(const std::string& text) { run_.note(path_ + ": " + text); }
  void remark(const std::string& text) { run_.remark(path_ + ": " + text); }

  void open() {
    status_ = run_.client.select(path_, true);
    if (status_.uidValidity > 0) uidValidity_ = status_.uidValidity;
    const FolderSyncState known = states_.folderSyncState(folderID_);
    uidNext_ = known.uidNext;
    if (uidValidity_ && known.uidValidity == uidValidity_) {
      resume();
      return;
    }
    if (known.uidValidity) {
      remark("UIDVALIDITY changed (" + numberText(known.uidValidity) + " → " +
             numberText(uidValidity_) + "), re-enumerating");
    } else if (!uidValidity_) {
      remark("the server gives no UIDVALIDITY, so nothing is known of this mailbox beforehand");
    }
    uidNext_.reset();
    states_.restartNumbering(folderID_, uidValidity_, run_.scope.selection());
  }

  void resume() {
    const std::string coverage = states_.coverage(folderID_);
    const std::string selection = run_.scope.selection();
    std::int64_t start = std::max<std::int64_t>(0, uidNext_.value_or(0));
    // What is complete for all messages is complete for any of them, and no longer afterwards.
    isOrderly_ = coverage.empty() || coverage == selection;
    if (isOrderly_) {
      const std::int64_t highest = states_.highestUID(folderID_);
      if (highest > 0) start = std::max(start, highest + 1);
    }
    const std::string& from = isOrderly_ ? selection : kUnknownCoverage;
    if (coverage != from) states_.setCoverage(folderID_, from);
    if (start < 1) return;
    start_ = start;
    note("resuming at UID " + std::to_string(start) +
         (uidNext_.value_or(0) < 1 && status_.uidNext < 1
              ? " from the archive — this server does not report UIDNEXT"
              : ""));
  }

  /// What is to be fetched, ascending.
  UIDs wantedUIDs() {
    listed_ = run_.client.searchUIDs(run_.scope.since, run_.scope.before, start_);
    listed_.erase(std::unique(listed_.begin(), listed_.end()), listed_.end());
    UIDs wanted = withoutHeld();
    const UIDs pending =
        archive_.catalog().pendingFetches(folderID_, uidValidity_, kMaximumAttempts);
    if (pending.empty()) return wanted;
    remark(fmt::format("asking again for {} message(s) the server did not send", pending.size()));
    UIDs both;
    std::set_union(wanted.begin(), wanted.end(), pending.begin(), pending.end(),
                   std::back_inserter(both));
    return both;
  }

  /// Without what the folder holds already. Where a visit goes on in order that is the last message
  /// alone, with which a server answers when nothing is above `start_`.
  UIDs withoutHeld() {
    const auto first = isOrderly_
                           ? std::lower_bound(listed_.begin(), listed_.end(), start_.value_or(0))
                           : listed_.end();
    UIDs wanted = states_.withoutHeldUIDs(folderID_, UIDs(listed_.begin(), first));
    wanted.insert(wanted.end(), first, listed_.end());
    return wanted;
  }

  /// False when cancelled.
  bool fetch(const UIDs& wanted) {
    progress_.messagesTotalInFolder = static_cast<std::int64_t>(wanted.size());
    PrepareSettings atStart = prepareSettings(archive_);
    atStart.known = &run_.known;
    IngestPipeline pipeline([&](IngestPipeline& to) { receive(wanted, to); },
                            currentSettings(archive_, atStart), run_.shouldCancel);
    while (const auto batch = pipeline.next()) commitBatch(*batch);
    if (!pipeline.cancelled() && !pipeline.failure()) return true;
    recordMissing();
    if (pipeline.failure()) std::rethrow_exception(pipeline.failure());
    return false;
  }

  /// On the pipeline's reader thread, which has the client to itself meanwhile.
  void receive(const UIDs& wanted, IngestPipeline& pipeline) {
    ArrivedUIDs arrived(wanted, run_.scope.batchSize);
    bool isWanted = true;
    run_.client.fetchBatches(wanted, run_.scope.batchSize, [&](std::vector<IMAPMessage> batch) {
      std::sort(batch.begin(), batch.end(),
                [](const IMAPMessage& a, const IMAPMessage& b) { return a.uid < b.uid; });
      std::vector<SourceMessage> messages;
      for (IMAPMessage& message : batch) {
        // A message nobody asked for has a UID that must not be taken for progress.
        if (arrived.arrive(message.uid)) messages.push_back(sourceMessage(std::move(message)));
      }
      isWanted = pipeline.takeBatch(std::move(messages), arrived.missingSoFar());
      return isWanted;
    });
    if (isWanted) pipeline.takeBatch({}, arrived.missingAtEnd());
  }

  SourceMessage sourceMessage(IMAPMessage&& message) const {
    SourceMessage source;
    source.raw = std::move(message.raw);
    source.folderPath = path_;
    source.flags = std::move(message.flags);
    source.internalDate = message.internalDate;
    source.sourceIdentifier = std::to_string(message.uid);
    source.originPath =
        "imap://" + run_.client.server().host + "/" + path_ + ";UID=" + std::to_string(message.uid);
    return source;
  }

  void commitBatch(const IngestPipeline::Batch& batch) {
    SyncProgress kept = progress_;
    auto item = batch.items.begin();
    bool areMissesRecorded = false;
    const auto commitNext = [&] {
      if (!std::exchange(areMissesRecorded, true)) {
        recordMisses(batch);
        return true;
      }
      if (item == batch.items.end()) return false;
      commitItem(**item++);
      return true;
    };
    try {
      commitInBatch(archive_, "sync", commitNext, [&] { kept = progress_; });
    } catch (...) {
      progress_ = std::move(kept);
      throw;
    }
  }

  void recordMisses(const IngestPipeline::Batch& batch) {
    for (const std::int64_t uid : batch.missing) {
      archive_.catalog().recordMiss(folderID_, uid, uidValidity_);
      missing_.insert(uid);
    }
    for (const auto& item : batch.items) {
      // Preparing fails for want of memory alone: that may be otherwise another time.
      if (item->unreadable) archive_.catalog().recordMiss(folderID_, uidOf(*item), uidValidity_);
    }
  }

  static std::int64_t uidOf(const IngestPipeline::Item& item) {
    return parseInteger(item.identifier).value_or(0);
  }

  void commitItem(const IngestPipeline::Item& item) {
    if (item.unreadable) {
      noteFailure(item, *item.unreadable);
    } else {
      commitMessage(item);
      arrived_.push_back(uidOf(item));
      missing_.erase(uidOf(item));
    }
    ++progress_.messagesInFolder;
    progress_.bytesIn += static_cast<std::int64_t>(item.bytes);
    progress_.throughput.record(1, static_cast<std::int64_t>(item.bytes), archive_.now());
    run_.countBytesOut();
    run_.report();
  }

  void commitMessage(const IngestPipeline::Item& item) {
    if (!item.prepared) {
      noteFailure(item, "empty or unreadable message");
      return;
    }
    const IngestOutcome outcome =
        commit(archive_, *item.prepared, mailbox_, run_.scope.retentionClass);
    switch (outcome.kind) {
      case IngestOutcome::Kind::stored:
        ++progress_.stored;
        break;
      case IngestOutcome::Kind::duplicate:
        ++progress_.duplicates;
        break;
      case IngestOutcome::Kind::failed:
        noteFailure(item, outcome.reason);
        break;
    }
  }

  void noteFailure(const IngestPipeline::Item& item, const std::string& reason) {
    ++progress_.failed;
    if (progress_.failures.size() < kMaximumListedFailures) {
      progress_.failures.push_back(path_ + ", UID " + item.identifier + ": " + reason);
    }
  }

  /// The end of a visit that saw all it wanted to see.
  void finish() {
    // A message that waits for its block is gone when the process is; then nothing may say that it
    // need not be asked for again.
    archive_.flushSolidBlock();
    std::optional<UIDs> live;
    std::exception_ptr failure;
    try {
      live = liveUIDs();
    } catch (const IMAPError&) {
      failure = std::current_exception();
    }
    RecordedChange change(archive_);
    states_.clearPendingUIDs(folderID_, std::move(arrived_));
    if (live) recordContradictions(*live);
    recordMissing();
    states_.setCoverage(folderID_, isContradicted_ ? kUnknownCoverage : run_.scope.selection());
    if (run_.scope.isWhole() && !isContradicted_) {
      uidNext_.reset();
      if (status_.uidNext > 0) uidNext_ = status_.uidNext;
    }
    states_.updateFolderSyncState(folderID_, {uidValidity_, uidNext_, status_.highestModSeq},
                                  archive_.now());
    if (live && !isContradicted_) reconcile(*live);
    change.finish();
    if (failure) std::rethrow_exception(failure);
  }

  /// All UIDs of the mailbox; absent when the listing is not wanted or not to be trusted.
  std::optional<UIDs> liveUIDs() {
    if (!run_.scope.trackMailboxMoves || !run_.scope.isWhole() || !uidValidity_) {
      return std::nullopt;
    }
    UIDs live = run_.client.searchUIDs();
    const auto isShort = [&](const IMAPMailboxStatus& status) {
      return static_cast<std::int64_t>(live.size()) < status.messages;
    };
    if (!isShort(status_)) return live;
    // Somebody may have removed messages since the mailbox was opened; that it says so now tells
    // this apart from a server that lists less than it has.
    const IMAPMailboxStatus again = run_.client.select(path_, true);
    if (again.uidValidity != status_.uidValidity) return std::nullopt;
    live = run_.client.searchUIDs();
    if (isShort(again)) {
      isContradicted_ = true;
      remark(
          fmt::format("the server counts {} message(s) and listed {}, leaving the mailbox as it "
                      "is and looking at the whole of it next time",
                      again.messages, live.size()));
    }
    return live;
  }

  /// Takes what the complete listing shows, and the one before did not, for not delivered.
  void recordContradictions(const UIDs& live) {
    UIDs unlisted;
    const auto first = std::lower_bound(live.begin(), live.end(), start_.value_or(0));
    const auto end = std::lower_bound(first, live.end(), status_.uidNext);
    std::set_difference(first, end, listed_.begin(), listed_.end(), std::back_inserter(unlisted));
    for (const std::int64_t uid : states_.withoutHeldUIDs(folderID_, unlisted)) {
      if (!missing_.insert(uid).second) continue;
      archive_.catalog().recordMiss(folderID_, uid, uidValidity_);
    }
  }

  void recordMissing() {
    if (missing_.empty()) return;
    std::string uids;
    for (const std::int64_t uid : missing_) {
      if (!uids.empty()) uids += ' ';
      uids += std::to_string(uid);
    }
    progress_.missing += static_cast<std::int64_t>(missing_.size());
    remark(fmt::format("{} message(s) the server listed but did not send — asking again next time",
                       missing_.size()));
    archive_.journal().append(AuditAction::syncIncomplete, path_,
                              {{"missing", std::to_string(missing_.size())}, {"uids", uids}});
  }

  void reconcile(const UIDs& live) {
    if (live.empty()) {
      if (states_.currentMembershipCount(folderID_) > 0) {
        remark("server listed no messages, leaving the mailbox as it is");
      }
      return;
    }
    const MembershipReconciliation found =
        states_.reconcileMembership(folderID_, live, archive_.now());
    if (found.departed == 0 && found.returned == 0) return;
    progress_.departed += found.departed;
    progress_.returned += found.returned;
    note(fmt::format("{} no longer here", found.departed) +
         (found.returned > 0 ? fmt::format(", {} back", found.returned) : ""));
    archive_.journal().append(
        AuditAction::mailboxMembershipChanged, path_,
        {{"departed", std::to_string(found.departed)},
         {"returned", std::to_string(found.returned)},
         {"stillPresent", std::to_string(found.confirmed)},
         {"note", "messages are not removed from the archive, only from this mailbox listing"}});
  }

  SyncRun& run_;
  MailArchive& archive_;
  SyncProgress& progress_;
  CatalogSyncState states_;
  const std::string path_;
  const std::int64_t folderID_;
  const MailboxRef mailbox_;

  IMAPMailboxStatus status_;
  std::optional<std::int64_t> uidValidity_;  ///< the server's now
  std::optional<std::int64_t> uidNext_;      ///< of the last visit that came to its end
  std::optional<std::int64_t> start_;        ///< UIDs from here on are listed; absent: all
  bool isOrderly_ = true;        ///< nothing below `start_` is wanted, and nothing above is held
  bool isContradicted_ = false;  ///< the server counts more messages than it lists
  UIDs listed_;                  ///< what the server said there is, ascending
  UIDs arrived_;
  std::set<std::int64_t> missing_;
};

}  // namespace

bool collectFolder(SyncRun& run, const IMAPFolder& folder) {
  try {
    return FolderCollection(run, folder).collect();
  } catch (const IMAPError& error) {
    if (error.is<IMAPError::Cancelled>()) return false;
    throw;
  }
}

}  // namespace ambervane
