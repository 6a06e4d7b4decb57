#ifndef AMBERVANE_STORE_CONTENT_KEY_STORE_H_
#define AMBERVANE_STORE_CONTENT_KEY_STORE_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/aead.h"
#include "base/bytes.h"
#include "base/date.h"

namespace ambervane {

class SQLBinding;
class SQLiteDatabase;

/// That a message was erased. Never removed.
struct Erasure {
  std::int64_t messageID = 0;
  Date erasedAt;
  std::optional<std::string> reason;
  std::optional<std::string> requester;
  friend bool operator==(const Erasure&, const Erasure&) = default;
};

/// One random key per message and per attachment blob, each wrapped under the archive's master key,
/// in a database of its own; to destroy one is to erase what it encrypts. Page:
/// docs/format/keys.md. Any thread may ask; batches belong to the one committing thread. Failures
/// are KeyError, SQLiteError or FileError; a change asked of a store opened for reading is
/// ArchiveError (ReadOnly).
class ContentKeyStore {
 public:
  /// Opens for writing. Makes what is missing, a master key only while no key is stored: otherwise
  /// KeyError (MasterKeyMissing). Files are for the owner alone.
  static std::unique_ptr<ContentKeyStore> writing(const std::filesystem::path& database,
                                                  const std::filesystem::path& masterKeyFile,
                                                  Clock clock);
  /// Opens without writing anything. A database that is not there reads as one without keys.
  static std::unique_ptr<ContentKeyStore> reading(const std::filesystem::path& database,
                                                  const std::filesystem::path& masterKeyFile,
                                                  bool mediumIsReadOnly);
  /// Whether a key database exists and holds a message key; false when it cannot be read.
  static bool hasWrappedContentKeys(const std::filesystem::path& database);
  ~ContentKeyStore();
  ContentKeyStore(const ContentKeyStore&) = delete;
  ContentKeyStore& operator=(const ContentKeyStore&) = delete;

  /// English: where the master key is.
  const std::string& keyLocationDescription() const noexcept { return keyLocationDescription_; }

  /// A batch is one transaction around many new keys; it nests. It must be committed before
  /// anything encrypted under its keys counts as stored.
  void beginBatch();
  void commitBatch();
  /// Gives up the whole batch, whatever its depth; nothing when none is open.
  void rollbackBatch() noexcept;

  /// Makes and stores the key of a message, in place of one it has. Throws KeyError
  /// (MasterKeyMismatch) when the keys already stored are under another master key, because what is
  /// written now would be lost once that one is restored.
  SymmetricKey newKey(std::int64_t messageID);
  /// Absent when none is stored. Throws KeyError (MasterKeyMismatch) for one that does not open.
  std::optional<SymmetricKey> key(std::int64_t messageID);
  /// The key of a blob, by the digest of its encoded bytes (`blob.hash` of the catalog). Throws as
  /// `newKey` and `key`.
  std::optional<SymmetricKey> blobKey(std::string_view hash, bool createIfMissing);

  /// Destroys the keys of messages for good and records the erasures. When it returns no file of
  /// the database holds the wrapped keys. Not inside a batch. After a throw the keys may be gone
  /// already; a second call completes the work. Takes as long as the database is large.
  void shred(std::span<const std::int64_t> messageIDs, const std::optional<std::string>& reason,
             const std::optional<std::string>& requester);
  void shred(std::int64_t messageID, const std::optional<std::string>& reason,
             const std::optional<std::string>& requester) {
    shred(std::span(&messageID, 1), reason, requester);
  }
  /// Likewise for blobs, without a record.
  void shredBlobKeys(std::span<const std::string> hashes);
  void shredBlobKey(const std::string& hash) { shredBlobKeys(std::span(&hash, 1)); }
  /// Messages with a key, ascending.
  std::vector<std::int64_t> messagesWithKey();
  bool isErased(std::int64_t messageID);
  /// The newest record of a message.
  std::optional<Erasure> erasure(std::int64_t messageID);
  /// Messages with a record and without a key, ascending.
  std::vector<std::int64_t> shreddedMessages();
  std::int64_t erasureCount();
  std::vector<Erasure> erasures();  ///< oldest first

  /// Whether the master key opens what is stored: the first and last key of messages and of blobs.
  /// True when there is none.
  bool verifyMasterKey();

  /// AES-256-GCM in combined form, see `aesGcmSeal`. Throws KeyError (WrapFailed).
  static Bytes seal(BytesView data, const SymmetricKey& key, BytesView aad);
  /// Throws KeyError (MasterKeyMismatch) for what was changed or sealed under another key or `aad`.
  static Bytes open(BytesView data, const SymmetricKey& key, BytesView aad);

 private:
  struct MasterKey {
    SymmetricKey key;
    std::string location;
  };
  /// How many of a few stored keys the master key opens, and how many not.
  struct Fit {
    int opened = 0;
    int failed = 0;
  };
  ContentKeyStore(std::unique_ptr<SQLiteDatabase> database, MasterKey master, bool readOnly,
                  Clock clock);
  static MasterKey loadOrCreateMasterKey(SQLiteDatabase& database,
                                         const std::filesystem::path& file);
  static MasterKey loadMasterKey(SQLiteDatabase& database, const std::filesystem::path& file);

  void requireWritable() const;
  void requireNoBatch() const;
  /// Refuses to add keys under a master key that opens none of those stored.
  void requireFittingMaster();
  Fit masterKeyFit();
  std::optional<SymmetricKey> unwrap(BytesView wrapped, std::string_view owner) const;
  std::optional<SymmetricKey> find(std::string_view sql, const SQLBinding& identifier,
                                   std::string_view owner);
  /// Makes a key and stores it with `sql`.
  SymmetricKey make(std::string_view sql, const SQLBinding& identifier, std::string_view owner);
  /// Clears the database's files of what was deleted.
  void scour();

  std::unique_ptr<SQLiteDatabase> db_;
  SymmetricKey master_;
  std::string keyLocationDescription_;
  bool readOnly_;
  Clock clock_;
  std::mutex mutex_;  ///< for all that writes
  int batchDepth_ = 0;
  bool masterFits_ = false;  ///< known to
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CONTENT_KEY_STORE_H_
