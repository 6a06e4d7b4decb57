#include "search/search_archive.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "query/query_builder.h"
#include "store/query_context.h"

namespace ambervane {
namespace {

/// Finds a page and counts.
///
/// Only identifiers go through SQLite's sorter and its removal of duplicates: whole rows there cost
/// several times the search itself. The rows of the page are fetched afterwards.
class Search {
 public:
  Search(Catalog& catalog, const BuiltQuery& built, bool wantsRank)
      : catalog_(catalog), built_(built), wantsRank_(wantsRank) {}

  std::vector<SearchHit> page() {
    std::vector<std::pair<std::int64_t, double>> found;
    const auto take = [&found](const Row& row) {
      found.emplace_back(row.integer("id"), row.real("rank").value_or(0));
      return true;
    };
    if (findsAllAnyway()) {
      total_ = 0;
      const std::int64_t offset = std::max<std::int64_t>(built_.offset, 0);
      catalog_.database().forEachRow(sqlFor(""), bindingsOf(built_.params), [&](const Row& row) {
        const std::int64_t at = (*total_)++;
        if (at >= offset && (built_.limit < 0 || at < offset + built_.limit)) take(row);
        return true;
      });
    } else {
      catalog_.database().forEachRow(sqlFor(" LIMIT ? OFFSET ?"), bindingsOf(built_.hitsParams()),
                                     take);
    }
    std::vector<SearchHit> hits;
    hits.reserve(found.size());
    for (const auto& [id, rank] : found) {
      auto message = catalog_.message(id);
      if (!message) continue;
      auto highlight = message->snippet;
      hits.push_back({*std::move(message), rank, std::move(highlight)});
    }
    return hits;
  }

  /// `hits`: how many the page has.
  std::int64_t count(std::size_t hits) {
    if (total_) return std::min(*total_, kCountCap);
    const auto found = static_cast<std::int64_t>(hits);
    // A page that is not full is the last one, so what lies before it and on it is everything.
    const std::int64_t offset = std::max<std::int64_t>(built_.offset, 0);
    const bool isLast = built_.limit < 0 || found < built_.limit;
    if (isLast && (found > 0 || offset == 0)) return std::min(offset + found, kCountCap);
    return catalog_.database().count(built_.countSql(), bindingsOf(built_.params));
  }

 private:
  /// Full text has to find all matches to sort them; to find them again for the count would take as
  /// long again. Without it the order may come from an index and the rest is never looked at.
  bool findsAllAnyway() const {
    return built_.usedFullText && built_.distinct.empty() && !wantsRank_;
  }

  std::string sqlFor(std::string_view page) const {
    if (wantsRank_) {
      std::string sql = built_.hitsSql();
      constexpr std::string_view kAllColumns = "m.*";
      return sql.replace(sql.find(kAllColumns), kAllColumns.size(), "m.id AS id");
    }
    return "SELECT " + built_.distinct + "m.id AS id " + built_.from + " " + built_.joins +
           built_.where + " " + built_.order + std::string(page);
  }

  Catalog& catalog_;
  const BuiltQuery& built_;
  const bool wantsRank_;
  std::optional<std::int64_t> total_;
};

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

SearchResult searchArchive(MailArchive& archive, const SearchQuery& query, SearchRanks ranks) {
  const auto start = std::chrono::steady_clock::now();
  const BuiltQuery built = buildQuery(query, queryContext(archive));
  const bool wantsRank =
      built.usedFullText && (ranks == SearchRanks::always || query.sort == SearchSort::relevance);
  Search search(archive.catalog(), built, wantsRank);
  SearchResult result;
  archive.catalog().inOneState([&] {
    result.hits = search.page();
    result.totalMatches = search.count(result.hits.size());
  });
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
