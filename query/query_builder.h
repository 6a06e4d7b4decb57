#ifndef AMBERVANE_QUERY_QUERY_BUILDER_H_
#define AMBERVANE_QUERY_QUERY_BUILDER_H_

#include <cstdint>
#include <optional>
#include <string>

#include "query/query_value.h"
#include "query/search_query.h"

namespace ambervane {

/// Counting stops here, so that a broad query on a large archive stays cheap. A smaller count is
/// exact.
inline constexpr std::int64_t kCountCap = 50000;

/// A SearchQuery as the clauses of a statement.
struct BuiltQuery {
  std::string from;      ///< "FROM message m", or full text joined with it
  std::string joins;     ///< joined by a blank; may be empty
  std::string where;     ///< empty or beginning with " WHERE "
  std::string order;     ///< "ORDER BY ..."
  std::string distinct;  ///< "DISTINCT " or empty
  QueryValues params;    ///< of `joins` and `where`, in the order of their "?"
  bool usedFullText = false;
  std::string matchExpression;  ///< empty unless `usedFullText`
  std::int64_t limit = 0;
  std::int64_t offset = 0;

  /// One page of rows: every column of message, and "rank" (bm25, lower is better; 0.0 without full
  /// text). Takes `hitsParams`.
  std::string hitsSql() const;
  /// `params`, the limit and the offset.
  QueryValues hitsParams() const;
  /// One row, "n": the number of messages found, at most `kCountCap`. Takes `params`.
  std::string countSql() const;
};

/// Compiles a query. User text only ever becomes a parameter, and SQLite's limits are never
/// exceeded: the filter is bounded by FilterCompiler, and more than `kMaxBoundMessageIDs` messages
/// are bound as one JSON list.
BuiltQuery buildQuery(const SearchQuery& query, const QueryContext& context);

inline constexpr std::size_t kMaxBoundMessageIDs = 10000;

/// The statement that counts what a compiled filter finds among messages that are not erased, as
/// "n", up to `cap`.
std::string filterCountSql(const std::string& condition, std::int64_t cap);

/// A query's fields as the equal filter tree, for what stores only a tree; its `filter` when it has
/// one. Absent when nothing of it can be said in a tree: identifiers of folders, accounts and
/// messages, keep-until dates and `includeErased` cannot.
std::optional<FilterNode> filterFromQuery(const SearchQuery& query);

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_QUERY_BUILDER_H_
