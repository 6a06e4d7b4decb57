#include "search/archive_query.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string refusal(const std::string& sql) {
  try {
    ArchiveQuery::check(sql);
    return "";
  } catch (const ArchiveQuery::Failure& failure) {
    return failure.message().text();
  }
}

TEST(ArchiveQuery, check) {
  static const struct {
    const char* name;
    std::string sql, refusal;  // the beginning of the refusal
  } kCases[] = {
      {"finalSemicolon", "select 1;", ""},
      {"semicolonsAndBlanks", " \n select 1 ; ; ", ""},
      {"two", "select 1; select 2", "One statement at a time."},
      {"semicolonInQuotes", "select ';'", ""},
      {"semicolonBetweenWords", "select ';x'", "One statement at a time."},
      {"with", "WITH x AS (SELECT 1) SELECT * FROM x", ""},
      {"noBlankBehind", "select*from tag", ""},
      {"longerWords", "SELECT updated, last_update, created_at FROM t", ""},
      {"wordInQuotes", "SELECT 'update'", "update is not available here."},
      {"wordAtEnd", "select 1 as Replace", "replace is not available here."},
      {"digitBehind", "select drop1 from t", "drop is not available here."},
      {"kelvinSign", "select ROLLBAC\u212a", "rollback is not available here."},
      {"firstOfTwo", "select delete, attach", "attach is not available here."},
      {"empty", " ; \n", "Only SELECT is allowed here; this statement starts with nothing."},
      {"delete", "DELETE FROM message",
       "Only SELECT is allowed here; this statement starts with delete."},
      {"comment", "-- x\nselect 1", "Only SELECT is allowed here; this statement starts with --."},
      {"explain", "explain select 1",
       "Only SELECT is allowed here; this statement starts with explain."},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string text = refusal(c.sql);
    if (std::string(c.name) == "semicolonInQuotes") {
      EXPECT_THAT(text, StartsWith("One statement at a time."));
    } else if (c.refusal.empty()) {
      EXPECT_EQ(text, "");
    } else {
      EXPECT_THAT(text, StartsWith(c.refusal));
    }
  }
}

/// What the second fence must hold by itself, whatever a check of the text lets through.
TEST(ArchiveQuery, theConnectionReachesNothingButTheCatalog) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  const auto outside = archive.path().parent_path() / "outside.sqlite";
  { SQLiteDatabase(outside, SQLiteDatabase::Mode::readWrite, "x").execute("CREATE TABLE t(x)"); }
  const std::string kRefused[] = {
      "ATTACH '" + outside.native() + "' AS o",
      "DETACH main",
      "PRAGMA user_version",
      "PRAGMA writable_schema = 1",
      "PRAGMA query_only = 0",
      "SELECT * FROM pragma_database_list",
      "SELECT load_extension('" + outside.native() + "')",
      "SELECT readfile('/etc/hostname')",
      "SELECT writefile('" + outside.native() + "', 'x')",
      "SELECT fts3_tokenizer('simple')",
      "INSERT INTO tag(name, created_at) VALUES('a', 0)",
      "INSERT INTO message_fts(message_fts) VALUES('optimize')",
      "UPDATE message SET subject = ''",
      "DELETE FROM message",
      "WITH x AS (SELECT 1) DELETE FROM message",
      "CREATE TABLE z(x)",
      "CREATE TEMP TABLE z(x)",
      "CREATE VIRTUAL TABLE temp.v USING fts5vocab(main, message_fts, row)",
      "DROP TABLE message",
      "REINDEX",
      "ANALYZE",
      "VACUUM INTO '" + outside.native() + "2'",
      "BEGIN",
      "SAVEPOINT a",
      "SELECT * FROM temp.sqlite_master",
      "SELECT zeroblob(1000000000)",
  };
  for (const auto mode : {SQLiteDatabase::Mode::neverWriting, SQLiteDatabase::Mode::readOnly}) {
    const auto fenced =
        SQLiteDatabase::reading(archive.path() / "catalog.sqlite", "test", false, mode);
    fenced->fence(kQueryTime);
    for (const std::string& sql : kRefused) {
      EXPECT_THROW(fenced->query(sql), SQLiteError) << sql;
    }
    EXPECT_EQ(fenced->count("SELECT COUNT(*) FROM message_fts WHERE message_fts MATCH 'ware'"), 1);
    EXPECT_EQ(fenced
                  ->query("SELECT bm25(message_fts) FROM message_fts WHERE message_fts MATCH "
                          "'ware'")
                  .size(),
              1U);
  }
  EXPECT_FALSE(std::filesystem::exists(outside.native() + "2"));
}

TEST(ArchiveQuery, rowsComeAsTextAndAreJournalled) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2), plainMail(3)});
  archive.reopen(OpenMode::readOnly);
  const std::string sql =
      "SELECT id, id + 0.5 AS half, NULL AS none, x'00ff' AS bytes FROM message ORDER BY id";
  const auto result = runQuery(*archive, sql, 2, "anna");
  EXPECT_THAT(result.columns, ElementsAre("id", "half", "none", "bytes"));
  EXPECT_THAT(result.rows, ElementsAre(ElementsAre("1", "1.5", "", "00ff"),
                                       ElementsAre("2", "2.5", "", "00ff")));
  EXPECT_TRUE(result.truncated);
  EXPECT_FALSE(runQuery(*archive, sql, 3, "anna").truncated);
  EXPECT_THAT(runQuery(*archive, "SELECT 1 AS one WHERE 0", 9, "anna").columns, ElementsAre("one"));
  const auto entry = archive.entries(AuditAction::searchPerformed).front();
  EXPECT_EQ(entry.subject, "sql");
  EXPECT_EQ(entry.actor, "anna");
  EXPECT_THAT(entry.details,
              ElementsAre(testing::Pair("rows", "2"), testing::Pair("statement", sql),
                          testing::Pair("truncated", "true")));
  try {
    runQuery(*archive, "SELECT nonsense", 9, "anna");
    FAIL();
  } catch (const SQLiteError& error) {
    EXPECT_THAT(error.what(), HasSubstr("no such column: nonsense"));
  }
}

TEST(ArchiveQuery, isStoppedWhenItsTimeIsOver) {
  TestArchive archive;
  try {
    runQuery(*archive,
             "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) SELECT COUNT(*) FROM "
             "n",
             9, "anna", std::chrono::milliseconds(50));
    FAIL();
  } catch (const ArchiveQuery::Failure& failure) {
    EXPECT_EQ(failure.message().text(),
              "The statement was stopped, because it was not done after 0.05 seconds.");
  }
}

TEST(ArchiveQuery, schema) {
  TestArchive archive;
  archive.reopen(OpenMode::readOnly);
  const auto tables = catalogSchema(*archive);
  const auto tag = std::find_if(tables.begin(), tables.end(),
                                [](const CatalogTable& table) { return table.name == "tag"; });
  ASSERT_NE(tag, tables.end());
  EXPECT_THAT(tag->columns, ElementsAre("id", "name", "colour", "created_at"));
}

}  // namespace
}  // namespace ambervane
