#include "store/catalog.h"

#include <gtest/gtest.h>

#include "store/header_index.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

Date testClock() { return {1000}; }

TEST(SQLiteDatabase, pathsThatLookLikeUris) {
  const ScratchFolder folder;
  const auto path = folder / "a#b?c%20d.sqlite";
  {
    SQLiteDatabase database(path, SQLiteDatabase::Mode::readWrite, "test");
    database.execute("CREATE TABLE t(x)");
    database.run("INSERT INTO t VALUES(?)", {42});
  }
  const auto reader = SQLiteDatabase::reading(path, "test", true);
  EXPECT_EQ(reader->count("SELECT x FROM t"), 42);
  EXPECT_THROW(reader->run("DELETE FROM t"), SQLiteError);
}

TEST(SQLiteDatabase, readOnlyLeavesNothingBehind) {
  const ScratchFolder folder;
  const auto path = folder / "c.sqlite";
  {
    SQLiteDatabase database(path, SQLiteDatabase::Mode::readWrite, "test");
    database.execute("CREATE TABLE t(x)");
  }
  {
    const auto reader = SQLiteDatabase::reading(path, "test", false);
    EXPECT_EQ(reader->count("SELECT count(*) FROM t"), 0);
    EXPECT_THROW(reader->run("INSERT INTO t VALUES(1)"), SQLiteError);
  }
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    EXPECT_EQ(entry.path().filename(), "c.sqlite");
  }
}

TEST(SQLiteDatabase, valuesComeBackAsTheyWent) {
  SQLiteDatabase database(":memory:", SQLiteDatabase::Mode::readWrite, "test");
  const Bytes bytes("a\0b", 3);
  const Row row = database
                      .query("SELECT ? AS i, ? AS r, ? AS t, ? AS b, ? AS n, ? AS e",
                             {std::int64_t{1} << 62, 0.1, "ä", SQLBytes{bytes},
                              std::optional<std::int64_t>(), std::string_view()})
                      .front();
  EXPECT_EQ(row.integer("i"), std::int64_t{1} << 62);
  EXPECT_EQ(row.real("r"), 0.1);
  EXPECT_EQ(row.string("t"), "ä");
  EXPECT_EQ(row.blob("b"), bytes);
  EXPECT_FALSE(row.optionalString("n"));
  EXPECT_EQ(row.optionalString("e"), "");
  EXPECT_FALSE(row.optionalInteger("missing"));
}

TEST(SQLiteDatabase, refusesWhatIsNotOneStatement) {
  SQLiteDatabase database(":memory:", SQLiteDatabase::Mode::readWrite, "test");
  for (const char* sql : {"", "  ", "SELECT 1; SELECT 2", "SELEC 1", "SELECT ?"}) {
    EXPECT_THROW(database.query(sql), SQLiteError) << sql;
  }
}

TEST(SQLiteDatabase, aRowCallbackMayAskTheSameAgain) {
  SQLiteDatabase database(":memory:", SQLiteDatabase::Mode::readWrite, "test");
  database.execute("CREATE TABLE t(x); INSERT INTO t VALUES(1),(2),(3)");
  int inner = 0;
  database.forEachRow("SELECT x FROM t", {}, [&](const Row&) {
    database.forEachRow("SELECT x FROM t", {}, [&](const Row&) {
      ++inner;
      return true;
    });
    return true;
  });
  EXPECT_EQ(inner, 9);
}

TEST(Catalog, batchesNestAndRollBackWhole) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", testClock);
  catalog.rollbackBatch();
  catalog.beginBatch();
  catalog.beginBatch();
  catalog.setMeta("a", "1");
  catalog.commitBatch();
  EXPECT_EQ(catalog.batchDepth(), 1);
  catalog.rollbackBatch();
  EXPECT_FALSE(catalog.meta("a"));
  catalog.atomically([&] { catalog.setMeta("b", "2"); });
  EXPECT_EQ(catalog.meta("b"), "2");
}

TEST(Catalog, olderFilesAreBroughtLevelOnce) {
  const ScratchFolder folder;
  const auto path = folder / "catalog.sqlite";
  {
    Catalog catalog(path, testClock);
    const auto account = catalog.upsertAccount("a", "mbox", {}, {}, {});
    const auto inbox = catalog.upsertFolder(account, "INBOX");
    const auto id = catalog.reserveMessage("hash");
    MessageInsert insert;
    insert.sentAt = Date{77};
    insert.packID = 1;
    insert.packOffset = 16;
    catalog.completeMessage(id, insert);
    catalog.linkMessage(id, inbox, 5, "\\Seen", std::nullopt);
    SQLiteDatabase& db = catalog.database();
    db.execute("DROP INDEX idx_mf_browse; ALTER TABLE message_folder DROP COLUMN sent_at");
    db.execute("ALTER TABLE message DROP COLUMN origin; ALTER TABLE account DROP COLUMN settings");
    db.execute("DROP TABLE message_fts; DELETE FROM meta");
  }
  for (int opening = 0; opening < 2; ++opening) {
    Catalog catalog(path, testClock);
    EXPECT_EQ(catalog.meta("schema_version"), "3");
    EXPECT_EQ(catalog.database().count("SELECT CAST(sent_at AS INTEGER) FROM message_folder"), 77);
    EXPECT_TRUE(catalog.supportsFTS());
    EXPECT_EQ(catalog.message(1)->origin, std::nullopt);
  }
}

TEST(Catalog, sweepGivesBackWhatUnplacedRowsHeld) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", testClock);
  BlobRow blob;
  blob.hash = "h";
  const auto blobID = catalog.insertBlob(blob);
  const auto placed = catalog.reserveMessage("placed");
  MessageInsert insert;
  insert.packID = 1;
  insert.packOffset = 16;
  catalog.completeMessage(placed, insert);
  const auto lost = catalog.reserveMessage("lost");
  for (const auto id : {placed, lost}) {
    StoredAttachment attachment;
    attachment.blobID = blobID;
    catalog.insertAttachment(id, attachment);
    catalog.retainBlob(blobID);
  }
  EXPECT_EQ(catalog.sweepIncompleteMessages(), 1);
  EXPECT_EQ(catalog.blob("h")->refcount, 1);
  EXPECT_TRUE(catalog.message(placed));
  EXPECT_FALSE(catalog.message(lost));
  EXPECT_EQ(catalog.sweepIncompleteMessages(), 0);
  catalog.releaseBlob(blobID);
  catalog.releaseBlob(blobID);
  EXPECT_EQ(catalog.blob("h")->refcount, 0);
}

TEST(Catalog, aSecondLinkKeepsTheUidAndRefreshesTheFlags) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", testClock);
  const auto inbox = catalog.upsertFolder(catalog.upsertAccount("a", "mbox", {}, {}, {}), "INBOX");
  const auto id = catalog.reserveMessage("hash");
  EXPECT_TRUE(catalog.linkMessage(id, inbox, 9, "\\Seen", Date{1}));
  catalog.database().run("UPDATE message_folder SET removed_at = 5");
  EXPECT_FALSE(catalog.linkMessage(id, inbox, std::nullopt, "\\Flagged", Date{1}));
  const auto memberships = catalog.memberships(id);
  ASSERT_EQ(memberships.size(), 1U);
  EXPECT_EQ(memberships[0].uid, 9);
  EXPECT_EQ(memberships[0].flags, "\\Flagged");
  EXPECT_FALSE(memberships[0].removed);
}

TEST(Catalog, accountsAndFoldersKeepOldValues) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", testClock);
  const auto id = catalog.upsertAccount("a", "imap", "host", "user", {});
  EXPECT_EQ(catalog.upsertAccount("a", "mbox", {}, "other", "/p"), id);
  const AccountRow account = catalog.accounts().front();
  EXPECT_EQ(account.kind, "imap");
  EXPECT_EQ(account.host, "host");
  EXPECT_EQ(account.username, "other");
  EXPECT_EQ(account.sourcePath, "/p");
  EXPECT_EQ(catalog.upsertFolder(id, "A/B"), catalog.upsertFolder(id, "A/B"));
  EXPECT_EQ(catalog.folders(id).size(), 1U);
}

TEST(Catalog, pendingFetches) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", testClock);
  const auto inbox = catalog.upsertFolder(catalog.upsertAccount("a", "imap", {}, {}, {}), "INBOX");
  catalog.recordMiss(inbox, 30, 7);
  catalog.recordMiss(inbox, 10, std::nullopt);
  catalog.recordMiss(inbox, 20, 8);
  catalog.recordMiss(inbox, 30, 7);
  using Uids = std::vector<std::int64_t>;
  EXPECT_EQ(catalog.pendingFetches(inbox, 7, 5), (Uids{10, 30}));
  EXPECT_EQ(catalog.pendingFetches(inbox, 7, 2), (Uids{10}));
  EXPECT_EQ(catalog.pendingFetches(inbox, std::nullopt, 5), (Uids{10, 20, 30}));
  catalog.clearPending(inbox, 10);
  EXPECT_EQ(catalog.pendingFetches(inbox, 7, 5), (Uids{30}));
}

TEST(Catalog, indexHoldsBothSpellingsAndForgets) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", testClock);
  ASSERT_TRUE(catalog.supportsFTS());
  catalog.indexText(7, {"Grüße", "müller@example.com", "Straße und Ærø", "Prüfung.pdf"});
  const auto hits = [&](const char* match) {
    return catalog.database().count("SELECT COUNT(*) FROM message_fts WHERE message_fts MATCH ?",
                                    {match});
  };
  for (const char* word : {"gruße", "gruesse", "mueller", "muller", "strasse", "pruefung"}) {
    EXPECT_EQ(hits(word), 1) << word;
  }
  EXPECT_EQ(hits("subject:strasse"), 0);
  catalog.removeFromIndex(7);
  EXPECT_EQ(hits("mueller"), 0);
}

TEST(HeaderIndex, boundsAndSignatures) {
  std::string block = "DKIM-Signature: v=1; b=abc\r\nX-Spam: =?utf-8?q?J=C3=A4?=\r\n";
  for (int i = 0; i < 60; ++i) block += "Received: from " + std::to_string(i) + "\r\n";
  block += std::string(300, 'N') + ": v\r\nX-Long: " + std::string(900, 'v') + "\r\n";
  auto rows = indexedHeaders(HeaderSet::parse(block));
  ASSERT_EQ(rows.size(), 54U);
  EXPECT_EQ(rows[0], (std::pair<std::string, std::string>("dkim-signature", "")));
  EXPECT_EQ(rows[1], (std::pair<std::string, std::string>("x-spam", "Jä")));
  EXPECT_EQ(rows[52].first.size(), kMaximumHeaderNameLength);
  EXPECT_EQ(rows[53].second.size(), kMaximumHeaderValueLength);

  block.clear();
  for (int i = 0; i < 700; ++i) block += "X-" + std::to_string(i) + ": v\r\n";
  EXPECT_EQ(indexedHeaders(HeaderSet::parse(block)).size(), kMaximumIndexedHeaders);
}

}  // namespace
}  // namespace ambervane
