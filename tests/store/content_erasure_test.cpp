#include "store/content_erasure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include "store/archive_error.h"
#include "store/message_reader.h"
#include "tests/support/archive_files.h"
#include "tests/support/file_faults.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

const RetentionPolicy& erasing() {
  static const RetentionPolicy policy({ComplianceRegime::euGDPR});
  return policy;
}

/// What tells of the message below wherever it stands, as written or as the tokenizer folds it. The
/// sender's address stays in the catalog.
const std::vector<Bytes> kWords = {
    "Quastenflosser", "quastenflosser", "Wolpertinger", "wolpertinger", "ringelnatter",
    "Ringelnatter",   "blindschleiche", "xylofonist",   "Zaunkoenig",   "zaunkoenig",
    "jabberwock",     "Jabberwock",     "aeskulap",     "Lummensprung", "lummensprung"};

Bytes tellingMail() {
  return "From: Zaunkoenig <sender@example.com>\r\nTo: Ringelnatter <ringelnatter@example.org>\r\n"
         "Cc: blindschleiche@example.org\r\nReply-To: aeskulap@example.org\r\n"
         "Date: Mon, 5 Feb 2024 10:00:00 +0100\r\nSubject: Quastenflosser\r\nX-Note: xylofonist\r\n"
         "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\nEin "
         "Wolpertinger.\r\n--b\r\nContent-Type: text/plain; name=Jabberwock.txt\r\n"
         "Content-Disposition: attachment; filename=Jabberwock.txt\r\n\r\nLummensprung " +
         std::string(6000, 'x') + "\r\n--b--\r\n";
}

std::vector<Bytes> someMails() {
  std::vector<Bytes> mails;
  for (int i = 0; i < 30; ++i) mails.push_back(plainMail(i));
  mails.push_back(tellingMail());
  for (int i = 30; i < 60; ++i) mails.push_back(plainMail(i));
  mails.push_back(mailWithFiles(100, {{"own.bin", noise(5000, 1)}, {"both.bin", noise(5000, 2)}}));
  mails.push_back(mailWithFiles(101, {{"both.bin", noise(5000, 2)}}));
  return mails;
}
constexpr std::int64_t kTelling = 31;
constexpr std::int64_t kTwoFiles = 62;
constexpr std::int64_t kOneFile = 63;

Bytes wrappedKey(MailArchive& archive, std::int64_t id) {
  SQLiteDatabase keys(archive.url() / "keys/content-keys.sqlite", SQLiteDatabase::Mode::readOnly,
                      "test");
  return keys.query("SELECT wrapped FROM content_key WHERE message_id = ?", {id})
      .at(0)
      .blob("wrapped")
      .value();
}

std::vector<std::int64_t> refcounts(MailArchive& archive) {
  std::vector<std::int64_t> counts;
  for (const Row& row : archive.catalog().database().query("SELECT refcount FROM blob ORDER BY id"))
    counts.push_back(row.integer("refcount"));
  return counts;
}

std::int64_t blobKeys(MailArchive& archive) {
  SQLiteDatabase keys(archive.url() / "keys/content-keys.sqlite", SQLiteDatabase::Mode::readOnly,
                      "test");
  return keys.count("SELECT COUNT(*) FROM blob_key");
}

bool isReadable(MailArchive& archive, std::int64_t id) {
  try {
    rawMessage(archive, archive.catalog().message(id).value());
    return true;
  } catch (const ArchiveError& error) {
    EXPECT_TRUE(error.is<ArchiveError::Erased>()) << error.what();
    return false;
  }
}

ErasedContent shred(MailArchive& archive, std::vector<std::int64_t> ids,
                    const std::string& reason = "request") {
  return shredContent(archive, ids, reason, "anna");
}

TEST(ContentErasure, nothingOfTheMessageIsLeft) {
  TestArchive archive(erasing());
  archive.ingest(someMails());
  std::vector<Bytes> secrets = kWords;
  const Bytes wrapped = wrappedKey(*archive, kTelling);
  secrets.push_back(wrapped.substr(12, 24));
  EXPECT_GE(textsInFiles(archive.path(), secrets).size(), kWords.size() / 2);
  const auto before = archive->catalog().message(kTelling).value();
  const std::string fingerprint = archive->catalog().contentFingerprint();

  const ErasedContent erased = shred(*archive, {kTelling});
  EXPECT_EQ(erased.messages, 1);
  EXPECT_EQ(erased.attachmentKeys, 1);
  EXPECT_TRUE(erased.isForgotten);
  EXPECT_EQ(textsInFiles(archive.path(), secrets), std::vector<std::string>());
  EXPECT_NE(archive->catalog().contentFingerprint(), fingerprint);
  const auto after = archive->catalog().message(kTelling).value();
  EXPECT_TRUE(after.erased);
  EXPECT_EQ(after.subject, "[erased]");
  EXPECT_EQ(after.erasureReason, "request");
  EXPECT_EQ(after.erasedAt, kTestTime);
  EXPECT_EQ(after.threadKey, std::nullopt);
  EXPECT_EQ(after.toAddresses, "");
  EXPECT_EQ(after.fromName, std::nullopt);
  EXPECT_EQ(std::tie(after.sha256, after.sentAt, after.size, after.packOffset),
            std::tie(before.sha256, before.sentAt, before.size, before.packOffset));
  EXPECT_FALSE(isReadable(*archive, kTelling));
  archive.close();
  EXPECT_EQ(textsInFiles(archive.path(), secrets), std::vector<std::string>());
  archive.reopen();
  EXPECT_TRUE(archive.entries(AuditAction::messageErased).empty()) << "nothing was left to do";
  for (const std::int64_t id : {1, 30, 32, 60}) EXPECT_TRUE(isReadable(*archive, id)) << id;
}

TEST(ContentErasure, attachmentsLiveAsLongAsAMessageNeedsThem) {
  TestArchive archive(erasing());
  archive.ingest(someMails());
  EXPECT_EQ(refcounts(*archive), (std::vector<std::int64_t>{1, 1, 2}));
  const struct {
    const char* name;
    std::int64_t id;
    std::int64_t keysDestroyed;
    std::vector<std::int64_t> refcounts;
    std::int64_t keysLeft;
  } cases[] = {
      {"one of two that share", kTwoFiles, 1, {1, 0, 1}, 2},
      {"the same again", kTwoFiles, 0, {1, 0, 1}, 2},
      {"the other of the two", kOneFile, 1, {1, 0, 0}, 1},
      {"once more", kTwoFiles, 0, {1, 0, 0}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(shred(*archive, {c.id}, c.name).attachmentKeys, c.keysDestroyed);
    EXPECT_EQ(refcounts(*archive), c.refcounts);
    EXPECT_EQ(blobKeys(*archive), c.keysLeft);
    EXPECT_EQ(archive->keys().erasure(c.id)->reason, c.name);
    EXPECT_EQ(archive->catalog().message(c.id)->erasureReason, c.name);
    EXPECT_EQ(isReadable(*archive, kOneFile), c.refcounts[2] > 0);
  }
}

TEST(ContentErasure, whatComesAgain) {
  TestArchive archive(erasing());
  archive.ingest(someMails());
  shred(*archive, {kTwoFiles, kOneFile, 5});
  // The message itself stays erased; another one with its file brings the file back.
  const IngestSummary again = archive.ingest({plainMail(4)}, "Again");
  EXPECT_EQ(again.duplicates, 1);
  EXPECT_FALSE(isReadable(*archive, 5));
  // A batch that broke off may have left a new key under which nothing is stored.
  archive->keys().blobKey(archive->catalog()
                              .database()
                              .query("SELECT hash FROM blob WHERE id = 3")
                              .at(0)
                              .string("hash"),
                          true);
  const Bytes other =
      mailWithFiles(102, {{"both.bin", noise(5000, 2)}, {"again.bin", noise(5000, 2)}});
  const auto packed = archive->packs().bytesAppended();
  const Bytes third = mailWithFiles(103, {{"both.bin", noise(5000, 2)}});
  EXPECT_EQ(archive.ingest({other, third}).added, 2);
  EXPECT_LT(archive->packs().bytesAppended() - packed, 10000U) << "stored more than once";
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(64)), other);
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(65)), third);
  EXPECT_EQ(refcounts(*archive), (std::vector<std::int64_t>{1, 0, 3}));
  archive.close();
  archive.reopen();
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(65)), third);
}

TEST(ContentErasure, needsWhatCanBeMadeUnreadable) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  EXPECT_FALSE(canShred(*archive, 1));
  EXPECT_FALSE(canShred(*archive, 2));
  archive.reopen(OpenMode::readOnly);
  EXPECT_THROW(shred(*archive, {1}), ArchiveError);
  TestArchive encrypted(erasing());
  encrypted.ingest(someMails());
  for (const std::int64_t id : {kTelling, kTwoFiles}) EXPECT_TRUE(canShred(*encrypted, id));
  encrypted->catalog().database().run("UPDATE blob SET record_flags = 0 WHERE id = 3");
  EXPECT_FALSE(canShred(*encrypted, kTwoFiles)) << "one of its files is stored unencrypted";
}

// Ends this process at one of all the writes that databases and our own files make.

int writesLeft = 0;

void countWrite() {
  if (--writesLeft == 0) ::_exit(1);
}

ssize_t countedWrite(int file, const void* bytes, size_t count, off_t offset) {
  countWrite();
  return ::pwrite(file, bytes, count, offset);
}

/// What a child did that erases two messages and is killed at write number `at`: whether it came to
/// an end.
bool erasedBeforeWrite(const fs::path& path, int at) {
  const pid_t child = ::fork();
  if (child == 0) {
    MailArchive archive(path, OpenMode::readWrite, TestArchive::environment());
    sqlite3_vfs* system = sqlite3_vfs_find(nullptr);
    for (const char* call : {"pwrite", "pwrite64"}) {
      system->xSetSystemCall(system, call, reinterpret_cast<sqlite3_syscall_ptr>(&countedWrite));
    }
    setFileStepHook([](const FileStep& step) {
      countWrite();
      return step.bytes;
    });
    writesLeft = at;
    shred(archive, {kTelling, kTwoFiles});
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status) == 0;
}

TEST(ContentErasure, aKillAtAnyWriteLeavesAllOrNothing) {
  TestArchive original(erasing());
  original.ingest(someMails());
  const std::vector<Bytes> secrets = {wrappedKey(*original, kTelling).substr(12, 24),
                                      wrappedKey(*original, kTwoFiles).substr(12, 24)};
  original.close();
  bool wasKeptOnce = false;
  int completed = 0;
  for (int at = 1;; at += at < 40 ? 1 : 5) {
    SCOPED_TRACE("killed at write " + std::to_string(at));
    const ScratchFolder folder;
    const fs::path copy = folder / "copy.ambervane";
    fs::copy(original.path(), copy, fs::copy_options::recursive);
    const bool wasFinished = erasedBeforeWrite(copy, at);
    MailArchive archive(copy, OpenMode::readWrite, TestArchive::environment());
    const bool isKept = isReadable(archive, kTelling);
    EXPECT_EQ(isReadable(archive, kTwoFiles), isKept);
    wasKeptOnce |= isKept;
    if (!isKept) {
      ++completed;
      EXPECT_TRUE(archive.catalog().message(kTelling)->erased);
      EXPECT_EQ(refcounts(archive), (std::vector<std::int64_t>{0, 0, 1}));
      EXPECT_EQ(blobKeys(archive), 1);
      EXPECT_FALSE(completeErasures(archive)) << "completed by the opening already";
      EXPECT_EQ(textsInFiles(copy, kWords), std::vector<std::string>());
      EXPECT_EQ(textsInFiles(copy, secrets), std::vector<std::string>());
    }
    for (const std::int64_t id : {1, 60, 63}) EXPECT_TRUE(isReadable(archive, id));
    archive.close();
    if (wasFinished || testing::Test::HasFailure()) break;
  }
  EXPECT_TRUE(wasKeptOnce);
  EXPECT_GT(completed, 10);
}

}  // namespace
}  // namespace ambervane
