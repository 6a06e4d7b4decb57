#ifndef AMBERVANE_QUERY_QUERY_LANGUAGE_H_
#define AMBERVANE_QUERY_QUERY_LANGUAGE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The words of the query language, for its two parsers.

namespace ambervane {

enum class QueryKeyword : std::uint8_t { andWord, orWord, notWord };
/// In English or German or as a sign, whatever the case.
std::optional<QueryKeyword> queryKeyword(std::string_view token);

/// What may stand before a colon. The spellings mean the same to both parsers; the simple one does
/// not know the keys from `text` on.
enum class QueryKey : std::uint8_t {
  from,
  recipient,
  subject,
  folder,
  filename,
  has,
  is,
  after,
  before,
  year,
  larger,
  smaller,
  retentionClass,
  digest,
  participant,
  text,
  domain,
  cc,
  account,
  mimeType,
  on,
  newer,
  flag,
  header,
};
/// The key spelt `word`, in either case and in composed or decomposed letters.
std::optional<QueryKey> queryKey(std::string_view word);

/// Whether `word`, the value of "has:", asks for an attachment.
bool meansAttachment(std::string_view word);
/// Whether `word`, the value of "is:", asks for erased messages. Only the tree parser takes the
/// spelling with an umlaut.
bool meansErased(std::string_view word, bool withUmlaut);
bool meansHeld(std::string_view word);

/// The words of a line: only U+0020 outside double quotes separates them, quotes are kept, and a
/// quote left open runs to the end.
std::vector<std::string_view> splitPreservingQuotes(std::string_view line);

/// Without one pair of double quotes around the whole.
std::string_view unquoted(std::string_view value) noexcept;

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_QUERY_LANGUAGE_H_
