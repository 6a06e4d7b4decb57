#ifndef AMBERVANE_STORE_REBUILT_MESSAGE_H_
#define AMBERVANE_STORE_REBUILT_MESSAGE_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/digest.h"
#include "store/journal_arrivals.h"
#include "store/mail_archive.h"
#include "store/prepared_message.h"

namespace ambervane {

/// Where a message's record lies.
struct RecordPlace {
  std::int64_t packID = 0;
  std::int64_t offset = 0;
  std::optional<std::int64_t> member;  ///< in the solid block there
  friend bool operator==(const RecordPlace&, const RecordPlace&) = default;
};

/// A message read from its pack alone and proved by its digest.
struct RebuiltMessage {
  PreparedMessage prepared;
  RecordPlace place;
  std::int64_t storedSize = 0;
  RecordFlags flags;
  std::uint16_t dictionaryID = 0;
  std::optional<std::int64_t> id;  ///< that its row had
};

/// A record before compression and encryption, and what its header says.
struct PlainRecord {
  Bytes bytes;
  std::int64_t storedSize = 0;
  RecordFlags flags;
  std::uint16_t dictionaryID = 0;
};

/// The solid blocks read last, decoded once for all threads that want members of them.
class SolidBlockCache {
 public:
  using Block = std::shared_ptr<const Bytes>;
  /// Throws PackError, FileError.
  Block block(MailArchive& archive, std::int64_t packID, std::int64_t offset);
  /// How many members a block has that was read before; 0 when it was not.
  std::size_t memberCount(std::int64_t packID, std::int64_t offset) const;

 private:
  static constexpr std::size_t kMostKept = 4;
  using Place = std::pair<std::int64_t, std::int64_t>;
  mutable std::mutex mutex_;
  std::deque<std::pair<Place, std::shared_future<Block>>> kept_;
  std::map<Place, std::size_t> memberCounts_;
};

/// Reads messages of an archive whose catalog is being made anew: the blobs are in the catalog
/// already. Any thread may call. What a record lacks or is damaged by comes as TranslatableError.
class MessageRebuilder {
 public:
  /// Both must outlive it.
  MessageRebuilder(MailArchive& archive, const JournalArrivals& arrivals);

  /// The message with this digest at `place`; a failure says "digest mismatch at offset 16" where
  /// another one lies there.
  RebuiltMessage message(const RecordPlace& place, const RawDigest& digest);
  /// What was read as `record` from `place`, whatever its digest.
  RebuiltMessage describe(const PlainRecord& record, const RecordPlace& place) const;
  /// `digest` and `id` are of the message when it is encrypted; without an identifier, the keys
  /// that no message in the journal owns are tried, and the one that opens it gives it.
  PlainRecord plainRecord(const RecordPlace& place, const std::string& digest,
                          std::optional<std::int64_t>& id);

  SolidBlockCache& blocks() noexcept { return blocks_; }

 private:
  PlainRecord memberOfBlock(const RecordPlace& place);
  SymmetricKey keyFor(const RecordPlace& place, const std::string& digest,
                      std::optional<std::int64_t>& id);

  MailArchive& archive_;
  const JournalArrivals& arrivals_;
  PrepareSettings settings_;
  SolidBlockCache blocks_;
  std::mutex mutex_;                       ///< guards what follows
  std::vector<std::int64_t> unownedKeys_;  ///< identifiers, ascending
  std::size_t nextKey_ = 0;                ///< records and keys come in one order
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_REBUILT_MESSAGE_H_
