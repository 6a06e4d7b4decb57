#ifndef AMBERVANE_STORE_RESTORE_MESSAGES_H_
#define AMBERVANE_STORE_RESTORE_MESSAGES_H_

#include <cstdint>
#include <map>
#include <vector>

#include "store/rebuild_run.h"

namespace ambervane {

/// Messages that sidecars name and no line of theirs could prove, with those lines.
using UnprovedMessages = std::map<RawDigest, std::vector<SidecarLine>>;

/// Puts the blobs that the sidecar of a pack names into the catalog, unused. Of several records of
/// one blob the last that proves to be it counts. Throws SQLiteError.
void restoreBlobs(RebuildRun& run, std::int64_t packID);

/// Puts the messages that the sidecar of a pack names into the catalog, each in its mailboxes; all
/// blobs must be there. Messages are read and proved on all processors. `unproved` is carried from
/// pack to pack. Throws SQLiteError.
void restoreMessages(RebuildRun& run, std::int64_t packID, UnprovedMessages& unproved);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_RESTORE_MESSAGES_H_
