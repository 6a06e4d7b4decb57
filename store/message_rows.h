#ifndef AMBERVANE_STORE_MESSAGE_ROWS_H_
#define AMBERVANE_STORE_MESSAGE_ROWS_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "store/catalog.h"
#include "store/prepared_message.h"

namespace ambervane {

// What the catalog says of a message, made of what was prepared of it.

StoredAttachment storedAttachment(const AttachmentRef& ref, std::optional<std::int64_t> blobID);

/// What the message itself says; its place, class and dates of keeping are still to be filled in.
MessageInsert insertOf(const PreparedMessage& message);

/// Completes a reserved row with all that hangs on it but its mailboxes; each blob that
/// `attachments` name gains a reference.
void writeMessageRows(Catalog& catalog, std::int64_t id, const MessageInsert& insert,
                      const std::vector<StoredAttachment>& attachments,
                      const PreparedMessage& message);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_MESSAGE_ROWS_H_
