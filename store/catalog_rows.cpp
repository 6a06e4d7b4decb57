#include "store/catalog_rows.h"

#include "store/sqlite_database.h"

namespace ambervane {

MessageRow::MessageRow(const Row& row)
    : id(row.integer("id")),
      sha256(row.string("sha256")),
      messageID(row.optionalString("message_id")),
      threadKey(row.optionalString("thread_key")),
      subject(row.string("subject")),
      subjectNorm(row.string("subject_norm")),
      fromName(row.optionalString("from_name")),
      fromAddress(row.optionalString("from_addr")),
      fromDomain(row.optionalString("from_domain")),
      toAddresses(row.optionalString("to_addrs")),
      ccAddresses(row.optionalString("cc_addrs")),
      participants(row.string("participants")),
      sentAt(row.date("sent_at")),
      internalAt(row.date("internal_at")),
      ingestedAt(row.date("ingested_at").value_or(Date{})),
      size(row.integer("size")),
      storedSize(row.integer("stored_size")),
      attachmentCount(row.integer("attachment_count")),
      packID(row.optionalInteger("pack_id")),
      packOffset(row.optionalInteger("pack_offset")),
      recordFlags(static_cast<std::uint16_t>(row.integer("record_flags"))),
      dictionaryID(static_cast<std::uint16_t>(row.integer("dictionary_id"))),
      retentionClass(row.string("retention_class")),
      expiresAt(row.date("expires_at")),
      erased(row.boolean("erased")),
      erasedAt(row.date("erased_at")),
      erasureReason(row.optionalString("erasure_reason")),
      inReplyTo(row.optionalString("in_reply_to")),
      referenceIDs(row.optionalString("reference_ids")),
      snippet(row.optionalString("snippet")),
      origin(row.optionalString("origin")),
      originSource(row.optionalString("origin_source")),
      blockMember(row.optionalInteger("block_member")) {}

AttachmentRow::AttachmentRow(const Row& row)
    : id(row.integer("id")),
      messageID(row.integer("message_id")),
      blobID(row.optionalInteger("blob_id")),
      filename(row.optionalString("filename")),
      mimeType(row.string("mime_type")),
      section(row.string("section")),
      sizeEncoded(row.integer("size_encoded")),
      sizeDecoded(row.integer("size_decoded")),
      contentHash(row.optionalString("content_hash")),
      isInline(row.boolean("is_inline")),
      transferEncoding(row.string("transfer_encoding")) {}

BlobRow::BlobRow(const Row& row)
    : id(row.integer("id")),
      hash(row.string("hash")),
      contentHash(row.optionalString("content_hash")),
      packID(row.integer("pack_id")),
      packOffset(row.integer("pack_offset")),
      storedSize(row.integer("stored_size")),
      originalSize(row.integer("orig_size")),
      recordFlags(static_cast<std::uint16_t>(row.integer("record_flags"))),
      dictionaryID(static_cast<std::uint16_t>(row.integer("dictionary_id"))),
      recipe(row.optionalString("recipe")),
      encodedSize(row.integer("encoded_size")),
      refcount(row.integer("refcount")) {}

AccountRow::AccountRow(const Row& row)
    : id(row.integer("id")),
      name(row.string("name")),
      kind(row.string("kind")),
      host(row.optionalString("host")),
      username(row.optionalString("username")),
      sourcePath(row.optionalString("source_path")),
      lastSyncAt(row.date("last_sync_at")),
      settings(row.optionalString("settings")) {}

FolderRow::FolderRow(const Row& row)
    : id(row.integer("id")),
      accountID(row.integer("account_id")),
      path(row.string("path")),
      delimiter(row.string("delimiter")),
      uidValidity(row.optionalInteger("uid_validity")),
      uidNext(row.optionalInteger("uid_next")),
      highestModseq(row.optionalInteger("highest_modseq")),
      lastSyncAt(row.date("last_sync_at")) {}

PackRow::PackRow(const Row& row)
    : id(row.integer("id")),
      name(row.string("name")),
      sealedAt(row.date("sealed_at")),
      bytes(row.integer("bytes")),
      sha256(row.optionalString("sha256")),
      immutable(row.boolean("immutable")) {}

}  // namespace ambervane
