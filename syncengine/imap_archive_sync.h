#ifndef AMBERVANE_SYNCENGINE_IMAP_ARCHIVE_SYNC_H_
#define AMBERVANE_SYNCENGINE_IMAP_ARCHIVE_SYNC_H_

#include <functional>
#include <string>

#include "imapkit/imap_credentials.h"
#include "imapkit/imap_server.h"
#include "store/mail_archive.h"
#include "syncengine/sync_progress.h"
#include "syncengine/sync_scope.h"

namespace ambervane {

/// Brings one account of a mail server into the archive: whatever is not there yet, without
/// changing anything on the server. What is remembered between runs is in the catalog alone, so a
/// run that ended in any way is completed by the next one.
class IMAPArchiveSync {
 public:
  /// `archive` must outlive it and be open for writing. Mail is filed under `accountName`.
  IMAPArchiveSync(MailArchive& archive, IMAPServer server, IMAPCredentials credentials,
                  std::string accountName);

  /// One run. A folder that cannot be collected is counted as failed, and the next one follows; the
  /// journal is sealed at the end, also of a cancelled run. `shouldCancel` is asked from several
  /// threads; either function may be empty. Throws IMAPError when the server cannot be reached or
  /// refuses the sign-in, ArchiveError (ReadOnly), and what ends the archive's journal.
  SyncProgress run(const SyncScope& scope, const std::function<bool()>& shouldCancel,
                   const SyncProgressHandler& progress);

 private:
  MailArchive& archive_;
  const IMAPServer server_;
  const IMAPCredentials credentials_;
  const std::string accountName_;
};

}  // namespace ambervane

#endif  // AMBERVANE_SYNCENGINE_IMAP_ARCHIVE_SYNC_H_
