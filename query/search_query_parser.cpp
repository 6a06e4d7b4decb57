#include "query/search_query_parser.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "base/bytes.h"
#include "base/calendar.h"
#include "base/text.h"
#include "query/boolean_query_parser.h"
#include "query/query_language.h"
#include "query/value_reading.h"

namespace ambervane::SearchQueryParser {
namespace {

std::optional<Date> parseDay(std::string_view value) {
  static constexpr std::array kPatterns = {"yyyy-MM-dd", "dd.MM.yyyy", "yyyy/MM/dd",
                                           "MM/dd/yyyy", "yyyy-MM",    "yyyy"};
  return readDate(value, kPatterns);
}

std::optional<std::int64_t> parseSize(std::string_view value) {
  static constexpr std::array<SizeUnit, 6> kUnits = {{{"gb", 1073741824},
                                                      {"mb", 1048576},
                                                      {"kb", 1024},
                                                      {"g", 1073741824},
                                                      {"m", 1048576},
                                                      {"k", 1024}}};
  return readSize(value, kUnits);
}

/// Restricts to one year. A year no calendar holds is passed over like a word that is no year.
void setYear(SearchQuery& query, std::string_view value) {
  const auto year = parseInteger(value);
  if (!year || *year <= std::numeric_limits<short>::min() ||
      *year >= std::numeric_limits<short>::max()) {
    return;
  }
  const auto first = dateFromCivil({.year = static_cast<int>(*year)});
  const auto next = dateFromCivil({.year = static_cast<int>(*year) + 1});
  if (!first || !next) return;
  query.dateFrom = first;
  query.dateTo = next;
}

/// Fills the field `key` stands for; false for a key that only the tree parser knows.
bool setField(SearchQuery& query, QueryKey key, std::string_view value) {
  switch (key) {
    case QueryKey::from:
      query.from = value;
      return true;
    case QueryKey::recipient:
      query.recipient = value;
      return true;
    case QueryKey::subject:
      query.subject = value;
      return true;
    case QueryKey::folder:
      query.folder = value;
      return true;
    case QueryKey::filename:
      query.filename = value;
      return true;
    case QueryKey::participant:
      query.participant = value;
      return true;
    case QueryKey::retentionClass:
      query.retentionClass = value;
      return true;
    case QueryKey::digest:
      query.digest = value;
      return true;
    case QueryKey::has:
      if (meansAttachment(value)) query.hasAttachment = true;
      if (meansHeld(value)) query.onLegalHold = true;
      return true;
    case QueryKey::is:
      if (meansErased(value, false)) query.includeErased = true;
      if (meansHeld(value)) query.onLegalHold = true;
      return true;
    case QueryKey::after:
      query.dateFrom = parseDay(value);
      return true;
    case QueryKey::before:
      query.dateTo = parseDay(value);
      return true;
    case QueryKey::year:
      setYear(query, value);
      return true;
    case QueryKey::larger:
      query.minSize = parseSize(value);
      return true;
    case QueryKey::smaller:
      query.maxSize = parseSize(value);
      return true;
    default:
      return false;
  }
}

/// Whether a lone word is a digest pasted in, or enough of its beginning.
bool looksLikeDigest(std::string_view word) {
  return word.size() >= 16 && word.size() <= 64 &&
         std::all_of(word.begin(), word.end(), [](char c) { return hexDigit(c) >= 0; });
}

SearchQuery parseFields(std::string_view line) {
  SearchQuery query;
  std::vector<std::string> words;
  for (const std::string_view token : splitPreservingQuotes(line)) {
    const std::size_t colon = token.find(':');
    if (colon != 0 && colon != std::string_view::npos) {
      const std::string_view value = unquoted(token.substr(colon + 1));
      const auto key = queryKey(token.substr(0, colon));
      if (key && !value.empty() && setField(query, *key, value)) continue;
    }
    words.emplace_back(token);
  }
  if (!query.digest && words.size() == 1 && looksLikeDigest(words.front())) {
    query.digest = words.front();
    return query;
  }
  if (const std::string text(trim(join(words, " "))); !text.empty()) query.text = text;
  return query;
}

}  // namespace

SearchQuery parse(std::string_view line) {
  if (BooleanQueryParser::needsTree(line)) {
    if (auto filter = BooleanQueryParser::parse(line)) {
      SearchQuery query;
      query.filter = std::move(*filter);
      return query;
    }
  }
  return parseFields(line);
}

}  // namespace ambervane::SearchQueryParser
