#ifndef AMBERVANE_SEARCH_SEARCH_ARCHIVE_H_
#define AMBERVANE_SEARCH_SEARCH_ARCHIVE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "query/search_query.h"
#include "store/mail_archive.h"

namespace ambervane {

/// A message found. Hits are the same when their messages are.
struct SearchHit {
  MessageRow message;
  double rank = 0;                       ///< bm25, lower is better; 0 without full text
  std::optional<std::string> highlight;  ///< the beginning of the message's text
  friend bool operator==(const SearchHit& a, const SearchHit& b) {
    return a.message.id == b.message.id;
  }
};

/// One page of what a query finds.
struct SearchResult {
  std::vector<SearchHit> hits;
  std::int64_t totalMatches = 0;  ///< counted up to `kCountCap`
  double elapsed = 0;             ///< seconds, the journal's entry included
  bool usedFullText = false;
  bool countIsExact = true;
  /// The total for people: "1,234", with a "+" behind it when counting stopped at the cap.
  std::string displayCount() const;
};

/// Whether hits carry their bm25 value.
enum class SearchRanks {
  always,       ///< with full text
  whenOrdering  ///< only by best match; else 0, and the index is read once instead of three times
};

/// Runs a query, and journals it when it narrows anything; a journal that cannot be written does
/// not keep the result back. Throws SQLiteError.
SearchResult searchArchive(MailArchive& archive, const SearchQuery& query,
                           SearchRanks ranks = SearchRanks::always);

/// Every message a query selects, in its order; its page is not looked at and nothing is
/// journalled. Throws SQLiteError.
std::vector<std::int64_t> selectedMessageIDs(MailArchive& archive, const SearchQuery& query);

}  // namespace ambervane

#endif  // AMBERVANE_SEARCH_SEARCH_ARCHIVE_H_
