#ifndef AMBERVANE_QUERY_SEARCH_QUERY_H_
#define AMBERVANE_QUERY_SEARCH_QUERY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date.h"
#include "query/filter_node.h"

namespace ambervane {

enum class SearchSort : std::uint8_t {
  dateDescending,
  dateAscending,
  sizeDescending,
  relevance,
  subject,
  sender,
  recipient,
  mailbox,
  attachmentCount,
};

struct SearchSortFacts {
  std::string_view name;   ///< as stored
  std::string_view label;  ///< in English
};
const SearchSortFacts& facts(SearchSort sort) noexcept;
std::optional<SearchSort> searchSortFromName(std::string_view name) noexcept;

/// What selects messages: every field that is set narrows the selection. Texts are looked for
/// anywhere in a column, ASCII letters in either case.
struct SearchQuery {
  using Sort = SearchSort;

  std::optional<std::string> text;  ///< full text
  std::optional<std::string> subject;
  std::optional<std::string> from;         ///< the sender's address or name
  std::optional<std::string> recipient;    ///< To or Cc
  std::optional<std::string> participant;  ///< any address or name of the message
  std::optional<std::string> folder;       ///< part of a folder's path
  std::optional<std::int64_t> folderID;    ///< exactly this folder; `folder` and `accountID` idle
  std::optional<std::int64_t> accountID;   ///< any folder of this account
  std::optional<Date> dateFrom;            ///< sent at or after
  std::optional<Date> dateTo;              ///< sent before
  std::optional<bool> hasAttachment;
  std::optional<std::string> filename;        ///< of an attachment
  std::optional<std::int64_t> minSize;        ///< bytes, inclusive
  std::optional<std::int64_t> maxSize;        ///< bytes, inclusive
  std::optional<std::string> digest;          ///< SHA-256 in hexadecimal, whole or its beginning
  std::optional<std::string> retentionClass;  ///< the exact identifier
  std::optional<bool> onLegalHold;            ///< true: on an unreleased hold; false adds nothing
  bool includeErased = false;
  std::optional<Date> expiringBefore;  ///< kept until this moment or earlier
  std::optional<FilterNode> filter;
  Sort sort = Sort::dateDescending;
  std::int64_t limit = 200;
  std::int64_t offset = 0;
  std::optional<std::vector<std::int64_t>> messageIDs;  ///< only these; an empty list: none
  bool recordInJournal = true;

  /// Whether nothing narrows the selection.
  bool isEmpty() const;
  friend bool operator==(const SearchQuery&, const SearchQuery&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_SEARCH_QUERY_H_
