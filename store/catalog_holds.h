#ifndef AMBERVANE_STORE_CATALOG_HOLDS_H_
#define AMBERVANE_STORE_CATALOG_HOLDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "evidence/hold.h"
#include "store/catalog.h"

namespace ambervane {

/// Legal holds and the messages under them, as the catalog has them. Only the tables: who places
/// and releases holds keeps the journal as well (compliance/holds.h). Failures are SQLiteError, and
/// JsonError where a hold cannot be read, since what it protects is not known then.
class CatalogHolds {
 public:
  /// `catalog` must outlive it.
  explicit CatalogHolds(Catalog& catalog) noexcept : catalog_(catalog), db_(catalog.database()) {}

  /// Whether an active hold covers the message: then nothing may erase it.
  bool isHeld(std::int64_t messageID);

  /// In the order in which they were placed.
  std::vector<LegalHold> holds(bool activeOnly);
  std::optional<LegalHold> hold(const std::string& id);
  /// Puts a hold in, or in place of the one of its identifier.
  void save(const LegalHold& hold);
  /// True when the message was not under the hold before.
  bool link(std::int64_t messageID, const std::string& holdID);
  void unlinkAll(const std::string& holdID);
  std::int64_t messagesUnder(const std::string& holdID);

 private:
  Catalog& catalog_;
  SQLiteDatabase& db_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CATALOG_HOLDS_H_
