#ifndef AMBERVANE_STORE_COMMIT_H_
#define AMBERVANE_STORE_COMMIT_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "evidence/retention_policy.h"
#include "store/mail_archive.h"
#include "store/prepared_message.h"

namespace ambervane {

/// The mailbox a message is filed in.
struct MailboxRef {
  std::int64_t folderID = 0;
  std::string path;
  std::string account;  ///< its name
  /// Whether the identifiers of its messages are the server's UIDs; other numbers must not stand
  /// beside those.
  bool takesUIDs = true;
};

/// What became of one message.
struct IngestOutcome {
  enum class Kind { stored, duplicate, failed };
  Kind kind = Kind::stored;
  std::string reason;  ///< of a failure that concerns this message alone
};

/// Stores a prepared message, or files the one that is already there. On one thread at a time,
/// inside a batch of the catalog or with a transaction of its own. `retentionClass` overrides the
/// policy. Throws what concerns the archive and not the message (a full disk, a damaged catalog):
/// the batch must then be rolled back.
IngestOutcome commit(MailArchive& archive, const PreparedMessage& message,
                     const MailboxRef& mailbox,
                     const std::optional<RetentionClass>& retentionClass);

/// Files a message that the archive has in one more mailbox; the journal does not speak of it. As
/// for `commit` inside a batch; throws as it does.
void fileInMailbox(MailArchive& archive, const PreparedMessage& message, std::int64_t messageID,
                   const MailboxRef& mailbox);

/// Prepares and commits one message and makes it durable, for a caller with a loop of its own.
IngestOutcome ingest(MailArchive& archive, SourceMessage source, const MailboxRef& mailbox,
                     const std::optional<RetentionClass>& retentionClass = std::nullopt);

/// What `prepareOne` needs, taken from the archive as it stands.
PrepareSettings prepareSettings(MailArchive& archive);

/// `atStart` as it stands whenever it is asked, from any thread: of an archive only the dictionary
/// changes while messages are prepared. Both must outlive it.
std::function<PrepareSettings()> currentSettings(MailArchive& archive,
                                                 const PrepareSettings& atStart);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_COMMIT_H_
