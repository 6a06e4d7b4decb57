// Packs, dictionaries, blobs and attachments in the catalog.

#include <fmt/format.h>

#include <algorithm>

#include "base/text.h"
#include "store/catalog.h"
#include "store/pack_format.h"

namespace ambervane {

void Catalog::registerPack(std::int64_t id) {
  db_->run("INSERT OR IGNORE INTO pack(id, name, created_at) VALUES(?, ?, ?)",
           {id, fmt::format("{:08}.pack", id), clock_()});
}

void Catalog::markPackSealed(std::int64_t id, const std::string& sha256, std::int64_t bytes,
                             bool immutable) {
  db_->run("UPDATE pack SET sealed_at = ?, sha256 = ?, bytes = ?, immutable = ? WHERE id = ?",
           {clock_(), sha256, bytes, immutable, id});
}

void Catalog::notePackBytes(std::int64_t id, std::int64_t bytes) {
  db_->run("UPDATE pack SET bytes = ? WHERE id = ?", {bytes, id});
}

std::int64_t Catalog::packBytes(std::int64_t id) {
  return db_->count("SELECT bytes FROM pack WHERE id = ?", {id});
}

std::vector<PackRow> Catalog::packs() {
  std::vector<PackRow> packs;
  for (const Row& row : db_->query("SELECT * FROM pack ORDER BY id")) packs.emplace_back(row);
  return packs;
}

std::int64_t Catalog::currentPackID() {
  const auto id = parseInteger(meta("current_pack").value_or("1"));
  return id && *id >= 1 ? *id : 1;
}

void Catalog::setCurrentPack(std::int64_t id) { setMeta("current_pack", std::to_string(id)); }

std::int64_t Catalog::storeDictionary(BytesView bytes, std::int64_t samples, std::int64_t taken) {
  const std::int64_t id =
      std::max(db_->count("SELECT COALESCE(MAX(id), 0) FROM dictionary"), taken) + 1;
  db_->run("INSERT INTO dictionary(id, created_at, bytes, samples) VALUES(?, ?, ?, ?)",
           {id, clock_(), SQLBytes{bytes}, samples});
  return id;
}

void Catalog::restoreDictionary(std::int64_t id, BytesView bytes) {
  db_->run("INSERT OR IGNORE INTO dictionary(id, created_at, bytes, samples) VALUES(?, ?, ?, 0)",
           {id, clock_(), SQLBytes{bytes}});
}

std::optional<Bytes> Catalog::dictionary(std::int64_t id) {
  std::optional<Bytes> bytes;
  db_->forEachRow("SELECT bytes FROM dictionary WHERE id = ?", {id}, [&bytes](const Row& row) {
    bytes = row.blob("bytes");
    return false;
  });
  return bytes;
}

std::int64_t Catalog::dictionaryCount() { return db_->count("SELECT COUNT(*) FROM dictionary"); }

std::optional<BlobRow> Catalog::blob(std::string_view hash) {
  std::optional<BlobRow> blob;
  db_->forEachRow("SELECT * FROM blob WHERE hash = ?", {hash}, [&blob](const Row& row) {
    blob = BlobRow(row);
    return false;
  });
  return blob;
}

std::int64_t Catalog::insertBlob(const BlobRow& blob) {
  return db_->insert(
      "INSERT INTO blob(hash, content_hash, pack_id, pack_offset, stored_size, orig_size, "
      "record_flags, dictionary_id, recipe, encoded_size, refcount) VALUES(?, ?, ?, ?, ?, ?, ?, ?, "
      "?, ?, 0)",
      {blob.hash, blob.contentHash, blob.packID, blob.packOffset, blob.storedSize,
       blob.originalSize, blob.recordFlags, blob.dictionaryID, blob.recipe, blob.encodedSize});
}

void Catalog::retainBlob(std::int64_t id) {
  db_->run("UPDATE blob SET refcount = refcount + 1 WHERE id = ?", {id});
}

void Catalog::releaseBlob(std::int64_t id) {
  db_->run("UPDATE blob SET refcount = MAX(0, refcount - 1) WHERE id = ?", {id});
}

void Catalog::replaceBlob(std::int64_t id, const BlobRow& blob) {
  db_->run(
      "UPDATE blob SET content_hash = ?, pack_id = ?, pack_offset = ?, stored_size = ?, orig_size "
      "= ?, record_flags = ?, dictionary_id = ?, recipe = ?, encoded_size = ? WHERE id = ?",
      {blob.contentHash, blob.packID, blob.packOffset, blob.storedSize, blob.originalSize,
       blob.recordFlags, blob.dictionaryID, blob.recipe, blob.encodedSize, id});
}

std::vector<std::string> Catalog::unusedBlobs() {
  std::vector<std::string> hashes;
  db_->forEachRow("SELECT hash FROM blob WHERE refcount <= 0 AND (record_flags & ?) <> 0",
                  {RecordFlags::kEncrypted}, [&hashes](const Row& row) {
                    hashes.push_back(row.string("hash"));
                    return true;
                  });
  return hashes;
}

void Catalog::insertAttachment(std::int64_t messageID, const StoredAttachment& attachment) {
  db_->run(
      "INSERT INTO attachment(message_id, blob_id, filename, mime_type, section, size_encoded, "
      "size_decoded, content_hash, is_inline, transfer_encoding) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, "
      "?)",
      {messageID, attachment.blobID, attachment.filename, attachment.mimeType, attachment.section,
       attachment.encodedSize, attachment.decodedSize, attachment.contentHash, attachment.isInline,
       attachment.transferEncoding});
}

std::vector<AttachmentRow> Catalog::attachments(std::int64_t messageID) {
  std::vector<AttachmentRow> rows;
  for (const Row& row :
       db_->query("SELECT * FROM attachment WHERE message_id = ? ORDER BY id", {messageID})) {
    rows.emplace_back(row);
  }
  return rows;
}

std::vector<DuplicateAttachment> Catalog::duplicateAttachments(std::int64_t minimumCopies,
                                                               std::int64_t limit) {
  std::vector<DuplicateAttachment> files;
  for (const Row& row : db_->query(
           "SELECT a.content_hash AS content_hash, MAX(a.filename) AS filename, "
           "MAX(a.size_decoded) AS size, COUNT(DISTINCT a.message_id) AS copies FROM attachment a "
           "JOIN message m ON m.id = a.message_id WHERE m.erased = 0 AND a.content_hash IS NOT "
           "NULL GROUP BY a.content_hash HAVING copies >= ? ORDER BY size * (copies - 1) DESC, "
           "a.content_hash LIMIT ?",
           {minimumCopies, limit})) {
    files.push_back({row.string("content_hash"), row.optionalString("filename"),
                     row.integer("size"), row.integer("copies")});
  }
  return files;
}

}  // namespace ambervane
