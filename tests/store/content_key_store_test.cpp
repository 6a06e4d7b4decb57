#include "store/content_key_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/file.h"
#include "store/archive_error.h"
#include "store/key_error.h"
#include "store/sqlite_database.h"
#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/test_bytes.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

// The example of docs/format/keys.md; the wrapped keys were made outside this program.
constexpr const char* kMaster = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
constexpr const char* kMessageKey =
    "202122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f";
constexpr const char* kWrappedFor42 =
    "a0a1a2a3a4a5a6a7a8a9aaabc6395e0e61ee24984a4cadf82b57eef1409d6b23a682745ba4371cbd43964b3ea126f8"
    "e45016944d7093567b6b324213";
constexpr const char* kBlobKey = "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f";
constexpr const char* kBlobHash =
    "b12e86fefb72ffeed4c97326f121f822309f22a6d2efa1c3bff4a9f1895c52fe";
constexpr const char* kWrappedForBlob =
    "b0b1b2b3b4b5b6b7b8b9babbd91418e8a888fd180fb1dde98110c68dd46d1b81417bd9620697d8aa00dfac49c4c391"
    "864a395c7be937cc1b1d361d7c";
constexpr const char* kMessageDigest =
    "cf69fcea63cb71bf1ba08c3f1b69a31624edb4a3465a35c5a656d1c2760dfea0";
constexpr const char* kPayload =
    "c0c1c2c3c4c5c6c7c8c9cacb6b9239f1956f4beb29503cd14cbeb736a104ebdd16aa5c251c236ccef8bbdd1ee4ca3f"
    "f51b47b59c77852ed7e7d6";
constexpr const char* kRecord = "01010000160000005375626a6563743a2048690d0a0d0a48656c6c6f0d0a";

/// Everything that can be seen of the files in a folder.
std::map<std::string, std::pair<Bytes, fs::perms>> snapshot(const fs::path& folder) {
  std::map<std::string, std::pair<Bytes, fs::perms>> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    files[entry.path().filename()] = {readFile(entry.path()), entry.status().permissions()};
  }
  return files;
}

/// Whether any file in the folder holds a part of `wrapped`, in pieces that chance cannot make.
bool holdsPartOf(const fs::path& folder, BytesView wrapped) {
  for (const auto& [name, file] : snapshot(folder)) {
    for (std::size_t at = 0; at + 8 <= wrapped.size(); at += 4) {
      if (file.first.find(wrapped.substr(at, 8)) != Bytes::npos) return true;
    }
  }
  return false;
}

class ContentKeyStoreTest : public ::testing::Test {
 protected:
  std::unique_ptr<ContentKeyStore> writing() const {
    return ContentKeyStore::writing(database_, master_, [this] { return now_; });
  }
  std::unique_ptr<ContentKeyStore> reading(bool mediumIsReadOnly = false) const {
    return ContentKeyStore::reading(database_, master_, mediumIsReadOnly);
  }
  std::unique_ptr<SQLiteDatabase> raw() const {
    return std::make_unique<SQLiteDatabase>(database_, SQLiteDatabase::Mode::readWrite, "test");
  }
  /// The database and master key of the format's page.
  void putExample() const {
    fs::create_directories(keys_);
    writeFileAtomically(master_, unhex(kMaster), 0600);
    const auto db = raw();
    db->execute(
        "CREATE TABLE content_key(message_id INTEGER PRIMARY KEY, wrapped BLOB NOT NULL, "
        "created_at REAL NOT NULL);"
        "CREATE TABLE blob_key(hash TEXT PRIMARY KEY, wrapped BLOB NOT NULL, "
        "created_at REAL NOT NULL);"
        "CREATE TABLE erasure(message_id INTEGER PRIMARY KEY, erased_at REAL NOT NULL, "
        "reason TEXT, requester TEXT)");
    db->run("INSERT INTO content_key VALUES(42, ?, 1772360130)", {SQLBytes{unhex(kWrappedFor42)}});
    db->run("INSERT INTO blob_key VALUES(?, ?, 1772360130)",
            {kBlobHash, SQLBytes{unhex(kWrappedForBlob)}});
  }
  Bytes wrappedOf(std::int64_t id) const {
    return raw()
        ->query("SELECT wrapped FROM content_key WHERE message_id = ?", {id})
        .at(0)
        .blob("wrapped")
        .value();
  }
  static mode_t mode(const fs::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
  }
  /// Which KeyError `body` throws: "missing", "mismatch", or "" for none.
  template <typename Body>
  static std::string keyErrorOf(Body body) {
    try {
      body();
    } catch (const KeyError& error) {
      return error.is<KeyError::MasterKeyMissing>()    ? "missing"
             : error.is<KeyError::MasterKeyMismatch>() ? "mismatch"
                                                       : "other";
    }
    return "";
  }
  /// Where the store that `open` opens has its master key, or the failure.
  template <typename Open>
  static std::string outcomeOf(Open open) {
    std::string location;
    const std::string failure = keyErrorOf([&] { location = open()->keyLocationDescription(); });
    return failure.empty() ? location : failure;
  }

  const ScratchFolder folder_;
  const fs::path keys_ = folder_ / "keys";
  const fs::path database_ = keys_ / "content-keys.sqlite";
  const fs::path master_ = keys_ / "master.key";
  Date now_{1000};
};

TEST(KeyError, words) {
  const struct {
    KeyError::Reason reason;
    const char* text;
  } kCases[] = {
      {KeyError::MasterKeyMissing{"/a/keys/master.key"},
       "The archive’s master key is missing (/a/keys/master.key) but its messages are encrypted "
       "with it. Restore keys/master.key from your backup, or use Archive ▸ Import Keys from "
       "Keychain if this archive was made on this Mac by an earlier version. Without that key the "
       "message bodies cannot be read."},
      {KeyError::WrapFailed{}, "Could not wrap the content key"},
      {KeyError::Shredded{}, "This message was erased; its content key no longer exists"},
      {KeyError::MasterKeyMismatch{},
       "The archive’s master key does not match the keys its messages were encrypted with. This "
       "happens when keys/master.key was replaced. Restore the original key file from backup."},
  };
  for (const auto& c : kCases) EXPECT_EQ(KeyError(c.reason).message().text(), c.text);
}

TEST_F(ContentKeyStoreTest, readsTheDocumentedExample) {
  putExample();
  for (const bool write : {false, true}) {
    SCOPED_TRACE(write);
    const auto store = write ? writing() : reading();
    EXPECT_EQ(store->key(42)->raw(), unhex(kMessageKey));
    EXPECT_EQ(store->blobKey(kBlobHash, write)->raw(), unhex(kBlobKey));
    EXPECT_EQ(ContentKeyStore::open(unhex(kPayload), *store->key(42), kMessageDigest),
              unhex(kRecord));
    EXPECT_FALSE(store->key(43));
    EXPECT_FALSE(store->blobKey(kMessageDigest, false));
    EXPECT_TRUE(store->verifyMasterKey());
    EXPECT_EQ(store->keyLocationDescription(), "key file in the archive");
  }
}

TEST_F(ContentKeyStoreTest, writesTheDocumentedForm) {
  Bytes key;
  Bytes blobKey;
  {
    const auto store = writing();
    key = store->newKey(-7).raw();
    blobKey = store->blobKey(kBlobHash, true)->raw();
    EXPECT_EQ(store->blobKey(kBlobHash, true)->raw(), blobKey) << "one key per blob";
    store->shred(8, "GDPR", std::nullopt);
  }
  const Bytes master = readFile(master_);
  const auto db = raw();
  const Row message = db->query("SELECT * FROM content_key").at(0);
  EXPECT_EQ(message.integer("message_id"), -7);
  EXPECT_EQ(message.blob("wrapped")->size(), 60U);
  EXPECT_EQ(aesGcmOpen(*message.blob("wrapped"), master, "-7"), key);
  EXPECT_EQ(message.values().at(2), SQLValue(1000.0));
  const Row blob = db->query("SELECT * FROM blob_key").at(0);
  EXPECT_EQ(blob.string("hash"), kBlobHash);
  EXPECT_EQ(aesGcmOpen(*blob.blob("wrapped"), master, kBlobHash), blobKey);
  EXPECT_EQ(db->query("SELECT * FROM erasure").at(0).values(),
            (std::vector<SQLValue>{std::int64_t{8}, 1000.0, "GDPR", SQLNull{}}));
}

TEST_F(ContentKeyStoreTest, openings) {
  const char* const kFile = "key file in the archive";
  const char* const kNone = "none needed: nothing in this archive is encrypted";
  const struct {
    const char* name;
    const char* rows;  ///< SQL on the example; null for no database
    std::size_t masterBytes;
    const char* read;
    const char* write;
  } kCases[] = {
      {"nothing", nullptr, 0, kNone, kFile},
      {"masterOnly", nullptr, 32, kFile, kFile},
      {"noKeys", "DELETE FROM content_key; DELETE FROM blob_key", 0, kNone, kFile},
      {"noKeysShortMaster", "DELETE FROM content_key; DELETE FROM blob_key", 31, kNone, kFile},
      {"noTables", "DROP TABLE content_key; DROP TABLE blob_key; DROP TABLE erasure", 0, kNone,
       kFile},
      {"bothKinds", "", 32, kFile, kFile},
      {"masterLost", "", 0, "missing", "missing"},
      {"masterOf31Bytes", "", 31, "missing", "missing"},
      {"masterOf33Bytes", "", 33, "missing", "missing"},
      {"onlyMessageKeys", "DELETE FROM blob_key", 0, "missing", "missing"},
      {"onlyBlobKeys", "DELETE FROM content_key", 0, "missing", "missing"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(keys_);
    if (c.rows != nullptr) {
      putExample();
      raw()->execute(c.rows);
      fs::remove(master_);
    }
    fs::create_directories(keys_);
    const Bytes master(c.masterBytes, 'm');
    if (c.masterBytes > 0) writeFileAtomically(master_, master, 0600);
    const auto before = snapshot(keys_);
    EXPECT_EQ(outcomeOf([this] { return reading(false); }), c.read);
    EXPECT_EQ(outcomeOf([this] { return reading(true); }), c.read);
    EXPECT_EQ(snapshot(keys_), before);
    const std::string outcome = outcomeOf([this] { return writing(); });
    EXPECT_EQ(outcome, c.write);
    const auto after = readFileIfPossible(master_).value_or("");
    if (outcome == kFile) {
      EXPECT_EQ(after.size(), 32U);
    }
    if (outcome != kFile || c.masterBytes == 32) {
      EXPECT_EQ(after, master) << "what is there must not be replaced";
    }
  }
}

TEST_F(ContentKeyStoreTest, unreadableDatabaseGetsNoNewMaster) {
  fs::create_directories(keys_);
  writeFileAtomically(database_, Bytes(4096, 'x'));
  EXPECT_THROW(writing(), SQLiteError);
  EXPECT_THROW(reading(), SQLiteError);
  EXPECT_FALSE(fs::exists(master_));
  EXPECT_FALSE(ContentKeyStore::hasWrappedContentKeys(database_));
}

TEST_F(ContentKeyStoreTest, failureToWriteTheMasterLeavesNone) {
  for (std::size_t room = 0; room < 32; ++room) {
    SCOPED_TRACE(room);
    const FullDisk disk(room);
    EXPECT_THROW(writing(), FileError);
    EXPECT_FALSE(fs::exists(master_));
  }
  const SymmetricKey key = writing()->newKey(1);
  EXPECT_EQ(reading()->key(1)->raw(), key.raw());
}

TEST_F(ContentKeyStoreTest, readingWritesNothing) {
  EXPECT_TRUE(reading()->erasures().empty());
  EXPECT_FALSE(fs::exists(keys_));
  putExample();
  const auto before = snapshot(keys_);
  {
    const auto store = reading();
    EXPECT_TRUE(store->key(42));
    EXPECT_THROW(store->newKey(43), ArchiveError);
    EXPECT_THROW(store->blobKey("new", true), ArchiveError);
    EXPECT_THROW(store->beginBatch(), ArchiveError);
    EXPECT_THROW(store->shred(42, std::nullopt, std::nullopt), ArchiveError);
    EXPECT_THROW(store->shredBlobKey(kBlobHash), ArchiveError);
  }
  EXPECT_TRUE(ContentKeyStore::hasWrappedContentKeys(database_));
  EXPECT_EQ(snapshot(keys_), before);
}

TEST_F(ContentKeyStoreTest, filesAreForTheOwnerAlone) {
  for (const bool existing : {false, true}) {
    SCOPED_TRACE(existing);
    if (existing) {
      fs::permissions(keys_, fs::perms(0755));
      fs::permissions(database_, fs::perms(0644));
      fs::permissions(master_, fs::perms(0644));
    }
    const auto store = writing();
    store->newKey(1);
    EXPECT_EQ(mode(keys_), 0700U);
    const auto files = snapshot(keys_);
    EXPECT_EQ(files.size(), 4U) << "the database, its two companions and the master key";
    for (const auto& [name, file] : files) EXPECT_EQ(file.second, fs::perms(0600)) << name;
  }
}

TEST_F(ContentKeyStoreTest, keysThatDoNotOpen) {
  static constexpr const char* kSwap =
      "UPDATE content_key SET message_id = -1 WHERE message_id = 42; "
      "UPDATE content_key SET message_id = 42 WHERE message_id = 1; "
      "UPDATE content_key SET message_id = 1 WHERE message_id = -1";
  static constexpr struct {
    const char* name;
    const char* sql;
    const char* key;      ///< the failure of reading message 42
    const char* blobKey;  ///< of reading the blob
    const char* newKey;   ///< of making one
    bool otherMaster;
    bool verified;
  } kCases[] = {
      {"sound", "", "", "", "", false, true},
      {"otherMaster", "", "mismatch", "mismatch", "mismatch", true, false},
      {"rowsSwapped", kSwap, "mismatch", "", "", false, false},
      {"cutShort", "UPDATE content_key SET wrapped = substr(wrapped, 1, 59)", "mismatch", "", "",
       false, false},
      {"empty", "UPDATE content_key SET wrapped = x''", "mismatch", "", "", false, false},
      {"text", "UPDATE content_key SET wrapped = 'key'", "mismatch", "", "", false, false},
      {"blobUnderOtherHash", "UPDATE blob_key SET hash = upper(hash)", "", "", "", false, false},
      {"nothingStored", "DELETE FROM content_key; DELETE FROM blob_key", "", "", "", true, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(keys_);
    putExample();
    writing()->newKey(1);
    raw()->execute(c.sql);
    if (c.otherMaster) writeFileAtomically(master_, Bytes(32, 'o'), 0600);
    const auto store = writing();
    EXPECT_EQ(keyErrorOf([&] { store->key(42); }), c.key);
    EXPECT_EQ(keyErrorOf([&] { store->blobKey(kBlobHash, false); }), c.blobKey);
    EXPECT_EQ(store->verifyMasterKey(), c.verified);
    EXPECT_EQ(keyErrorOf([&] { store->newKey(2); }), c.newKey);
    EXPECT_EQ(keyErrorOf([&] { store->blobKey("new", true); }), c.newKey);
  }
}

TEST_F(ContentKeyStoreTest, sealedPayloads) {
  const SymmetricKey key = SymmetricKey::random();
  const Bytes sealed = ContentKeyStore::seal("payload", key, "digest");
  EXPECT_EQ(ContentKeyStore::open(sealed, key, "digest"), "payload");
  EXPECT_EQ(keyErrorOf([&] { ContentKeyStore::open(sealed, key, "other"); }), "mismatch");
  EXPECT_EQ(keyErrorOf([&] { ContentKeyStore::open("short", key, "digest"); }), "mismatch");
}

TEST_F(ContentKeyStoreTest, batches) {
  const auto store = writing();
  store->beginBatch();
  store->beginBatch();
  const Bytes first(store->newKey(1).raw());
  store->commitBatch();
  EXPECT_EQ(store->key(1)->raw(), first) << "seen from inside";
  EXPECT_FALSE(reading()->key(1)) << "not on disk before the outer commit";
  EXPECT_THROW(store->shred(1, std::nullopt, std::nullopt), std::logic_error);
  store->commitBatch();
  EXPECT_EQ(reading()->key(1)->raw(), first);

  store->beginBatch();
  store->newKey(2);
  store->beginBatch();
  store->blobKey(kBlobHash, true);
  store->rollbackBatch();
  EXPECT_FALSE(store->key(2));
  EXPECT_FALSE(store->blobKey(kBlobHash, false));
  store->rollbackBatch();
  store->commitBatch();
  store->newKey(3);
  EXPECT_TRUE(reading()->key(3)) << "outside a batch a key is stored at once";
}

TEST_F(ContentKeyStoreTest, shreddedKeysStandInNoFile) {
  constexpr std::int64_t kCount = 3000;
  {
    const auto store = writing();
    store->beginBatch();
    for (std::int64_t id = 1; id <= kCount; ++id) {
      store->newKey(id);
      if (id % 3 == 0) store->blobKey("blob " + std::to_string(id), true);
    }
    store->commitBatch();
  }
  const Bytes blob = raw()
                         ->query("SELECT wrapped FROM blob_key WHERE hash = 'blob 1500'")
                         .at(0)
                         .blob("wrapped")
                         .value();
  const std::vector<std::int64_t> ids = {1, 2, 777, 1500, 2999, kCount};
  std::vector<Bytes> wrapped;
  wrapped.reserve(ids.size());
  for (const std::int64_t id : ids) wrapped.push_back(wrappedOf(id));
  const auto store = writing();
  store->newKey(kCount + 1);  // so that there is a log
  ASSERT_TRUE(holdsPartOf(keys_, wrapped[2]));
  ASSERT_TRUE(holdsPartOf(keys_, blob));
  for (std::size_t i = 0; i < ids.size(); ++i) {
    SCOPED_TRACE(ids[i]);
    store->shred(ids[i], "request", "anna");
    EXPECT_FALSE(holdsPartOf(keys_, wrapped[i]));
    EXPECT_FALSE(store->key(ids[i]));
  }
  store->shredBlobKey("blob 1500");
  EXPECT_FALSE(holdsPartOf(keys_, blob));
  EXPECT_FALSE(store->blobKey("blob 1500", false));
  for (const std::int64_t id : {3, 778, 1499, 1501, 3001}) EXPECT_TRUE(store->key(id)) << id;
  EXPECT_EQ(store->erasureCount(), static_cast<std::int64_t>(ids.size()));
}

TEST_F(ContentKeyStoreTest, openingFinishesAnInterruptedShredding) {
  writing()->newKey(1);
  const Bytes wrapped = wrappedOf(1);
  const fs::path crashed = folder_ / "crashed";
  {
    const auto db = raw();
    db->run("UPDATE content_key SET created_at = 5");  // writes the key's page to the log
    db->run("DELETE FROM content_key");
    fs::copy(keys_, crashed);  // what a killed process leaves
  }
  ASSERT_TRUE(holdsPartOf(crashed, wrapped));
  const auto store = ContentKeyStore::writing(crashed / database_.filename().native(),
                                              crashed / master_.filename().native(), systemNow);
  EXPECT_FALSE(holdsPartOf(crashed, wrapped));
}

TEST_F(ContentKeyStoreTest, erasuresAreKeptOncePerMessage) {
  const auto store = writing();
  store->newKey(5);
  now_ = Date{3000};
  store->shred(5, "first request", "anna");
  now_ = Date{2000};
  store->shred(9, std::nullopt, std::nullopt);
  EXPECT_TRUE(store->isErased(5));
  EXPECT_TRUE(store->isErased(9)) << "with or without a key";
  EXPECT_FALSE(store->isErased(6));
  const std::vector<Erasure> both = {{9, Date{2000}, std::nullopt, std::nullopt},
                                     {5, Date{3000}, "first request", "anna"}};
  EXPECT_EQ(store->erasures(), both);
  now_ = Date{4000};
  store->shred(9, "second request", "bert");
  EXPECT_EQ(store->erasures().back(), (Erasure{9, Date{4000}, "second request", "bert"}));
  EXPECT_EQ(reading()->erasureCount(), 2);
}

}  // namespace
}  // namespace ambervane
