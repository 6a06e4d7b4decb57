// Accounts, folders and what lies in them, and what a server still owes.

#include "store/catalog.h"

namespace ambervane {

std::int64_t Catalog::upsertAccount(const std::string& name, const std::string& kind,
                                    const std::optional<std::string>& host,
                                    const std::optional<std::string>& username,
                                    const std::optional<std::string>& sourcePath) {
  db_->run(
      "INSERT INTO account(name, kind, host, username, source_path, created_at) VALUES(?, ?, ?, ?, "
      "?, ?) ON CONFLICT(name) DO UPDATE SET kind = CASE excluded.kind WHEN 'imap' THEN 'imap' "
      "ELSE "
      "kind END, host = COALESCE(excluded.host, host), username = COALESCE(excluded.username, "
      "username), source_path = COALESCE(excluded.source_path, source_path)",
      {name, kind, host, username, sourcePath, clock_()});
  return db_->count("SELECT id FROM account WHERE name = ?", {name});
}

std::int64_t Catalog::upsertFolder(std::int64_t accountID, const std::string& path,
                                   const std::string& delimiter) {
  db_->run(
      "INSERT INTO folder(account_id, path, delimiter) VALUES(?, ?, ?) ON CONFLICT(account_id, "
      "path) DO NOTHING",
      {accountID, path, delimiter});
  return db_->count("SELECT id FROM folder WHERE account_id = ? AND path = ?", {accountID, path});
}

std::vector<AccountRow> Catalog::accounts() {
  std::vector<AccountRow> rows;
  for (const Row& row : db_->query("SELECT * FROM account ORDER BY name")) rows.emplace_back(row);
  return rows;
}

std::optional<AccountRow> Catalog::account(const std::string& name) {
  const auto rows = db_->query("SELECT * FROM account WHERE name = ?", {name});
  if (rows.empty()) return std::nullopt;
  return AccountRow(rows.front());
}

std::vector<FolderRow> Catalog::folders(std::optional<std::int64_t> accountID) {
  std::vector<FolderRow> rows;
  for (const Row& row : db_->query(
           "SELECT * FROM folder WHERE ?1 IS NULL OR account_id = ?1 ORDER BY path", {accountID})) {
    rows.emplace_back(row);
  }
  return rows;
}

bool Catalog::linkMessage(std::int64_t messageID, std::int64_t folderID,
                          std::optional<std::int64_t> uid, const std::string& flags,
                          std::optional<Date> sentAt) {
  const bool known =
      db_->scalar("SELECT 1 FROM message_folder WHERE message_id = ? AND folder_id = ?",
                  {messageID, folderID})
          .has_value();
  const Date now = clock_();
  db_->run(
      "INSERT INTO message_folder(message_id, folder_id, uid, flags, added_at, last_seen_at, "
      "sent_at) VALUES(?, ?, ?, ?, ?, ?, ?) ON CONFLICT(message_id, folder_id) DO UPDATE SET uid = "
      "COALESCE(excluded.uid, uid), flags = excluded.flags, last_seen_at = excluded.last_seen_at, "
      "removed_at = NULL",
      {messageID, folderID, uid, flags, now, now, sentAt});
  return !known;
}

std::vector<Membership> Catalog::memberships(std::int64_t messageID) {
  std::vector<Membership> rows;
  for (const Row& row : db_->query(
           "SELECT a.name AS account, f.path AS path, mf.uid AS uid, mf.flags AS flags, "
           "mf.removed_at AS removed_at FROM message_folder mf JOIN folder f ON f.id = "
           "mf.folder_id JOIN account a ON a.id = f.account_id WHERE mf.message_id = ? ORDER BY "
           "mf.added_at, f.id",
           {messageID})) {
    rows.push_back({row.string("account"), row.string("path"), row.optionalInteger("uid"),
                    row.string("flags"), row.date("removed_at").has_value()});
  }
  return rows;
}

void Catalog::recordMiss(std::int64_t folderID, std::int64_t uid,
                         std::optional<std::int64_t> uidValidity) {
  db_->run(
      "INSERT INTO pending_fetch(folder_id, uid, uid_validity, missed_at) VALUES(?, ?, ?, ?) ON "
      "CONFLICT(folder_id, uid) DO UPDATE SET attempts = CASE WHEN uid_validity <> "
      "excluded.uid_validity THEN 1 ELSE attempts + 1 END, missed_at = excluded.missed_at, "
      "uid_validity = excluded.uid_validity",
      {folderID, uid, uidValidity, clock_()});
}

std::vector<std::int64_t> Catalog::pendingFetches(std::int64_t folderID,
                                                  std::optional<std::int64_t> uidValidity,
                                                  int attemptCap) {
  std::vector<std::int64_t> uids;
  for (const Row& row : db_->query(
           "SELECT uid FROM pending_fetch WHERE folder_id = ?1 AND attempts < ?3 AND (uid_validity "
           "IS NULL OR ?2 IS NULL OR uid_validity = ?2) ORDER BY uid LIMIT 500",
           {folderID, uidValidity, attemptCap})) {
    uids.push_back(row.integer("uid"));
  }
  return uids;
}

void Catalog::clearPending(std::int64_t folderID, std::int64_t uid) {
  db_->run("DELETE FROM pending_fetch WHERE folder_id = ? AND uid = ?", {folderID, uid});
}

}  // namespace ambervane
