#include "store/ingest.h"

#include <gtest/gtest.h>

#include <atomic>

#include "base/digest.h"
#include "base/json.h"
#include "mailformats/import_error.h"
#include "store/archive_error.h"
#include "store/message_reader.h"
#include "store/recovery_index.h"
#include "tests/support/file_faults.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

Bytes stored(TestArchive& archive, std::int64_t id) {
  return rawMessage(*archive, archive->catalog().message(id).value());
}

TEST(Ingest, everyMessageComesBackByteForByte) {
  const Bytes file = noise(9000);
  const std::vector<std::pair<const char*, Bytes>> cases = {
      {"plain", plainMail(1)},
      {"bareLineFeeds", "From: a@b\n\nhello\n"},
      {"noBody", "Subject: x"},
      {"nulBytes", Bytes("From: a\0b\r\n\r\n\0\0\0", 17)},
      {"not8Bit", "From: \xff\xfe\r\nSubject: \x80\r\n\r\n\xc3"},
      {"base64Of76", mailWithFiles(2, {{"a.bin", file}})},
      {"base64Of72", mailWithFiles(3, {{"a.bin", file}}, 72)},
      {"oddColumns", mailWithFiles(4, {{"a.bin", file}}, 75)},
      {"twoFiles", mailWithFiles(5, {{"a.bin", file}, {"b.bin", noise(5000, 2)}})},
      {"atTheThreshold", mailWithFiles(6, {{"a.bin", noise(2992)}})},
      {"belowTheThreshold", mailWithFiles(7, {{"a.bin", noise(2900)}})},
      {"attachmentToTheEnd",
       "From: a@b\r\nContent-Type: application/pdf\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
           wrappedBase64(file)},
      {"cutInTheMiddle", mailWithFiles(8, {{"a.bin", file}}).substr(0, 9000)},
      {"binaryAttachment",
       "From: a@b\r\nContent-Type: application/octet-stream\r\n\r\n" + noise(20000, 3)},
  };
  TestArchive archive;
  std::vector<Bytes> mails;
  for (const auto& [name, mail] : cases) mails.push_back(mail);
  const IngestSummary summary = archive.ingest(mails);
  EXPECT_EQ(summary.added, static_cast<std::int64_t>(cases.size()));
  std::int64_t id = 0;
  for (const auto& [name, mail] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(stored(archive, ++id), mail);
    EXPECT_EQ(archive->catalog().message(id)->sha256, sha256Hex(mail));
    for (const AttachmentRow& attachment : archive->catalog().attachments(id)) {
      EXPECT_EQ(sha256Hex(attachmentData(*archive, attachment)), attachment.contentHash);
    }
  }
}

TEST(Ingest, anAttachmentIsStoredOnce) {
  TestArchive archive;
  const Bytes file = noise(9000);
  archive.ingest({mailWithFiles(1, {{"a.bin", file}}), mailWithFiles(2, {{"b.bin", file}}),
                  mailWithFiles(3, {{"c.bin", file}}, 72)});
  const CatalogStats stats = archive->catalog().stats();
  EXPECT_EQ(stats.attachments, 3);
  // The same text twice is one blob; the same file wrapped otherwise is another one.
  EXPECT_EQ(stats.blobs, 2);
  EXPECT_EQ(archive->catalog().database().count("SELECT MAX(refcount) FROM blob"), 2);
  const auto duplicates = archive->catalog().duplicateAttachments(2, 10);
  ASSERT_EQ(duplicates.size(), 1U);
  EXPECT_EQ(duplicates[0].copies, 3);
  EXPECT_EQ(duplicates[0].size, 9000);
  EXPECT_TRUE(archive->catalog().duplicateAttachments(4, 10).empty());
}

TEST(Ingest, whatALaterRunFindsThereIsNotStoredAgain) {
  TestArchive archive;
  const Bytes file = noise(9000);
  archive.ingest({mailWithFiles(1, {{"a.bin", file}})});
  const Bytes fresh = mailWithFiles(2, {{"again.bin", file}, {"b.bin", noise(6000, 2)}});
  const IngestSummary summary = archive.ingest({mailWithFiles(1, {{"a.bin", file}}), fresh});
  EXPECT_EQ(summary.duplicates, 1);
  EXPECT_EQ(summary.added, 1);
  EXPECT_EQ(stored(archive, 2), fresh);
  EXPECT_EQ(archive->catalog().stats().blobs, 2);
  EXPECT_EQ(archive->catalog().database().count("SELECT MAX(refcount) FROM blob"), 2);
}

TEST(Ingest, duplicatesAddOnlyWhatIsNew) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(1)});
  const auto entries = archive.entries(AuditAction::messageDuplicate).size();
  EXPECT_EQ(entries, 1U);
  const IngestSummary again = archive.ingest({plainMail(1)}, "Archive/2024", "bert");
  EXPECT_EQ(again.added, 0);
  EXPECT_EQ(again.duplicates, 1);
  EXPECT_EQ(archive->catalog().memberships(1).size(), 2U);
  archive.ingest({plainMail(1)}, "Archive/2024", "bert");

  std::vector<std::string> mailboxes;
  RecoveryIndex::read(archive->packs().packURL(1), [&](const RecoveryIndex::Entry& entry) {
    const auto& message = std::get<RecoveryIndex::Message>(entry);
    mailboxes.push_back(message.account + ":" + message.folder);
    EXPECT_EQ(message.offset, archive->catalog().message(1)->packOffset);
  });
  EXPECT_EQ(mailboxes, (std::vector<std::string>{"anna:INBOX", "bert:Archive/2024"}));
}

TEST(Ingest, whatTheCatalogKnows) {
  TestArchive archive;
  MemoryImporter importer(
      {"From: =?utf-8?q?J=C3=BCrg_M=C3=BCller?= <Juerg.Mueller@Example.CH>\r\nTo: "
       "A@example.com, \"B, C\" <b@example.com>\r\nCc: d@example.com\r\nReply-To: "
       "zz@example.com\r\nSubject: AW: =?utf-8?q?Pr=C3=BCfung?=\r\nDate: Mon, 5 Feb 2024 10:00:00 "
       "+0100\r\nMessage-ID: <m1@x>\r\nReferences: <r1@x> <r2@x>\r\nIn-Reply-To: "
       "<r2@x>\r\n\r\nHallo  Welt\r\n> zitiert\r\n",
       "Subject: Nur Betreff\r\nFrom: x@y\r\n\r\n", "From: x@y\r\n\r\nnichts\r\n"});
  importer.messages[0].flags = {MessageFlag::seen, MessageFlag::flagged};
  importer.messages[1].internalDate = Date{1700000000};
  archive.ingest(importer);
  const MessageRow first = *archive->catalog().message(1);
  EXPECT_EQ(first.fromName, "Jürg Müller");
  EXPECT_EQ(first.fromAddress, "juerg.mueller@example.ch");
  EXPECT_EQ(first.fromDomain, "example.ch");
  EXPECT_EQ(first.toAddresses, "A@example.com, b@example.com");
  EXPECT_EQ(first.ccAddresses, "d@example.com");
  EXPECT_EQ(first.participants,
            "a@example.com b@example.com d@example.com juerg.mueller@example.ch zz@example.com");
  EXPECT_EQ(first.subject, "AW: Prüfung");
  EXPECT_EQ(first.subjectNorm, "prüfung");
  EXPECT_EQ(first.threadKey, "r1@x");
  EXPECT_EQ(first.referenceIDs, "r1@x r2@x");
  EXPECT_EQ(first.snippet, "Hallo Welt");
  EXPECT_EQ(first.sentAt, Date{1707123600});
  EXPECT_EQ(first.origin, "received");
  EXPECT_EQ(first.retentionClass, "business");
  EXPECT_EQ(first.expiresAt, Date{2051222399});  // 2034-12-31T23:59:59Z
  EXPECT_EQ(archive->catalog().memberships(1)[0].flags, "\\Flagged \\Seen");
  EXPECT_EQ(archive->catalog().memberships(1)[0].uid, 1);
  EXPECT_EQ(archive->catalog().message(2)->threadKey, "subj:nur betreff");
  EXPECT_EQ(archive->catalog().message(2)->expiresAt, Date{2019686399});  // from 2023
  EXPECT_EQ(archive->catalog().message(3)->threadKey, "unthreaded");
  EXPECT_EQ(archive->catalog().database().count(
                "SELECT rowid FROM message_fts WHERE message_fts MATCH 'pruefung AND welt'"),
            1);
}

TEST(Ingest, theJournalTellsOfEachMessage) {
  TestArchive archive;
  archive.ingest({plainMail(1), mailWithFiles(2, {{"a.bin", noise(9000)}})});
  const auto entries = archive.entries(AuditAction::messageIngested);
  ASSERT_EQ(entries.size(), 2U);
  const MessageRow row = *archive->catalog().message(2);
  EXPECT_EQ(entries[1].subject, row.sha256);
  EXPECT_EQ(entries[1].details,
            (std::map<std::string, std::string>{{"id", "2"},
                                                {"size", std::to_string(row.size)},
                                                {"stored", std::to_string(row.storedSize)},
                                                {"attachments", "1"},
                                                {"folder_id", "1"},
                                                {"class", "business"},
                                                {"codec", "deflate+dictionary"},
                                                {"origin", "received"}}));
  const auto finished = archive.entries(AuditAction::importFinished);
  ASSERT_EQ(finished.size(), 1U);
  EXPECT_EQ(finished[0].details.at("added"), "2");
  EXPECT_EQ(archive->sealer().latestSeal()->messageCount, 2);
  EXPECT_TRUE(archive->journal().verify().ok);
}

TEST(Ingest, sealsAtThePolicysInterval) {
  RetentionPolicy policy;
  policy.sealEveryEntries = 10;
  TestArchive archive(policy);
  std::vector<Bytes> mails;
  for (int i = 0; i < 25; ++i) mails.push_back(plainMail(i));
  archive.ingest(mails);
  std::vector<std::int64_t> counts;
  for (const ChainSeal& seal : archive->sealer().allSeals()) counts.push_back(seal.messageCount);
  EXPECT_EQ(counts, (std::vector<std::int64_t>{0, 10, 20, 25}));
}

TEST(Ingest, aSidecarThatCannotBeWrittenStopsNothingAndIsTold) {
  TestArchive archive;
  std::filesystem::remove(archive.path() / "packs/00000001.idx");
  std::filesystem::create_symlink("/dev/full", archive.path() / "packs/00000001.idx");
  EXPECT_EQ(archive.ingest({plainMail(1)}).added, 1);
  EXPECT_EQ(stored(archive, 1), plainMail(1));
  ASSERT_EQ(archive.entries(AuditAction::integrityFailed).size(), 1U);
  EXPECT_EQ(archive.entries(AuditAction::integrityFailed)[0].subject, "recovery-index");
}

TEST(Ingest, aBrokenBatchIsCorrectedInTheJournal) {
  TestArchive archive;
  archive->catalog().database().execute(
      "CREATE TRIGGER t BEFORE INSERT ON message WHEN (SELECT COUNT(*) FROM message) = 2 BEGIN "
      "INSERT INTO hold(id, payload, created_at) VALUES('h', '{}', 1); END");
  EXPECT_THROW(archive.ingest({plainMail(1), plainMail(2), plainMail(3)}), JsonError);
  const auto entries = archive.entries(AuditAction::integrityFailed);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].subject, "import");
  EXPECT_EQ(entries[0].details.at("note"),
            "entries 4 to 5 belong to a batch that was not kept; its messages are not in the "
            "archive");
  EXPECT_EQ(archive->catalog().stats().messages, 0);
  EXPECT_TRUE(archive->journal().verify().ok);
}

TEST(Ingest, oneMessageTheCatalogRefusesIsLeftOutWhole) {
  TestArchive archive;
  archive->catalog().database().execute(
      "CREATE TRIGGER t BEFORE INSERT ON message_header WHEN NEW.value = 'Offerte 2' BEGIN SELECT "
      "RAISE(ABORT, 'no'); END");
  const Bytes file = noise(9000);
  const IngestSummary summary =
      archive.ingest({mailWithFiles(1, {{"a", file}}), mailWithFiles(2, {{"a", file}}),
                      mailWithFiles(3, {{"a", file}})});
  EXPECT_EQ(summary.added, 2);
  EXPECT_EQ(summary.failed, 1);
  EXPECT_EQ(
      archive->catalog()
          .blob(archive->catalog().database().query("SELECT hash FROM blob").front().string("hash"))
          ->refcount,
      2);
  EXPECT_EQ(archive->catalog().stats().attachments, 2);
}

TEST(Ingest, aSourceFullOfUnreadableItemsCanBeCancelled) {
  TestArchive archive;
  MemoryImporter importer({plainMail(1)});
  importer.unreadableItems.assign(5000, "/mail/x: Permission denied");
  IngestOptions options;
  options.accountName = "a";
  std::atomic<int> asked{0};
  const IngestSummary summary = ingestAll(
      *archive, importer, options, [&asked] { return ++asked > 100; }, nullptr);
  EXPECT_TRUE(summary.cancelled);
  EXPECT_EQ(summary.failed, 99);
}

TEST(Ingest, badItemsAreCountedAndTheRestGoesOn) {
  TestArchive archive;
  MemoryImporter importer({plainMail(1), "", "just text\nNote: nothing\n", plainMail(2)});
  importer.unreadableItems = {"/mail/x: Permission denied"};
  const IngestSummary summary = archive.ingest(importer);
  EXPECT_EQ(summary.added, 2);
  EXPECT_EQ(summary.failed, 2);
  EXPECT_EQ(summary.notMail, 1);
  EXPECT_EQ(summary.failures,
            (std::vector<std::string>{"/mail/store.mbox, message 2: empty or unreadable message",
                                      "/mail/x: Permission denied"}));
  EXPECT_EQ(summary.errors[1], "/mail/store.mbox, message 3: not a mail message");

  IngestOptions options;
  options.accountName = "a";
  options.accountKind = "mbox";
  options.archivesFilesThatAreNotMail = true;
  EXPECT_EQ(ingestAll(*archive, importer, options, nullptr, nullptr).added, 1);
}

TEST(Ingest, listsOfFailuresAreBounded) {
  TestArchive archive;
  const IngestSummary summary = archive.ingest(std::vector<Bytes>(200, Bytes()));
  EXPECT_EQ(summary.failed, 200);
  EXPECT_EQ(summary.errors.size(), 50U);
  EXPECT_EQ(summary.failures.size(), 50U);
}

TEST(Ingest, orderIsTheSourcesAcrossBatches) {
  TestArchive archive;
  std::vector<Bytes> mails;
  for (int i = 0; i < 100; ++i) {
    // Of very different cost, so that the preparing threads overtake one another.
    mails.push_back(i % 7 == 0 ? mailWithFiles(i, {{"a", noise(200000, 9)}}) : plainMail(i));
  }
  EXPECT_EQ(archive.ingest(mails).added, 100);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(archive->catalog().message(i + 1)->sha256,
              sha256Hex(mails[static_cast<std::size_t>(i)]));
  }
}

TEST(Ingest, cancellingKeepsWhatWasRead) {
  TestArchive archive;
  std::vector<Bytes> mails;
  for (int i = 0; i < 60; ++i) mails.push_back(plainMail(i));
  MemoryImporter importer(mails);
  IngestOptions options;
  options.accountName = "a";
  std::atomic<int> asked{0};
  const IngestSummary summary = ingestAll(
      *archive, importer, options, [&asked] { return ++asked > 20; }, nullptr);
  EXPECT_TRUE(summary.cancelled);
  EXPECT_EQ(summary.added, 20);
  EXPECT_EQ(archive.entries(AuditAction::importFinished).size(), 1U);
  EXPECT_EQ(archive.ingest(mails).added, 40);
}

TEST(Ingest, aSourceThatBreaksOffLeavesWhatItGave) {
  TestArchive archive;
  MemoryImporter importer({plainMail(1), plainMail(2)});
  importer.failure = std::make_exception_ptr(ImportError(ImportError::Unreadable{"/mail/x"}));
  EXPECT_THROW(archive.ingest(importer), ImportError);
  EXPECT_EQ(archive->catalog().stats().messages, 2);
  EXPECT_EQ(archive->catalog().database().count(
                "SELECT COUNT(*) FROM ingest_log WHERE finished_at IS NULL"),
            1);
}

TEST(Ingest, aFullDiskIsToldAndNothingCommittedIsLost) {
  std::vector<Bytes> mails;
  for (int i = 0; i < 40; ++i) mails.push_back(plainMail(i));
  for (std::size_t room = 0; room < 40000; room += 1777) {
    SCOPED_TRACE(room);
    TestArchive archive;
    archive.ingest({plainMail(1000)});
    {
      const FullDisk full(room);
      try {
        archive.ingest(mails);
      } catch (const FileError& error) {
        EXPECT_EQ(error.error(), ENOSPC);
      }
    }
    archive.drop();
    archive.reopen();
    const CatalogStats stats = archive->catalog().stats();
    for (std::int64_t id = 1; id <= stats.messages; ++id) {
      const MessageRow row = archive->catalog().message(id).value();
      EXPECT_EQ(sha256Hex(rawMessage(*archive, row)), row.sha256);
    }
    EXPECT_EQ(stats.messages + archive.ingest(mails).added, 41);
  }
}

TEST(Ingest, aFailedFlushKeepsTheBatchOutOfTheCatalog) {
  TestArchive archive;
  {
    const FailingSync failing;
    EXPECT_THROW(archive.ingest({plainMail(1)}), FileError);
  }
  EXPECT_EQ(archive->catalog().batchDepth(), 0);
  EXPECT_EQ(archive->catalog().stats().messages, 0);
  archive.drop();
  archive.reopen();
  EXPECT_EQ(archive.ingest({plainMail(1)}).added, 1);
  EXPECT_EQ(stored(archive, 1), plainMail(1));
}

TEST(Ingest, oneMessageForACallerWithALoopOfItsOwn) {
  TestArchive archive;
  Catalog& catalog = archive->catalog();
  const MailboxRef mailbox{
      catalog.upsertFolder(catalog.upsertAccount("a", "imap", {}, {}, {}), "B"), "B", "a"};
  SourceMessage message;
  message.raw = plainMail(1);
  EXPECT_EQ(ingest(*archive, message, mailbox).kind, IngestOutcome::Kind::stored);
  EXPECT_EQ(ingest(*archive, message, mailbox).kind, IngestOutcome::Kind::duplicate);
  message.raw.clear();
  EXPECT_EQ(ingest(*archive, message, mailbox).kind, IngestOutcome::Kind::failed);
  archive.drop();
  archive.reopen();
  EXPECT_EQ(stored(archive, 1), plainMail(1));
}

TEST(Ingest, aHoldThatCannotBeReadLetsNothingIn) {
  TestArchive archive;
  archive->catalog().database().run(
      "INSERT INTO hold(id, payload, created_at) VALUES('h', '{}', 1)");
  EXPECT_THROW(archive.ingest({plainMail(1)}), JsonError);
  EXPECT_EQ(archive->catalog().stats().messages, 0);
}

TEST(MessageReader, damageIsToldAndDisplayGoesOn) {
  TestArchive archive;
  archive.ingest({mailWithFiles(1, {{"a.bin", noise(9000)}})});
  const MessageRow row = *archive->catalog().message(1);
  archive->catalog().database().execute("PRAGMA foreign_keys=OFF; DELETE FROM blob");
  EXPECT_THROW(rawMessage(*archive, row), ArchiveError);
  const Bytes display = rawMessageForDisplay(*archive, row);
  EXPECT_NE(display.find("Anbei die Offerte."), Bytes::npos);
  EXPECT_LT(display.size(), 2000U);
}

TEST(ThroughputMeter, smoothsWindows) {
  ThroughputMeter meter(Date{100});
  meter.record(5, 50, Date{100.5});
  EXPECT_EQ(meter.messagesPerSecond(), 0);
  meter.record(5, 50, Date{101});
  EXPECT_DOUBLE_EQ(meter.messagesPerSecond(), 10);
  meter.record(40, 400, Date{103});
  EXPECT_DOUBLE_EQ(meter.messagesPerSecond(), 20 * 0.4 + 10 * 0.6);
  EXPECT_DOUBLE_EQ(meter.averageBytesPerSecond(Date{105}), 100);
  EXPECT_EQ(meter.averageMessagesPerSecond(Date{100}), 0);
}

}  // namespace
}  // namespace ambervane
