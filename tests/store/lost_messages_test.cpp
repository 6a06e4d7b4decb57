#include "store/lost_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "base/digest.h"
#include "store/ingest_batch.h"
#include "tests/support/file_faults.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

std::vector<AuditEntry> lossesTold(TestArchive& archive) {
  auto entries = archive.entries(AuditAction::integrityVerified);
  std::erase_if(entries, [](const AuditEntry& e) { return !e.details.contains("lost_in_crash"); });
  return entries;
}

/// Imports in a process that dies when the journal of a batch is being flushed.
void ingestAndDie(TestArchive& archive, const std::vector<Bytes>& mails) {
  archive.close();
  const pid_t child = ::fork();
  if (child == 0) {
    archive.reopen();
    const Bytes last = sha256Hex(mails.back());
    setFileStepHook([&](const FileStep& step) -> std::size_t {
      if (step.kind == FileStep::Kind::sync && step.path.filename() == "journal.jsonl" &&
          readFile(step.path).find(last) != Bytes::npos) {
        ::_exit(9);
      }
      return step.bytes;
    });
    archive.ingest(mails);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 9);
}

TEST(LostMessages, areNamedOnce) {
  for (const auto effort : {CompressionEffort::balanced, CompressionEffort::smallest}) {
    SCOPED_TRACE(std::string(rawValue(effort)));
    TestArchive archive(RetentionPolicy(), effort);
    archive.ingest({plainMail(1)});
    ASSERT_NO_FATAL_FAILURE(ingestAndDie(archive, {plainMail(1), plainMail(2), plainMail(3)}));
    archive.reopen();
    ASSERT_EQ(archive->notices().size(), 1U);
    EXPECT_THAT(archive->notices()[0], HasSubstr("were not kept: 2. Import the same source again"));
    archive.close();
    archive.reopen();
    EXPECT_THAT(archive->notices(), IsEmpty());
    const auto told = lossesTold(archive);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].subject, "startup");
    EXPECT_EQ(told[0].details.at("lost_in_crash"), "2");
    EXPECT_EQ(told[0].details.at("digests"),
              sha256Hex(plainMail(2)) + "," + sha256Hex(plainMail(3)));
    EXPECT_EQ(archive.ingest({plainMail(2), plainMail(3)}).added, 2);
  }
}

TEST(LostMessages, whatIsNotTakenForLost) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  const auto tell = [&](const std::string& digest) {
    archive->journal().append(AuditAction::messageIngested, digest, {{"id", "9"}});
  };
  tell(sha256Hex(plainMail(1)));  // has a row
  archive.reopen();
  EXPECT_THAT(lossesTold(archive), IsEmpty());

  tell(sha256Hex(plainMail(2)));
  archive->catalog().database().run("DELETE FROM meta WHERE key = 'journal_committed'");
  archive.reopen();
  EXPECT_THAT(lossesTold(archive), IsEmpty()) << "a catalog from before the note was kept";

  // A batch that failed in an orderly way is told already.
  {
    const FileSteps disk([](const FileStep& step) -> std::size_t {
      const bool fails = step.kind == FileStep::Kind::sync && step.path.extension() == ".pack";
      if (fails) throw FileError(FileError::Action::sync, step.path, EIO);
      return step.bytes;
    });
    EXPECT_THROW(archive.ingest({plainMail(3)}), FileError);
  }
  archive.drop();
  archive.reopen();
  EXPECT_THAT(lossesTold(archive), IsEmpty());
}

/// A message on its way into the mailbox "INBOX".
struct Arriving {
  explicit Arriving(MailArchive& archive) {
    SourceMessage source;
    source.raw = plainMail(1);
    prepared = *prepareOne(std::move(source), prepareSettings(archive));
    const auto account = archive.catalog().upsertAccount("a", "mbox", {}, {}, {});
    inbox.folderID = archive.catalog().upsertFolder(account, "INBOX");
    inbox.path = "INBOX";
    inbox.account = "a";
  }
  PreparedMessage prepared;
  MailboxRef inbox;
};

TEST(LostMessages, messagesThatWaitedForABlock) {
  TestArchive archive(RetentionPolicy(), CompressionEffort::smallest);
  const Arriving arriving(*archive);
  {
    IngestBatch batch(*archive);
    commit(*archive, arriving.prepared, arriving.inbox, std::nullopt);
    batch.finish();
  }
  archive.drop();
  archive.reopen();
  const auto told = lossesTold(archive);
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].details.at("digests"), sha256Hex(plainMail(1)));
  EXPECT_EQ(told[0].details.at("swept_incomplete_rows"), "1");
}

TEST(LostMessages, aBatchIsKeptThoughItsSealFails) {
  RetentionPolicy policy;
  policy.sealEveryEntries = 1;
  TestArchive archive(policy);
  const Arriving arriving(*archive);
  std::optional<FailingSync> disk;
  EXPECT_THROW(commitInBatch(
                   *archive, "import",
                   [&] {
                     commit(*archive, arriving.prepared, arriving.inbox, std::nullopt);
                     return false;
                   },
                   [&] { disk.emplace(); }),
               FileError);
  disk.reset();
  EXPECT_TRUE(archive->catalog().messageID(arriving.prepared.hash));
  for (const AuditEntry& entry : archive.entries(AuditAction::integrityFailed)) {
    EXPECT_NE(entry.subject, "import") << "the batch is said to be lost";
  }
}

}  // namespace
}  // namespace ambervane
