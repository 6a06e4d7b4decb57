// Only the reading of records is parallel. Rows are written by the calling thread in the order of
// the sidecar, so that the catalog comes out the same each time.

#include "store/restore_messages.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <future>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "base/thread_pool.h"
#include "mailcore/message_flag.h"
#include "store/archive_error.h"
#include "store/message_reader.h"

namespace ambervane {
namespace {

/// Messages that one task reads.
constexpr std::size_t kMessagesPerTask = 8;
/// Tasks under way or waiting to be written, for each processor: enough that a slow message holds
/// nobody up, few enough that what is read and not written stays small.
constexpr std::size_t kTasksPerProcessor = 6;

BlobRow blobRow(const RecoveryIndex::Blob& line, std::int64_t packID,
                const PackStore::RawRecord& record) {
  BlobRow row;
  row.hash = line.hash;
  row.contentHash = line.contentHash;
  row.packID = packID;
  row.packOffset = line.offset;
  row.storedSize = static_cast<std::int64_t>(record.payload.size());
  row.originalSize = record.originalLength;
  row.recordFlags = record.flags.bits;
  row.dictionaryID = record.dictionaryID;
  row.recipe = line.recipe;
  row.encodedSize = line.encodedSize;
  return row;
}

bool isProved(MailArchive& archive, const BlobRow& row) {
  try {
    return sha256Hex(blobBytes(archive, row, 0)) == row.hash;
  } catch (const TranslatableError&) {
    return false;
  }
}

/// One message and all lines of this sidecar that name it.
struct Named {
  std::vector<SidecarLine> lines;
  std::optional<RebuiltMessage> message;
  std::string problem;
};

/// Tries each line until one proves the digest.
void read(MessageRebuilder& rebuilder, Named& named) {
  std::vector<RecordPlace> tried;
  for (const SidecarLine& line : named.lines) {
    if (std::ranges::find(tried, line.place) != tried.end()) continue;
    tried.push_back(line.place);
    try {
      named.message = rebuilder.message(line.place, line.digest);
      named.message->prepared.source.internalDate = line.internalDate;
      return;
    } catch (const ArchiveError& error) {
      // What was erased is to stay away; nobody need be told.
      named.problem = error.is<ArchiveError::Erased>() ? "" : error.what();
    } catch (const std::exception& error) {
      // Want of memory for one huge message is no reason to lose those behind it.
      named.problem = error.what();
    }
  }
}

std::vector<SidecarLine> linesOf(RebuildRun& run, std::int64_t packID) {
  std::vector<SidecarLine> lines;
  TextNumbers& texts = run.texts();
  RecoveryIndex::read(run.archive().packs().packURL(packID), [&](const RecoveryIndex::Entry& e) {
    const auto* const entry = std::get_if<RecoveryIndex::Message>(&e);
    const auto digest = entry != nullptr ? rawDigest(entry->hash) : std::nullopt;
    if (!digest) return;
    SidecarLine line;
    line.digest = *digest;
    line.place = {packID, entry->offset, entry->blockMember};
    line.uid = entry->uid;
    line.internalDate = entry->internalDate;
    line.folder = texts.numberOf(entry->folder);
    line.account = texts.numberOf(entry->account);
    line.flags = texts.numberOf(flagText(flagsFromText(entry->flags)));
    line.ofClass = texts.numberOf(entry->retentionClass);
    lines.push_back(line);
  });
  return lines;
}

/// Where the lines of each message are, by number, in the order of their first ones.
std::vector<std::vector<std::size_t>> groupedByMessage(const std::vector<SidecarLine>& lines) {
  std::vector<std::size_t> order(lines.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::ranges::stable_sort(order, {}, [&](std::size_t i) { return lines[i].digest; });
  std::vector<std::vector<std::size_t>> groups;
  for (const std::size_t i : order) {
    const bool isSame = !groups.empty() && lines[groups.back().front()].digest == lines[i].digest;
    if (!isSame) groups.emplace_back();
    groups.back().push_back(i);
  }
  std::ranges::sort(groups, {}, [](const auto& group) { return group.front(); });
  return groups;
}

/// The messages of one sidecar on their way into the catalog.
class MessageRestorer {
 public:
  MessageRestorer(RebuildRun& run, UnprovedMessages& unproved)
      : run_(run), unproved_(unproved), pool_(ThreadPool::processorCount()) {}
  ~MessageRestorer() {
    for (Task& task : tasks_) task.done.wait();
  }
  MessageRestorer(const MessageRestorer&) = delete;
  MessageRestorer& operator=(const MessageRestorer&) = delete;

  void restore(std::vector<SidecarLine> lines) {
    auto some = std::make_shared<std::vector<Named>>();
    for (const auto& group : groupedByMessage(lines)) {
      Named named;
      for (const std::size_t i : group) named.lines.push_back(lines[i]);
      const RawDigest& digest = named.lines.front().digest;
      if (run_.archive().catalog().messageID(hexEncode({digest.data(), digest.size()}))) {
        for (const SidecarLine& line : named.lines) run_.file(line);
        continue;
      }
      some->push_back(std::move(named));
      if (some->size() < kMessagesPerTask) continue;
      submit(std::exchange(some, std::make_shared<std::vector<Named>>()));
    }
    submit(std::move(some));
    while (!tasks_.empty()) writeFirst();
  }

 private:
  struct Task {
    std::shared_ptr<std::vector<Named>> messages;
    std::future<void> done;
  };

  void submit(std::shared_ptr<std::vector<Named>> messages) {
    if (tasks_.size() >= kTasksPerProcessor * pool_.threadCount()) writeFirst();
    auto done = pool_.submit([messages, rebuilder = &run_.rebuilder()] {
      for (Named& named : *messages) read(*rebuilder, named);
    });
    tasks_.push_back({std::move(messages), std::move(done)});
  }

  void writeFirst() {
    const auto messages = tasks_.front().messages;
    tasks_.front().done.wait();
    tasks_.pop_front();
    for (Named& named : *messages) write(named);
    run_.commitNowAndThen();
  }

  void write(Named& named) {
    const SidecarLine& first = named.lines.front();
    std::vector<SidecarLine>& unproved = unproved_[first.digest];
    unproved.insert(unproved.end(), named.lines.begin(), named.lines.end());
    if (!named.message) {
      if (!named.problem.empty()) run_.noteProblem(first.place.packID, named.problem);
      return;
    }
    const auto winner = std::ranges::find(named.lines, named.message->place, &SidecarLine::place);
    if (!run_.store(*named.message, run_.texts().text(winner->ofClass))) return;
    // Lines of another pack may have failed before: the message lies in their mailboxes too.
    for (const SidecarLine& line : unproved) run_.file(line);
    unproved_.erase(first.digest);
  }

  RebuildRun& run_;
  UnprovedMessages& unproved_;
  std::deque<Task> tasks_;
  ThreadPool pool_;
};

}  // namespace

void restoreBlobs(RebuildRun& run, std::int64_t packID) {
  MailArchive& archive = run.archive();
  Catalog& catalog = archive.catalog();
  RecoveryIndex::read(archive.packs().packURL(packID), [&](const RecoveryIndex::Entry& entry) {
    const auto* const line = std::get_if<RecoveryIndex::Blob>(&entry);
    if (line == nullptr || !rawDigest(line->hash)) return;
    try {
      PackLocation location;
      location.packID = packID;
      location.offset = line->offset;
      const BlobRow row = blobRow(*line, packID, archive.packs().read(location));
      run.noteRead(static_cast<std::size_t>(row.storedSize));
      const auto known = catalog.blob(row.hash);
      if (!known) {
        catalog.insertBlob(row);
        ++run.progress().blobs;
      } else if (isProved(archive, row)) {
        catalog.replaceBlob(known->id, row);
      }
    } catch (const SQLiteError&) {
      throw;
    } catch (const TranslatableError& error) {
      ++run.progress().skipped;
      run.noteProblem(packID, error.what());
    }
  });
}

void restoreMessages(RebuildRun& run, std::int64_t packID, UnprovedMessages& unproved) {
  MessageRestorer(run, unproved).restore(linesOf(run, packID));
}

}  // namespace ambervane
