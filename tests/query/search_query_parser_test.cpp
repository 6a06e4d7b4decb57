#include "query/search_query_parser.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "base/calendar.h"
#include "tests/query/rendering.h"

namespace ambervane {
namespace {

Date day(int year, int month = 1, int dayOfMonth = 1) {
  return dateFromCivil({.year = year, .month = month, .day = dayOfMonth}).value();
}

TEST(SearchQueryParser, fields) {
  static const struct {
    const char* line;
    std::function<void(SearchQuery&)> expected;
  } kCases[] = {
      {"", [](SearchQuery&) {}},
      {"  \t ", [](SearchQuery&) {}},
      {"rechnung  mai", [](SearchQuery& q) { q.text = "rechnung mai"; }},
      {"\"a  b\" \"c d", [](SearchQuery& q) { q.text = "\"a  b\" \"c d"; }},
      {"AND", [](SearchQuery& q) { q.text = "AND"; }},
      {"von:Anna Rechnung",
       [](SearchQuery& q) {
         q.from = "Anna";
         q.text = "Rechnung";
       }},
      {"from:a FROM:\"b c\"", [](SearchQuery& q) { q.from = "b c"; }},
      {"empfänger:a", [](SearchQuery& q) { q.recipient = "a"; }},
      {"Empfa\u0308nger:a", [](SearchQuery& q) { q.recipient = "a"; }},
      {"betreff:a:b", [](SearchQuery& q) { q.subject = "a:b"; }},
      {"ordner:INBOX", [](SearchQuery& q) { q.folder = "INBOX"; }},
      {"dateiname:a.pdf", [](SearchQuery& q) { q.filename = "a.pdf"; }},
      {"beteiligt:a", [](SearchQuery& q) { q.participant = "a"; }},
      {"klasse:Contract", [](SearchQuery& q) { q.retentionClass = "Contract"; }},
      {"hash:ABC", [](SearchQuery& q) { q.digest = "ABC"; }},
      {"has:Anhang", [](SearchQuery& q) { q.hasAttachment = true; }},
      {"has:held", [](SearchQuery& q) { q.onLegalHold = true; }},
      {"is:HELD", [](SearchQuery& q) { q.onLegalHold = true; }},
      {"is:geloescht", [](SearchQuery& q) { q.includeErased = true; }},
      {"is:gelöscht has:foo is:attachment", [](SearchQuery&) {}},
      {"jahr:2023",
       [](SearchQuery& q) {
         q.dateFrom = day(2023);
         q.dateTo = day(2024);
       }},
      {"year:soon year:99999999999999", [](SearchQuery&) {}},
      {"nach:03/04/2024 before:03.04.2024",
       [](SearchQuery& q) {
         q.dateFrom = day(2024, 3, 4);
         q.dateTo = day(2024, 4, 3);
       }},
      {"since:2024/05/06 until:2024-05",
       [](SearchQuery& q) {
         q.dateFrom = day(2024, 5, 6);
         q.dateTo = day(2024, 5);
       }},
      {"after:2024", [](SearchQuery& q) { q.dateFrom = day(2024); }},
      {"after:2024 after:soon after:2024-02-30", [](SearchQuery&) {}},
      {"larger:1.5MB smaller:2g",
       [](SearchQuery& q) {
         q.minSize = 1572864;
         q.maxSize = 2147483648;
       }},
      {"größer:1000 kleiner:1e1kb",
       [](SearchQuery& q) {
         q.minSize = 1000;
         q.maxSize = 10240;
       }},
      {"larger:5 larger:2b smaller:inf smaller:1.5 larger:9e99gb", [](SearchQuery&) {}},
      // Not fields: no value, no such key, or a key of trees.
      {"from:", [](SearchQuery& q) { q.text = "from:"; }},
      {"from:\"\" :a", [](SearchQuery& q) { q.text = "from:\"\" :a"; }},
      {"cc:a domain:b text:c", [](SearchQuery& q) { q.text = "cc:a domain:b text:c"; }},
      {"-from:x", [](SearchQuery& q) { q.text = "-from:x"; }},
      {"()", [](SearchQuery& q) { q.text = "()"; }},
      {"(-b)", [](SearchQuery& q) { q.text = "(-b)"; }},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    SearchQuery expected;
    c.expected(expected);
    EXPECT_EQ(SearchQueryParser::parse(c.line), expected);
  }
}

TEST(SearchQueryParser, digestPastedIn) {
  const auto parse = [](const std::string& line) { return SearchQueryParser::parse(line); };
  for (const std::size_t digits : {16U, 63U, 64U}) {
    SCOPED_TRACE(digits);
    const std::string digest(digits, 'A');
    EXPECT_EQ(parse(digest).digest, digest);
    EXPECT_FALSE(parse(digest).text);
    EXPECT_EQ(parse("from:x " + digest).digest, digest);
    EXPECT_EQ(parse("sha:1 " + digest).text, digest);
    EXPECT_FALSE(parse(digest + " x").digest);
  }
  EXPECT_EQ(parse(std::string(15, 'a')).text, std::string(15, 'a'));
  EXPECT_EQ(parse(std::string(65, 'a')).text, std::string(65, 'a'));
  EXPECT_EQ(parse(std::string(16, 'g')).text, std::string(16, 'g'));
}

TEST(SearchQueryParser, treesStandAlone) {
  const SearchQuery query = SearchQueryParser::parse("year:2023 or from:anna");
  EXPECT_EQ(rendered(query.filter), "any[sentDate after 2023; from contains anna]");
  EXPECT_FALSE(query.text || query.dateFrom || query.from);
  EXPECT_FALSE(query.isEmpty());
}

TEST(SearchQuery, isEmpty) {
  SearchQuery query;
  query.includeErased = true;
  query.sort = SearchSort::mailbox;
  query.offset = 5;
  query.filter = FilterNode::group(
      FilterMatch::all, {FilterNode::rule(FilterField::from, FilterOperator::contains, " ")});
  EXPECT_TRUE(query.isEmpty());
  query.messageIDs.emplace();
  EXPECT_FALSE(query.isEmpty());
}

TEST(FtsExpression, readings) {
  static constexpr struct {
    std::string_view text, expression;
  } kCases[] = {
      {"", "nothing"},
      {"   ", "nothing"},
      {"anna", R"("anna"*)"},
      {"anna  maier", R"("anna"* AND "maier"*)"},
      {"Mueller", R"(("Mueller"* OR "Müller"*))"},
      {"Müller x", R"(("Müller"* OR "Mueller"*) AND "x"*)"},
      {"a or b", R"("a"* OR "b"*)"},
      {"a Not b", R"("a"* NOT "b"*)"},
      {"NOT a", R"("a"*)"},
      {"and", "nothing"},
      {"a AND OR NOT b OR", R"("a"* NOT "b"*)"},
      {"a oder b", R"("a"* AND "oder"* AND "b"*)"},
      // A closed phrase stands as it is, one never closed has its spellings.
      {R"("Herr Mueller" x)", R"("Herr Mueller" AND "x"*)"},
      {R"("Herr Mueller)", R"(("Herr Mueller" OR "Herr Müller"))"},
      {R"(abc"def ghi")", R"("abcdef ghi")"},
      {R"("and" or "or")", R"("and" OR "or")"},
      {R"("" """")", "nothing"},
      {R"(a"")", R"("a")"},
      {R"(a ")", R"("a"*)"},
      {"\"a\"b c", R"("a" AND "b"* AND "c"*)"},
      {"NEAR(a) b* ^c d:e {f}", R"sql("NEAR(a)"* AND "b*"* AND "^c"* AND "d:e"* AND "{f}"*)sql"},
      {std::string_view("a\0b \"c\0d\"", 9), R"("a"* AND "b"* AND "c d")"},
      {"a\tb", "\"a\tb\"*"},
      {"\xff\xc3", "\"\xff\xc3\"*"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(SearchQueryParser::ftsExpression(c.text).value_or("nothing"), c.expression);
  }
  EXPECT_EQ(SearchQueryParser::ftsExpression("a b", {"subject", "body"}),
            R"({subject body} : ("a"* AND "b"*))");
}

TEST(FtsExpression, isBounded) {
  std::string words = "w";
  std::string expected = "\"w\"*";
  for (int i = 1; i < 300; ++i) {
    words += " NOT w";
    if (i < SearchQueryParser::kMaxFullTextTerms) expected += " NOT \"w\"*";
  }
  EXPECT_EQ(SearchQueryParser::ftsExpression(words), expected);
  // A text too long is cut between words where it can be.
  const std::string filler(SearchQueryParser::kMaxFullTextBytes - 2, 'x');
  EXPECT_EQ(SearchQueryParser::ftsExpression(filler + " abc"), "\"" + filler + "\"*");
  EXPECT_EQ(SearchQueryParser::ftsExpression(filler + "yyyy")->size(),
            SearchQueryParser::kMaxFullTextBytes + 3);
}

}  // namespace
}  // namespace ambervane
