#ifndef AMBERVANE_MAILCORE_SOURCE_MESSAGE_H_
#define AMBERVANE_MAILCORE_SOURCE_MESSAGE_H_

#include <optional>
#include <set>
#include <string>

#include "base/bytes.h"
#include "base/date.h"
#include "mailcore/message_flag.h"

namespace ambervane {

/// Whether the bytes are those a mail system delivered, or composed from the fields of a store that
/// keeps no original.
enum class MessageOrigin { received, reconstructed };

/// One message as a source hands it to the archive.
struct SourceMessage {
  Bytes raw;               ///< the RFC 5322 message, byte for byte
  std::string folderPath;  ///< mailbox inside the source, "/" between names, UTF-8; empty: INBOX
  std::set<MessageFlag> flags;
  std::optional<Date> internalDate;             ///< delivery time as the source recorded it
  std::optional<std::string> sourceIdentifier;  ///< index, file name or remote id in the source
  std::optional<std::string> originPath;        ///< the file it came from, UTF-8 (repaired)
  MessageOrigin origin = MessageOrigin::received;
  std::optional<std::string> reconstructedFrom;  ///< with `reconstructed`: "olm", "pst", ...
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_SOURCE_MESSAGE_H_
