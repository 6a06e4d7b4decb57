#include "query/query_builder.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/query/rendering.h"

namespace ambervane {
namespace {

constexpr QueryContext kFullText{.supportsFTS = true, .supportsHeaderIndex = true, .now = {0}};
constexpr QueryContext kNoFullText{};

using Set = std::function<void(SearchQuery&)>;

BuiltQuery built(const Set& set, const QueryContext& context = kFullText) {
  SearchQuery query;
  set(query);
  return buildQuery(query, context);
}

TEST(BuildQuery, clauses) {
  const std::string digest(64, 'A');
  const struct {
    const char* name;
    Set set;
    std::string where, params;
  } cases[] = {
      {"nothing", [](auto& q) { q.text = " \n"; }, "", ""},
      {"operatorsOnly", [](auto& q) { q.text = " and "; },
       "(m.subject LIKE ? ESCAPE '\\' OR m.participants LIKE ? ESCAPE '\\' OR m.snippet LIKE ? "
       "ESCAPE '\\')",
       "%and%|%and%|%and%"},
      {"subject", [](auto& q) { q.subject = "50%_\\"; }, "m.subject LIKE ? ESCAPE '\\'",
       "%50\\%\\_\\\\%"},
      {"from", [](auto& q) { q.from = "ANNA Ä"; },
       "(m.from_addr LIKE ? ESCAPE '\\' OR m.from_name LIKE ? ESCAPE '\\')", "%anna ä%|%ANNA Ä%"},
      {"recipient", [](auto& q) { q.recipient = "B"; },
       "(m.to_addrs LIKE ? ESCAPE '\\' OR m.cc_addrs LIKE ? ESCAPE '\\')", "%B%|%B%"},
      {"participant", [](auto& q) { q.participant = "B"; }, "m.participants LIKE ? ESCAPE '\\'",
       "%b%"},
      {"dates", [](auto& q) { q.dateFrom = Date{1}, q.dateTo = Date{2}; },
       "m.sent_at >= ? AND m.sent_at < ?", "1s|2s"},
      {"attachment", [](auto& q) { q.hasAttachment = true; }, "m.has_attachments = 1", ""},
      {"noAttachment", [](auto& q) { q.hasAttachment = false; }, "m.has_attachments = 0", ""},
      {"filename", [](auto& q) { q.filename = "x"; },
       "EXISTS (SELECT 1 FROM attachment a WHERE a.message_id = m.id AND a.filename LIKE ? ESCAPE "
       "'\\')",
       "%x%"},
      {"sizes", [](auto& q) { q.minSize = 1, q.maxSize = 2; }, "m.size >= ? AND m.size <= ?",
       "1|2"},
      {"digest", [&](auto& q) { q.digest = digest; }, "m.sha256 = ?", std::string(64, 'a')},
      {"digestPrefix", [](auto& q) { q.digest = "AB"; }, "(m.sha256 >= ? AND m.sha256 < ?)",
       "ab|abg"},
      {"noDigest", [](auto& q) { q.digest = ""; }, "", ""},
      {"class", [](auto& q) { q.retentionClass = "Contract"; }, "m.retention_class = ?",
       "Contract"},
      {"held", [](auto& q) { q.onLegalHold = true; },
       "EXISTS (SELECT 1 FROM message_hold mh JOIN hold h ON h.id = mh.hold_id WHERE "
       "mh.message_id = m.id AND h.released_at IS NULL)",
       ""},
      {"notHeld", [](auto& q) { q.onLegalHold = false; }, "", ""},
      {"expiring", [](auto& q) { q.expiringBefore = Date{3}; },
       "m.expires_at IS NOT NULL AND m.expires_at <= ?", "3s"},
      {"noMessages", [](auto& q) { q.messageIDs.emplace(); }, "0", ""},
      {"messages",
       [](auto& q) {
         q.messageIDs = {7, 8};
       },
       "m.id IN (?,?)", "7|8"},
      {"filter",
       [](auto& q) {
         q.filter = FilterNode::rule(FilterField::size, FilterOperator::lessThan, "5");
         q.minSize = 1;
       },
       "m.size >= ? AND m.erased = 0 AND m.size < ?", "1|5"},
      {"filterWithoutRules",
       [](auto& q) {
         q.filter = FilterNode::rule(FilterField::size, FilterOperator::lessThan, " ");
       },
       "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const BuiltQuery query = built(c.set);
    const bool placesErased = c.where.find("erased") != std::string::npos;
    EXPECT_EQ(query.where, " WHERE " + c.where +
                               (placesErased      ? ""
                                : c.where.empty() ? "m.erased = 0"
                                                  : " AND m.erased = 0"));
    EXPECT_EQ(rendered(query.params), c.params);
    EXPECT_EQ(query.from, "FROM message m");
    EXPECT_EQ(query.joins + query.distinct, "");
    EXPECT_FALSE(query.usedFullText);
  }
  EXPECT_EQ(built([](auto& q) { q.includeErased = true; }).where, "");
}

TEST(BuildQuery, fullText) {
  const Set text = [](auto& q) { q.text = " anna \"b c\" "; };
  const BuiltQuery query = built(text);
  EXPECT_EQ(query.from, "FROM message_fts JOIN message m ON m.id = message_fts.rowid");
  EXPECT_EQ(query.where, " WHERE message_fts MATCH ? AND m.erased = 0");
  EXPECT_TRUE(query.usedFullText);
  EXPECT_EQ(query.matchExpression, "\"anna\"* AND \"b c\"");
  EXPECT_EQ(rendered(query.params), query.matchExpression);
  const BuiltQuery without = built(text, kNoFullText);
  EXPECT_EQ(without.from, "FROM message m");
  EXPECT_EQ(rendered(without.params), "%anna \"b c\"%|%anna \"b c\"%|%anna \"b c\"%");
  EXPECT_FALSE(without.usedFullText);
}

TEST(BuildQuery, whatFullTextFindsIsLookedUpInItsIndex) {
  constexpr QueryContext kWithIndex{.supportsFTS = true, .supportsHitIndex = true, .now = {}};
  const struct {
    const char* name;
    Set set;
    bool isEnough;
  } cases[] = {
      {"text", [](auto&) {}, true},
      {"facts", [](auto& q) { q.from = "a", q.hasAttachment = true, q.dateTo = Date{9}; }, true},
      {"bySize", [](auto& q) { q.sort = SearchSort::sizeDescending, q.minSize = 5; }, true},
      {"subject", [](auto& q) { q.subject = "a"; }, false},
      {"erased", [](auto& q) { q.includeErased = true; }, false},
      {"folder", [](auto& q) { q.folderID = 7; }, false},
      {"bySender", [](auto& q) { q.sort = SearchSort::sender; }, false},
      {"noText", [](auto& q) { q.text.reset(); }, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SearchQuery query;
    query.text = "x";
    c.set(query);
    const std::string from = buildQuery(query, kWithIndex).from;
    EXPECT_EQ(from.find("INDEXED BY idx_message_hit") != std::string::npos, c.isEnough) << from;
  }
}

TEST(BuildQuery, folders) {
  const BuiltQuery one = built([](auto& q) {
    q.text = "x";
    q.folderID = 7;
    q.folder = "ignored";
    q.accountID = 9;
  });
  EXPECT_EQ(one.joins, "JOIN message_folder mf ON mf.message_id = m.id AND mf.folder_id = ?");
  EXPECT_EQ(one.where, " WHERE message_fts MATCH ? AND mf.removed_at IS NULL AND m.erased = 0");
  // The join's "?" comes first in the statement.
  EXPECT_EQ(rendered(one.params), "7|\"x\"*");
  EXPECT_EQ(one.distinct, "");
  const BuiltQuery named = built([](auto& q) {
    q.folder = "Sent";
    q.accountID = 9;
  });
  EXPECT_EQ(named.joins,
            "JOIN message_folder mf ON mf.message_id = m.id JOIN folder fo ON fo.id = "
            "mf.folder_id");
  EXPECT_EQ(named.where,
            " WHERE fo.path LIKE ? ESCAPE '\\' AND fo.account_id = ? AND m.erased = 0");
  EXPECT_EQ(rendered(named.params), "%Sent%|9");
  EXPECT_EQ(named.distinct, "DISTINCT ");
}

TEST(BuildQuery, manyMessagesTakeOneParameter) {
  SearchQuery query;
  query.messageIDs.emplace(kMaxBoundMessageIDs, 5);
  EXPECT_EQ(buildQuery(query, kFullText).params.size(), kMaxBoundMessageIDs);
  query.messageIDs->push_back(-6);
  const BuiltQuery many = buildQuery(query, kFullText);
  EXPECT_EQ(many.where, " WHERE m.id IN (SELECT value FROM json_each(?)) AND m.erased = 0");
  ASSERT_EQ(many.params.size(), 1U);
  EXPECT_TRUE(rendered(many.params).starts_with("[5,5,"));
  EXPECT_TRUE(rendered(many.params).ends_with(",5,-6]"));
}

TEST(BuildQuery, order) {
  static constexpr struct {
    SearchSort sort;
    const char *everywhere, *inFolder;
  } kCases[] = {
      {SearchSort::dateDescending, "ORDER BY m.sent_at DESC NULLS LAST, m.id DESC",
       "ORDER BY mf.sent_at DESC NULLS LAST, mf.message_id DESC"},
      {SearchSort::dateAscending, "ORDER BY m.sent_at ASC NULLS LAST, m.id ASC",
       "ORDER BY mf.sent_at ASC NULLS LAST, mf.message_id ASC"},
      {SearchSort::mailbox,
       "ORDER BY (SELECT MIN(f.path) FROM message_folder mf2 JOIN folder f ON f.id = mf2.folder_id "
       "WHERE mf2.message_id = m.id AND mf2.removed_at IS NULL) COLLATE NOCASE ASC NULLS LAST, "
       "m.sent_at DESC",
       "ORDER BY mf.sent_at DESC NULLS LAST"},
      {SearchSort::relevance, "ORDER BY m.sent_at DESC", "ORDER BY m.sent_at DESC"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(facts(c.sort).name);
    EXPECT_EQ(searchSortFromName(facts(c.sort).name), c.sort);
    EXPECT_EQ(built([&](auto& q) { q.sort = c.sort; }).order, c.everywhere);
    EXPECT_EQ(built([&](auto& q) { q.sort = c.sort, q.folderID = 1; }).order, c.inFolder);
  }
  EXPECT_EQ(built([](auto& q) { q.sort = SearchSort::relevance, q.text = "x"; }).order,
            "ORDER BY bm25(message_fts, 8.0, 4.0, 1.0, 3.0) ASC");
}

TEST(BuildQuery, statements) {
  const BuiltQuery query = built([](auto& q) {
    q.text = "x";
    q.folder = "f";
    q.limit = 50;
    q.offset = 100;
  });
  EXPECT_EQ(query.hitsSql(),
            "SELECT DISTINCT m.*, bm25(message_fts, 8.0, 4.0, 1.0, 3.0) AS rank FROM message_fts "
            "JOIN message m ON m.id = message_fts.rowid JOIN message_folder mf ON mf.message_id = "
            "m.id JOIN folder fo ON fo.id = mf.folder_id WHERE message_fts MATCH ? AND fo.path "
            "LIKE ? ESCAPE '\\' AND m.erased = 0 ORDER BY m.sent_at DESC NULLS LAST, m.id DESC "
            "LIMIT ? OFFSET ?");
  EXPECT_EQ(rendered(query.hitsParams()), "\"x\"*|%f%|50|100");
  EXPECT_EQ(built([](auto&) {}).countSql(),
            "SELECT COUNT(*) AS n FROM (\n    SELECT m.id FROM message m  WHERE m.erased = 0 LIMIT "
            "50000\n)");
  EXPECT_EQ(filterCountSql("m.size > ?", 9),
            "SELECT COUNT(*) AS n FROM (\n    SELECT m.id FROM message m WHERE m.erased = 0 AND "
            "m.size > ? LIMIT 9\n)");
}

}  // namespace
}  // namespace ambervane
