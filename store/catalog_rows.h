#ifndef AMBERVANE_STORE_CATALOG_ROWS_H_
#define AMBERVANE_STORE_CATALOG_ROWS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/bytes.h"
#include "base/date.h"

namespace ambervane {

class Row;

/// A row of `message`; fields are its columns.
struct MessageRow {
  std::int64_t id = 0;
  std::string sha256;
  std::optional<std::string> messageID, threadKey;
  std::string subject, subjectNorm;
  std::optional<std::string> fromName, fromAddress, fromDomain, toAddresses, ccAddresses;
  std::string participants;
  std::optional<Date> sentAt, internalAt;
  Date ingestedAt;
  std::int64_t size = 0;        ///< raw bytes
  std::int64_t storedSize = 0;  ///< of the pack record's payload
  std::int64_t attachmentCount = 0;
  std::optional<std::int64_t> packID, packOffset;  ///< absent until the record is placed
  std::uint16_t recordFlags = 0;
  std::uint16_t dictionaryID = 0;
  std::string retentionClass;
  std::optional<Date> expiresAt;
  bool erased = false;
  std::optional<Date> erasedAt;
  std::optional<std::string> erasureReason, inReplyTo, referenceIDs, snippet, origin, originSource;
  std::optional<std::int64_t> blockMember;

  explicit MessageRow(const Row& row);
};

/// A row of `attachment`.
struct AttachmentRow {
  std::int64_t id = 0;
  std::int64_t messageID = 0;
  std::optional<std::int64_t> blobID;  ///< absent when the content stayed in the message's record
  std::optional<std::string> filename;
  std::string mimeType, section;
  std::int64_t sizeEncoded = 0;
  std::int64_t sizeDecoded = 0;
  std::optional<std::string> contentHash;
  bool isInline = false;
  std::string transferEncoding;

  explicit AttachmentRow(const Row& row);
};

/// A row of `blob`.
struct BlobRow {
  std::int64_t id = 0;
  std::string hash;
  std::optional<std::string> contentHash;
  std::int64_t packID = 0;
  std::int64_t packOffset = 0;
  std::int64_t storedSize = 0;
  std::int64_t originalSize = 0;
  std::uint16_t recordFlags = 0;
  std::uint16_t dictionaryID = 0;
  std::optional<std::string> recipe;
  std::int64_t encodedSize = 0;
  std::int64_t refcount = 0;

  BlobRow() = default;
  explicit BlobRow(const Row& row);
};

/// The kind of an account whose mail is collected from a server.
inline constexpr std::string_view kImapAccountKind = "imap";

/// A row of `account`.
struct AccountRow {
  std::int64_t id = 0;
  std::string name, kind;
  std::optional<std::string> host, username, sourcePath;
  std::optional<Date> lastSyncAt;
  std::optional<std::string> settings;

  explicit AccountRow(const Row& row);
};

/// A row of `folder`.
struct FolderRow {
  std::int64_t id = 0;
  std::int64_t accountID = 0;
  std::string path, delimiter;
  std::optional<std::int64_t> uidValidity, uidNext, highestModseq;
  std::optional<Date> lastSyncAt;

  explicit FolderRow(const Row& row);
};

/// A row of `pack`.
struct PackRow {
  std::int64_t id = 0;
  std::string name;
  std::optional<Date> sealedAt;
  std::int64_t bytes = 0;
  std::optional<std::string> sha256;  ///< present on a sealed pack
  bool immutable = false;

  explicit PackRow(const Row& row);
};

/// What completes a reserved `message` row.
struct MessageInsert {
  std::string messageID;  ///< empty texts of optional columns are stored as NULL
  std::string threadKey, subject, subjectNorm;
  std::string fromName, fromAddress, fromDomain, toAddresses, ccAddresses, participants;
  std::optional<Date> sentAt, internalAt;
  std::int64_t size = 0;
  std::int64_t storedSize = 0;
  std::int64_t attachmentCount = 0;
  std::optional<std::int64_t> packID, packOffset;
  std::uint16_t recordFlags = 0;
  std::uint16_t dictionaryID = 0;
  std::string retentionClass;
  std::optional<Date> expiresAt;
  std::string inReplyTo, referenceIDs, snippet;
  std::string origin;        ///< "received" or "reconstructed"
  std::string originSource;  ///< empty for a received message
};

/// What becomes an `attachment` row.
struct StoredAttachment {
  std::optional<std::int64_t> blobID;
  std::optional<std::string> filename;
  std::string mimeType, section;
  std::int64_t encodedSize = 0;
  std::int64_t decodedSize = 0;
  std::string contentHash;
  bool isInline = false;
  std::string transferEncoding;
};

/// The four columns of the full-text index.
struct IndexedText {
  std::string subject, participants, body, attachments;
};

/// A message in one mailbox.
struct Membership {
  std::string account, folder;
  std::optional<std::int64_t> uid;
  std::string flags;
  bool removed = false;
};

/// Files that several messages carry.
struct DuplicateAttachment {
  std::string contentHash;
  std::optional<std::string> filename;
  std::int64_t size = 0;    ///< decoded
  std::int64_t copies = 0;  ///< messages that carry it
};

/// Attachments by the extension of their names.
struct AttachmentExtension {
  std::string extension;  ///< lower case, without the dot; empty for names without one
  std::int64_t count = 0;
  std::int64_t bytes = 0;  ///< decoded
};

/// How many messages lie in a folder now.
struct FolderCount {
  std::string account, path;
  std::int64_t messages = 0;
};

/// Totals of the catalog.
struct CatalogStats {
  std::int64_t messages = 0;
  std::int64_t erased = 0;
  std::int64_t attachments = 0;
  std::int64_t blobs = 0;
  std::int64_t originalBytes = 0;
  std::int64_t storedBytes = 0;
  std::int64_t blobStoredBytes = 0;
  std::int64_t blobOriginalBytes = 0;
  std::int64_t packs = 0;
  std::optional<Date> oldest, newest;
  std::int64_t deduplicatedMessages = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CATALOG_ROWS_H_
