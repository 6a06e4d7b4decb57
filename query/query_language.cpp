#include "query/query_language.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"

namespace ambervane {
namespace {

template <typename T>
using Spelling = std::pair<std::string_view, T>;

constexpr std::array<Spelling<QueryKeyword>, 10> kKeywords = {{
    {"and", QueryKeyword::andWord},
    {"und", QueryKeyword::andWord},
    {"&&", QueryKeyword::andWord},
    {"+", QueryKeyword::andWord},
    {"or", QueryKeyword::orWord},
    {"oder", QueryKeyword::orWord},
    {"||", QueryKeyword::orWord},
    {"not", QueryKeyword::notWord},
    {"nicht", QueryKeyword::notWord},
    {"!", QueryKeyword::notWord},
}};

constexpr Spelling<QueryKey> kKeys[] = {
    {"from", QueryKey::from},
    {"von", QueryKey::from},
    {"absender", QueryKey::from},
    {"to", QueryKey::recipient},
    {"an", QueryKey::recipient},
    {"empfaenger", QueryKey::recipient},
    {"empfänger", QueryKey::recipient},
    {"recipient", QueryKey::recipient},
    {"subject", QueryKey::subject},
    {"betreff", QueryKey::subject},
    {"folder", QueryKey::folder},
    {"in", QueryKey::folder},
    {"ordner", QueryKey::folder},
    {"mailbox", QueryKey::folder},
    {"filename", QueryKey::filename},
    {"file", QueryKey::filename},
    {"dateiname", QueryKey::filename},
    {"attachment", QueryKey::filename},
    {"has", QueryKey::has},
    {"is", QueryKey::is},
    {"after", QueryKey::after},
    {"since", QueryKey::after},
    {"nach", QueryKey::after},
    {"seit", QueryKey::after},
    {"before", QueryKey::before},
    {"until", QueryKey::before},
    {"vor", QueryKey::before},
    {"bis", QueryKey::before},
    {"year", QueryKey::year},
    {"jahr", QueryKey::year},
    {"larger", QueryKey::larger},
    {"groesser", QueryKey::larger},
    {"größer", QueryKey::larger},
    {"smaller", QueryKey::smaller},
    {"kleiner", QueryKey::smaller},
    {"class", QueryKey::retentionClass},
    {"klasse", QueryKey::retentionClass},
    {"retention", QueryKey::retentionClass},
    {"sha256", QueryKey::digest},
    {"sha", QueryKey::digest},
    {"hash", QueryKey::digest},
    {"digest", QueryKey::digest},
    {"pruefsumme", QueryKey::digest},
    {"prüfsumme", QueryKey::digest},
    {"checksum", QueryKey::digest},
    {"participant", QueryKey::participant},
    {"beteiligt", QueryKey::participant},
    {"anyone", QueryKey::participant},
    {"text", QueryKey::text},
    {"body", QueryKey::text},
    {"inhalt", QueryKey::text},
    {"domain", QueryKey::domain},
    {"domäne", QueryKey::domain},
    {"cc", QueryKey::cc},
    {"account", QueryKey::account},
    {"konto", QueryKey::account},
    {"mime", QueryKey::mimeType},
    {"type", QueryKey::mimeType},
    {"typ", QueryKey::mimeType},
    {"on", QueryKey::on},
    {"am", QueryKey::on},
    {"newer", QueryKey::newer},
    {"neuer", QueryKey::newer},
    {"flag", QueryKey::flag},
    {"flagge", QueryKey::flag},
    {"header", QueryKey::header},
    {"kopfzeile", QueryKey::header},
};

constexpr std::size_t kLongestKey = 40;

/// The word behind `spelling` in a table; absent for a word that is not in it.
template <typename T, typename Table>
std::optional<T> meaning(const Table& table, std::string_view spelling) {
  // Nothing this long is in a table; not folding it keeps a hostile line linear.
  if (spelling.size() > kLongestKey) return std::nullopt;
  const std::string folded = composed(lowercase(spelling));
  const auto* const found =
      std::find_if(std::begin(table), std::end(table),
                   [&folded](const Spelling<T>& row) { return row.first == folded; });
  if (found == std::end(table)) return std::nullopt;
  return found->second;
}

}  // namespace

std::optional<QueryKeyword> queryKeyword(std::string_view token) {
  return meaning<QueryKeyword>(kKeywords, token);
}

std::optional<QueryKey> queryKey(std::string_view word) { return meaning<QueryKey>(kKeys, word); }

bool meansAttachment(std::string_view word) {
  const std::string lower = lowercase(word);
  return lower == "attachment" || lower == "anhang";
}

bool meansErased(std::string_view word, bool withUmlaut) {
  const std::string lower = composed(lowercase(word));
  return lower == "erased" || lower == "geloescht" || (withUmlaut && lower == "gelöscht");
}

bool meansHeld(std::string_view word) { return lowercase(word) == "held"; }

std::vector<std::string_view> splitPreservingQuotes(std::string_view line) {
  std::vector<std::string_view> tokens;
  std::size_t begin = 0;
  bool inQuotes = false;
  for (std::size_t at = 0; at <= line.size(); ++at) {
    if (at < line.size()) {
      if (line[at] == '"') inQuotes = !inQuotes;
      if (line[at] != ' ' || inQuotes) continue;
    }
    if (at > begin) tokens.push_back(line.substr(begin, at - begin));
    begin = at + 1;
  }
  return tokens;
}

std::string_view unquoted(std::string_view value) noexcept {
  if (value.size() < 2 || value.front() != '"' || value.back() != '"') return value;
  return value.substr(1, value.size() - 2);
}

}  // namespace ambervane
