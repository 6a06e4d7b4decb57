// The serial half of taking a message in. Order matters: the record is in the pack and the entry in
// the journal before the catalog's transaction commits, so a committed row always has both.

#include "store/commit.h"

#include "base/text.h"
#include "store/archive_error.h"
#include "store/pack_error.h"
#include "store/pack_format.h"

namespace ambervane {
namespace {

std::int64_t recordBytes(const CompressedRecord& record) {
  return static_cast<std::int64_t>(record.payload.size() + kRecordHeaderBytes);
}

const char* originName(MessageOrigin origin) {
  return origin == MessageOrigin::received ? "received" : "reconstructed";
}

StoredAttachment storedAttachment(const AttachmentRef& ref, std::optional<std::int64_t> blobID) {
  return {.blobID = blobID,
          .filename = ref.filename,
          .mimeType = ref.mimeType,
          .section = ref.section,
          .encodedSize = ref.encodedSize,
          .decodedSize = ref.decodedSize,
          .contentHash = ref.contentHash,
          .isInline = ref.isInline,
          .transferEncoding = std::string(transferEncodingName(ref.transferEncoding))};
}

/// One message on its way into the archive.
class Commit {
 public:
  Commit(MailArchive& archive, const PreparedMessage& message, const MailboxRef& mailbox,
         const std::optional<RetentionClass>& chosenClass)
      : archive_(archive),
        catalog_(archive.catalog()),
        message_(message),
        mailbox_(mailbox),
        chosenClass_(chosenClass) {}

  IngestOutcome run() {
    std::optional<std::int64_t> known;
    try {
      known = catalog_.messageID(message_.hash);
    } catch (const SQLiteError& error) {
      if (error.isMediumFailure()) throw;
      return {IngestOutcome::Kind::failed, std::string("catalog lookup failed: ") + error.what()};
    }
    if (known) {
      fileDuplicate(*known);
      return {IngestOutcome::Kind::duplicate, ""};
    }
    return store();
  }

 private:
  std::optional<std::int64_t> uid() const {
    return parseInteger(message_.source.sourceIdentifier.value_or(""));
  }

  void fileDuplicate(std::int64_t id) {
    const std::string flags = flagText(message_.source.flags);
    if (catalog_.linkMessage(id, mailbox_.folderID, uid(), flags, message_.envelope.sentAt)) {
      const auto row = catalog_.message(id);
      if (row && row->packID && row->packOffset) {
        noteForRecovery(*row->packID, *row->packOffset, row->retentionClass, row->blockMember);
      }
    }
    archive_.journal().append(AuditAction::messageDuplicate, message_.hash,
                              {{"folder_id", std::to_string(mailbox_.folderID)}});
  }

  IngestOutcome store() {
    std::optional<std::int64_t> reserved;
    try {
      std::vector<StoredAttachment> attachments;
      for (const PreparedBlob& blob : message_.extracted) {
        attachments.push_back(storedAttachment(blob.ref, commitBlob(blob)));
      }
      for (const AttachmentRef& ref : message_.inlineAttachments) {
        attachments.push_back(storedAttachment(ref, std::nullopt));
      }
      reserved = catalog_.reserveMessage(message_.hash);
      place(*reserved, attachments);
    } catch (const PackError& error) {
      if (!error.is<PackError::TooLarge>()) throw;
      return discard(reserved, error);
    } catch (const SQLiteError& error) {
      if (error.isMediumFailure()) throw;
      return discard(reserved, error);
    }
    archive_.noteStoredMessage();
    return {IngestOutcome::Kind::stored, ""};
  }

  IngestOutcome discard(std::optional<std::int64_t> reserved, const std::exception& error) {
    if (reserved) catalog_.discardMessage(*reserved);
    return {IngestOutcome::Kind::failed, message_.hash.substr(0, 12) + ": " + error.what()};
  }

  std::int64_t commitBlob(const PreparedBlob& blob) {
    if (const auto known = catalog_.blob(blob.ref.encodedHash)) return known->id;
    const RecordFlags flags = RecordFlags::make(blob.compressed.codec, false, true);
    const std::int64_t pack = archive_.nextPack(recordBytes(blob.compressed));
    const PackLocation location =
        archive_.packs().append(blob.compressed.payload, blob.compressed.originalLength, flags,
                                message_.dictionaryID, pack);
    archive_.sidecars().noteBlob(pack,
                                 {.offset = location.offset,
                                  .hash = blob.ref.encodedHash,
                                  .contentHash = blob.ref.contentHash,
                                  .encodedSize = static_cast<std::int64_t>(blob.encodedLength),
                                  .recipe = blob.recipe});
    BlobRow row;
    row.hash = blob.ref.encodedHash;
    row.contentHash = blob.ref.contentHash;
    row.packID = location.packID;
    row.packOffset = location.offset;
    row.storedSize = static_cast<std::int64_t>(location.storedLength);
    row.originalSize = static_cast<std::int64_t>(location.originalLength);
    row.recordFlags = flags.bits;
    row.dictionaryID = message_.dictionaryID;
    row.recipe = blob.recipe;
    row.encodedSize = static_cast<std::int64_t>(blob.encodedLength);
    return catalog_.insertBlob(row);
  }

  void place(std::int64_t id, const std::vector<StoredAttachment>& attachments) {
    const RecordFlags flags = RecordFlags::make(message_.record.codec, false, false);
    const std::int64_t pack = archive_.nextPack(recordBytes(message_.record));
    const PackLocation location =
        archive_.packs().append(message_.record.payload, message_.record.originalLength, flags,
                                message_.dictionaryID, pack);

    const EnvelopeFields& envelope = message_.envelope;
    const RetentionPolicy& policy = archive_.policy();
    const RetentionClass ofClass = chosenClass_
                                       ? *chosenClass_
                                       : policy.classify(envelope.participants, mailbox_.path,
                                                         envelope.subject, !attachments.empty());
    const Date now = archive_.now();
    const Date dated = envelope.sentAt.value_or(message_.source.internalDate.value_or(now));

    MessageInsert insert;
    insert.messageID = envelope.messageID;
    insert.threadKey = envelope.threadKey;
    insert.subject = envelope.subject;
    insert.subjectNorm = envelope.subjectNormalized;
    insert.fromName = envelope.fromName;
    insert.fromAddress = envelope.fromAddress;
    insert.fromDomain = envelope.fromDomain;
    insert.toAddresses = envelope.toAddresses;
    insert.ccAddresses = envelope.ccAddresses;
    insert.participants = envelope.participants;
    insert.sentAt = envelope.sentAt;
    insert.internalAt = message_.source.internalDate;
    insert.size = static_cast<std::int64_t>(message_.size);
    insert.storedSize = static_cast<std::int64_t>(location.storedLength);
    insert.attachmentCount = static_cast<std::int64_t>(attachments.size());
    insert.packID = location.packID;
    insert.packOffset = location.offset;
    insert.recordFlags = flags.bits;
    insert.dictionaryID = message_.dictionaryID;
    insert.retentionClass = ofClass.identifier;
    insert.expiresAt = policy.expiryDate(dated, now, ofClass);
    insert.inReplyTo = envelope.inReplyTo;
    insert.referenceIDs = envelope.references;
    insert.snippet = envelope.snippet;
    insert.origin = originName(message_.source.origin);
    insert.originSource = message_.source.reconstructedFrom.value_or("");
    writeRows(id, insert, attachments);

    noteForRecovery(location.packID, location.offset, ofClass.identifier, std::nullopt);
    applyMatchingHolds();
    recordIngested(id, insert);
  }

  void writeRows(std::int64_t id, const MessageInsert& insert,
                 const std::vector<StoredAttachment>& attachments) {
    catalog_.completeMessage(id, insert);
    catalog_.insertHeaders(message_.headers, id);
    catalog_.linkMessage(id, mailbox_.folderID, uid(), flagText(message_.source.flags),
                         insert.sentAt);
    for (const StoredAttachment& attachment : attachments) {
      catalog_.insertAttachment(id, attachment);
      if (attachment.blobID) catalog_.retainBlob(*attachment.blobID);
    }
    catalog_.indexText(id, message_.indexed);
  }

  void noteForRecovery(std::int64_t pack, std::int64_t offset, const std::string& ofClass,
                       std::optional<std::int64_t> blockMember) {
    archive_.sidecars().noteMessage(pack, {.offset = offset,
                                           .hash = message_.hash,
                                           .folder = mailbox_.path,
                                           .account = mailbox_.account,
                                           .uid = uid(),
                                           .flags = flagText(message_.source.flags),
                                           .internalDate = message_.source.internalDate,
                                           .retentionClass = ofClass,
                                           .blockMember = blockMember});
  }

  void applyMatchingHolds() {
    // A message must not slip past a hold that another version placed here.
    if (catalog_.database().scalar("SELECT 1 FROM hold WHERE released_at IS NULL LIMIT 1")) {
      throw ArchiveError(ArchiveError::HoldsUnavailable{});
    }
  }

  void recordIngested(std::int64_t id, const MessageInsert& insert) {
    std::map<std::string, std::string> details = {
        {"id", std::to_string(id)},
        {"size", std::to_string(insert.size)},
        {"stored", std::to_string(insert.storedSize)},
        {"attachments", std::to_string(insert.attachmentCount)},
        {"folder_id", std::to_string(mailbox_.folderID)},
        {"class", insert.retentionClass},
        {"codec", std::string(label(message_.record.codec))},
        {"origin", insert.origin}};
    if (!insert.originSource.empty()) details["origin_source"] = insert.originSource;
    archive_.journal().append(AuditAction::messageIngested, message_.hash, details);
  }

  MailArchive& archive_;
  Catalog& catalog_;
  const PreparedMessage& message_;
  const MailboxRef& mailbox_;
  const std::optional<RetentionClass>& chosenClass_;
};

}  // namespace

IngestOutcome commit(MailArchive& archive, const PreparedMessage& message,
                     const MailboxRef& mailbox,
                     const std::optional<RetentionClass>& retentionClass) {
  IngestOutcome outcome;
  archive.catalog().atomically(
      [&] { outcome = Commit(archive, message, mailbox, retentionClass).run(); });
  return outcome;
}

PrepareSettings prepareSettings(MailArchive& archive) {
  return {.dictionary = archive.dictionaries().active(),
          .effort = archive.manifest().compressionEffort,
          .extractionThreshold = archive.manifest().attachmentExtractionThreshold};
}

}  // namespace ambervane
