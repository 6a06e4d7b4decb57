#include "store/catalog_sync_state.h"

#include <algorithm>
#include <iterator>

namespace ambervane {
namespace {

/// A row of `meta`, gone as long as the value is the usual one.
std::string coverageKey(std::int64_t folderID) {
  return "sync_coverage." + std::to_string(folderID);
}

std::string collectedFromKey(std::int64_t accountID) {
  return "sync_collected_from." + std::to_string(accountID);
}

}  // namespace

std::string CatalogSyncState::collectedFrom(std::int64_t accountID) {
  return catalog_.meta(collectedFromKey(accountID)).value_or("");
}

void CatalogSyncState::setCollectedFrom(std::int64_t accountID, const std::string& text) {
  catalog_.setMeta(collectedFromKey(accountID), text);
}

void CatalogSyncState::forgetNumbering(std::int64_t accountID) {
  db_.run(
      "UPDATE folder SET uid_validity = NULL, uid_next = NULL, highest_modseq = NULL WHERE "
      "account_id = ?",
      {accountID});
}

void CatalogSyncState::setUsername(std::int64_t accountID, const std::string& username) {
  db_.run("UPDATE account SET username = ? WHERE id = ?", {username, accountID});
}

void CatalogSyncState::setSettings(std::int64_t accountID, const std::string& json) {
  db_.run("UPDATE account SET settings = ? WHERE id = ?", {json, accountID});
}

void CatalogSyncState::noteSync(std::int64_t accountID, Date at) {
  db_.run("UPDATE account SET last_sync_at = ? WHERE id = ?", {at, accountID});
}

FolderSyncState CatalogSyncState::folderSyncState(std::int64_t folderID) {
  const auto rows = db_.query("SELECT * FROM folder WHERE id = ?", {folderID});
  if (rows.empty()) return {};
  const FolderRow row(rows.front());
  return {row.uidValidity, row.uidNext, row.highestModseq};
}

void CatalogSyncState::updateFolderSyncState(std::int64_t folderID, const FolderSyncState& state,
                                             Date at) {
  db_.run(
      "UPDATE folder SET uid_validity = ?, uid_next = ?, highest_modseq = ?, last_sync_at = ? "
      "WHERE id = ?",
      {state.uidValidity, state.uidNext, state.highestModSeq, at, folderID});
}

void CatalogSyncState::restartNumbering(std::int64_t folderID,
                                        std::optional<std::int64_t> uidValidity,
                                        const std::string& coverage) {
  catalog_.atomically([&] {
    forgetUIDs(folderID);
    db_.run(
        "UPDATE folder SET uid_validity = ?, uid_next = NULL, highest_modseq = NULL WHERE id = ?",
        {uidValidity, folderID});
    setCoverage(folderID, coverage);
  });
}

void CatalogSyncState::forgetUIDs(std::int64_t folderID) {
  db_.run("UPDATE message_folder SET uid = NULL WHERE folder_id = ? AND uid IS NOT NULL",
          {folderID});
}

std::int64_t CatalogSyncState::highestUID(std::int64_t folderID) {
  return db_.count("SELECT max(uid) FROM message_folder WHERE folder_id = ?", {folderID});
}

std::vector<std::int64_t> CatalogSyncState::withoutHeldUIDs(std::int64_t folderID,
                                                            const std::vector<std::int64_t>& uids) {
  if (uids.empty()) return {};
  std::vector<std::int64_t> held;
  db_.forEachRow(
      "SELECT uid FROM message_folder WHERE folder_id = ? AND uid BETWEEN ? AND ? ORDER BY uid",
      {folderID, uids.front(), uids.back()}, [&](const Row& row) {
        held.push_back(row.integer("uid"));
        return true;
      });
  std::vector<std::int64_t> rest;
  std::set_difference(uids.begin(), uids.end(), held.begin(), held.end(), std::back_inserter(rest));
  return rest;
}

std::string CatalogSyncState::coverage(std::int64_t folderID) {
  return catalog_.meta(coverageKey(folderID)).value_or("");
}

void CatalogSyncState::setCoverage(std::int64_t folderID, const std::string& coverage) {
  if (coverage.empty()) {
    db_.run("DELETE FROM meta WHERE key = ?", {coverageKey(folderID)});
  } else {
    catalog_.setMeta(coverageKey(folderID), coverage);
  }
}

void CatalogSyncState::clearPendingUIDs(std::int64_t folderID, std::vector<std::int64_t> uids) {
  std::sort(uids.begin(), uids.end());
  std::vector<std::int64_t> arrived;
  db_.forEachRow("SELECT uid FROM pending_fetch WHERE folder_id = ?", {folderID},
                 [&](const Row& row) {
                   const std::int64_t uid = row.integer("uid");
                   if (std::binary_search(uids.begin(), uids.end(), uid)) arrived.push_back(uid);
                   return true;
                 });
  for (const std::int64_t uid : arrived) catalog_.clearPending(folderID, uid);
}

std::int64_t CatalogSyncState::currentMembershipCount(std::int64_t folderID) {
  return db_.count("SELECT count(*) FROM message_folder WHERE folder_id = ? AND removed_at IS NULL",
                   {folderID});
}

MembershipReconciliation CatalogSyncState::reconcileMembership(
    std::int64_t folderID, const std::vector<std::int64_t>& liveUIDs, Date at) {
  MembershipReconciliation result;
  std::vector<std::int64_t> departed;  // row identifiers, as the next
  std::vector<std::int64_t> returned;
  db_.forEachRow(
      "SELECT rowid AS row_id, uid, removed_at FROM message_folder WHERE folder_id = ? AND uid IS "
      "NOT "
      "NULL",
      {folderID}, [&](const Row& row) {
        const bool isLive =
            std::binary_search(liveUIDs.begin(), liveUIDs.end(), row.integer("uid"));
        const bool wasRemoved = row.date("removed_at").has_value();
        if (isLive && wasRemoved) returned.push_back(row.integer("row_id"));
        if (!isLive && !wasRemoved) departed.push_back(row.integer("row_id"));
        if (isLive && !wasRemoved) ++result.confirmed;
        return true;
      });
  catalog_.atomically([&] {
    for (const std::int64_t row : departed) {
      db_.run("UPDATE message_folder SET removed_at = ? WHERE rowid = ?", {at, row});
    }
    for (const std::int64_t row : returned) {
      db_.run("UPDATE message_folder SET removed_at = NULL WHERE rowid = ?", {row});
    }
    // Those confirmed and those that have just returned.
    db_.run(
        "UPDATE message_folder SET last_seen_at = ? WHERE folder_id = ? AND removed_at IS NULL AND "
        "uid IS NOT NULL",
        {at, folderID});
  });
  result.departed = static_cast<std::int64_t>(departed.size());
  result.returned = static_cast<std::int64_t>(returned.size());
  if (result.departed + result.returned > 0) catalog_.bumpMutationGeneration();
  return result;
}

}  // namespace ambervane
