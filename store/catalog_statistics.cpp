// What the catalog says about the archive as a whole.

#include <algorithm>
#include <map>

#include "base/text.h"
#include "store/catalog.h"

namespace ambervane {
namespace {

constexpr std::size_t kMostExtensions = 20;
constexpr std::size_t kLongestExtension = 10;

/// The extension of a file name; empty for names without one and for what is no extension.
std::string extensionOf(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return {};
  const std::string extension = lowercase(name.substr(dot + 1));
  const bool plausible =
      extension.size() <= kLongestExtension && extension.find_first_of(" /\\") == std::string::npos;
  return plausible ? extension : std::string();
}

}  // namespace

CatalogStats Catalog::stats() {
  CatalogStats stats;
  const Row messages =
      db_->query(
             "SELECT COUNT(*) AS n, COALESCE(SUM(size), 0) AS original, COALESCE(SUM(stored_size), "
             "0) AS stored, MIN(sent_at) AS oldest, MAX(sent_at) AS newest FROM message")
          .front();
  stats.messages = messages.integer("n");
  stats.originalBytes = messages.integer("original");
  stats.storedBytes = messages.integer("stored");
  stats.oldest = messages.date("oldest");
  stats.newest = messages.date("newest");
  stats.erased = db_->count("SELECT COUNT(*) FROM message WHERE erased = 1");
  stats.attachments = db_->count("SELECT COUNT(*) FROM attachment");
  const Row blobs = db_->query(
                           "SELECT COUNT(*) AS n, COALESCE(SUM(stored_size), 0) AS stored, "
                           "COALESCE(SUM(orig_size), 0) AS original FROM blob")
                        .front();
  stats.blobs = blobs.integer("n");
  stats.blobStoredBytes = blobs.integer("stored");
  stats.blobOriginalBytes = blobs.integer("original");
  stats.packs = db_->count("SELECT COUNT(*) FROM pack");
  stats.deduplicatedMessages = db_->count(
      "SELECT COALESCE(SUM(cnt - 1), 0) FROM (SELECT COUNT(*) AS cnt FROM message_folder GROUP BY "
      "message_id HAVING cnt > 1)");
  return stats;
}

std::vector<AttachmentExtension> Catalog::attachmentExtensions() {
  std::map<std::string, AttachmentExtension> byExtension;
  db_->forEachRow("SELECT filename, size_decoded FROM attachment", {}, [&](const Row& row) {
    std::string extension = extensionOf(row.string("filename"));
    AttachmentExtension& entry = byExtension[extension];
    entry.extension = std::move(extension);
    ++entry.count;
    entry.bytes += row.integer("size_decoded");
    return true;
  });
  std::vector<AttachmentExtension> all;
  all.reserve(byExtension.size());
  for (auto& [extension, entry] : byExtension) all.push_back(std::move(entry));
  std::stable_sort(
      all.begin(), all.end(),
      [](const AttachmentExtension& a, const AttachmentExtension& b) { return a.count > b.count; });
  if (all.size() > kMostExtensions) all.resize(kMostExtensions);
  return all;
}

std::vector<std::pair<std::string, std::int64_t>> Catalog::messagesPerMonth() {
  std::vector<std::pair<std::string, std::int64_t>> months;
  db_->forEachRow(
      "SELECT strftime('%Y-%m', sent_at, 'unixepoch') AS month, COUNT(*) AS n FROM message WHERE "
      "sent_at IS NOT NULL GROUP BY month HAVING month IS NOT NULL ORDER BY month",
      {}, [&](const Row& row) {
        months.emplace_back(row.string("month"), row.integer("n"));
        return true;
      });
  return months;
}

std::vector<FolderCount> Catalog::folderCounts() {
  std::vector<FolderCount> folders;
  db_->forEachRow(
      "SELECT a.name AS account, f.path AS path, (SELECT COUNT(*) FROM message_folder mf WHERE "
      "mf.folder_id = f.id AND mf.removed_at IS NULL) AS n FROM folder f JOIN account a ON a.id = "
      "f.account_id ORDER BY a.name, f.path",
      {}, [&](const Row& row) {
        folders.push_back({row.string("account"), row.string("path"), row.integer("n")});
        return true;
      });
  return folders;
}

}  // namespace ambervane
