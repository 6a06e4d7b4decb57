#include "query/sql_fragments.h"

#include <utility>

namespace ambervane {

std::string likeEscaped(std::string_view value) {
  std::string out;
  out.reserve(value.size() + 8);
  for (const char c : value) {
    if (c == '\\' || c == '%' || c == '_') out.push_back('\\');
    out.push_back(c);
  }
  return out;
}

std::string containing(std::string_view value) { return "%" + likeEscaped(value) + "%"; }

std::string like(std::string_view column, std::string pattern, QueryValues& params) {
  if (pattern.size() > kMaxLikePatternBytes) return "0";
  params.emplace_back(std::move(pattern));
  return std::string(column) + " LIKE ? ESCAPE '\\'";
}

std::string textLike(std::string_view text, QueryValues& params) {
  const std::string pattern = containing(text);
  const std::string subject = like("m.subject", pattern, params);
  const std::string participants = like("m.participants", pattern, params);
  const std::string snippet = like("m.snippet", pattern, params);
  return "(" + subject + " OR " + participants + " OR " + snippet + ")";
}

std::string digestRange(std::string prefix, QueryValues& params) {
  // "g" sorts just behind every hexadecimal digit.
  std::string end = prefix + "g";
  params.emplace_back(std::move(prefix));
  params.emplace_back(std::move(end));
  return "(m.sha256 >= ? AND m.sha256 < ?)";
}

}  // namespace ambervane
