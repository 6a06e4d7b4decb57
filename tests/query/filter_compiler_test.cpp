#include "query/filter_compiler.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <string>
#include <vector>

#include "query/query_builder.h"
#include "query/search_query_parser.h"
#include "query/sql_fragments.h"
#include "tests/query/rendering.h"
#include "tests/support/hostile_queries.h"

namespace ambervane {
namespace {

using Field = FilterField;
using Op = FilterOperator;

constexpr QueryContext kContext{
    .supportsFTS = true, .supportsHeaderIndex = true, .now = {1'000'000'000}};

/// "<sql> <- <parameters>", or "nothing".
std::string compiled(const FilterNode& node, const QueryContext& context = kContext) {
  const auto filter = FilterCompiler::compile(node, context);
  if (!filter) return "nothing";
  return filter->params.empty() ? filter->sql : filter->sql + " <- " + rendered(filter->params);
}

struct Case {
  Field field;
  Op op;
  const char* value;
  const char* sql;
};

void check(const std::vector<Case>& cases, const QueryContext& context = kContext) {
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(facts(c.field).name) + " " + std::string(facts(c.op).name) + " " +
                 c.value);
    EXPECT_EQ(compiled(FilterNode::rule(c.field, c.op, c.value), context), c.sql);
  }
}

TEST(FilterCompiler, columnsOfTheMessage) {
  check({
      {Field::subject, Op::contains, " a%_\\ \n",
       "IFNULL(m.subject, '') LIKE ? ESCAPE '\\' <- %a\\%\\_\\\\%"},
      {Field::from, Op::notContains, "a",
       "NOT (IFNULL(m.from_addr, '') LIKE ? ESCAPE '\\') <- %a%"},
      {Field::fromName, Op::isEqual, "100%", "IFNULL(m.from_name, '') = ? COLLATE NOCASE <- 100%"},
      {Field::fromDomain, Op::isNot, "a",
       "NOT (IFNULL(m.from_domain, '') = ? COLLATE NOCASE) <- a"},
      {Field::recipient, Op::beginsWith, "a", "IFNULL(m.to_addrs, '') LIKE ? ESCAPE '\\' <- a%"},
      {Field::cc, Op::endsWith, "a", "IFNULL(m.cc_addrs, '') LIKE ? ESCAPE '\\' <- %a"},
      {Field::participant, Op::isEmpty, "", "IFNULL(m.participants, '') = ''"},
      {Field::messageID, Op::isNotEmpty, "", "IFNULL(m.message_id, '') <> ''"},
      {Field::threadKey, Op::contains, "a", "IFNULL(m.thread_key, '') LIKE ? ESCAPE '\\' <- %a%"},
      {Field::digest, Op::beginsWith, "ABC", "(m.sha256 >= ? AND m.sha256 < ?) <- abc|abcg"},
      {Field::digest, Op::isNot, "abc", "NOT (m.sha256 = ? COLLATE NOCASE) <- abc"},
      {Field::retentionClass, Op::isEqual, "Contract", "m.retention_class = ? <- contract"},
      {Field::retentionClass, Op::isNot, "contract", "m.retention_class <> ? <- contract"},
      {Field::subject, Op::contains, " \n", "nothing"},
      {Field::subject, Op::before, "a", "nothing"},
  });
}

TEST(FilterCompiler, datesNumbersAndStates) {
  check({
      {Field::sentDate, Op::after, "2001-09-09",
       "(m.sent_at IS NOT NULL AND m.sent_at >= ?) <- 999993600s"},
      {Field::sentDate, Op::before, "9.9.2001",
       "(m.sent_at IS NOT NULL AND m.sent_at < ?) <- 999993600s"},
      {Field::ingestedDate, Op::onDate, "2001-09-09",
       "(m.ingested_at IS NOT NULL AND m.ingested_at >= ? AND m.ingested_at < ?) <- "
       "999993600s|1000080000s"},
      {Field::expiryDate, Op::isEmpty, "", "m.expires_at IS NULL"},
      {Field::expiryDate, Op::isNotEmpty, "", "m.expires_at IS NOT NULL"},
      {Field::sentDate, Op::inLastDays, "0.5",
       "(m.sent_at IS NOT NULL AND m.sent_at >= ?) <- 999956800s"},
      {Field::sentDate, Op::notInLastDays, "1",
       "NOT (m.sent_at IS NOT NULL AND m.sent_at >= ?) <- 999913600s"},
      {Field::sentDate, Op::inLastDays, "0", "nothing"},
      {Field::sentDate, Op::inLastDays, "-3", "nothing"},
      {Field::sentDate, Op::inLastDays, "nan", "nothing"},
      {Field::sentDate, Op::after, "soon", "nothing"},
      {Field::sentDate, Op::contains, "2001", "nothing"},
      {Field::size, Op::greaterThan, "1k", "m.size > ? <- 1024"},
      {Field::size, Op::lessThan, "2B", "m.size < ? <- 2"},
      {Field::size, Op::isNot, "1.9", "nothing"},
      {Field::attachmentCount, Op::isEqual, "3", "m.attachment_count = ? <- 3"},
      {Field::attachmentCount, Op::isNot, "3k", "nothing"},
      {Field::attachmentCount, Op::isNot, "-3", "m.attachment_count <> ? <- -3"},
      {Field::hasAttachment, Op::isTrue, "", "m.has_attachments = 1"},
      {Field::hasAttachment, Op::isFalse, "", "m.has_attachments = 0"},
      {Field::isErased, Op::isTrue, "", "m.erased = 1"},
      {Field::isErased, Op::contains, "1", "nothing"},
      {Field::onLegalHold, Op::isFalse, "",
       "NOT EXISTS (SELECT 1 FROM message_hold mh JOIN hold h ON h.id = mh.hold_id WHERE "
       "mh.message_id = m.id AND h.released_at IS NULL)"},
  });
}

TEST(FilterCompiler, whatAMessageHasAnyNumberOf) {
  check({
      {Field::attachmentName, Op::contains, "a",
       "EXISTS (SELECT 1 FROM attachment a WHERE a.message_id = m.id AND a.filename LIKE ? ESCAPE "
       "'\\') <- %a%"},
      {Field::attachmentType, Op::isNot, "a/b",
       "NOT EXISTS (SELECT 1 FROM attachment a WHERE a.message_id = m.id AND a.mime_type = ? "
       "COLLATE NOCASE) <- a/b"},
      {Field::tag, Op::isEmpty, "",
       "NOT EXISTS (SELECT 1 FROM message_tag mt JOIN tag t ON t.id = mt.tag_id WHERE "
       "mt.message_id = m.id AND t.name <> '')"},
      {Field::folder, Op::notContains, "a",
       "NOT EXISTS (SELECT 1 FROM message_folder mf JOIN folder fo ON fo.id = mf.folder_id WHERE "
       "mf.message_id = m.id AND fo.path LIKE ? ESCAPE '\\' AND mf.removed_at IS NULL) <- %a%"},
      {Field::account, Op::isEqual, "a",
       "EXISTS (SELECT 1 FROM message_folder mf JOIN folder fo ON fo.id = mf.folder_id JOIN "
       "account ac ON ac.id = fo.account_id WHERE mf.message_id = m.id AND ac.name = ? COLLATE "
       "NOCASE AND mf.removed_at IS NULL) <- a"},
      {Field::header, Op::contains, "X-Spam-Flag",
       "EXISTS (SELECT 1 FROM message_header mh WHERE mh.message_id = m.id AND mh.name = ?) <- "
       "x-spam-flag"},
      {Field::header, Op::notContains, "X-A: b:c",
       "NOT EXISTS (SELECT 1 FROM message_header mh WHERE mh.message_id = m.id AND mh.name = ? AND "
       "mh.value LIKE ? ESCAPE '\\') <- x-a|%b:c%"},
      {Field::header, Op::isEqual, "X-A :",
       "EXISTS (SELECT 1 FROM message_header mh WHERE mh.message_id = m.id AND mh.name = ?) <- "
       "x-a"},
      {Field::header, Op::contains, ": b", "nothing"},
      {Field::tag, Op::onDate, "2024", "nothing"},
  });
  static constexpr struct {
    const char *typed, *pattern;
  } kFlags[] = {{"seen", "% \\\\Seen %"},
                {"\\SEEN", "% \\\\Seen %"},
                {"$Junk", "% $Junk %"},
                {"a_b", "% a\\_b %"}};
  for (const auto& flag : kFlags) {
    check({{Field::flag, Op::contains, flag.typed,
            ("EXISTS (SELECT 1 FROM message_folder mf WHERE mf.message_id = m.id AND ' ' || "
             "mf.flags || ' ' LIKE ? ESCAPE '\\') <- " +
             std::string(flag.pattern))
                .c_str()}});
  }
}

TEST(FilterCompiler, fullTextAndItsSubstitute) {
  check({
      {Field::anyText, Op::contains, "a b",
       "m.id IN (SELECT rowid FROM message_fts WHERE message_fts MATCH ?) <- \"a\"* AND \"b\"*"},
      {Field::anyText, Op::isNot, "a",
       "NOT m.id IN (SELECT rowid FROM message_fts WHERE message_fts MATCH ?) <- \"a\"*"},
      {Field::anyText, Op::notContains, "and",
       "NOT (m.subject LIKE ? ESCAPE '\\' OR m.participants LIKE ? ESCAPE '\\' OR m.snippet LIKE ? "
       "ESCAPE '\\') <- %and%|%and%|%and%"},
      {Field::anyText, Op::isEmpty, "", "nothing"},
  });
  check({{Field::anyText, Op::beginsWith, "a",
          "(m.subject LIKE ? ESCAPE '\\' OR m.participants LIKE ? ESCAPE '\\' OR m.snippet LIKE ? "
          "ESCAPE '\\') <- %a%|%a%|%a%"},
         {Field::header, Op::contains, "x", "nothing"}},
        {});
}

TEST(FilterCompiler, groups) {
  const auto large = [] { return FilterNode::rule(Field::size, Op::greaterThan, "1"); };
  const auto broken = [] { return FilterNode::rule(Field::size, Op::greaterThan, "x"); };
  const auto erased = [] { return FilterNode::rule(Field::isErased, Op::isTrue); };
  const auto all = FilterMatch::all;
  const auto any = FilterMatch::any;
  const auto none = FilterMatch::none;
  const struct {
    FilterNode tree;
    const char* sql;
  } cases[] = {
      {FilterNode::group(all, {large(), erased()}), "(m.size > ? AND m.erased = 1) <- 1"},
      {FilterNode::group(any, {large(), broken(), erased()}), "(m.size > ? OR m.erased = 1) <- 1"},
      {FilterNode::group(none, {large(), erased()}), "NOT (m.size > ? OR m.erased = 1) <- 1"},
      {FilterNode::group(none, {broken()}), "nothing"},
      {FilterNode::group(all, {FilterNode::group(none, {broken()}), large()}), "(m.size > ?) <- 1"},
      {FilterNode::group(any, {}), "nothing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(rendered(c.tree));
    EXPECT_EQ(compiled(c.tree), c.sql);
  }
}

TEST(FilterCompiler, patternsThatLikeRefusesFindNothing) {
  QueryValues params;
  EXPECT_EQ(like("a", std::string(kMaxLikePatternBytes, 'a'), params), "a LIKE ? ESCAPE '\\'");
  EXPECT_EQ(params.size(), 1U);
  EXPECT_EQ(compiled(FilterNode::rule(Field::subject, Op::notContains,
                                      std::string(kMaxLikePatternBytes, 'a'))),
            "NOT (0)");
}

TEST(FilterCompiler, tooManyConditionsFindNothing) {
  std::vector<FilterNode> rules;
  for (int i = 0; i < FilterCompiler::kMaxFilterConditions / 2; ++i) {
    rules.push_back(FilterNode::rule(Field::size, Op::lessThan, std::to_string(i)));
    rules.push_back(FilterNode::group(
        FilterMatch::none, {FilterNode::rule(Field::cc, Op::isEqual, std::to_string(i))}));
  }
  const auto most = FilterCompiler::compile(FilterNode::group(FilterMatch::any, rules), kContext);
  ASSERT_TRUE(most);
  // Joined in another order than a plain chain, each "?" must still meet a value of its own.
  std::size_t marks = 0;
  for (std::size_t at = most->sql.find('?'); at < most->sql.size();
       at = most->sql.find('?', at + 1)) {
    const bool isText = most->sql.compare(at - 2, 2, "= ") == 0;
    ASSERT_EQ(std::holds_alternative<std::string>(most->params.at(marks++)), isText) << at;
  }
  EXPECT_EQ(marks, rules.size());
  EXPECT_EQ(most->params.size(), rules.size());
  rules.push_back(FilterNode::rule(Field::isErased, Op::isTrue));
  EXPECT_EQ(compiled(FilterNode::group(FilterMatch::any, rules)), "0");
}

/// What SQLite itself says of a condition on headers; empty when it takes it.
std::string refusal(const std::string& condition) {
  sqlite3* database = nullptr;
  sqlite3_open(":memory:", &database);
  const char* const schema =
      "CREATE TABLE message(id INTEGER PRIMARY KEY, erased INTEGER);"
      "CREATE TABLE message_header(message_id INTEGER, name TEXT, value TEXT)";
  EXPECT_EQ(sqlite3_exec(database, schema, nullptr, nullptr, nullptr), SQLITE_OK);
  const std::string count = filterCountSql(condition, 10);
  sqlite3_stmt* statement = nullptr;
  const bool taken = sqlite3_prepare_v2(database, count.c_str(), -1, &statement, nullptr) == 0;
  std::string words = taken ? "" : sqlite3_errmsg(database);
  sqlite3_finalize(statement);
  sqlite3_close(database);
  return words;
}

TEST(FilterCompiler, deepTreesStayInReach) {
  for (const int width : {1, 480, 490, 4000}) {
    SCOPED_TRACE(width);
    const auto whole = FilterCompiler::compile(deepestFilter(kMaxFilterDepth, width), kContext);
    ASSERT_TRUE(whole);
    EXPECT_EQ(refusal(whole->sql), "");
    // Deeper, the conditions at the bottom drop out, and the rest stays.
    const auto cut = FilterCompiler::compile(deepestFilter(kMaxFilterDepth + 50, width), kContext);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->params.size(), std::size_t{4 * (kMaxFilterDepth - 1)});
  }
}

TEST(HostileQueries, becomeBoundedStatements) {
  for (const HostileQuery& hostile : hostileQueries()) {
    SCOPED_TRACE(hostile.name);
    const SearchQuery query = SearchQueryParser::parse(hostile.line);
    for (const bool supportsFTS : {true, false}) {
      const BuiltQuery built = buildQuery(query, {supportsFTS, true, true, {}});
      EXPECT_LE(built.params.size(), 15'100U);
      EXPECT_EQ(std::count(built.where.begin(), built.where.end(), '?'), std::ssize(built.params));
      EXPECT_EQ(std::count(built.where.begin(), built.where.end(), '\'') % 2, 0);
    }
  }
}

}  // namespace
}  // namespace ambervane
