#ifndef AMBERVANE_STORE_CATALOG_SYNC_STATE_H_
#define AMBERVANE_STORE_CATALOG_SYNC_STATE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "store/catalog.h"

namespace ambervane {

/// What a finished visit to a mailbox left to be known by the next one.
struct FolderSyncState {
  std::optional<std::int64_t> uidValidity;
  std::optional<std::int64_t> uidNext;  ///< all below it has been asked for
  std::optional<std::int64_t> highestModSeq;
  friend bool operator==(const FolderSyncState&, const FolderSyncState&) = default;
};

/// Messages of a mailbox by what a complete listing of it says of them.
struct MembershipReconciliation {
  std::int64_t departed = 0;
  std::int64_t returned = 0;
  std::int64_t confirmed = 0;
  friend bool operator==(const MembershipReconciliation&,
                         const MembershipReconciliation&) = default;
};

/// What the catalog remembers of a server between two collections. Only the tables: the journal is
/// the caller's. Failures are SQLiteError.
class CatalogSyncState {
 public:
  /// `catalog` must outlive it.
  explicit CatalogSyncState(Catalog& catalog) noexcept
      : catalog_(catalog), db_(catalog.database()) {}

  // Of an account.
  /// Whose mail was collected last, in the caller's words; empty for nobody's.
  std::string collectedFrom(std::int64_t accountID);
  void setCollectedFrom(std::int64_t accountID, const std::string& text);
  /// Forgets how far the folders were collected: UIDs of one server say nothing about another.
  void forgetNumbering(std::int64_t accountID);
  void setUsername(std::int64_t accountID, const std::string& username);
  void setSettings(std::int64_t accountID, const std::string& json);
  void noteSync(std::int64_t accountID, Date at);

  // Of a folder.
  FolderSyncState folderSyncState(std::int64_t folderID);
  void updateFolderSyncState(std::int64_t folderID, const FolderSyncState& state, Date at);
  /// The messages of the folder stay; their UIDs are forgotten, and the state is `uidValidity`
  /// alone, with a coverage that holds because nothing is held. Not to be called in a transaction
  /// other than a batch.
  void restartNumbering(std::int64_t folderID, std::optional<std::int64_t> uidValidity,
                        const std::string& coverage);
  /// Clears the UIDs of the folder's messages.
  void forgetUIDs(std::int64_t folderID);
  /// The highest UID held, 0 for none.
  std::int64_t highestUID(std::int64_t folderID);
  /// Those of `uids` of which the folder holds no message. `uids` must be ascending.
  std::vector<std::int64_t> withoutHeldUIDs(std::int64_t folderID,
                                            const std::vector<std::int64_t>& uids);
  /// Which selection of messages the UIDs up to the highest one held are complete for; empty for
  /// all messages. The words are the caller's.
  std::string coverage(std::int64_t folderID);
  void setCoverage(std::int64_t folderID, const std::string& coverage);

  /// Strikes what has arrived off the list of what the server still owes.
  void clearPendingUIDs(std::int64_t folderID, std::vector<std::int64_t> uids);

  /// Messages that lie in the folder now.
  std::int64_t currentMembershipCount(std::int64_t folderID);
  /// Marks those that `liveUIDs`, ascending, no longer names as gone and those it names again as
  /// back. Rows without a UID stay as they are.
  MembershipReconciliation reconcileMembership(std::int64_t folderID,
                                               const std::vector<std::int64_t>& liveUIDs, Date at);

 private:
  Catalog& catalog_;
  SQLiteDatabase& db_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CATALOG_SYNC_STATE_H_
