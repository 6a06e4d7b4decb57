#include <gtest/gtest.h>

#include "base/file.h"
#include "store/catalog.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

/// The words of a message as they may stand in the catalog: written, or folded by the tokenizer.
const std::vector<std::string> kWords = {"Quastenflosser", "quastenflosser", "Wolpertinger",
                                         "wolpertinger",   "xylofonist",     "yggdrasil-note",
                                         "jabberwock.pdf", "zaunkoenig"};

std::vector<std::string> wordsInFiles(const std::filesystem::path& archive) {
  std::vector<std::string> found;
  for (const char* name : {"catalog.sqlite", "catalog.sqlite-wal", "catalog.sqlite-shm"}) {
    const Bytes bytes = readFileIfPossible(archive / name).value_or("");
    for (const std::string& word : kWords) {
      if (bytes.find(word) != Bytes::npos) found.push_back(std::string(name) + ": " + word);
    }
  }
  return found;
}

TEST(ErasedText, isNotInTheCatalogsFilesAfterwards) {
  TestArchive archive;
  std::vector<Bytes> mails;
  for (int i = 0; i < 60; ++i) mails.push_back(plainMail(i));
  mails.push_back(
      "From: zaunkoenig@example.com\r\nSubject: Quastenflosser\r\nX-Note: "
      "xylofonist\r\n" +
      mailWithFiles(99, {{"jabberwock.pdf", noise(5000)}}) + "\r\nWolpertinger\r\n");
  mails.push_back(plainMail(100, "Wolpertinger", "Ein Quastenflosser spielt.\r\n"));
  archive.ingest(std::move(mails));
  Catalog& catalog = archive->catalog();
  SQLiteDatabase& database = catalog.database();
  for (const std::int64_t id : {61, 62}) {
    database.run(
        "INSERT INTO message_note(message_id, body, author, created_at, updated_at) VALUES(?, "
        "'yggdrasil-note', 'a', 0, 0)",
        {id});
    // As an erasure does.
    catalog.removeFromIndex(id);
    database.run("DELETE FROM message WHERE id = ?", {id});
  }
  catalog.database().checkpoint();
  EXPECT_FALSE(wordsInFiles(archive.path()).empty()) << "the index had nothing to forget";
  EXPECT_TRUE(catalog.forgetErasedText());
  EXPECT_EQ(wordsInFiles(archive.path()), std::vector<std::string>());
  EXPECT_EQ(database.count("SELECT COUNT(*) FROM message_fts WHERE message_fts MATCH 'ware'"), 60);
}

}  // namespace
}  // namespace ambervane
