#ifndef AMBERVANE_STORE_MAIL_ARCHIVE_H_
#define AMBERVANE_STORE_MAIL_ARCHIVE_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "doctext/attachment_text.h"
#include "evidence/audit_journal.h"
#include "evidence/chain_seal.h"
#include "evidence/retention_policy.h"
#include "evidence/sealer.h"
#include "platform/file_lock.h"
#include "store/archive_lock.h"
#include "store/archive_manifest.h"
#include "store/catalog.h"
#include "store/codec.h"
#include "store/content_key_store.h"
#include "store/dictionary_keeper.h"
#include "store/pack_store.h"
#include "store/recovery_sidecars.h"
#include "store/solid_block_writer.h"
#include "store/storage_access.h"
#include "store/tag_rule_cache.h"

namespace ambervane {

/// What an archive takes from outside, so that a test can hold it.
struct ArchiveEnvironment {
  Clock clock = systemNow;
  LockFunction archiveLock;  ///< empty: the system's flock
  LockFunction journalLock;  ///< empty: the system's flock
  TimestampEnvironment timestamps = {};
};

/// Whether a writable opening wants what the medium may refuse. `rebuild` is for `rebuildCatalog`
/// alone: it writes, and does without the catalog that is there, which need not be readable.
enum class OpenMode { readWrite, readOnly, rebuild };

/// One open archive: opens, owns and closes its parts, and hands them out. What a command does with
/// an archive is a free function elsewhere. One process holds the write lock; any number may read.
class MailArchive {
 public:
  /// Makes a new archive in a folder that does not exist or is empty, and opens it. Throws
  /// ArchiveError, FileError.
  static std::unique_ptr<MailArchive> create(const std::filesystem::path& url,
                                             const std::string& name, const RetentionPolicy& policy,
                                             CompressionEffort effort,
                                             ArchiveEnvironment environment = {});

  /// Opens an archive; a writable opening falls back to reading where the medium or a newer format
  /// demands it (one for a rebuild throws ArchiveError, ReadOnly, instead), repairs what a crash
  /// left, and takes the write lock. A read-only one writes nothing but the journal entries of what
  /// is done. Throws ArchiveError, JsonError, SQLiteError, FileError; what was acquired is
  /// released.
  MailArchive(std::filesystem::path url, OpenMode mode, ArchiveEnvironment environment = {});
  ~MailArchive();
  MailArchive(const MailArchive&) = delete;
  MailArchive& operator=(const MailArchive&) = delete;

  /// Flushes and releases everything; nothing may be asked of the archive after it.
  void close();

  const std::filesystem::path& url() const noexcept { return url_; }
  const ArchiveManifest& manifest() const noexcept { return manifest_; }
  const RetentionPolicy& policy() const noexcept { return manifest_.policy; }
  Catalog& catalog() noexcept { return *catalog_; }
  PackStore& packs() noexcept { return *packs_; }
  AuditJournal& journal() noexcept { return *journal_; }
  Sealer& sealer() noexcept { return *sealer_; }
  DictionaryKeeper& dictionaries() noexcept { return *dictionaries_; }
  /// Open with an archive for writing; else opened when first asked for, since most reading does
  /// without. Throws KeyError, SQLiteError then.
  ContentKeyStore& keys();
  SolidBlockWriter& solidBlock() noexcept { return solidBlock_; }
  SolidBlockReader& solidReader() noexcept { return solidReader_; }
  /// Reads attachments for the index; null when the policy wants none read.
  const AttachmentTextReader* attachmentText();
  /// Whether message records wait to be written in blocks: at the smallest effort, unless single
  /// messages must stay erasable.
  bool writesSolidBlocks() const noexcept {
    return manifest_.compressionEffort == CompressionEffort::smallest &&
           !policy().cryptoShreddingEnabled;
  }
  RecoverySidecars& sidecars() noexcept { return *sidecars_; }
  TagRuleCache& tagRules() noexcept { return tagRules_; }
  Date now() const { return environment_.clock(); }

  bool readOnly() const noexcept { return readOnly_; }
  /// What the opening found amiss and went on from, in sentences for people.
  const std::vector<std::string>& notices() const noexcept { return notices_; }
  StorageAccess storage() const noexcept { return storage_; }
  /// Set when a newer build wrote the archive, which then is open read-only.
  const std::optional<std::string>& newerFormatNotice() const noexcept {
    return newerFormatNotice_;
  }
  /// Whether the volume could not lock, and why; the opening goes on without a lock then.
  bool lockingUnsupported() const noexcept { return lock_ && lock_->unsupported(); }
  std::optional<std::string> lockingUnsupportedReason() const {
    return lock_ ? lock_->unsupportedReason() : std::nullopt;
  }

  /// The pack that takes a record of `size` bytes, header included; a full one is sealed first.
  /// Throws ArchiveError (ReadOnly).
  std::int64_t nextPack(std::int64_t size);

  /// Makes pack, sidecar and journal durable, in this order. Throws what pack or journal throw.
  void synchronize();
  /// Writes the messages that wait for a block; returns how many. Throws PackError, FileError,
  /// SQLiteError.
  std::size_t flushSolidBlock();
  /// Raises what a reader must understand, on disk before anything needs it. Safe from one thread.
  void requireReader(int version);
  /// Puts another policy into the manifest, on disk first. Whether messages are encrypted and packs
  /// write-protected was decided when the archive was made: those two settings stay as they are.
  /// Throws ArchiveError (ReadOnly), FileError.
  void replacePolicy(const RetentionPolicy& policy);
  /// Puts an empty catalog in place of the one in use, in a file of its own, until
  /// `installCatalog`. What is killed or fails between the two leaves the archive's catalog file as
  /// it was. Packs and dictionaries that are there are entered; the last of each is the current
  /// one. Not inside a batch. Throws FileError, SQLiteError.
  void startCatalogAnew();
  /// Makes the catalog begun with `startCatalogAnew` the archive's; the one before is kept beside
  /// it as `keptAs` with its companions "-wal" and "-shm". The archive goes on with the new one.
  void installCatalog(const std::string& keptAs);
  /// The numbers of the pack files that are there, ascending.
  std::vector<std::int64_t> packFiles() const;
  /// Flushes the sidecars; the first failure among them is journalled.
  void flushSidecars();
  /// Notes in the catalog up to where the current pack, just flushed, holds records.
  void noteDurablePack();

  /// Writes a seal over the journal as it stands, records that, and starts counting anew. Throws
  /// ArchiveError (ReadOnly), FileError.
  ChainSeal sealNow();
  /// Counts one stored message towards the next seal.
  void noteStoredMessage() noexcept { ++entriesSinceSeal_; }
  bool isSealDue() const noexcept { return entriesSinceSeal_ >= policy().sealEveryEntries; }
  /// Seals when the policy's interval is reached and no batch is open; a failure to write the seal
  /// is passed over, since the next batch tries again. Throws what `synchronize` throws.
  void sealIfDue();

 private:
  void decideMode(OpenMode mode);
  void keepFormatDescriptionCurrent();
  void openParts(OpenMode mode);
  void openKeys();
  void prepareForWriting();
  void noteLostCatalog(bool isLost);
  void removeTemporaryFiles();
  void settleCurrentPack();
  bool isCurrentPackCutShort();
  void sealPack(std::int64_t packID);
  void switchToPack(std::int64_t packID);
  ChainSeal writeSeal();
  void recordFailedClose(const std::string& error) noexcept;

  std::filesystem::path url_;
  ArchiveEnvironment environment_;
  ArchiveManifest manifest_;
  bool readOnly_ = false;
  StorageAccess storage_ = StorageAccess::writable;
  std::optional<std::string> newerFormatNotice_;
  // Parts are released in reverse order of this list; the lock goes last.
  std::unique_ptr<ArchiveLock> lock_;
  std::unique_ptr<Catalog> catalog_;
  std::unique_ptr<PackStore> packs_;
  std::unique_ptr<RecoverySidecars> sidecars_;
  std::unique_ptr<AuditJournal> journal_;
  std::unique_ptr<Sealer> sealer_;
  std::unique_ptr<ContentKeyStore> keys_;
  std::once_flag keysOpened_;
  std::unique_ptr<DictionaryKeeper> dictionaries_;
  SolidBlockWriter solidBlock_;
  SolidBlockReader solidReader_;
  std::unique_ptr<AttachmentTextReader> attachmentText_;
  TagRuleCache tagRules_;
  std::vector<std::string> notices_;
  std::int64_t entriesSinceSeal_ = 0;
  std::int64_t currentPack_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_MAIL_ARCHIVE_H_
