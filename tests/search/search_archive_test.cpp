#include "search/search_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "query/query_builder.h"
#include "query/search_query_parser.h"
#include "search/search_index.h"
#include "search/smart_folders.h"
#include "store/query_context.h"
#include "store/tagging.h"
#include "tests/support/file_faults.h"
#include "tests/support/hostile_queries.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::vector<Bytes> mails() {
  return {
      plainMail(1, "Offerte Müller", "Die Straße nach Zürich.\r\n"),
      plainMail(2, "Rechnung", "Herr Mueller wohnt in Zuerich.\r\n"),
      mailWithFiles(3, {{"Plan Größe.pdf", noise(5000)}}),
      "From: =?utf-8?q?Zo=C3=AB?= <zoe@example.com>\r\nSubject: Ohne Datum\r\n\r\nTagblatt\r\n"};
}

class SearchArchive : public testing::Test {
 protected:
  SearchArchive() { archive_.ingest(mails()); }
  SearchResult search(const std::string& line) {
    return searchArchive(*archive_, SearchQueryParser::parse(line));
  }
  std::vector<std::int64_t> found(const std::string& line) {
    std::vector<std::int64_t> ids;
    for (const SearchHit& hit : search(line).hits) ids.push_back(hit.message.id);
    return ids;
  }
  TestArchive archive_;
};

TEST_F(SearchArchive, findsByTextFieldsAndTrees) {
  static const struct {
    std::string line;
    std::vector<std::int64_t> ids;
  } kCases[] = {
      {"", {3, 2, 1, 4}},
      {"Müller", {2, 1}},
      {"mueller zürich", {2, 1}},
      {"strasse", {1}},
      {"Strasse or rechnung", {2, 1}},
      {"\"nach zurich\"", {1}},
      {"groesse", {3}},
      {"groe", {3}},
      {"from:zoë", {4}},
      {"has:attachment", {3}},
      {"not müller", {3, 4}},
      {"tagblatt rechnung", {}},
      {"header:date or from:zoe", {3, 2, 1, 4}},
      {"AND", {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(found(c.line), c.ids);
  }
  const SearchResult result = search("rechnung");
  EXPECT_TRUE(result.usedFullText);
  EXPECT_LT(result.hits.front().rank, 0);
  EXPECT_EQ(result.hits.front().highlight, "Herr Mueller wohnt in Zuerich.");
}

TEST_F(SearchArchive, countsBeyondThePage) {
  SearchQuery query;
  query.limit = 2;
  EXPECT_EQ(searchArchive(*archive_, query).totalMatches, 4);
  query.offset = 3;
  EXPECT_EQ(searchArchive(*archive_, query).totalMatches, 4);
  query.offset = 9;
  EXPECT_EQ(searchArchive(*archive_, query).totalMatches, 4);
  query.limit = 0;
  EXPECT_EQ(searchArchive(*archive_, query).totalMatches, 4);
  SearchResult result;
  result.totalMatches = 1234567;
  EXPECT_EQ(result.displayCount(), "1,234,567");
  result.totalMatches = kCountCap;
  result.countIsExact = false;
  EXPECT_EQ(result.displayCount(), "50,000+");
}

TEST_F(SearchArchive, isJournalledWhenItNarrowsAnything) {
  search("");
  SearchQuery silent;
  silent.text = "a";
  silent.recordInJournal = false;
  searchArchive(*archive_, silent);
  EXPECT_THAT(archive_.entries(AuditAction::searchPerformed), IsEmpty());
  search("müller");
  archive_.reopen(OpenMode::readOnly);
  search("from:zoe");
  {
    const FullDisk full(0);
    EXPECT_THAT(found("from:zoe"), ElementsAre(4));
  }
  const auto entries = archive_.entries(AuditAction::searchPerformed);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].subject, "müller");
  EXPECT_THAT(entries[0].details, ElementsAre(Pair("hits", "2"), Pair("limit", "200")));
  EXPECT_EQ(entries[1].subject, "(filters only)");
}

TEST_F(SearchArchive, noLineIsAnError) {
  for (const HostileQuery& hostile : hostileQueries()) {
    SCOPED_TRACE(hostile.name);
    const SearchQuery query = SearchQueryParser::parse(hostile.line);
    EXPECT_NO_THROW(searchArchive(*archive_, query));
    EXPECT_NO_THROW(selectedMessageIDs(*archive_, query));
    const auto filter = filterFromQuery(query);
    if (!filter) continue;
    EXPECT_NO_THROW(smartFolderCount(*archive_, *filter));
    EXPECT_NO_THROW(mailboxBreakdown(*archive_, *filter));
    const TagRule rule{.id = "r", .name = "r", .filter = *filter, .tag = "t"};
    EXPECT_NO_THROW(applyTagRules(*archive_, 1, {rule}, "rule"));
  }
}

/// The first page of what finds almost everything comes from an index in its order, and parts of
/// senders and subjects are looked for in an index alone.
TEST_F(SearchArchive, broadQueriesDoNotSortTheArchive) {
  static constexpr struct {
    const char* line;
    const char* plan;
  } kCases[] = {{"", "COVERING INDEX idx_message_"},
                {"has:attachment", "INDEX idx_message_"},
                {"from:a", "COVERING INDEX idx_message_look"},
                {"subject:a", "COVERING INDEX idx_message_look"},
                {"after:2020-01-01", "COVERING INDEX idx_message_"},
                {"folder:INBOX", "INDEX idx_message_"}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    const BuiltQuery built =
        buildQuery(SearchQueryParser::parse(c.line), {.supportsFTS = true, .now = kTestTime});
    SQLBindings nulls(built.hitsParams().size(), SQLBinding(nullptr));
    std::string sql = built.hitsSql();
    sql.replace(sql.find("m.*"), 3, "m.id");
    std::string plan;
    for (const Row& row :
         archive_->catalog().database().query("EXPLAIN QUERY PLAN " + sql, nulls)) {
      plan += row.string("detail") + "\n";
    }
    EXPECT_THAT(plan, testing::HasSubstr(c.plan));
    EXPECT_THAT(plan, testing::Not(testing::HasSubstr("TEMP B-TREE FOR ORDER BY")));
  }
}

TEST_F(SearchArchive, fullTextFindsTheSameWithAndWithoutItsIndex) {
  ASSERT_TRUE(archive_->catalog().supportsHitIndex());
  for (const char* const line : {"a", "e has:attachment", "a from:a", "a before:2024-06-01"}) {
    SCOPED_TRACE(line);
    const SearchQuery query = SearchQueryParser::parse(line);
    QueryContext context = queryContext(*archive_);
    const auto found = [&] {
      const BuiltQuery built = buildQuery(query, context);
      std::vector<std::int64_t> ids;
      for (const Row& row :
           archive_->catalog().database().query("SELECT m.id AS id " + built.from + " " +
                                                    built.joins + built.where + " " + built.order,
                                                bindingsOf(built.params))) {
        ids.push_back(row.integer("id"));
      }
      return ids;
    };
    const auto with = found();
    context.supportsHitIndex = false;
    EXPECT_EQ(with, found());
    EXPECT_FALSE(with.empty());
  }
}

TEST_F(SearchArchive, theRebuiltIndexHoldsWhatTheFirstDid) {
  const auto words = [this] {
    std::vector<std::string> lines;
    SQLiteDatabase& database = archive_->catalog().database();
    database.execute(
        "CREATE VIRTUAL TABLE temp.words USING fts5vocab(main, message_fts, instance)");
    for (const Row& row :
         database.query("SELECT term, doc, col FROM temp.words ORDER BY doc, col, term")) {
      lines.push_back(row.string("term") + " " + row.string("doc") + " " + row.string("col"));
    }
    database.execute("DROP TABLE temp.words");
    return lines;
  };
  const auto before = words();
  ASSERT_FALSE(before.empty());
  archive_->catalog().removeFromIndex(2);
  std::vector<std::int64_t> reported;
  const ReindexSummary summary =
      rebuildSearchIndex(*archive_, [&reported](std::int64_t done, std::int64_t total) {
        EXPECT_EQ(total, 4);
        reported.push_back(done);
      });
  EXPECT_EQ(summary.messages, 4);
  EXPECT_EQ(summary.unreadable, 0);
  EXPECT_EQ(reported, (std::vector<std::int64_t>{1, 2, 3, 4}));
  EXPECT_EQ(words(), before);
  const auto entry = archive_.entries(AuditAction::integrityVerified).back();
  EXPECT_EQ(entry.subject, "search-index");
  EXPECT_THAT(entry.details,
              ElementsAre(Pair("reason", "index rules changed"), Pair("reindexed", "4")));
}

TEST_F(SearchArchive, aRebuildGoesPastUnreadableMessagesAndFailsWhole) {
  SQLiteDatabase& database = archive_->catalog().database();
  database.run("UPDATE message SET pack_offset = 3 WHERE id = 1");
  database.run("UPDATE message SET erased = 1 WHERE id = 4");
  {
    const FullDisk full(0);
    EXPECT_THROW(rebuildSearchIndex(*archive_, nullptr), FileError);
  }
  EXPECT_THAT(found("müller"), ElementsAre(2, 1));
  const ReindexSummary summary = rebuildSearchIndex(*archive_, nullptr);
  EXPECT_EQ(summary.messages, 3);
  EXPECT_EQ(summary.unreadable, 1);
  EXPECT_THAT(found("müller"), ElementsAre(2));
  EXPECT_THAT(found("tagblatt is:erased"), IsEmpty());
  archive_.reopen(OpenMode::readOnly);
  EXPECT_EQ(rebuildSearchIndex(*archive_, nullptr).messages, 0);
}

}  // namespace
}  // namespace ambervane
