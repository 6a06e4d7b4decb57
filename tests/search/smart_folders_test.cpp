#include "search/smart_folders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "query/search_query_parser.h"
#include "store/archive_error.h"
#include "store/catalog_annotations.h"
#include "store/tagging.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

SmartFolder folderFor(const std::string& line, const std::string& id = "f1") {
  return {.id = id,
          .name = "Folder " + id,
          .icon = "gearshape.2",
          .filter = filterFromQuery(SearchQueryParser::parse(line)).value(),
          .createdAt = kTestTime,
          .updatedAt = kTestTime};
}

TEST(SmartFolders, savingIsJournalledAndRefusesWhatAsksNothing) {
  TestArchive archive;
  SmartFolder folder = folderFor("from:anna subject:ware");
  saveSmartFolder(*archive, folder);
  const auto saved = archive.entries(AuditAction::smartFolderSaved).front();
  EXPECT_EQ(saved.subject, "f1");
  EXPECT_EQ(saved.details.at("definition"), smartFolderJson(folder));
  EXPECT_EQ(saved.details.at("summary"), folder.filter.described());
  EXPECT_EQ(CatalogAnnotations(archive->catalog()).smartFolders(), std::vector{folder});

  SmartFolder unnamed = folder;
  unnamed.name = " ";
  EXPECT_THROW(saveSmartFolder(*archive, unnamed), SmartFolderError);
  for (const char* value : {"  ", "much"}) {
    SmartFolder empty = folder;
    empty.filter = FilterNode::rule(FilterField::size, FilterOperator::greaterThan, value);
    EXPECT_THROW(saveSmartFolder(*archive, empty), SmartFolderError);
  }
  EXPECT_TRUE(deleteSmartFolder(*archive, "f1"));
  EXPECT_FALSE(deleteSmartFolder(*archive, "f1"));
  EXPECT_EQ(archive.entries(AuditAction::smartFolderDeleted).size(), 1U);
  archive.reopen(OpenMode::readOnly);
  EXPECT_THROW(saveSmartFolder(*archive, folder), ArchiveError);
}

TEST(SmartFolders, countsAreKeptUntilTheArchiveChanges) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2)});
  const SmartFolder folder = folderFor("lieferung");
  saveSmartFolder(*archive, folder);
  EXPECT_EQ(smartFolderCount(*archive, folder).count, 2);
  SQLiteDatabase& database = archive->catalog().database();
  database.run("UPDATE smart_folder_count SET count = 77");
  EXPECT_EQ(smartFolderCount(*archive, folder).count, 77);
  EXPECT_EQ(smartFolderCount(*archive, folder, SmartFolderCounting::refreshing).count, 2);

  const std::function<void()> changes[] = {
      [&] { archive.ingest({plainMail(3)}); },
      [&] { archive.ingest({plainMail(3)}, "Other"); },
      [&] { applyTag(*archive, "t", "blue", {1}, "anna"); },
      [&] {
        const auto tag = CatalogAnnotations(archive->catalog()).tag("t").value();
        removeTag(*archive, tag, {1}, "anna");
      },
  };
  for (const auto& change : changes) {
    database.run("UPDATE smart_folder_count SET count = 77");
    change();
    const auto stale = smartFolderCount(*archive, folder, SmartFolderCounting::stale);
    EXPECT_EQ(stale.count, 77);
    EXPECT_TRUE(stale.isStale);
    EXPECT_EQ(refreshStaleSmartFolderCounts(*archive, {folder}), 1);
    EXPECT_EQ(refreshStaleSmartFolderCounts(*archive, {folder}), 0);
    EXPECT_EQ(smartFolderCount(*archive, folder).count, 3);
  }

  archive.reopen(OpenMode::readOnly);
  EXPECT_EQ(smartFolderCount(*archive, folderFor("lieferung", "f2")).count, 3);
}

TEST(SmartFolders, countsThatMoveWithTimeAreNeverCurrent) {
  TestArchive archive;
  const SmartFolder folder = folderFor("(from:a or newer:30)");
  saveSmartFolder(*archive, folder);
  smartFolderCount(*archive, folder);
  EXPECT_TRUE(smartFolderCount(*archive, folder, SmartFolderCounting::stale).isStale);
}

TEST(SmartFolders, counting) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2)}, "A");
  archive.ingest({plainMail(2)}, "B");
  archive->catalog().database().run("UPDATE message SET erased = 1 WHERE id = 1");
  const FilterNode all = folderFor("from:anna").filter;
  EXPECT_EQ(smartFolderCount(*archive, all).count, 1);
  EXPECT_FALSE(smartFolderCount(*archive, all, 1).isExact);
  EXPECT_EQ(smartFolderCount(*archive, FilterNode::group(FilterMatch::all, {})).count, 0);
  archive->catalog().database().run("UPDATE message SET erased = 0");
  const auto mailboxes = mailboxBreakdown(*archive, all);
  ASSERT_EQ(mailboxes.size(), 2U);
  EXPECT_EQ(mailboxes[0].path + std::to_string(mailboxes[0].messages), "A2");
  EXPECT_EQ(mailboxes[1].path + std::to_string(mailboxes[1].messages), "B1");
}

}  // namespace
}  // namespace ambervane
