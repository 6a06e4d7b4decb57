#ifndef AMBERVANE_STORE_MESSAGE_READER_H_
#define AMBERVANE_STORE_MESSAGE_READER_H_

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

#include "base/bytes.h"
#include "store/mail_archive.h"

namespace ambervane {

// Reading messages back. A read is proved by the pack's checksum and the lengths; whether the whole
// is the message that came in is for a verification to say. Failures: ArchiveError (Erased,
// MessageMissing, BlobMissing), PackError, SQLiteError, FileError.

/// The message byte for byte.
Bytes rawMessage(MailArchive& archive, const MessageRow& row);

/// As `rawMessage`, but blobs of more than `inlineBlobLimit` encoded bytes, and blobs that cannot
/// be read, are left out of their place.
Bytes rawMessageForDisplay(MailArchive& archive, const MessageRow& row,
                           std::int64_t inlineBlobLimit = std::numeric_limits<std::int64_t>::max());

/// The plain message record of a row, at `location`.
Bytes decodedRecordPayload(MailArchive& archive, const MessageRow& row,
                           const PackLocation& location);

/// The message that a plain record stands for.
Bytes messageOf(MailArchive& archive, BytesView record);

/// The bytes of a pack record before compression and encryption. A failure names the record as
/// `where` ("for message 5"); `digest` is bound to an encrypted one, and `findKey` gives its key or
/// throws.
Bytes decodedPayload(MailArchive& archive, const PackLocation& location, const std::string& where,
                     const std::string& digest, const std::function<SymmetricKey()>& findKey);
/// The same for a record that is never encrypted.
Bytes decodedPayload(MailArchive& archive, const PackLocation& location, const std::string& where);

/// The encoded bytes of a blob as `row` describes it.
Bytes blobBytes(MailArchive& archive, const BlobRow& row, std::int64_t expectedEncodedLength);
/// The encoded bytes of a blob as they stood in its messages. `expectedEncodedLength` of 0 means
/// any.
Bytes blobBytes(MailArchive& archive, const std::string& hash, std::int64_t expectedEncodedLength);

/// Hands out the decoded content of every attachment of a message, reading the message once.
void forEachAttachment(MailArchive& archive, const MessageRow& row,
                       const std::function<void(const AttachmentRow&, Bytes&&)>& body);

/// The decoded content of one attachment.
Bytes attachmentData(MailArchive& archive, const AttachmentRow& attachment);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_MESSAGE_READER_H_
