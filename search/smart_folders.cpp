#include "search/smart_folders.h"

#include <algorithm>
#include <chrono>

#include "query/filter_compiler.h"
#include "store/catalog_annotations.h"
#include "store/query_context.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

/// Whether what the filter finds depends on the day it is asked. Trees are no deeper than
/// `kMaxFilterDepth` when they come from a query or a document.
bool movesWithTime(const FilterNode& node) {
  if (const auto* rule = node.asRule()) {
    return rule->op == FilterOperator::inLastDays || rule->op == FilterOperator::notInLastDays;
  }
  const auto& children = node.asGroup()->children;
  return std::any_of(children.begin(), children.end(), movesWithTime);
}

}  // namespace

void saveSmartFolder(MailArchive& archive, const SmartFolder& folder) {
  RecordedChange change(archive);
  requireSavable(folder);
  // Complete, and still nothing that can be asked ("larger:much"): it would show every message.
  if (!FilterCompiler::compile(folder.filter, queryContext(archive))) {
    throw SmartFolderError(SmartFolderError::Reason::noUsableRules);
  }
  CatalogAnnotations(archive.catalog()).saveSmartFolder(folder);
  archive.journal().append(
      AuditAction::smartFolderSaved, folder.id,
      {{"definition", smartFolderJson(folder)}, {"summary", folder.filter.described()}});
  change.finish();
}

bool deleteSmartFolder(MailArchive& archive, const std::string& id) {
  RecordedChange change(archive);
  if (!CatalogAnnotations(archive.catalog()).deleteSmartFolder(id)) return false;
  archive.journal().append(AuditAction::smartFolderDeleted, id);
  change.finish();
  return true;
}

SmartFolderCount smartFolderCount(MailArchive& archive, const FilterNode& filter,
                                  std::int64_t cap) {
  SmartFolderCount count;
  count.computedAt = archive.now();
  const auto pruned = filter.pruned();
  const auto compiled =
      pruned ? FilterCompiler::compile(*pruned, queryContext(archive)) : std::nullopt;
  if (!compiled) return count;
  const auto start = std::chrono::steady_clock::now();
  count.count = archive.catalog().database().count(filterCountSql(compiled->sql, cap),
                                                   bindingsOf(compiled->params));
  count.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  count.isExact = count.count < cap;
  return count;
}

SmartFolderCount smartFolderCount(MailArchive& archive, const SmartFolder& folder,
                                  SmartFolderCounting counting) {
  CatalogAnnotations annotations(archive.catalog());
  const std::string fingerprint = archive.catalog().contentFingerprint();
  if (counting != SmartFolderCounting::refreshing) {
    auto stored = annotations.lastSmartFolderCount(folder.id, fingerprint);
    if (stored && movesWithTime(folder.filter)) stored->isStale = true;
    if (stored && (!stored->isStale || counting == SmartFolderCounting::stale)) return *stored;
  }
  const SmartFolderCount count = smartFolderCount(archive, folder.filter);
  if (!archive.readOnly()) annotations.storeSmartFolderCount(folder.id, count, fingerprint);
  return count;
}

std::int64_t refreshStaleSmartFolderCounts(MailArchive& archive,
                                           const std::vector<SmartFolder>& folders) {
  std::int64_t refreshed = 0;
  for (const SmartFolder& folder : folders) {
    if (!smartFolderCount(archive, folder, SmartFolderCounting::stale).isStale) continue;
    smartFolderCount(archive, folder, SmartFolderCounting::refreshing);
    ++refreshed;
  }
  return refreshed;
}

std::vector<FolderCount> mailboxBreakdown(MailArchive& archive, const FilterNode& filter) {
  std::vector<FolderCount> counts;
  if (!FilterCompiler::compile(filter, queryContext(archive))) return counts;
  SearchQuery query;
  query.filter = filter;
  const BuiltQuery built = buildQuery(query, queryContext(archive));
  archive.catalog().database().forEachRow(
      "SELECT ac.name AS account, fo.path AS path, COUNT(*) AS n FROM (SELECT m.id AS id " +
          built.from + built.where +
          ") found JOIN message_folder mf ON mf.message_id = found.id AND mf.removed_at IS NULL "
          "JOIN folder fo ON fo.id = mf.folder_id JOIN account ac ON ac.id = fo.account_id GROUP "
          "BY fo.id ORDER BY n DESC, ac.name, fo.path",
      bindingsOf(built.params), [&counts](const Row& row) {
        counts.push_back({row.string("account"), row.string("path"), row.integer("n")});
        return true;
      });
  return counts;
}

}  // namespace ambervane
