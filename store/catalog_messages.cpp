// Messages, their header fields and their words in the catalog.

#include <algorithm>

#include "base/text.h"
#include "query/german_folding.h"
#include "store/catalog.h"

namespace ambervane {
namespace {

constexpr const char* kFloorKey = "message_id_floor";
/// Words that one column may gain as spelling variants.
constexpr std::size_t kVariantLimit = 4000;

/// An optional column: empty text is stored as NULL.
SQLBinding orNull(const std::string& text) {
  return text.empty() ? SQLBinding(nullptr) : SQLBinding(text);
}

std::string appendVariants(const std::string& text) {
  const std::string variants = GermanFolding::indexVariants(text, kVariantLimit);
  return variants.empty() ? text : text + "\n" + variants;
}

}  // namespace

std::optional<std::int64_t> Catalog::messageID(std::string_view hash) {
  const auto value = db_->scalar("SELECT id FROM message WHERE sha256 = ?", {hash});
  if (!value) return std::nullopt;
  return std::get<std::int64_t>(*value);
}

std::int64_t Catalog::reserveMessage(const std::string& hash) {
  return reserveMessage(hash, std::nullopt, clock_());
}

std::int64_t Catalog::reserveMessage(const std::string& hash, std::optional<std::int64_t> id,
                                     Date ingestedAt) {
  if (!messageIDFloor_) messageIDFloor_ = parseInteger(meta(kFloorKey).value_or("0")).value_or(0);
  if (!id && *messageIDFloor_ > 0) {
    const std::int64_t highest = db_->count("SELECT COALESCE(MAX(id), 0) FROM message");
    id = std::max(highest, *messageIDFloor_) + 1;
  }
  if (!id) {
    return db_->insert("INSERT INTO message(sha256, ingested_at, size) VALUES(?, ?, 0)",
                       {hash, ingestedAt});
  }
  return db_->insert("INSERT INTO message(id, sha256, ingested_at, size) VALUES(?, ?, ?, 0)",
                     {*id, hash, ingestedAt});
}

void Catalog::setMessageIDFloor(std::int64_t floor) {
  setMeta(kFloorKey, std::to_string(floor));
  messageIDFloor_ = floor;
}

void Catalog::completeMessage(std::int64_t id, const MessageInsert& m) {
  db_->run(
      "UPDATE message SET message_id = ?, thread_key = ?, subject = ?, subject_norm = ?, from_name "
      "= ?, from_addr = ?, from_domain = ?, to_addrs = ?, cc_addrs = ?, participants = ?, sent_at "
      "= ?, internal_at = ?, size = ?, stored_size = ?, has_attachments = ?, attachment_count = ?, "
      "pack_id = ?, pack_offset = ?, record_flags = ?, dictionary_id = ?, retention_class = ?, "
      "expires_at = ?, in_reply_to = ?, reference_ids = ?, snippet = ?, origin = ?, origin_source "
      "= ? WHERE id = ?",
      {orNull(m.messageID),
       orNull(m.threadKey),
       m.subject,
       m.subjectNorm,
       orNull(m.fromName),
       orNull(m.fromAddress),
       orNull(m.fromDomain),
       orNull(m.toAddresses),
       orNull(m.ccAddresses),
       m.participants,
       m.sentAt,
       m.internalAt,
       m.size,
       m.storedSize,
       m.attachmentCount > 0,
       m.attachmentCount,
       m.packID,
       m.packOffset,
       m.recordFlags,
       m.dictionaryID,
       m.retentionClass,
       m.expiresAt,
       orNull(m.inReplyTo),
       orNull(m.referenceIDs),
       orNull(m.snippet),
       orNull(m.origin),
       orNull(m.originSource),
       id});
}

void Catalog::attachSolidRecord(std::int64_t messageID, std::int64_t packID, std::int64_t offset,
                                std::int64_t member, std::int64_t storedSize, std::uint16_t flags,
                                std::uint16_t dictionaryID) {
  db_->run(
      "UPDATE message SET pack_id = ?, pack_offset = ?, block_member = ?, stored_size = ?, "
      "record_flags = ?, dictionary_id = ? WHERE id = ?",
      {packID, offset, member, storedSize, flags, dictionaryID, messageID});
}

void Catalog::discardMessage(std::int64_t id) {
  db_->run(
      "UPDATE blob SET refcount = MAX(0, refcount - (SELECT COUNT(*) FROM attachment a WHERE "
      "a.blob_id = blob.id AND a.message_id = ?1)) WHERE id IN (SELECT blob_id FROM attachment "
      "WHERE message_id = ?1)",
      {id});
  removeFromIndex(id);
  db_->run("DELETE FROM message WHERE id = ?", {id});
}

std::optional<MessageRow> Catalog::message(std::int64_t id) {
  std::optional<MessageRow> message;
  db_->forEachRow("SELECT * FROM message WHERE id = ?", {id}, [&message](const Row& row) {
    message = MessageRow(row);
    return false;
  });
  return message;
}

std::optional<MessageRow> Catalog::message(std::string_view hash) {
  const auto id = messageID(hash);
  return id ? message(*id) : std::nullopt;
}

std::vector<std::string> Catalog::unplacedMessages() {
  std::vector<std::string> digests;
  for (const Row& row :
       db_->query("SELECT sha256 FROM message WHERE pack_id IS NULL ORDER BY id")) {
    digests.push_back(row.string("sha256"));
  }
  return digests;
}

std::int64_t Catalog::sweepIncompleteMessages() {
  if (!db_->scalar("SELECT 1 FROM message WHERE pack_id IS NULL LIMIT 1")) return 0;
  std::int64_t swept = 0;
  db_->transaction([&] {
    db_->run(
        "UPDATE blob SET refcount = MAX(0, refcount - (SELECT COUNT(*) FROM attachment a JOIN "
        "message m ON m.id = a.message_id WHERE a.blob_id = blob.id AND m.pack_id IS NULL)) WHERE "
        "id IN (SELECT a.blob_id FROM attachment a JOIN message m ON m.id = a.message_id WHERE "
        "m.pack_id IS NULL)");
    if (supportsFTS_) {
      for (const Row& row : db_->query("SELECT id FROM message WHERE pack_id IS NULL")) {
        removeFromIndex(row.integer("id"));
      }
    }
    swept = db_->run("DELETE FROM message WHERE pack_id IS NULL");
  });
  return swept;
}

void Catalog::insertHeaders(const std::vector<std::pair<std::string, std::string>>& headers,
                            std::int64_t messageID) {
  if (!supportsHeaderIndex_) return;
  for (const auto& [name, value] : headers) {
    db_->run("INSERT INTO message_header(message_id, name, value) VALUES(?, ?, ?)",
             {messageID, name, value});
  }
}

void Catalog::insertText(std::string_view sql, std::int64_t messageID, const IndexedText& text) {
  const std::string subject = appendVariants(text.subject);
  const std::string participants = appendVariants(text.participants);
  const std::string body = appendVariants(text.body);
  const std::string attachments = appendVariants(text.attachments);
  db_->run(sql, {messageID, subject, participants, body, attachments});
}

void Catalog::indexText(std::int64_t messageID, const IndexedText& text) {
  if (!supportsFTS_) return;
  insertText(
      "INSERT OR REPLACE INTO message_fts(rowid, subject, participants, body, attachments) "
      "VALUES(?, ?, ?, ?, ?)",
      messageID, text);
}

void Catalog::stageText(std::int64_t messageID, const IndexedText& text) {
  db_->run(
      "CREATE VIRTUAL TABLE IF NOT EXISTS temp.staged_fts USING fts5(subject, participants, body, "
      "attachments, tokenize='unicode61 remove_diacritics 2')");
  db_->run("DELETE FROM temp.staged_fts");
  insertText(
      "INSERT INTO temp.staged_fts(rowid, subject, participants, body, attachments) VALUES(?, ?, "
      "?, ?, ?)",
      messageID, text);
}

void Catalog::removeFromIndex(std::int64_t messageID) {
  if (supportsFTS_) db_->run("DELETE FROM message_fts WHERE rowid = ?", {messageID});
}

void Catalog::optimizeSearchIndex() {
  if (supportsFTS_) db_->run("INSERT INTO message_fts(message_fts) VALUES('optimize')");
}

}  // namespace ambervane
