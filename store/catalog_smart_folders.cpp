// Smart folders and their counts in the catalog.

#include "base/json.h"
#include "store/catalog_annotations.h"

namespace ambervane {

std::vector<SmartFolder> CatalogAnnotations::smartFolders() {
  std::vector<SmartFolder> folders;
  for (const Row& row :
       db_.query("SELECT payload FROM smart_folder ORDER BY position, name COLLATE NOCASE")) {
    try {
      folders.push_back(smartFolderFromJson(row.string("payload")));
    } catch (const JsonError&) {
      // A folder of another version, or a damaged one.
    }
  }
  return folders;
}

void CatalogAnnotations::saveSmartFolder(const SmartFolder& folder) {
  db_.run(
      "INSERT INTO smart_folder(id, name, payload, position, created_at, updated_at) VALUES(?, ?, "
      "?, ?, ?, ?) ON CONFLICT(id) DO UPDATE SET name = excluded.name, payload = excluded.payload, "
      "position = excluded.position, updated_at = excluded.updated_at",
      {folder.id, folder.name, smartFolderJson(folder), folder.position, folder.createdAt,
       folder.updatedAt});
  invalidateSmartFolderCount(folder.id);
}

bool CatalogAnnotations::deleteSmartFolder(const std::string& id) {
  invalidateSmartFolderCount(id);
  return db_.run("DELETE FROM smart_folder WHERE id = ?", {id}) > 0;
}

std::optional<SmartFolderCount> CatalogAnnotations::cachedSmartFolderCount(
    const std::string& id, const std::string& fingerprint) {
  auto count = lastSmartFolderCount(id, fingerprint);
  return count && !count->isStale ? count : std::nullopt;
}

std::optional<SmartFolderCount> CatalogAnnotations::lastSmartFolderCount(
    const std::string& id, const std::string& fingerprint) {
  const auto rows = db_.query("SELECT * FROM smart_folder_count WHERE folder_id = ?", {id});
  if (rows.empty()) return std::nullopt;
  const Row& row = rows.front();
  return SmartFolderCount{row.integer("count"), row.boolean("is_exact"),
                          row.date("computed_at").value_or(Date{}), row.real("elapsed").value_or(0),
                          row.string("fingerprint") != fingerprint};
}

void CatalogAnnotations::storeSmartFolderCount(const std::string& id, const SmartFolderCount& count,
                                               const std::string& fingerprint) {
  db_.run(
      "INSERT INTO smart_folder_count(folder_id, count, is_exact, fingerprint, computed_at, "
      "elapsed) VALUES(?, ?, ?, ?, ?, ?) ON CONFLICT(folder_id) DO UPDATE SET count = "
      "excluded.count, is_exact = excluded.is_exact, fingerprint = excluded.fingerprint, "
      "computed_at = excluded.computed_at, elapsed = excluded.elapsed",
      {id, count.count, count.isExact, fingerprint, count.computedAt, count.elapsed});
}

void CatalogAnnotations::invalidateSmartFolderCount(const std::string& id) {
  db_.run("DELETE FROM smart_folder_count WHERE folder_id = ?", {id});
}

}  // namespace ambervane
