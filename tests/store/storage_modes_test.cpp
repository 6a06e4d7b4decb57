// An archive under each way of storing: encrypted, in solid blocks, with a trained dictionary.

#include <gtest/gtest.h>

#include "base/digest.h"
#include "base/file.h"
#include "base/json.h"
#include "store/archive_error.h"
#include "store/key_error.h"
#include "store/message_reader.h"
#include "store/pack_format.h"
#include "tests/support/file_faults.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

std::vector<Bytes> someMails(int count) {
  std::vector<Bytes> mails;
  for (int i = 0; i < count; ++i) {
    if (i % 5 == 4) {
      mails.push_back(
          mailWithFiles(i, {{"a.bin", noise(9000, static_cast<std::uint32_t>(i % 10))}}));
    } else {
      mails.push_back(plainMail(i, "Lieferung", base64Encode(noise(800)) + "\r\n"));
    }
  }
  return mails;
}

void expectAllBack(TestArchive& archive, const std::vector<Bytes>& mails) {
  for (std::size_t i = 0; i < mails.size(); ++i) {
    const MessageRow row =
        archive->catalog().message(std::string_view(sha256Hex(mails[i]))).value();
    EXPECT_EQ(rawMessage(*archive, row), mails[i]) << i;
  }
}

RecordFlags flagsOf(TestArchive& archive, std::int64_t id) {
  return {archive->catalog().message(id)->recordFlags};
}

TEST(StorageModes, encryptedMailReadsBackAndPacksHoldNoPlainText) {
  TestArchive archive(RetentionPolicy({ComplianceRegime::euGDPR}));
  const auto mails = someMails(30);
  EXPECT_EQ(archive.ingest(mails).added, 30);
  expectAllBack(archive, mails);
  EXPECT_TRUE(flagsOf(archive, 1).encrypted());
  EXPECT_EQ(
      archive->catalog().database().count("SELECT COUNT(*) FROM blob WHERE (record_flags & 2) = 0"),
      0);
  EXPECT_TRUE(archive->keys().verifyMasterKey());
  archive.close();
  for (const char* name : {"content-keys.sqlite", "master.key"}) {
    EXPECT_EQ(fs::status(archive.path() / "keys" / name).permissions() & fs::perms(0777),
              fs::perms(0600));
  }
  archive.reopen(OpenMode::readOnly);
  expectAllBack(archive, mails);
  archive.close();

  const fs::path master = archive.path() / "keys/master.key";
  const Bytes right = readFile(master);
  writeFileAtomically(master, Bytes(32, 'x'), 0600);
  archive.reopen();
  EXPECT_THROW(rawMessage(*archive, *archive->catalog().message(1)), KeyError);
  EXPECT_THROW(archive.ingest({plainMail(1000)}), KeyError);
  archive.close();
  fs::remove(master);
  EXPECT_THROW(archive.reopen(), KeyError);
  writeFileAtomically(master, right, 0600);
  archive.reopen();
  expectAllBack(archive, mails);
}

TEST(StorageModes, aDestroyedKeyTakesOneMessageAndNoOther) {
  TestArchive archive(RetentionPolicy({ComplianceRegime::euGDPR}));
  archive.ingest({plainMail(1), plainMail(2)});
  archive->keys().shred(1, "request", "anna");
  try {
    rawMessage(*archive, *archive->catalog().message(1));
    FAIL() << "readable without its key";
  } catch (const ArchiveError& error) {
    EXPECT_TRUE(error.is<ArchiveError::Erased>());
  }
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(2)), plainMail(2));
}

TEST(StorageModes, keysAreCommittedBeforeTheRecordsTheyOpen) {
  TestArchive archive(RetentionPolicy({ComplianceRegime::euGDPR}));
  {
    const FailingSync failing;
    EXPECT_THROW(archive.ingest({plainMail(1)}), FileError);
  }
  archive.drop();
  archive.reopen();
  EXPECT_EQ(archive.ingest({plainMail(1)}).added, 1);
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(1)), plainMail(1));
}

TEST(StorageModes, solidBlocks) {
  TestArchive archive(RetentionPolicy(), CompressionEffort::smallest);
  EXPECT_EQ(archive->manifest().minimumReaderVersion, 1);
  const auto mails = someMails(40);
  EXPECT_EQ(archive.ingest(mails).added, 40);
  EXPECT_EQ(archive->manifest().minimumReaderVersion, 3);
  expectAllBack(archive, mails);
  const MessageRow row = *archive->catalog().message(3);
  EXPECT_EQ(row.recordFlags, 0x29);
  EXPECT_EQ(row.blockMember, 2);
  EXPECT_GT(row.storedSize, 0);
  const auto entry = archive.entries(AuditAction::messageIngested)[0];
  EXPECT_EQ(entry.details.at("stored"), "in a solid block");
  EXPECT_EQ(entry.details.at("codec"), "in a solid block");
  archive.close();
  EXPECT_NE(readFile(archive.path() / "archive.json").find("\"minimumReaderVersion\": 3"),
            Bytes::npos);
  archive.reopen(OpenMode::readOnly);
  expectAllBack(archive, mails);
  std::vector<std::int64_t> members;
  RecoveryIndex::read(archive->packs().packURL(1), [&](const RecoveryIndex::Entry& line) {
    if (const auto* message = std::get_if<RecoveryIndex::Message>(&line)) {
      members.push_back(message->blockMember.value());
    }
  });
  EXPECT_EQ(members.size(), 40U);
  EXPECT_EQ(members.back(), 39);
}

TEST(StorageModes, aWaitingMessageIsReadFiledAndWrittenAtClose) {
  TestArchive archive(RetentionPolicy(), CompressionEffort::smallest);
  Catalog& catalog = archive->catalog();
  const auto account = catalog.upsertAccount("a", "imap", {}, {}, {});
  const MailboxRef inbox{catalog.upsertFolder(account, "INBOX"), "INBOX", "a"};
  const MailboxRef other{catalog.upsertFolder(account, "Other"), "Other", "a"};
  for (int i = 0; i < 10; ++i) {
    SourceMessage message;
    message.raw = plainMail(i);
    ingest(*archive, message, inbox);
    if (i == 0) ingest(*archive, message, other);
  }
  EXPECT_FALSE(catalog.message(10)->packID);
  EXPECT_EQ(rawMessage(*archive, *catalog.message(1)), plainMail(0));
  SourceMessage last;
  last.raw = plainMail(99);
  ingest(*archive, last, inbox);
  archive.close();
  archive.reopen();
  EXPECT_TRUE(archive.entries(AuditAction::integrityVerified).empty());
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(11)), plainMail(99));
  int lines = 0;
  RecoveryIndex::read(archive->packs().packURL(1), [&](const RecoveryIndex::Entry&) { ++lines; });
  EXPECT_EQ(lines, 12);
}

TEST(StorageModes, whatWaitedInALostBlockIsSweptAndTakenInAgain) {
  TestArchive archive(RetentionPolicy(), CompressionEffort::smallest);
  Catalog& catalog = archive->catalog();
  const MailboxRef inbox{
      catalog.upsertFolder(catalog.upsertAccount("a", "imap", {}, {}, {}), "INBOX"), "INBOX", "a"};
  SourceMessage message;
  message.raw = mailWithFiles(1, {{"a", noise(9000)}});
  ingest(*archive, message, inbox);
  archive.drop();
  archive.reopen();
  EXPECT_EQ(archive.entries(AuditAction::integrityVerified).size(), 1U);
  EXPECT_EQ(archive->catalog().database().count("SELECT refcount FROM blob"), 0);
  EXPECT_EQ(archive.ingest({message.raw}).added, 1);
  EXPECT_EQ(archive->catalog().database().count("SELECT refcount FROM blob"), 1);
}

TEST(StorageModes, aBlockThatCannotBeFlushedLeavesItsRowsUnplacedAndWaitsOn) {
  TestArchive archive(RetentionPolicy(), CompressionEffort::smallest);
  Catalog& catalog = archive->catalog();
  const MailboxRef inbox{
      catalog.upsertFolder(catalog.upsertAccount("a", "imap", {}, {}, {}), "INBOX"), "INBOX", "a"};
  SourceMessage message;
  message.raw = plainMail(1);
  ingest(*archive, message, inbox);
  {
    const FullDisk full(10);
    EXPECT_THROW(archive->flushSolidBlock(), FileError);
  }
  EXPECT_FALSE(catalog.message(1)->packID);
  EXPECT_EQ(archive->flushSolidBlock(), 1U);
  EXPECT_EQ(rawMessage(*archive, *catalog.message(1)), plainMail(1));
}

TEST(StorageModes, erasureAndBlocksExcludeEachOther) {
  TestArchive archive(RetentionPolicy({ComplianceRegime::euGDPR}), CompressionEffort::smallest);
  archive.ingest(someMails(5));
  EXPECT_FALSE(flagsOf(archive, 1).solidBlock());
  EXPECT_EQ(archive->manifest().minimumReaderVersion, 1);
}

TEST(StorageModes, theDictionaryIsTrainedOnceAndOldRecordsStayReadable) {
  TestArchive archive;
  archive.close();
  auto manifest = nlohmann::json::parse(readFile(archive.path() / "archive.json"));
  manifest["dictionaryTrainingSample"] = 50;
  writeFileAtomically(archive.path() / "archive.json", manifest.dump());
  archive.reopen();
  const auto mails = someMails(120);
  // A run that stops short goes on counting in the next one.
  archive.ingest({mails.begin(), mails.begin() + 30});
  EXPECT_EQ(archive->catalog().meta("trained_messages"), "30");
  archive.reopen();
  archive.ingest({mails.begin(), mails.begin() + 100});
  archive.ingest(mails);
  EXPECT_EQ(archive->catalog().meta("trained_messages"), "50");
  EXPECT_EQ(archive->catalog().dictionaryCount(), 2);
  EXPECT_EQ(archive->dictionaries().active().id, 2);
  EXPECT_EQ(readFile(archive.path() / "dict/00002.dict"), archive->dictionaries().active().view());
  EXPECT_EQ(archive->catalog().message(1)->dictionaryID, 1);
  EXPECT_EQ(archive->catalog().message(120)->dictionaryID, 2);
  archive.reopen();
  expectAllBack(archive, mails);
  archive.ingest({plainMail(5000)});
  EXPECT_EQ(archive->catalog().dictionaryCount(), 2);
}

TEST(StorageModes, brotliRaisesTheReaderVersionToTwo) {
  TestArchive archive(RetentionPolicy({ComplianceRegime::euGDPR}), CompressionEffort::smallest);
  std::string text;
  for (int i = 0; i < 4000; ++i) text += "Zeile " + std::to_string(i * 7919 % 1000) + "\r\n";
  archive.ingest({plainMail(1, "x", text)});
  const RecordFlags flags = flagsOf(archive, 1);
  EXPECT_EQ(archive->manifest().minimumReaderVersion, flags.codec() == Codec::brotli ? 2 : 1);
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(1)), plainMail(1, "x", text));
}

}  // namespace
}  // namespace ambervane
