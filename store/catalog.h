#ifndef AMBERVANE_STORE_CATALOG_H_
#define AMBERVANE_STORE_CATALOG_H_

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/date.h"
#include "mailcore/message_flag.h"
#include "store/catalog_rows.h"
#include "store/sqlite_database.h"

namespace ambervane {

/// The index over the pack files, `catalog.sqlite`: the only class that writes it. Page:
/// docs/format/catalog.md. Any thread may read; batches belong to the one committing thread. Every
/// failure is an SQLiteError.
class Catalog {
 public:
  /// Opens for writing, creating and migrating as needed.
  Catalog(const std::filesystem::path& path, Clock clock);
  /// Opens without writing, for a medium or a caller that must not.
  static std::unique_ptr<Catalog> reading(const std::filesystem::path& path, bool mediumIsReadOnly);

  SQLiteDatabase& database() noexcept { return *db_; }
  bool supportsFTS() const noexcept { return supportsFTS_; }
  bool contentlessDelete() const noexcept { return contentlessDelete_; }
  bool supportsHeaderIndex() const noexcept { return supportsHeaderIndex_; }
  bool supportsHitIndex() const noexcept { return supportsHitIndex_; }

  /// Closes the database, runs `between`, which may move files about, and goes on with the one at
  /// `path`, created where it is missing; with the one before when `between` throws. Not inside a
  /// batch.
  void goOnWith(const std::filesystem::path& path, const std::function<void()>& between);

  /// Runs `body`, which only reads, over one state of the catalog.
  void inOneState(const std::function<void()>& body);
  /// A batch is one transaction around the work of many callers; it nests.
  void beginBatch();
  void commitBatch();
  /// Gives up the whole batch, whatever its depth; nothing when none is open.
  void rollbackBatch() noexcept;
  int batchDepth() const noexcept { return batchDepth_; }
  /// Runs `body` inside the open batch, or in a transaction of its own.
  void atomically(const std::function<void()>& body);

  std::optional<std::string> meta(std::string_view key);
  void setMeta(std::string_view key, std::string_view value);
  /// To be called after anything that may alter what a filter finds.
  void bumpMutationGeneration();
  /// Names the content as it stands: the same as long as no filter can find anything else.
  std::string contentFingerprint();

  // Packs and dictionaries.
  void registerPack(std::int64_t id);
  void markPackSealed(std::int64_t id, const std::string& sha256, std::int64_t bytes,
                      bool immutable);
  std::vector<PackRow> packs();
  /// Notes how much of the current pack is durable; a file shorter than that has lost records.
  void notePackBytes(std::int64_t id, std::int64_t bytes);
  /// What `notePackBytes` noted last, 0 for nothing.
  std::int64_t packBytes(std::int64_t id);
  std::int64_t currentPackID();
  void setCurrentPack(std::int64_t id);
  /// Stores a dictionary under the next identifier above all known and above `taken`; returns it.
  std::int64_t storeDictionary(BytesView bytes, std::int64_t samples, std::int64_t taken = 0);
  /// Puts a dictionary back under the identifier that records name it by.
  void restoreDictionary(std::int64_t id, BytesView bytes);
  std::optional<Bytes> dictionary(std::int64_t id);
  std::int64_t dictionaryCount();

  // Blobs and attachments.
  std::optional<BlobRow> blob(std::string_view hash);
  /// Inserts with a reference count of 0 and returns the row's identifier.
  std::int64_t insertBlob(const BlobRow& blob);
  void retainBlob(std::int64_t id);
  void releaseBlob(std::int64_t id);
  /// Puts a blob that was erased into a new place.
  void replaceBlob(std::int64_t id, const BlobRow& blob);
  /// Encrypted blobs that no message refers to, by hash.
  std::vector<std::string> unusedBlobs();
  void insertAttachment(std::int64_t messageID, const StoredAttachment& attachment);
  std::vector<AttachmentRow> attachments(std::int64_t messageID);
  /// Files carried by at least `minimumCopies` messages that are not erased; those that save most
  /// come first.
  std::vector<DuplicateAttachment> duplicateAttachments(std::int64_t minimumCopies,
                                                        std::int64_t limit);

  // Messages.
  std::optional<std::int64_t> messageID(std::string_view hash);
  /// Reserves a row, which stays unplaced until `completeMessage`. Its number is the next above all
  /// rows and above `messageIDFloor`.
  std::int64_t reserveMessage(const std::string& hash);
  /// Reserves a row for a message that had its number before, archived at `ingestedAt`. Throws
  /// SQLiteError when the number is taken.
  std::int64_t reserveMessage(const std::string& hash, std::optional<std::int64_t> id,
                              Date ingestedAt);
  /// The highest number that belongs to a message without a row and must not be given again.
  void setMessageIDFloor(std::int64_t floor);
  void completeMessage(std::int64_t id, const MessageInsert& insert);
  /// Places a message that waited for its solid block.
  void attachSolidRecord(std::int64_t messageID, std::int64_t packID, std::int64_t offset,
                         std::int64_t member, std::int64_t storedSize, std::uint16_t flags,
                         std::uint16_t dictionaryID);
  /// Takes back a row that could not be completed, with all that refers to it.
  void discardMessage(std::int64_t id);
  std::optional<MessageRow> message(std::int64_t id);
  std::optional<MessageRow> message(std::string_view hash);
  /// The digest alone.
  std::optional<std::string> messageDigest(std::int64_t id);
  /// Blanks what a row, its headers and its attachments say of the message's content, and takes its
  /// words out of the index. Digest, dates, size and place stay, to prove that something was here.
  void markErased(std::int64_t id, const std::string& reason);
  /// Gives back the blobs of a message that is being erased; returns the hashes of encrypted ones
  /// that no other message refers to.
  std::vector<std::string> releaseBlobsOf(std::int64_t messageID);
  /// Ascending.
  std::vector<std::int64_t> erasedMessages();
  /// The digests of rows that were never placed, in the order of their numbers.
  std::vector<std::string> unplacedMessages();
  /// Removes rows that were never placed and gives back what they held; returns how many.
  std::int64_t sweepIncompleteMessages();
  /// `headers` are what `indexedHeaders` picked.
  void insertHeaders(const std::vector<std::pair<std::string, std::string>>& headers,
                     std::int64_t messageID);
  void indexText(std::int64_t messageID, const IndexedText& text);
  /// Puts one text in place of the last into "staged_fts", a table of this connection that can be
  /// asked as message_fts is.
  void stageText(std::int64_t messageID, const IndexedText& text);
  void removeFromIndex(std::int64_t messageID);
  void optimizeSearchIndex();
  /// Makes the full-text table where this SQLite can; `supportsFTS` tells.
  void createSearchIndex();
  /// Makes the catalog's files forget the text of what was removed or blanked before, words of the
  /// full-text index included. False when a reader of an older state kept the log from being
  /// emptied: then text may still be in "catalog.sqlite-wal". Takes as long as the index is large;
  /// not to be called inside a batch.
  bool forgetErasedText();

  // Accounts and folders.
  /// An account keeps its kind, unless mail is now collected for it from a server.
  std::int64_t upsertAccount(const std::string& name, const std::string& kind,
                             const std::optional<std::string>& host,
                             const std::optional<std::string>& username,
                             const std::optional<std::string>& sourcePath);
  std::int64_t upsertFolder(std::int64_t accountID, const std::string& path,
                            const std::string& delimiter = "/");
  std::vector<AccountRow> accounts();
  std::optional<AccountRow> account(const std::string& name);
  /// The folders of one account, or of all, by path.
  std::vector<FolderRow> folders(std::optional<std::int64_t> accountID = std::nullopt);
  /// Files a message in a folder; true when it was not there before.
  bool linkMessage(std::int64_t messageID, std::int64_t folderID, std::optional<std::int64_t> uid,
                   const std::string& flags, std::optional<Date> sentAt);
  std::vector<Membership> memberships(std::int64_t messageID);

  // Messages a server listed and did not hand over.
  /// Counts one more attempt; under another `uidValidity` than before the first.
  void recordMiss(std::int64_t folderID, std::int64_t uid, std::optional<std::int64_t> uidValidity);
  /// At most 500 uids of fewer than `attemptCap` attempts, ascending.
  std::vector<std::int64_t> pendingFetches(std::int64_t folderID,
                                           std::optional<std::int64_t> uidValidity, int attemptCap);
  void clearPending(std::int64_t folderID, std::int64_t uid);

  // The log of runs.
  std::int64_t beginIngest(const std::string& source);
  void finishIngest(std::int64_t id, std::int64_t added, std::int64_t duplicates,
                    std::int64_t failed, std::int64_t bytesIn, std::int64_t bytesOut,
                    const std::optional<std::string>& note);

  CatalogStats stats();
  /// The 20 most frequent.
  std::vector<AttachmentExtension> attachmentExtensions();
  /// "yyyy-MM" in UTC and the number of messages sent then, in order.
  std::vector<std::pair<std::string, std::int64_t>> messagesPerMonth();
  std::vector<FolderCount> folderCounts();

 private:
  Catalog(std::unique_ptr<SQLiteDatabase> db, Clock clock)
      : db_(std::move(db)), clock_(std::move(clock)) {}
  void migrate();
  /// True when the column was missing.
  bool addColumnIfMissing(const std::string& table, const std::string& column,
                          const std::string& definition);
  void detectSearchCapabilities(bool readOnly);
  void insertText(std::string_view sql, std::int64_t messageID, const IndexedText& text);

  std::unique_ptr<SQLiteDatabase> db_;
  Clock clock_;
  int batchDepth_ = 0;
  std::optional<std::int64_t> messageIDFloor_;  ///< once it has been asked for
  bool supportsFTS_ = false;
  bool contentlessDelete_ = false;
  bool supportsHeaderIndex_ = false;
  bool supportsHitIndex_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CATALOG_H_
