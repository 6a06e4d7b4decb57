#include "query/search_query.h"

#include <algorithm>
#include <array>

namespace ambervane {
namespace {

// In the order of the enumeration.
constexpr std::array<SearchSortFacts, 9> kSorts = {{
    {"dateDescending", "Newest first"},
    {"dateAscending", "Oldest first"},
    {"sizeDescending", "Largest first"},
    {"relevance", "Best match"},
    {"subject", "Subject"},
    {"sender", "Sender"},
    {"recipient", "Recipient"},
    {"mailbox", "Mailbox"},
    {"attachmentCount", "Most attachments"},
}};

template <typename... Fields>
bool noneSet(const Fields&... fields) noexcept {
  return (!fields.has_value() && ...);
}

}  // namespace

const SearchSortFacts& facts(SearchSort sort) noexcept {
  return kSorts[static_cast<std::size_t>(sort)];
}

std::optional<SearchSort> searchSortFromName(std::string_view name) noexcept {
  const auto* const found =
      std::find_if(kSorts.begin(), kSorts.end(),
                   [name](const SearchSortFacts& row) { return row.name == name; });
  if (found == kSorts.end()) return std::nullopt;
  return static_cast<SearchSort>(found - kSorts.begin());
}

bool SearchQuery::isEmpty() const {
  return noneSet(text, subject, from, recipient, participant, folder, folderID, accountID, dateFrom,
                 dateTo, hasAttachment, filename, minSize, maxSize, digest, retentionClass,
                 onLegalHold, expiringBefore, messageIDs) &&
         (!filter || !filter->pruned());
}

}  // namespace ambervane
