// Opening, migration, batches and settings of the catalog; its tables have files of their own.

#include "store/catalog.h"

#include <array>

#include "store/catalog_schema.h"

namespace ambervane {
namespace {

constexpr const char* kLabel = "ambervane.catalog";

/// From the smallest index to the one every SQLite with FTS5 takes.
constexpr std::array<const char*, 3> kSearchTables = {
    "CREATE VIRTUAL TABLE message_fts USING fts5(subject, participants, body, attachments, "
    "content='', contentless_delete=1, columnsize=0, "
    "tokenize='unicode61 remove_diacritics 2')",
    "CREATE VIRTUAL TABLE message_fts USING fts5(subject, participants, body, attachments, "
    "content='', contentless_delete=1, tokenize='unicode61 remove_diacritics 2')",
    "CREATE VIRTUAL TABLE message_fts USING fts5(subject, participants, body, attachments, "
    "tokenize='unicode61 remove_diacritics 2')",
};

}  // namespace

Catalog::Catalog(const std::filesystem::path& path, Clock clock)
    : db_(std::make_unique<SQLiteDatabase>(path, SQLiteDatabase::Mode::readWrite, kLabel)),
      clock_(std::move(clock)) {
  migrate();
}

std::unique_ptr<Catalog> Catalog::reading(const std::filesystem::path& path,
                                          bool mediumIsReadOnly) {
  std::unique_ptr<Catalog> catalog(
      new Catalog(SQLiteDatabase::reading(path, kLabel, mediumIsReadOnly), systemNow));
  catalog->detectSearchCapabilities(true);
  return catalog;
}

void Catalog::goOnWith(const std::filesystem::path& path, const std::function<void()>& between) {
  const std::filesystem::path before = db_->path();
  const auto open = [this](const std::filesystem::path& file) {
    db_ = std::make_unique<SQLiteDatabase>(file, SQLiteDatabase::Mode::readWrite, kLabel);
    batchDepth_ = 0;
    messageIDFloor_.reset();
  };
  db_.reset();
  try {
    between();
  } catch (...) {
    open(before);
    throw;
  }
  open(path);
  migrate();
}

void Catalog::migrate() {
  const std::string version = std::to_string(kCatalogSchemaVersion);
  db_->execute(kCatalogSchema);
  addColumnIfMissing("account", "settings", "TEXT");
  addColumnIfMissing("message", "block_member", "INTEGER");
  addColumnIfMissing("message", "origin", "TEXT");
  addColumnIfMissing("message", "origin_source", "TEXT");
  addColumnIfMissing("message_folder", "last_seen_at", "REAL");
  addColumnIfMissing("message_folder", "removed_at", "REAL");
  db_->execute(
      "CREATE INDEX IF NOT EXISTS idx_mf_current ON message_folder(folder_id, removed_at)");
  const bool isOlder = addColumnIfMissing("message_folder", "sent_at", "REAL");
  db_->execute(
      "CREATE INDEX IF NOT EXISTS idx_mf_browse ON message_folder(folder_id, removed_at, sent_at "
      "DESC, message_id DESC)");
  // Asked once, not at every opening: messages without a date keep NULL here for good.
  if ((isOlder || meta("schema_version").value_or("") != version) &&
      db_->scalar("SELECT 1 FROM message_folder WHERE sent_at IS NULL LIMIT 1")) {
    db_->run(
        "UPDATE message_folder SET sent_at = (SELECT sent_at FROM message WHERE message.id = "
        "message_folder.message_id) WHERE sent_at IS NULL");
  }
  detectSearchCapabilities(false);
  if (meta("schema_version").value_or("") != version) setMeta("schema_version", version);
}

bool Catalog::addColumnIfMissing(const std::string& table, const std::string& column,
                                 const std::string& definition) {
  for (const Row& row : db_->query("PRAGMA table_info(" + table + ")")) {
    if (row.string("name") == column) return false;
  }
  db_->execute("ALTER TABLE " + table + " ADD COLUMN " + column + " " + definition);
  return true;
}

void Catalog::detectSearchCapabilities(bool readOnly) {
  if (!readOnly && !db_->hasTable("message_fts")) createSearchIndex();
  supportsHeaderIndex_ = supportsHitIndex_ = supportsFTS_ = contentlessDelete_ = false;
  db_->forEachRow(
      "SELECT name, sql FROM sqlite_master WHERE name IN ('message_header', 'idx_message_hit', "
      "'message_fts')",
      {}, [this](const Row& row) {
        const std::string name = row.string("name");
        if (name == "message_header") supportsHeaderIndex_ = true;
        if (name == "idx_message_hit") supportsHitIndex_ = true;
        if (name == "message_fts") {
          supportsFTS_ = true;
          contentlessDelete_ = row.string("sql").find("contentless_delete") != std::string::npos;
        }
        return true;
      });
}

void Catalog::createSearchIndex() {
  supportsFTS_ = false;
  for (const char* sql : kSearchTables) {
    try {
      db_->execute(sql);
      supportsFTS_ = true;
      break;
    } catch (const SQLiteError&) {
      // This SQLite does not know the option; the next form asks for less.
    }
  }
  if (!supportsFTS_) return;
  try {
    db_->execute("INSERT INTO message_fts(message_fts, rank) VALUES('automerge', 8)");
  } catch (const SQLiteError&) {
    // Only a matter of speed.
  }
}

void Catalog::beginBatch() {
  if (batchDepth_ == 0) db_->run("BEGIN IMMEDIATE");
  ++batchDepth_;
}

void Catalog::commitBatch() {
  if (batchDepth_ == 1) db_->run("COMMIT");
  if (batchDepth_ > 0) --batchDepth_;
}

void Catalog::rollbackBatch() noexcept {
  if (batchDepth_ == 0) return;
  batchDepth_ = 0;
  try {
    db_->run("ROLLBACK");
  } catch (const std::exception&) {
    // SQLite has rolled back by itself when the failure was its own.
  }
}

void Catalog::atomically(const std::function<void()>& body) {
  if (batchDepth_ > 0) {
    body();
  } else {
    db_->transaction(body);
  }
}

void Catalog::inOneState(const std::function<void()>& body) {
  if (batchDepth_ > 0) {
    body();
  } else {
    db_->snapshot(body);
  }
}

std::optional<std::string> Catalog::meta(std::string_view key) {
  std::optional<std::string> value;
  db_->forEachRow("SELECT value FROM meta WHERE key = ?", {key}, [&value](const Row& row) {
    value = row.string("value");
    return false;
  });
  return value;
}

void Catalog::setMeta(std::string_view key, std::string_view value) {
  db_->run("INSERT OR REPLACE INTO meta(key, value) VALUES(?, ?)", {key, value});
}

void Catalog::bumpMutationGeneration() {
  db_->run(
      "INSERT INTO meta(key, value) VALUES('mutation_generation', '1') ON CONFLICT(key) DO UPDATE "
      "SET value = CAST(CAST(value AS INTEGER) + 1 AS TEXT)");
}

std::int64_t Catalog::beginIngest(const std::string& source) {
  return db_->insert("INSERT INTO ingest_log(started_at, source) VALUES(?, ?)", {clock_(), source});
}

void Catalog::finishIngest(std::int64_t id, std::int64_t added, std::int64_t duplicates,
                           std::int64_t failed, std::int64_t bytesIn, std::int64_t bytesOut,
                           const std::optional<std::string>& note) {
  db_->run(
      "UPDATE ingest_log SET finished_at = ?, added = ?, duplicates = ?, failed = ?, bytes_in = ?, "
      "bytes_out = ?, note = ? WHERE id = ?",
      {clock_(), added, duplicates, failed, bytesIn, bytesOut, note, id});
}

}  // namespace ambervane
