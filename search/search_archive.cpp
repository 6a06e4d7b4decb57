#include "search/search_archive.h"

#include <algorithm>
#include <chrono>

#include "query/query_builder.h"
#include "store/query_context.h"

namespace ambervane {
namespace {

std::vector<SearchHit> readHits(SQLiteDatabase& database, const BuiltQuery& built) {
  std::vector<SearchHit> hits;
  const QueryValues params = built.hitsParams();
  database.forEachRow(built.hitsSql(), bindingsOf(params), [&hits](const Row& row) {
    hits.push_back({MessageRow(row), row.real("rank").value_or(0), row.optionalString("snippet")});
    return true;
  });
  return hits;
}

std::int64_t countMatches(SQLiteDatabase& database, const BuiltQuery& built, std::size_t hits) {
  const auto found = static_cast<std::int64_t>(hits);
  // A page that is not full is the last one, so what lies before it and on it is everything.
  const std::int64_t offset = std::max<std::int64_t>(built.offset, 0);
  const bool isLast = built.limit < 0 || found < built.limit;
  if (isLast && (found > 0 || offset == 0)) return std::min(offset + found, kCountCap);
  return database.count(built.countSql(), bindingsOf(built.params));
}

void record(MailArchive& archive, const SearchQuery& query, std::int64_t totalMatches) {
  if (!query.recordInJournal || query.isEmpty()) return;
  try {
    archive.journal().append(
        AuditAction::searchPerformed, query.text.value_or("(filters only)"),
        {{"hits", std::to_string(totalMatches)}, {"limit", std::to_string(query.limit)}});
  } catch (const TranslatableError&) {
    // What was found is shown all the same, on a medium that cannot be written above all.
  }
}

}  // namespace

std::string SearchResult::displayCount() const {
  std::string text = std::to_string(totalMatches);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
  return countIsExact ? text : text + "+";
}

SearchResult searchArchive(MailArchive& archive, const SearchQuery& query) {
  const auto start = std::chrono::steady_clock::now();
  SQLiteDatabase& database = archive.catalog().database();
  const BuiltQuery built = buildQuery(query, queryContext(archive));
  SearchResult result;
  result.hits = readHits(database, built);
  result.totalMatches = countMatches(database, built, result.hits.size());
  result.usedFullText = built.usedFullText;
  result.countIsExact = result.totalMatches < kCountCap;
  record(archive, query, result.totalMatches);
  result.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

std::vector<std::int64_t> selectedMessageIDs(MailArchive& archive, const SearchQuery& query) {
  const BuiltQuery built = buildQuery(query, queryContext(archive));
  std::vector<std::int64_t> ids;
  archive.catalog().database().forEachRow("SELECT " + built.distinct + "m.id " + built.from + " " +
                                              built.joins + built.where + " " + built.order,
                                          bindingsOf(built.params), [&ids](const Row& row) {
                                            ids.push_back(row.integer("id"));
                                            return true;
                                          });
  return ids;
}

}  // namespace ambervane
