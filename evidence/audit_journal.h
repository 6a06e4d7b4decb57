#ifndef AMBERVANE_EVIDENCE_AUDIT_JOURNAL_H_
#define AMBERVANE_EVIDENCE_AUDIT_JOURNAL_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date.h"
#include "base/file.h"
#include "base/localized_message.h"
#include "evidence/audit_entry.h"
#include "evidence/finding.h"
#include "platform/file_lock.h"

namespace ambervane {

class JournalError final : public TranslatableError {
 public:
  enum class Reason { notWritable };
  explicit JournalError(Reason reason) : reason_(reason) {}
  Reason reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

struct VerificationResult {
  std::int64_t entriesChecked = 0;  ///< that passed
  bool ok = false;
  std::optional<std::int64_t> firstBadSeq;
  std::string message;  ///< the finding in English
  std::string head;     ///< `entryHash` of the last good entry, or the genesis value
  std::optional<Finding> finding;
};

/// The archive's append-only record: one JSON object a line, each carrying the hash of the one
/// before. Format: docs/format/journal.md. Nothing in the file is ever rewritten.
///
/// Any thread may call. Several processes may append to one file: each takes the file lock for one
/// append and looks whether the file has grown before it hashes. Readers take no lock.
class AuditJournal {
 public:
  using ActorProvider = std::function<std::string()>;

  /// Opens the journal and finds its head. When `writable`, creates the folders and the file (mode
  /// 0600) where they are missing and throws FileError for what the system refuses; otherwise
  /// changes nothing, and a file that cannot be read has no entries.
  AuditJournal(std::filesystem::path url, ActorProvider actorProvider, bool writable,
               LockFunction lockFile = systemFileLock, Clock clock = systemNow);
  AuditJournal(const AuditJournal&) = delete;
  AuditJournal& operator=(const AuditJournal&) = delete;

  bool isWritable() const;
  /// `entryHash` of the last entry known, or the genesis value.
  std::string head() const;
  /// `seq` of the last entry known, or 0.
  std::int64_t count() const;

  /// Records one entry and, outside a batch, flushes it to the medium; returns it as written.
  /// Ill-formed UTF-8 is repaired first. Without `actor` the actor provider is asked. Throws
  /// JournalError or FileError; the head known is then what it was, and the next call looks at what
  /// the file really holds.
  AuditEntry append(AuditAction action, const std::optional<std::string>& subject = std::nullopt,
                    const std::map<std::string, std::string>& details = {},
                    const std::optional<std::string>& actor = std::nullopt);

  /// From here on appends do not flush.
  void beginBatch();
  /// Ends the batch and flushes what it wrote. Throws FileError.
  void endBatch();
  /// Flushes without ending a batch. Throws FileError.
  void flush();
  /// As `flush`, for callers to whom a failure has no consequence.
  void synchronize() noexcept;

  /// Walks the chain in the file from its start to the first fault.
  VerificationResult verify() const;
  /// The newest entries, newest first, of one action if `matching` is given. Looks at no more than
  /// the last 200,000 lines, so a rare action may give fewer than there are.
  std::vector<AuditEntry> recent(std::size_t limit,
                                 std::optional<AuditAction> matching = std::nullopt) const;
  /// Calls `body` for each readable entry in file order until it returns false. Lines that do not
  /// read as entries are passed over, here and in `recent` and `allEntries`.
  void forEachEntry(const std::function<bool(const AuditEntry&)>& body) const;
  /// As `forEachEntry`, newest first. Costs what is looked at, not what the journal holds.
  void forEachEntryNewestFirst(const std::function<bool(const AuditEntry&)>& body) const;
  /// Entries in file order, up to `limit`.
  std::vector<AuditEntry> allEntries(std::size_t limit) const;

  /// "<login>@<host>", without blanks.
  static std::string defaultActor();

 private:
  /// What an append builds on.
  struct Tail {
    std::string head;
    std::int64_t count = 0;
    std::uint64_t length = 0;  ///< file size in bytes as last seen
    bool endsWithNewline = true;
  };
  static Tail scan(std::string_view bytes);
  void catchUp();
  AuditEntry makeEntry(AuditAction action, const std::optional<std::string>& subject,
                       const std::map<std::string, std::string>& details,
                       const std::optional<std::string>& actor) const;

  const std::filesystem::path url_;
  const ActorProvider actorProvider_;
  const LockFunction lockFile_;
  const Clock clock_;
  mutable std::mutex mutex_;  ///< guards what follows
  std::optional<AppendFile> file_;
  Tail tail_;
  bool deferSync_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_AUDIT_JOURNAL_H_
