#ifndef AMBERVANE_QUERY_SEARCH_QUERY_PARSER_H_
#define AMBERVANE_QUERY_SEARCH_QUERY_PARSER_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "query/search_query.h"

namespace ambervane::SearchQueryParser {

/// Reads one line of the query language, as a person types it: "from:anna invoice
/// after:2023-01-01". Never fails: what cannot be read becomes free text or is passed over. A line
/// with brackets, OR, NOT, "flag:" or "header:" gives a query with nothing but a `filter`.
SearchQuery parse(std::string_view line);

/// The FTS5 MATCH expression for free text, over all columns or only `columns` (names of ours,
/// never a user's): every word in all its German spellings as the beginning of a word, quoted parts
/// as they stand, AND between them unless AND, OR or NOT is written. Absent when there is nothing
/// to match.
///
/// Everything is quoted, so no text is a syntax error; NUL, which would end the expression, is read
/// as a blank. At most `kMaxFullTextTerms` words and `kMaxFullTextBytes` bytes of text are used and
/// the rest is passed over: FTS5 takes no tree deeper than 256, and each NOT is a level.
std::optional<std::string> ftsExpression(std::string_view text,
                                         const std::vector<std::string>& columns = {});

inline constexpr int kMaxFullTextTerms = 200;
inline constexpr std::size_t kMaxFullTextBytes = 8192;

}  // namespace ambervane::SearchQueryParser

#endif  // AMBERVANE_QUERY_SEARCH_QUERY_PARSER_H_
