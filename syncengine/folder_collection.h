#ifndef AMBERVANE_SYNCENGINE_FOLDER_COLLECTION_H_
#define AMBERVANE_SYNCENGINE_FOLDER_COLLECTION_H_

#include "imapkit/imap_records.h"
#include "syncengine/sync_run.h"

namespace ambervane {

/// Brings one mailbox of a signed-in client level with the server: what is new, what it failed to
/// deliver before, and which messages have left it or come back. False when cancelled. Throws
/// IMAPError and whatever concerns the archive; what was stored before stays, and the next run goes
/// on from there.
bool collectFolder(SyncRun& run, const IMAPFolder& folder);

}  // namespace ambervane

#endif  // AMBERVANE_SYNCENGINE_FOLDER_COLLECTION_H_
