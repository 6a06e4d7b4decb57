#ifndef AMBERVANE_SYNCENGINE_SYNC_SCOPE_H_
#define AMBERVANE_SYNCENGINE_SYNC_SCOPE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "evidence/retention_policy.h"
#include "imapkit/imap_records.h"

namespace ambervane {

/// What a run collects.
struct SyncScope {
  std::vector<std::string> includeFolders;  ///< a path must contain one of them, if there are any
  std::vector<std::string> exactFolders;    ///< if there are any, these paths and nothing else
  std::vector<std::string> excludeFolders;  ///< a path must contain none of them
  /// Whether `includeFolders` that are paths of the server, every one of them, are `exactFolders`.
  bool includesMayBePaths = false;
  std::optional<Date> since, before;  ///< whole days in UTC of the delivery time
  bool skipVirtualFolders = true;     ///< leaves out a view of all mail, which repeats all folders
  std::size_t batchSize = 25;         ///< messages asked for at a time
  std::optional<RetentionClass> retentionClass;  ///< absent: the policy classifies
  bool trackMailboxMoves = true;                 ///< notes which messages left a mailbox

  bool takes(const IMAPFolder& folder) const;
  /// All messages of a folder, whenever they were delivered.
  bool isWhole() const noexcept { return !since && !before; }
  /// Names the selection of messages by date; empty for all of them.
  std::string selection() const;
  /// With `includeFolders` made `exactFolders` where `includesMayBePaths` says so.
  SyncScope resolved(const std::vector<IMAPFolder>& listed) const;
  /// Those of `exactFolders` that the server does not list.
  std::vector<std::string> notListed(const std::vector<IMAPFolder>& listed) const;
};

}  // namespace ambervane

#endif  // AMBERVANE_SYNCENGINE_SYNC_SCOPE_H_
