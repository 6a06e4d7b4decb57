#include "store/content_key_store.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/file.h"
#include "store/archive_error.h"
#include "store/key_error.h"
#include "store/sqlite_database.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLabel = "ambervane.keys";
constexpr const char* kProbeLabel = "ambervane.keyprobe";
constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0700;
constexpr const char* kInKeyFile = "key file in the archive";
constexpr const char* kNoneNeeded = "none needed: nothing in this archive is encrypted";

constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS content_key(
  message_id INTEGER PRIMARY KEY,
  wrapped BLOB NOT NULL,
  created_at REAL NOT NULL);
CREATE TABLE IF NOT EXISTS blob_key(
  hash TEXT PRIMARY KEY,
  wrapped BLOB NOT NULL,
  created_at REAL NOT NULL);
CREATE TABLE IF NOT EXISTS erasure(
  message_id INTEGER PRIMARY KEY,
  erased_at REAL NOT NULL,
  reason TEXT,
  requester TEXT);
)sql";

/// Takes all rights from others than the owner. A file that is not there has none to take.
void restrict(const fs::path& path, mode_t mode) {
  // A volume without owners, or a file of another user, cannot be helped and is no reason to stop.
  if (::chmod(path.c_str(), mode) == 0 || errno == ENOENT || errno == EPERM || errno == ENOTSUP) {
    return;
  }
  throw FileError(FileError::Action::create, path, errno);
}

std::unique_ptr<SQLiteDatabase> openForWriting(const fs::path& path) {
  createFolders(path.parent_path());
  restrict(path.parent_path(), kFolderMode);
  // SQLite gives the files beside a database the mode of the database itself. One that is there
  // must not be opened and closed here: that would take the locks of this process off it.
  std::error_code ignored;
  if (!fs::exists(path, ignored)) AppendFile::open(path, kFileMode);
  for (const char* suffix : {"", "-wal", "-shm"}) restrict(path.native() + suffix, kFileMode);
  auto database = std::make_unique<SQLiteDatabase>(path, SQLiteDatabase::Mode::readWrite, kLabel);
  // VACUUM copies all keys, and what it copies through must not be a file elsewhere.
  database->execute("PRAGMA temp_store=MEMORY");
  database->transaction([&database] { database->execute(kSchema); });
  // A process that ended while it destroyed a key may have left its bytes in the log.
  database->checkpoint();
  return database;
}

std::unique_ptr<SQLiteDatabase> openForReading(const fs::path& path, bool mediumIsReadOnly) {
  std::error_code ignored;
  if (fs::status(path, ignored).type() != fs::file_type::not_found) {
    auto database = SQLiteDatabase::reading(path, kLabel, mediumIsReadOnly);
    // A writer that ended at once leaves a file without tables.
    if (database->count("SELECT count(*) FROM sqlite_master") > 0) return database;
  }
  auto database =
      std::make_unique<SQLiteDatabase>(":memory:", SQLiteDatabase::Mode::readWrite, kLabel);
  database->execute(kSchema);
  return database;
}

/// Throws when the database cannot be read: it may hold keys then.
bool holdsKeys(SQLiteDatabase& database) {
  return database.count(
             "SELECT EXISTS(SELECT 1 FROM content_key) OR EXISTS(SELECT 1 FROM blob_key)") != 0;
}

Erasure readErasure(const Row& row) {
  return {row.integer("message_id"), row.date("erased_at").value_or(Date{}),
          row.optionalString("reason"), row.optionalString("requester")};
}

/// A file that cannot be read or has another length than a key is none.
std::optional<SymmetricKey> readMasterKey(const fs::path& file) {
  auto raw = readFileIfPossible(file);
  if (!raw) return std::nullopt;
  auto key = SymmetricKey::fromRaw(*raw);
  cleanse(*raw);
  return key;
}

}  // namespace

ContentKeyStore::ContentKeyStore(std::unique_ptr<SQLiteDatabase> database, MasterKey master,
                                 bool readOnly, Clock clock)
    : db_(std::move(database)),
      master_(std::move(master.key)),
      keyLocationDescription_(std::move(master.location)),
      readOnly_(readOnly),
      clock_(std::move(clock)) {}

ContentKeyStore::~ContentKeyStore() = default;

std::unique_ptr<ContentKeyStore> ContentKeyStore::writing(const fs::path& database,
                                                          const fs::path& masterKeyFile,
                                                          Clock clock) {
  auto db = openForWriting(database);
  MasterKey master = loadOrCreateMasterKey(*db, masterKeyFile);
  return std::unique_ptr<ContentKeyStore>(
      new ContentKeyStore(std::move(db), std::move(master), false, std::move(clock)));
}

std::unique_ptr<ContentKeyStore> ContentKeyStore::reading(const fs::path& database,
                                                          const fs::path& masterKeyFile,
                                                          bool mediumIsReadOnly) {
  auto db = openForReading(database, mediumIsReadOnly);
  MasterKey master = loadMasterKey(*db, masterKeyFile);
  return std::unique_ptr<ContentKeyStore>(
      new ContentKeyStore(std::move(db), std::move(master), true, systemNow));
}

bool ContentKeyStore::hasWrappedContentKeys(const fs::path& database) {
  std::error_code ignored;
  if (!fs::exists(database, ignored)) return false;
  try {
    return SQLiteDatabase::reading(database, kProbeLabel, false)
        ->scalar("SELECT 1 FROM content_key LIMIT 1")
        .has_value();
  } catch (const SQLiteError&) {
    return false;
  }
}

ContentKeyStore::MasterKey ContentKeyStore::loadOrCreateMasterKey(SQLiteDatabase& database,
                                                                  const fs::path& file) {
  if (auto key = readMasterKey(file)) {
    restrict(file, kFileMode);
    return {*std::move(key), kInKeyFile};
  }
  // A new one would make all that is encrypted unreadable without any sign.
  if (holdsKeys(database)) throw KeyError(KeyError::MasterKeyMissing{file.native()});
  SymmetricKey key = SymmetricKey::random();
  createFolders(file.parent_path());
  writeFileAtomically(file, key.raw(), kFileMode);
  return {std::move(key), kInKeyFile};
}

ContentKeyStore::MasterKey ContentKeyStore::loadMasterKey(SQLiteDatabase& database,
                                                          const fs::path& file) {
  if (auto key = readMasterKey(file)) return {*std::move(key), kInKeyFile};
  if (holdsKeys(database)) throw KeyError(KeyError::MasterKeyMissing{file.native()});
  return {SymmetricKey::random(), kNoneNeeded};
}

void ContentKeyStore::requireWritable() const {
  if (readOnly_) throw ArchiveError(ArchiveError::ReadOnly{});
}

void ContentKeyStore::requireNoBatch() const {
  if (batchDepth_ > 0) throw std::logic_error("a key cannot be destroyed inside a batch");
}

void ContentKeyStore::beginBatch() {
  requireWritable();
  const std::lock_guard lock(mutex_);
  if (batchDepth_ == 0) db_->run("BEGIN IMMEDIATE");
  ++batchDepth_;
}

void ContentKeyStore::commitBatch() {
  const std::lock_guard lock(mutex_);
  if (batchDepth_ == 1) db_->run("COMMIT");
  if (batchDepth_ > 0) --batchDepth_;
}

void ContentKeyStore::rollbackBatch() noexcept {
  const std::lock_guard lock(mutex_);
  if (batchDepth_ == 0) return;
  batchDepth_ = 0;
  try {
    db_->run("ROLLBACK");
  } catch (const std::exception&) {
    // SQLite has rolled back by itself when the failure was its own.
  }
}

std::optional<SymmetricKey> ContentKeyStore::unwrap(BytesView wrapped,
                                                    std::string_view owner) const {
  auto raw = aesGcmOpen(wrapped, master_.raw(), owner);
  if (!raw) return std::nullopt;
  auto key = SymmetricKey::fromRaw(*raw);
  cleanse(*raw);
  return key;
}

std::optional<SymmetricKey> ContentKeyStore::find(std::string_view sql,
                                                  const SQLBinding& identifier,
                                                  std::string_view owner) {
  std::optional<Bytes> wrapped;
  db_->forEachRow(sql, {identifier}, [&wrapped](const Row& row) {
    wrapped = row.blob("wrapped").value_or(Bytes());
    return false;
  });
  if (!wrapped) return std::nullopt;
  auto key = unwrap(*wrapped, owner);
  if (!key) throw KeyError(KeyError::MasterKeyMismatch{});
  return key;
}

SymmetricKey ContentKeyStore::make(std::string_view sql, const SQLBinding& identifier,
                                   std::string_view owner) {
  requireWritable();
  requireFittingMaster();
  SymmetricKey key = SymmetricKey::random();
  const Bytes wrapped = seal(key.raw(), master_, owner);
  db_->run(sql, {identifier, SQLBytes{wrapped}, clock_()});
  return key;
}

SymmetricKey ContentKeyStore::newKey(std::int64_t messageID) {
  const std::lock_guard lock(mutex_);
  return make("INSERT OR REPLACE INTO content_key(message_id, wrapped, created_at) VALUES(?, ?, ?)",
              messageID, std::to_string(messageID));
}

std::optional<SymmetricKey> ContentKeyStore::key(std::int64_t messageID) {
  return find("SELECT wrapped FROM content_key WHERE message_id = ?", messageID,
              std::to_string(messageID));
}

std::optional<SymmetricKey> ContentKeyStore::blobKey(std::string_view hash, bool createIfMissing) {
  static constexpr std::string_view kSelect = "SELECT wrapped FROM blob_key WHERE hash = ?";
  if (!createIfMissing) return find(kSelect, hash, hash);
  const std::lock_guard lock(mutex_);
  if (auto known = find(kSelect, hash, hash)) return known;
  return make("INSERT OR REPLACE INTO blob_key(hash, wrapped, created_at) VALUES(?, ?, ?)", hash,
              hash);
}

void ContentKeyStore::shred(std::span<const std::int64_t> messageIDs,
                            const std::optional<std::string>& reason,
                            const std::optional<std::string>& requester) {
  requireWritable();
  const std::lock_guard lock(mutex_);
  requireNoBatch();
  db_->transaction([&] {
    for (const std::int64_t id : messageIDs) {
      db_->run("DELETE FROM content_key WHERE message_id = ?", {id});
      db_->run(
          "INSERT OR REPLACE INTO erasure(message_id, erased_at, reason, requester) "
          "VALUES(?, ?, ?, ?)",
          {id, clock_(), reason, requester});
    }
  });
  scour();
}

void ContentKeyStore::shredBlobKeys(std::span<const std::string> hashes) {
  requireWritable();
  const std::lock_guard lock(mutex_);
  requireNoBatch();
  db_->transaction([&] {
    for (const std::string& hash : hashes) {
      db_->run("DELETE FROM blob_key WHERE hash = ?", {hash});
    }
  });
  scour();
}

void ContentKeyStore::scour() {
  db_->execute("VACUUM");
  // The log still has the pages as they were before; a reader may be keeping it from being cut.
  if (!db_->checkpoint()) {
    throw SQLiteError(SQLiteError::Step{"PRAGMA wal_checkpoint(TRUNCATE)",
                                        sqlite3_errstr(SQLITE_BUSY), SQLITE_BUSY});
  }
}

std::vector<std::int64_t> ContentKeyStore::messagesWithKey() {
  std::vector<std::int64_t> ids;
  db_->forEachRow("SELECT message_id FROM content_key ORDER BY message_id", {},
                  [&ids](const Row& row) {
                    ids.push_back(row.integer("message_id"));
                    return true;
                  });
  return ids;
}

bool ContentKeyStore::isErased(std::int64_t messageID) {
  return db_->scalar("SELECT 1 FROM erasure WHERE message_id = ?", {messageID}).has_value();
}

std::int64_t ContentKeyStore::erasureCount() { return db_->count("SELECT count(*) FROM erasure"); }

std::optional<Erasure> ContentKeyStore::erasure(std::int64_t messageID) {
  std::optional<Erasure> found;
  db_->forEachRow(
      "SELECT message_id, erased_at, reason, requester FROM erasure WHERE message_id = ?",
      {messageID}, [&found](const Row& row) {
        found = readErasure(row);
        return false;
      });
  return found;
}

std::vector<std::int64_t> ContentKeyStore::shreddedMessages() {
  std::vector<std::int64_t> ids;
  db_->forEachRow(
      "SELECT message_id FROM erasure e WHERE NOT EXISTS (SELECT 1 FROM content_key k WHERE "
      "k.message_id = e.message_id) ORDER BY message_id",
      {}, [&ids](const Row& row) {
        ids.push_back(row.integer("message_id"));
        return true;
      });
  return ids;
}

std::vector<Erasure> ContentKeyStore::erasures() {
  std::vector<Erasure> all;
  db_->forEachRow(
      "SELECT message_id, erased_at, reason, requester FROM erasure "
      "ORDER BY erased_at, message_id",
      {}, [&all](const Row& row) {
        all.push_back(readErasure(row));
        return true;
      });
  return all;
}

ContentKeyStore::Fit ContentKeyStore::masterKeyFit() {
  static constexpr const char* kSamples[] = {
      "SELECT message_id AS owner, wrapped FROM content_key ORDER BY rowid LIMIT 1",
      "SELECT message_id AS owner, wrapped FROM content_key ORDER BY rowid DESC LIMIT 1",
      "SELECT hash AS owner, wrapped FROM blob_key ORDER BY rowid LIMIT 1",
      "SELECT hash AS owner, wrapped FROM blob_key ORDER BY rowid DESC LIMIT 1",
  };
  Fit fit;
  for (const char* sql : kSamples) {
    db_->forEachRow(sql, {}, [this, &fit](const Row& row) {
      const bool opens =
          unwrap(row.blob("wrapped").value_or(Bytes()), row.string("owner")).has_value();
      ++(opens ? fit.opened : fit.failed);
      return true;
    });
  }
  return fit;
}

bool ContentKeyStore::verifyMasterKey() { return masterKeyFit().failed == 0; }

void ContentKeyStore::requireFittingMaster() {
  if (masterFits_) return;
  // One damaged row among good ones is no reason to take in no more mail.
  const Fit fit = masterKeyFit();
  if (fit.failed > 0 && fit.opened == 0) throw KeyError(KeyError::MasterKeyMismatch{});
  masterFits_ = true;
}

Bytes ContentKeyStore::seal(BytesView data, const SymmetricKey& key, BytesView aad) {
  try {
    return aesGcmSeal(data, key.raw(), aad);
  } catch (const std::runtime_error&) {
    throw KeyError(KeyError::WrapFailed{});
  }
}

Bytes ContentKeyStore::open(BytesView data, const SymmetricKey& key, BytesView aad) {
  auto plain = aesGcmOpen(data, key.raw(), aad);
  if (!plain) throw KeyError(KeyError::MasterKeyMismatch{});
  return *std::move(plain);
}

}  // namespace ambervane
