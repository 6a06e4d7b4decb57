#ifndef AMBERVANE_TESTS_SUPPORT_HOSTILE_QUERIES_H_
#define AMBERVANE_TESTS_SUPPORT_HOSTILE_QUERIES_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "query/filter_node.h"

namespace ambervane {

struct HostileQuery {
  std::string name;
  std::string line;
};

inline std::string repeated(std::string_view text, std::size_t times) {
  std::string out;
  for (std::size_t i = 0; i < times; ++i) out += text;
  return out;
}

/// Lines of the query language that aim at the parsers' stacks, at SQLite's and FTS5's limits and
/// at their syntax. None may be an error, neither when parsed nor when the statement runs.
inline std::vector<HostileQuery> hostileQueries() {
  using namespace std::string_literals;
  const std::string kilobytes(100'000, 'x');
  std::vector<HostileQuery> lines = {
      {"bracketsAroundAWord", repeated("(", 10'000) + "a" + repeated(")", 10'000)},
      {"bracketsNeverClosed", repeated("(", 10'000)},
      {"bracketsNeverOpened", repeated(")", 10'000)},
      {"bracketsAndGroups", repeated("(a or (b ", 10'000) + repeated(")", 20'000)},
      {"groupsBesideWords", repeated("(cc:a or (x cc:b ", 4'000) + repeated(") cc:c)", 4'000)},
      {"deepAndWide", repeated("( cc:a " + repeated("cc:b or cc:c ", 24), 150)},
      {"deepAndWideNegations",
       repeated("NOT ( from:a " + repeated("or cc:b ", 24), 190) + repeated(") cc:d", 190)},
      {"negations", repeated("NOT ", 10'000) + "a"},
      {"negationsInReach", repeated("NOT ", 190) + "a"},
      {"negatedBrackets", repeated("! (cc:b or ", 199) + "a" + repeated(")", 199)},
      {"keywordsOnly", repeated("AND OR NOT ( ) ", 5'000)},
      {"manyAlternatives", repeated("cc:a or ", 12'000) + "cc:a"},
      {"manyConditions", "(" + repeated("cc:a ", 20'000)},
      {"conditionsInReach", "(" + repeated("cc:a or sha:b or ", 600)},
      {"lookupsInReach", repeated("tag:a or konto:b or flag:c or file:d or header:e:f or ", 40)},
      {"textsInReach", repeated("a ! ", 300)},
      {"manyTexts", repeated("a ! ", 25'000) + "a"},
      {"manyDigests", "(" + repeated("sha:a ", 16'000)},
      {"manyLookups", repeated("tag:a or konto:b or flag:c or file:d or header:e:f or ", 2'000)},
      {"manyWords", repeated("müll ae ", 11'000)},
      {"manyPhrases", repeated("\"a b\" ", 16'000)},
      {"longWord", kilobytes},
      {"longPhrase", "\"" + repeated("a ", 50'000) + "\""},
      {"punctuatedWord", repeated("a.", 50'000)},
      {"longValues", "from:" + kilobytes + " subject:" + kilobytes},
      {"longValuesInATree", "flag:" + kilobytes + " or to:" + kilobytes + " or " + kilobytes},
      {"wildcards", "subject:" + repeated("%_\\", 30'000)},
      {"wildcardsInATree", "(betreff:" + repeated("%_\\", 16'000)},
      {"fullTextNegations", "\"a" + repeated(" NOT b", 15'000) + "\" or c"},
      {"fullTextOperators", "text:\"" + repeated("a OR b NOT c AND ", 5'000) + "\" or x"},
      {"quotes", repeated("\"", 99'999)},
      {"quotesInQuotes", repeated("\"\"\" \"", 20'000)},
      {"quoteInAWord", "a\"b\" c\"d"},
      {"nul", "a\0b \"c\0\" from:d\0e\0"s},
      {"nulInATree", "(a\0b or \"c\0\" or from:d\0e)"s},
      {"illFormedUtf8", "\xff\xfe a\xc3 \xed\xa0\x80 \xf5\x80\x80\x80 from:\xc3 b\xe2\x82"},
      {"illFormedUtf8InATree", "(\xff or a\xc3 or \xed\xa0\x80 or from:\xc3 or \xc3:b)"},
      {"fullTextSyntax", "NEAR( a* ^b {subject} : c + d - \"e\"* f:g NEAR/2 -h"},
      {"fullTextSyntaxInWords", "^ * : + - { } , ' \" NEAR a:b* body:^c"},
      {"sqlSyntax", "'; DROP TABLE message; -- from:') OR 1=1 -- \\' subject:%"},
      {"sqlSyntaxInATree", "('; DROP TABLE message; -- or from:\\' or folder:'||x or ?1 or :a)"},
      {"numbers",
       "larger:9e999gb smaller:-99999999999999999999 year:99999999999 before:9999999999 "
       "after:99999999-99-99 larger:nan"},
      {"numbersInATree",
       "(larger:9e999gb or year:9999999999999 or newer:1e308 or newer:nan or on:5000000 or "
       "before:0 or size:1)"},
      {"blanks", repeated(" ", 100'000)},
      {"tabs", repeated("\t", 1'000) + "a\tb" + repeated("\t", 1'000)},
      {"punctuationOnly", "!!! ??? ... ---"},
      {"combiningMarks", "a" + repeated("\xcc\x88", 50'000)},
      {"emoji", "\U0001f4ce \U0001f468\u200d\U0001f469 or (\U0001f4ce)"},
  };
  return lines;
}

/// The tree whose SQL is as deep an expression as can be: a chain of `width` conditions as long as
/// chains get, below negations that each have a branch beside the deep one.
inline FilterNode deepestFilter(int levels, int width) {
  const auto condition = [] {
    return FilterNode::rule(FilterField::header, FilterOperator::notContains, "x-a: b");
  };
  std::vector<FilterNode> chain;
  for (int i = 0; i < width; ++i) chain.push_back(condition());
  FilterNode tree = FilterNode::group(FilterMatch::none, std::move(chain));
  for (int level = 2; level < levels; ++level) {
    std::vector<FilterNode> children;
    children.push_back(std::move(tree));
    children.push_back(condition());
    children.push_back(condition());
    tree = FilterNode::group(FilterMatch::none, std::move(children));
  }
  return tree;
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_HOSTILE_QUERIES_H_
