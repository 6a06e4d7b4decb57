#include <algorithm>
#include <string>
#include <utility>

#include "base/text.h"
#include "query/german_folding.h"
#include "query/search_query_parser.h"

namespace ambervane::SearchQueryParser {
namespace {

/// `text` as an FTS5 string, in which only the double quote has a meaning.
std::string ftsString(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"') out.push_back('"');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

/// `word` in every spelling, each followed by `suffix`.
std::string spellings(std::string_view word, const char* suffix) {
  std::vector<std::string> variants = GermanFolding::queryVariants(word);
  for (std::string& variant : variants) variant = ftsString(variant) + suffix;
  if (variants.size() == 1) return std::move(variants.front());
  return "(" + join(variants, " OR ") + ")";
}

/// Joins terms with the operators between them: the last of several counts, and those at either
/// end vanish.
class Expression {
 public:
  bool isFull() const noexcept { return terms_ >= kMaxFullTextTerms; }

  void addWord(std::string_view word) {
    for (const char* name : {"AND", "OR", "NOT"}) {
      if (!asciiEqualIgnoringCase(word, name)) continue;
      if (!text_.empty()) operator_ = name;
      return;
    }
    addTerm(spellings(word, "*"));
  }

  void addTerm(const std::string& term) {
    if (isFull()) return;
    if (!text_.empty()) {
      text_ += ' ';
      text_ += operator_;
      text_ += ' ';
    }
    text_ += term;
    operator_ = "AND";
    ++terms_;
  }

  std::string take() { return std::move(text_); }

 private:
  std::string text_;
  const char* operator_ = "AND";
  int terms_ = 0;
};

/// As much of `text` as is used, cut behind a whole word where there is one.
std::string usedPart(std::string_view text) {
  if (text.size() > kMaxFullTextBytes) {
    const std::size_t blank = text.rfind(' ', kMaxFullTextBytes);
    text = text.substr(0, blank == std::string_view::npos ? kMaxFullTextBytes : blank);
  }
  std::string part(text);
  std::replace(part.begin(), part.end(), '\0', ' ');
  return part;
}

}  // namespace

std::optional<std::string> ftsExpression(std::string_view text,
                                         const std::vector<std::string>& columns) {
  Expression expression;
  std::string collected;
  bool inQuotes = false;
  for (const char c : usedPart(text)) {
    if (expression.isFull()) break;
    if (c == '"') {
      if (inQuotes && !collected.empty()) expression.addTerm(ftsString(collected));
      if (inQuotes) collected.clear();
      inQuotes = !inQuotes;
    } else if (c == ' ' && !inQuotes) {
      if (!collected.empty()) expression.addWord(collected);
      collected.clear();
    } else {
      collected.push_back(c);
    }
  }
  if (!collected.empty()) {
    if (inQuotes) {
      expression.addTerm(spellings(collected, ""));
    } else {
      expression.addWord(collected);
    }
  }
  std::string out = expression.take();
  if (out.empty()) return std::nullopt;
  if (columns.empty()) return out;
  return "{" + join(columns, " ") + "} : (" + out + ")";
}

}  // namespace ambervane::SearchQueryParser
