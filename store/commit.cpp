// The serial half of taking a message in. Order matters: the record is in the pack and the entry in
// the journal before the catalog's transaction commits, so a committed row always has both.

#include "store/commit.h"

#include <set>

#include "base/text.h"
#include "store/hold_application.h"
#include "store/message_rows.h"
#include "store/pack_error.h"
#include "store/pack_format.h"
#include "store/solid_block_writer.h"
#include "store/tagging.h"

namespace ambervane {
namespace {

constexpr const char* kInSolidBlock = "in a solid block";

const char* originName(MessageOrigin origin) {
  return origin == MessageOrigin::received ? "received" : "reconstructed";
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
    if (message_.isKnown) return vanished();
    return store();
  }

  void file(std::int64_t id) {
    const std::string flags = flagText(message_.source.flags);
    if (catalog_.linkMessage(id, mailbox_.folderID, uid(), flags, message_.envelope.sentAt)) {
      const auto row = catalog_.message(id);
      if (row) {
        noteFurtherMailbox(*row);
        if (message_.isKnown || row->erased) {
          applyMatchingHolds(archive_, *row);
        } else {
          // What it says is at hand, and need not be read from a pack or a block.
          applyMatchingHolds(archive_, id, message_, mailbox_.path);
        }
      }
    }
  }

 private:
  std::optional<std::int64_t> uid() const {
    if (!mailbox_.takesUIDs) return std::nullopt;
    return parseInteger(message_.source.sourceIdentifier.value_or(""));
  }

  void fileDuplicate(std::int64_t id) {
    file(id);
    archive_.journal().append(AuditAction::messageDuplicate, message_.hash,
                              {{"folder_id", std::to_string(mailbox_.folderID)}});
  }

  void noteFurtherMailbox(const MessageRow& row) {
    RecoveryIndex::Message line = recoveryLine(row.retentionClass);
    if (!row.packID || !row.packOffset) {
      archive_.solidBlock().addMailbox(row.id, std::move(line));
      return;
    }
    line.offset = *row.packOffset;
    line.blockMember = row.blockMember;
    archive_.sidecars().noteMessage(*row.packID, line);
  }

  IngestOutcome store() {
    std::optional<std::int64_t> reserved;
    try {
      std::vector<StoredAttachment> attachments;
      for (const PreparedBlob& blob : message_.extracted) {
        if (blob.isKnown && !usableBlob(blob.ref.encodedHash)) return vanished();
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
    if (!message_.trainingSample.empty()) {
      archive_.dictionaries().noteStored(message_.trainingSample);
    }
    if (archive_.solidBlock().isFull()) archive_.flushSolidBlock();
    archive_.noteStoredMessage();
    return {IngestOutcome::Kind::stored, ""};
  }

  /// Something that was there while this message was prepared has gone. Nothing in this program
  /// takes it away meanwhile; a message is rather reported as failed than stored without its bytes.
  IngestOutcome vanished() const {
    return {IngestOutcome::Kind::failed,
            message_.hash.substr(0, 12) + ": the archive was changed while this was read"};
  }

  IngestOutcome discard(std::optional<std::int64_t> reserved, const std::exception& error) {
    if (reserved) catalog_.discardMessage(*reserved);
    return {IngestOutcome::Kind::failed, message_.hash.substr(0, 12) + ": " + error.what()};
  }

  /// Appends a record, encrypted under the key that `makeKey` gives when the policy asks for it,
  /// the digest bound to it.
  template <typename MakeKey>
  PackLocation append(const CompressedRecord& record, RecordFlags flags, const std::string& digest,
                      MakeKey makeKey) {
    if (record.codec == Codec::brotli) archive_.requireReader(2);
    Bytes sealed;
    if (encrypts_) sealed = ContentKeyStore::seal(record.payload, makeKey(), digest);
    const BytesView payload = encrypts_ ? BytesView(sealed) : BytesView(record.payload);
    const std::int64_t pack =
        archive_.nextPack(static_cast<std::int64_t>(payload.size() + kRecordHeaderBytes));
    return archive_.packs().append(payload, record.originalLength, flags, message_.dictionaryID,
                                   pack);
  }

  std::int64_t commitBlob(const PreparedBlob& blob) {
    const std::string& hash = blob.ref.encodedHash;
    if (const auto usable = usableBlob(hash)) return usable->id;
    const RecordFlags flags = RecordFlags::make(blob.compressed.codec, encrypts_, true);
    const PackLocation location = append(
        blob.compressed, flags, hash, [&] { return archive_.keys().blobKey(hash, true).value(); });
    archive_.sidecars().noteBlob(location.packID,
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
    placed_.insert(hash);
    const auto erased = catalog_.blob(hash);
    if (!erased) return catalog_.insertBlob(row);
    catalog_.replaceBlob(erased->id, row);
    return erased->id;
  }

  /// The blob when its record can be read: when nobody refers to it, its key may have been
  /// destroyed with the last message that did, and a key that is there may be another.
  std::optional<BlobRow> usableBlob(const std::string& hash) {
    auto blob = catalog_.blob(hash);
    if (!blob || blob->refcount > 0 || !RecordFlags{blob->recordFlags}.encrypted()) return blob;
    return placed_.contains(hash) ? blob : std::nullopt;
  }

  void place(std::int64_t id, const std::vector<StoredAttachment>& attachments) {
    const bool waits = archive_.writesSolidBlocks();
    RecordFlags flags = RecordFlags::make(message_.record.codec, encrypts_, false);
    std::optional<PackLocation> location;
    if (waits) {
      // The flags of a block as a rule; the flush writes those of the block it makes.
      flags.bits = RecordFlags::make(Codec::lzma, false, false).bits | RecordFlags::kSolidBlock;
    } else {
      location =
          append(message_.record, flags, message_.hash, [&] { return archive_.keys().newKey(id); });
    }

    const EnvelopeFields& envelope = message_.envelope;
    const RetentionPolicy& policy = archive_.policy();
    const RetentionClass ofClass = chosenClass_
                                       ? *chosenClass_
                                       : policy.classify(envelope.participants, mailbox_.path,
                                                         envelope.subject, !attachments.empty());
    const Date now = archive_.now();
    const Date dated = envelope.sentAt.value_or(message_.source.internalDate.value_or(now));

    MessageInsert insert = insertOf(message_);
    if (location) {
      insert.storedSize = location->storedLength;
      insert.packID = location->packID;
      insert.packOffset = location->offset;
    }
    insert.recordFlags = flags.bits;
    insert.dictionaryID = message_.dictionaryID;
    insert.retentionClass = ofClass.identifier;
    insert.expiresAt = policy.expiryDate(dated, now, ofClass);
    insert.origin = originName(message_.source.origin);
    insert.originSource = message_.source.reconstructedFrom.value_or("");
    writeMessageRows(catalog_, id, insert, attachments, message_);
    catalog_.linkMessage(id, mailbox_.folderID, uid(), flagText(message_.source.flags),
                         insert.sentAt);

    RecoveryIndex::Message line = recoveryLine(ofClass.identifier);
    if (location) {
      line.offset = location->offset;
      archive_.sidecars().noteMessage(location->packID, line);
    } else {
      archive_.solidBlock().add({id, message_.record.payload, {std::move(line)}});
    }
    applyMatchingHolds(archive_, id, message_, mailbox_.path);
    recordIngested(id, insert);
    if (const auto rules = activeTagRules(archive_); !rules->empty()) {
      applyTagRules(archive_, id, *rules, "rule", &message_.indexed);
    }
  }

  /// This message in this mailbox, for the sidecar; its place is still to be filled in.
  RecoveryIndex::Message recoveryLine(const std::string& ofClass) const {
    return {.offset = 0,
            .hash = message_.hash,
            .folder = mailbox_.path,
            .account = mailbox_.account,
            .uid = uid(),
            .flags = flagText(message_.source.flags),
            .internalDate = message_.source.internalDate,
            .retentionClass = ofClass,
            .blockMember = std::nullopt};
  }

  void recordIngested(std::int64_t id, const MessageInsert& insert) {
    std::map<std::string, std::string> details = {
        {"id", std::to_string(id)},
        {"size", std::to_string(insert.size)},
        {"stored", insert.packID ? std::to_string(insert.storedSize) : kInSolidBlock},
        {"attachments", std::to_string(insert.attachmentCount)},
        {"folder_id", std::to_string(mailbox_.folderID)},
        {"class", insert.retentionClass},
        {"codec", insert.packID ? std::string(label(message_.record.codec)) : kInSolidBlock},
        {"origin", insert.origin}};
    if (!insert.originSource.empty()) details["origin_source"] = insert.originSource;
    archive_.journal().append(AuditAction::messageIngested, message_.hash, details);
  }

  MailArchive& archive_;
  Catalog& catalog_;
  const PreparedMessage& message_;
  const MailboxRef& mailbox_;
  const std::optional<RetentionClass>& chosenClass_;
  const bool encrypts_ = archive_.policy().cryptoShreddingEnabled;
  std::set<std::string> placed_;  ///< hashes of blobs stored for this message
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

void fileInMailbox(MailArchive& archive, const PreparedMessage& message, std::int64_t messageID,
                   const MailboxRef& mailbox) {
  Commit(archive, message, mailbox, std::nullopt).file(messageID);
}

PrepareSettings prepareSettings(MailArchive& archive) {
  return {.attachmentText = archive.attachmentText(),
          .dictionary = archive.dictionaries().active(),
          .effort = archive.manifest().compressionEffort,
          .extractionThreshold = archive.manifest().attachmentExtractionThreshold,
          .isLearning = archive.dictionaries().isLearning(),
          .compressesRecords = !archive.writesSolidBlocks()};
}

std::function<PrepareSettings()> currentSettings(MailArchive& archive,
                                                 const PrepareSettings& atStart) {
  return [&dictionaries = archive.dictionaries(), &atStart] {
    PrepareSettings now = atStart;
    now.dictionary = dictionaries.active();
    now.isLearning = dictionaries.isLearning();
    return now;
  };
}

}  // namespace ambervane
