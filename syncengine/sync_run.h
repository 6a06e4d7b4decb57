#ifndef AMBERVANE_SYNCENGINE_SYNC_RUN_H_
#define AMBERVANE_SYNCENGINE_SYNC_RUN_H_

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "imapkit/imap_client.h"
#include "store/known_digests.h"
#include "store/mail_archive.h"
#include "syncengine/sync_progress.h"
#include "syncengine/sync_scope.h"

namespace ambervane {

/// What the steps of one run share; all it refers to outlives it.
struct SyncRun {
  MailArchive& archive;
  IMAPClient& client;
  const std::string& accountName;
  const std::function<bool()>& shouldCancel;  ///< never empty; safe from any thread
  const SyncProgressHandler& handler;         ///< may be empty
  const KnownDigests known;
  const std::uint64_t packBytesAtStart;
  std::int64_t accountID = 0;
  SyncScope scope = {};
  SyncProgress progress = SyncProgress();

  void report() const {
    if (handler) handler(progress);
  }
  void countBytesOut() {
    progress.bytesOut =
        static_cast<std::int64_t>(archive.packs().bytesAppended() - packBytesAtStart);
  }
  void note(std::string text) {
    progress.note = std::move(text);
    report();
  }
  /// A note that somebody should read afterwards.
  void remark(const std::string& text) {
    progress.remarks.push_back(text);
    note(text);
  }
};

}  // namespace ambervane

#endif  // AMBERVANE_SYNCENGINE_SYNC_RUN_H_
