#ifndef AMBERVANE_STORE_SOLID_BLOCK_WRITER_H_
#define AMBERVANE_STORE_SOLID_BLOCK_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/bytes.h"
#include "store/pack_store.h"
#include "store/recovery_index.h"

namespace ambervane {

class MailArchive;
struct MessageRow;

/// A message whose row is complete but for its place: it waits for its block.
struct PendingSolidMember {
  std::int64_t messageID = 0;
  Bytes plain;  ///< its message record
  /// Its sidecar lines, one a mailbox, still without place and member.
  std::vector<RecoveryIndex::Message> recovery;
};

/// The messages waiting to be compressed together. Those of an open batch can be given up with it.
/// Not thread-safe: it belongs to the committing thread.
class SolidBlockWriter {
 public:
  /// Plain bytes from which a block is written.
  static constexpr std::size_t kBlockBytes = 4194304;

  bool isEmpty() const noexcept { return pending_.empty(); }
  bool isFull() const noexcept { return bytes_ >= kBlockBytes; }
  void add(PendingSolidMember member);
  /// Files a waiting message in one more mailbox; its line follows the block's. False when the
  /// message does not wait here.
  bool addMailbox(std::int64_t messageID, RecoveryIndex::Message recovery);
  /// Hands out all that waits; nothing waits any more. The members stay until `commit`.
  std::span<PendingSolidMember> release();
  /// What was released is written for good.
  void commit() noexcept;
  /// The transaction is gone since the last `commit`: what waited then waits again, the rest is
  /// forgotten.
  void rollback() noexcept;

 private:
  std::vector<PendingSolidMember> pending_;
  std::vector<PendingSolidMember> released_;
  std::size_t bytes_ = 0;
  std::size_t committed_ = 0;  ///< how many waited at the last `commit`
};

/// What of a block's `payload` bytes a member of `plain` bytes counts as its own, the whole being
/// `block` bytes before compression.
inline std::int64_t solidShare(std::size_t plain, std::size_t block, std::size_t payload) noexcept {
  return static_cast<std::int64_t>(static_cast<double>(plain) / static_cast<double>(block) *
                                   static_cast<double>(payload));
}

/// Writes `members` as one block and completes their rows, inside the open batch or in a
/// transaction of its own; returns how many. Throws PackError, FileError, SQLiteError.
std::size_t writeSolidBlock(MailArchive& archive, std::span<PendingSolidMember> members);

/// Reads members of blocks and keeps the block read last, so that reading along decodes each once.
class SolidBlockReader {
 public:
  /// The plain record of a member. Throws PackError, FileError.
  Bytes member(MailArchive& archive, std::size_t index, const PackLocation& location);

 private:
  std::int64_t packID_ = 0;
  std::int64_t offset_ = 0;
  Bytes block_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_SOLID_BLOCK_WRITER_H_
