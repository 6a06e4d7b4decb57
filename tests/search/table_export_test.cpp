#include "search/table_export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/file.h"
#include "query/search_query_parser.h"
#include "store/tagging.h"
#include "tests/support/file_faults.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

using TableExport::Format;
using testing::HasSubstr;
using testing::StartsWith;

TEST(TableExport, escape) {
  static const struct {
    const char* name;
    std::string value, csv, tsv, sql;
  } kCases[] = {
      {"plain", "Müller", "Müller", "Müller", "'Müller'"},
      {"empty", "", "", "", "''"},
      {"formula", "=SUM(A1)", "'=SUM(A1)", "'=SUM(A1)", "'=SUM(A1)'"},
      {"negative", "-12.5", "-12.5", "-12.5", "'-12.5'"},
      {"positive", "+5", "+5", "+5", "'+5'"},
      {"telephone", "+41 44 000 00 00", "'+41 44 000 00 00", "'+41 44 000 00 00",
       "'+41 44 000 00 00'"},
      {"at", "@a,b", "\"'@a,b\"", "'@a,b", "'@a,b'"},
      {"tab", "\tx\ty", "'\tx\ty", "' x y", "'\tx\ty'"},
      {"quotes", "a\"b'c", "\"a\"\"b'c\"", "a\"b'c", "'a\"b''c'"},
      {"lines", "a\r\nb\nc\rd", "\"a\r\nb\nc\rd\"", "a b c d", "'a\r\nb\nc\rd'"},
      {"leadingReturn", "\r\n=1", "\"'\r\n=1\"", "' =1", "'\r\n=1'"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(TableExport::escape(c.value, Format::csv), c.csv);
    EXPECT_EQ(TableExport::escape(c.value, Format::tsv), c.tsv);
    EXPECT_EQ(TableExport::escape(c.value, Format::sql), c.sql);
  }
}

class ExportTable : public testing::Test {
 protected:
  ExportTable() {
    archive_.ingest({plainMail(1, "=cmd"), mailWithFiles(2, {{"b.pdf", "x"}, {"a.pdf", "y"}})},
                    "A");
    archive_.ingest({plainMail(1, "=cmd")}, "B");
    applyTag(*archive_, "it's", "blue", {1}, "anna");
    archive_->catalog().database().run("UPDATE message SET sha256 = 'd' || id, stored_size = 7");
  }
  std::string exported(Format format, const std::string& line) {
    outcome_ = exportTable(*archive_, path_, format, SearchQueryParser::parse(line), "message", {});
    return readFile(path_);
  }
  TestArchive archive_;
  const std::filesystem::path path_ = archive_.path().parent_path() / "table.out";
  TableExport::Outcome outcome_;
};

TEST_F(ExportTable, csv) {
  const std::string size1 = std::to_string(plainMail(1, "=cmd").size());
  const std::string size2 =
      std::to_string(mailWithFiles(2, {{"b.pdf", "x"}, {"a.pdf", "y"}}).size());
  EXPECT_EQ(
      exported(Format::csv, ""),
      "id,sha256,message_id,sent_at,from_name,from_address,to_addresses,cc_addresses,subject,"
      "size_bytes,stored_bytes,attachment_count,retention_class,expires_at,erased,mailboxes,tags,"
      "attachments\r\n"
      "2,d2,f2@example.com,2024-02-06T10:00:00Z,,carla@example.ch,dora@example.org,,Offerte 2," +
          size2 +
          ",7,2,business,2034-12-31T23:59:59Z,0,A,,b.pdf | a.pdf\r\n"
          "1,d1,m1@example.com,2024-02-05T09:00:00Z,Anna Beispiel,anna@example.com,"
          "bert@example.org,,'=cmd 1," +
          size1 + ",7,0,business,2034-12-31T23:59:59Z,0,A | B,it's,\r\n");
  EXPECT_EQ(outcome_.rows, 2);
  EXPECT_EQ(outcome_.bytes, static_cast<std::int64_t>(readFile(path_).size()));
  const auto entry = archive_.entries(AuditAction::messageExported).front();
  EXPECT_THAT(
      entry.details,
      testing::ElementsAre(testing::Pair("file", path_.native()), testing::Pair("format", "csv"),
                           testing::Pair("rows", "2"), testing::Pair("table", "message")));
}

TEST_F(ExportTable, sqlRunsAndHoldsTheSame) {
  const std::string text = exported(Format::sql, "from:anna");
  EXPECT_THAT(text, StartsWith("-- Ambervane export of Test ["));
  EXPECT_THAT(text, HasSubstr("]\n-- 2026-03-01T10:15:30Z\n-- Metadata only: the messages "
                              "themselves stay in the archive. `sha256` ties\n-- each row to the "
                              "record it describes.\nCREATE TABLE IF NOT EXISTS `message` (\n  "
                              "`id` TEXT,\n"));
  EXPECT_THAT(text, HasSubstr("\n  `attachments` TEXT\n);\nINSERT INTO message (`id`, `sha256`, "));
  SQLiteDatabase database(":memory:", SQLiteDatabase::Mode::readWrite, "test");
  database.execute(text);
  const Row row = database.query("SELECT * FROM message").front();
  EXPECT_EQ(row.string("tags"), "it's");
  EXPECT_EQ(row.string("subject"), "=cmd 1");
}

TEST_F(ExportTable, leavesErasedMessagesOutAndOldFilesWhole) {
  archive_->catalog().database().run("UPDATE message SET erased = 1 WHERE id = 1");
  EXPECT_EQ(exported(Format::tsv, "is:erased").find("Anna"), std::string::npos);
  EXPECT_EQ(outcome_.rows, 1);
  const Bytes before = readFile(path_);
  {
    const FullDisk full(100);
    EXPECT_THROW(exported(Format::csv, ""), FileError);
  }
  EXPECT_EQ(readFile(path_), before);
  for (const auto& entry : std::filesystem::directory_iterator(path_.parent_path())) {
    EXPECT_EQ(entry.path().native().find(".tmp-"), std::string::npos) << entry.path();
  }
}

}  // namespace
}  // namespace ambervane
