#ifndef AMBERVANE_STORE_UNNAMED_RECORDS_H_
#define AMBERVANE_STORE_UNNAMED_RECORDS_H_

#include <cstdint>
#include <vector>

#include "store/rebuild_run.h"
#include "store/restore_messages.h"

namespace ambervane {

/// The mailbox of messages whose own is not known any more.
inline constexpr const char* kRecoveredAccount = "recovered";
inline constexpr const char* kRecoveredFolder = "Recovered";

/// Walks packs for records that came into the catalog by no sidecar: a lost sidecar must not lose
/// mail. Blobs count where a message needs one and their bytes prove to be it; then messages of
/// `unproved` are tried again; then every other record that proves to be a message is filed under
/// `kRecoveredFolder`. Returns how many of these. An encrypted record needs its key, and the
/// journal or a sidecar must know the message. Throws SQLiteError.
std::int64_t restoreUnnamed(RebuildRun& run, const std::vector<std::int64_t>& packs,
                            UnprovedMessages& unproved);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_UNNAMED_RECORDS_H_
