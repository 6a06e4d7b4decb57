#include "store/message_rows.h"

#include <string>

namespace ambervane {

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

MessageInsert insertOf(const PreparedMessage& message) {
  const EnvelopeFields& envelope = message.envelope;
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
  insert.internalAt = message.source.internalDate;
  insert.size = static_cast<std::int64_t>(message.size);
  insert.attachmentCount =
      static_cast<std::int64_t>(message.extracted.size() + message.inlineAttachments.size());
  insert.inReplyTo = envelope.inReplyTo;
  insert.referenceIDs = envelope.references;
  insert.snippet = envelope.snippet;
  return insert;
}

void writeMessageRows(Catalog& catalog, std::int64_t id, const MessageInsert& insert,
                      const std::vector<StoredAttachment>& attachments,
                      const PreparedMessage& message) {
  catalog.completeMessage(id, insert);
  catalog.insertHeaders(message.headers, id);
  for (const StoredAttachment& attachment : attachments) {
    catalog.insertAttachment(id, attachment);
    if (attachment.blobID) catalog.retainBlob(*attachment.blobID);
  }
  catalog.indexText(id, message.indexed);
}

}  // namespace ambervane
