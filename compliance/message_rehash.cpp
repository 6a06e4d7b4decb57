// The walk over all messages. The calling thread reads rows, in pages because a query under way
// would hold the connection that the workers need, and forms tasks: some messages, or all members
// of a solid block that follow one another. Tasks run on a pool, a few ahead of the one whose
// results are awaited, so that the packs are read nearly in order. A message is never put together:
// its parts go through the hash as they come.

#include "compliance/message_rehash.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <future>
#include <optional>
#include <utility>
#include <variant>

#include "base/bytes.h"
#include "base/digest.h"
#include "compliance/blob_cache.h"
#include "compliance/pool_task.h"
#include "mailcore/header_set.h"
#include "mailcore/mail_date.h"
#include "store/archive_error.h"
#include "store/message_reader.h"
#include "store/message_record.h"
#include "store/pack_error.h"

namespace ambervane {
namespace {

constexpr std::int64_t kPageRows = 1000;
constexpr std::size_t kTaskRows = 64;
constexpr std::int64_t kTaskBytes = 4 << 20;  ///< of raw mail, from which a task is closed
constexpr std::size_t kBlobCacheBytes = std::size_t{64} << 20;
/// After this much raw mail the packs' mappings are given up, so that pages already read do not
/// count as ours for ever.
constexpr std::int64_t kRemapBytes = std::int64_t{256} << 20;
/// Readings of odd dates may differ by a zone between versions, not by more.
constexpr double kDateTolerance = 86'400;

using Task = std::vector<MessageRow>;

struct TaskResult {
  std::vector<std::optional<DamagedMessage>> rows;  ///< absent for a sound message
  std::vector<std::string> misdated;
};

/// Whether two rows can be read out of one block.
bool sharesBlock(const MessageRow& a, const MessageRow& b) {
  return a.blockMember && b.blockMember && a.packID == b.packID && a.packOffset == b.packOffset;
}

class Rehash {
 public:
  Rehash(MailArchive& archive, const RehashObserver& observer)
      : archive_(archive), observer_(observer), pool_(ThreadPool::processorCount()) {}

  RehashResult run() {
    std::int64_t last = 0;
    for (bool more = true; more && !cancelled();) {
      const auto page = archive_.catalog().database().query(
          "SELECT id, sha256, size, sent_at, pack_id, pack_offset, block_member FROM message WHERE "
          "erased = 0 AND id > ? ORDER BY id LIMIT ?",
          {last, kPageRows});
      for (const Row& row : page) {
        last = row.integer("id");
        add(MessageRow(row));
        if (cancelled()) break;
      }
      more = static_cast<std::int64_t>(page.size()) == kPageRows;
    }
    submit();
    while (!running_.empty()) collect();
    return std::move(result_);
  }

 private:
  bool cancelled() {
    cancelled_ = cancelled_ || (observer_.shouldCancel && observer_.shouldCancel());
    return cancelled_;
  }

  void add(MessageRow row) {
    const bool isFull = task_.size() >= kTaskRows || taskBytes_ >= kTaskBytes;
    // A block is read by one task, however many messages it holds.
    const bool continues = !task_.empty() && sharesBlock(task_.back(), row);
    if (!task_.empty() && !continues && (isFull || row.blockMember || task_.back().blockMember)) {
      submit();
    }
    taskBytes_ += std::clamp<std::int64_t>(row.size, 0, kTaskBytes);
    task_.push_back(std::move(row));
  }

  void submit() {
    if (task_.empty()) return;
    if (running_.size() > pool_.threadCount()) collect();
    mappedBytes_ += std::exchange(taskBytes_, 0);
    if (mappedBytes_ >= kRemapBytes) {
      archive_.packs().invalidateCache();
      mappedBytes_ = 0;
    }
    running_.push_back(
        runOn(pool_, [this, task = std::exchange(task_, {})] { return read(task); }));
  }

  void collect() {
    TaskResult done = running_.front().get();
    running_.pop_front();
    for (const auto& damaged : done.rows) {
      ++result_.checked;
      if (damaged) {
        ++result_.failures;
        if (observer_.damaged) observer_.damaged(*damaged);
      }
      if (observer_.step) observer_.step(result_.checked, result_.failures);
    }
    for (std::string& digest : done.misdated) result_.misdated.push_back(std::move(digest));
  }

  /// On a thread of the pool.
  TaskResult read(const Task& task) {
    TaskResult result;
    SolidBlockReader blocks;
    for (const MessageRow& row : task) {
      std::optional<DamagedMessage> damaged;
      try {
        if (!proves(row, blocks)) result.misdated.push_back(row.sha256);
      } catch (const std::exception& error) {
        damaged = DamagedMessage{row.id, row.sha256, error.what()};
      }
      result.rows.push_back(std::move(damaged));
    }
    return result;
  }

  /// Throws unless the message comes back as it was; false when its date is not the catalog's.
  bool proves(const MessageRow& row, SolidBlockReader& blocks) {
    if (!row.packID || !row.packOffset) throw ArchiveError(ArchiveError::MessageMissing{row.id});
    PackLocation location;
    location.packID = *row.packID;
    location.offset = *row.packOffset;
    const Bytes plain =
        row.blockMember
            ? blocks.member(archive_, static_cast<std::size_t>(*row.blockMember), location)
            : decodedRecordPayload(archive_, row, location);
    const MessageRecord record = MessageRecord::decode(plain);
    Sha256 hash;
    for (const MessageRecord::Segment& segment : record.segments) {
      if (const auto* literal = std::get_if<MessageRecord::Literal>(&segment)) {
        hash.update(literal->bytes);
      } else {
        hash.update(*blob(std::get<MessageRecord::Blob>(segment)));
      }
    }
    if (hexEncode(hash.finish()) != row.sha256) {
      throw PackError(PackError::CorruptRecord{"message " + std::to_string(row.id) +
                                               " does not match its SHA-256"});
    }
    return isDated(row, record);
  }

  BlobCache::Shared blob(const MessageRecord::Blob& blob) {
    return blobs_.get(blob.hash, [&] { return blobBytes(archive_, blob.hash, blob.length); });
  }

  /// Whether the date in the catalog can come from the message's own header.
  static bool isDated(const MessageRow& row, const MessageRecord& record) {
    if (record.segments.empty()) return true;
    const auto* literal = std::get_if<MessageRecord::Literal>(&record.segments.front());
    if (literal == nullptr) return true;
    const BytesView raw = literal->bytes;
    const HeaderSet header = HeaderSet::parse(raw.substr(0, splitHeaderAndBody(raw).headerEnd));
    const auto field = header["date"];
    // Where attachments were cut out, the header may have gone on behind them.
    if (!field && record.segments.size() > 1) return true;
    const auto date = MailDate::parse(field);
    if (!date || !row.sentAt) return date.has_value() == row.sentAt.has_value();
    return std::abs(date->seconds - row.sentAt->seconds) <= kDateTolerance;
  }

  MailArchive& archive_;
  const RehashObserver& observer_;
  BlobCache blobs_{kBlobCacheBytes};
  RehashResult result_;
  Task task_;
  std::int64_t taskBytes_ = 0;
  std::int64_t mappedBytes_ = 0;
  bool cancelled_ = false;
  std::deque<std::future<TaskResult>> running_;
  ThreadPool pool_;  ///< last, so that its threads end before what they use
};

}  // namespace

RehashResult rehashMessages(MailArchive& archive, const RehashObserver& observer) {
  return Rehash(archive, observer).run();
}

}  // namespace ambervane
