#include "store/catalog_holds.h"

namespace ambervane {

bool CatalogHolds::isHeld(std::int64_t messageID) {
  return db_.count(
             "SELECT COUNT(*) FROM message_hold mh JOIN hold h ON h.id = mh.hold_id WHERE "
             "mh.message_id = ? AND h.released_at IS NULL",
             {messageID}) > 0;
}

std::vector<LegalHold> CatalogHolds::holds(bool activeOnly) {
  std::vector<LegalHold> holds;
  for (const Row& row : db_.query(
           activeOnly ? "SELECT payload FROM hold WHERE released_at IS NULL ORDER BY created_at"
                      : "SELECT payload FROM hold ORDER BY created_at")) {
    holds.push_back(legalHoldFromJson(row.string("payload")));
  }
  return holds;
}

std::optional<LegalHold> CatalogHolds::hold(const std::string& id) {
  const auto rows = db_.query("SELECT payload FROM hold WHERE id = ?", {id});
  if (rows.empty()) return std::nullopt;
  return legalHoldFromJson(rows.front().string("payload"));
}

void CatalogHolds::save(const LegalHold& hold) {
  db_.run(
      "INSERT INTO hold(id, payload, created_at, released_at) VALUES(?, ?, ?, ?) ON CONFLICT(id) "
      "DO UPDATE SET payload = excluded.payload, created_at = excluded.created_at, released_at = "
      "excluded.released_at",
      {hold.id, legalHoldJson(hold), hold.createdAt, hold.releasedAt});
  catalog_.bumpMutationGeneration();
}

bool CatalogHolds::link(std::int64_t messageID, const std::string& holdID) {
  return db_.run("INSERT OR IGNORE INTO message_hold(message_id, hold_id) VALUES(?, ?)",
                 {messageID, holdID}) > 0;
}

void CatalogHolds::unlinkAll(const std::string& holdID) {
  db_.run("DELETE FROM message_hold WHERE hold_id = ?", {holdID});
  catalog_.bumpMutationGeneration();
}

std::int64_t CatalogHolds::messagesUnder(const std::string& holdID) {
  return db_.count("SELECT COUNT(*) FROM message_hold WHERE hold_id = ?", {holdID});
}

}  // namespace ambervane
