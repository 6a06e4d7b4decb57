#include "store/mail_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <set>

#include "base/json.h"
#include "base/text.h"
#include "platform/immutable_flag.h"
#include "store/archive_error.h"
#include "store/message_reader.h"
#include "store/pack_error.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

template <typename Reason>
void expectRefusal(const std::function<void()>& action, const std::string& words) {
  try {
    action();
    FAIL() << "not refused";
  } catch (const ArchiveError& error) {
    EXPECT_TRUE(error.is<Reason>()) << error.what();
    EXPECT_NE(std::string(error.what()).find(words), std::string::npos) << error.what();
  }
}

std::set<std::string> filesBelow(const fs::path& folder) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    files.insert(entry.path().lexically_relative(folder).native());
  }
  return files;
}

void editManifest(const fs::path& archive, const std::function<void(nlohmann::json&)>& edit) {
  auto manifest = nlohmann::json::parse(readFile(archive / "archive.json"));
  edit(manifest);
  writeFileAtomically(archive / "archive.json", manifest.dump());
}

TEST(MailArchive, creationIsJournalledAndSealed) {
  TestArchive archive;
  const auto entries = archive->journal().allEntries(10);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].action, AuditAction::archiveCreated);
  EXPECT_EQ(entries[0].details.at("regimes"), "ch-gebuev");
  EXPECT_EQ(entries[0].details.at("retention_years"), "10");
  EXPECT_EQ(entries[0].details.at("worm"), "on");
  EXPECT_EQ(entries[0].details.at("crypto_shredding"), "off");
  EXPECT_EQ(entries[0].details.at("format_version"), "3");
  EXPECT_EQ(entries[0].details.at("compression"), "balanced");
  EXPECT_EQ(entries[0].details.at("signed_by"), "none");
  EXPECT_EQ(entries[1].action, AuditAction::chainSealed);
  EXPECT_EQ(entries[1].subject, "1");
  EXPECT_EQ(entries[1].details.at("head"), entries[0].entryHash);
  EXPECT_TRUE(archive->journal().verify().ok);
  EXPECT_TRUE(Sealer::verify(*archive->sealer().latestSeal()));
  EXPECT_EQ(archive->sealer().latestSeal()->entryCount, 1);
  archive.close();
  EXPECT_EQ(filesBelow(archive.path()),
            (std::set<std::string>{"FORMAT.md", "archive.json", "catalog.sqlite", "chain",
                                   "chain/journal.jsonl", "chain/seals",
                                   "chain/seals/00000001.seal.json", "dict", "dict/00001.dict",
                                   "export", "keys", "keys/content-keys.sqlite", "keys/master.key",
                                   "keys/seal.key", "lock", "packs", "packs/00000001.pack"}));
}

TEST(MailArchive, createTakesOnlyAnEmptyPlace) {
  const ScratchFolder folder;
  fs::create_directory(folder / "empty");
  fs::create_directory(folder / "hidden");
  writeFileAtomically(folder / "hidden" / ".x", "");
  writeFileAtomically(folder / "file", "");
  const auto create = [&](const char* name) {
    MailArchive::create(folder / name, "n", RetentionPolicy(), CompressionEffort::fast,
                        TestArchive::environment());
  };
  create("empty");
  create("new/below");
  for (const char* name : {"hidden", "file", "empty"}) {
    SCOPED_TRACE(name);
    expectRefusal<ArchiveError::DestinationNotEmpty>([&] { create(name); },
                                                     "There is already something at ");
  }
}

TEST(MailArchive, whatIsNoArchive) {
  const ScratchFolder folder;
  const auto open = [&] { MailArchive(folder.path(), OpenMode::readWrite); };
  expectRefusal<ArchiveError::NotAnArchive>(open, " is not a Ambervane archive");
  writeFileAtomically(folder / "archive.json", "{\"archiveID\": ");
  EXPECT_THROW(open(), JsonError);
  EXPECT_EQ(filesBelow(folder.path()), (std::set<std::string>{"archive.json"}));
}

TEST(MailArchive, newerFormats) {
  TestArchive archive;
  archive.close();
  editManifest(archive.path(), [](nlohmann::json& manifest) {
    manifest["formatVersion"] = 9;
    manifest["minimumReaderVersion"] = 2;
  });
  archive.reopen();
  EXPECT_TRUE(archive->readOnly());
  ASSERT_TRUE(archive->newerFormatNotice());
  EXPECT_TRUE(archive->newerFormatNotice()->starts_with(
      "This archive was written in format version 9; this build understands version 3."));
  EXPECT_THROW(archive->sealNow(), ArchiveError);
  archive.close();
  editManifest(archive.path(),
               [](nlohmann::json& manifest) { manifest["minimumReaderVersion"] = 4; });
  expectRefusal<ArchiveError::VersionUnsupported>(
      [&] { archive.reopen(); },
      "in format version 9 and needs a build that understands version 4; this one understands 3");
}

TEST(MailArchive, anOlderFormatKeepsItsDescription) {
  TestArchive archive;
  archive.close();
  writeFileAtomically(archive.path() / "FORMAT.md", "old");
  editManifest(archive.path(), [](nlohmann::json& manifest) { manifest["formatVersion"] = 1; });
  archive.reopen();
  archive.close();
  EXPECT_EQ(readFile(archive.path() / "FORMAT.md"), "old");
  editManifest(archive.path(), [](nlohmann::json& manifest) { manifest["formatVersion"] = 3; });
  archive.reopen();
  EXPECT_NE(readFile(archive.path() / "FORMAT.md"), "old");
}

TEST(MailArchive, oneWriterManyReaders) {
  TestArchive archive;
  // The kernel ties this lock to the open file, so a second opening in one process conflicts too.
  expectRefusal<ArchiveError::LockedByAnother>(
      [&] { MailArchive(archive.path(), OpenMode::readWrite); },
      "already open for writing. It is open in ");
  MailArchive reader(archive.path(), OpenMode::readOnly);
  EXPECT_TRUE(reader.readOnly());
  EXPECT_FALSE(reader.lockingUnsupported());
  archive.close();
  EXPECT_EQ(readFile(archive.path() / "lock"), "");
  archive.reopen();
}

TEST(MailArchive, aVolumeWithoutLocksOpensAndSaysSo) {
  TestArchive archive;
  archive.close();
  ArchiveEnvironment environment = TestArchive::environment();
  environment.archiveLock = [](int, int) {
    errno = ENOTSUP;
    return -1;
  };
  MailArchive open(archive.path(), OpenMode::readWrite, environment);
  EXPECT_FALSE(open.readOnly());
  EXPECT_TRUE(open.lockingUnsupported());
  EXPECT_FALSE(open.lockingUnsupportedReason()->empty());
}

TEST(MailArchive, readingCreatesNothing) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  archive.close();
  for (const char* gone : {"export", "lock", "FORMAT.md", "chain/journal.jsonl", "keys/seal.key"}) {
    fs::remove_all(archive.path() / gone);
  }
  const auto before = filesBelow(archive.path());
  archive.reopen(OpenMode::readOnly);
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(1)), plainMail(1));
  EXPECT_THROW(archive.ingest({plainMail(2)}), ArchiveError);
  archive.close();
  EXPECT_EQ(filesBelow(archive.path()), before);
}

TEST(MailArchive, aPackThatLostItsEndTakesNoMoreRecords) {
  for (const bool missing : {true, false}) {
    SCOPED_TRACE(missing);
    TestArchive archive;
    archive.ingest({plainMail(1)});
    archive.close();
    const fs::path pack = archive.path() / "packs/00000001.pack";
    if (missing) {
      fs::remove(pack);
    } else {
      fs::resize_file(pack, 16);
    }
    archive.reopen();
    ASSERT_EQ(archive->notices().size(), 1U);
    EXPECT_EQ(archive.entries(AuditAction::integrityFailed).size(), 1U);
    archive.ingest({plainMail(2)});
    EXPECT_EQ(archive->catalog().message(2)->packID, 2);
    EXPECT_THROW(rawMessage(*archive, *archive->catalog().message(1)), PackError);
    EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(2)), plainMail(2));
    archive.reopen();
    EXPECT_TRUE(archive->notices().empty());
  }
}

TEST(MailArchive, strayFilesDoNotLeadThePacksAstray) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  archive.close();
  for (const char* name : {"00000300.pack", "9223372036854775807.pack", "7.pack", "x.pack"}) {
    writeFileAtomically(archive.path() / "packs" / name, "");
  }
  writeFileAtomically(archive.path() / "chain/seals/00000009.seal.json.tmp-123", "half");
  archive.reopen();
  EXPECT_EQ(archive->catalog().currentPackID(), 1);
  EXPECT_FALSE(fs::exists(archive.path() / "chain/seals/00000009.seal.json.tmp-123"));
}

TEST(MailArchive, aLostCatalogIsToldAndItsDictionariesAreTakenBack) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  archive.close();
  writeFileAtomically(archive.path() / "dict/00002.dict", "trained");
  fs::remove(archive.path() / "catalog.sqlite");
  archive.reopen();
  ASSERT_EQ(archive->notices().size(), 1U);
  EXPECT_THAT(archive->notices()[0], testing::StartsWith("The catalog is missing."));
  EXPECT_EQ(archive->dictionaries().active().id, 2);
  EXPECT_EQ(archive->dictionaries().active().view(), "trained");
  archive->dictionaries().store("third", 5);
  EXPECT_EQ(readFile(archive.path() / "dict/00002.dict"), "trained");
  EXPECT_EQ(readFile(archive.path() / "dict/00003.dict"), "third");
}

TEST(MailArchive, sweepsWhatACrashReserved) {
  TestArchive archive;
  archive->catalog().reserveMessage("a");
  archive->catalog().reserveMessage("b");
  archive.drop();
  archive.reopen();
  const auto entries = archive.entries(AuditAction::integrityVerified);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].subject, "startup");
  EXPECT_EQ(entries[0].details.at("swept_incomplete_rows"), "2");
  EXPECT_EQ(archive->catalog().stats().messages, 0);
  archive.reopen();
  EXPECT_EQ(archive.entries(AuditAction::integrityVerified).size(), 1U);
}

/// An archive whose packs are full after a few kilobytes.
void shrinkPacks(TestArchive& archive, std::int64_t bytes) {
  archive.close();
  editManifest(archive.path(), [&](nlohmann::json& manifest) { manifest["maxPackBytes"] = bytes; });
  archive.reopen();
}

TEST(MailArchive, fullPacksAreSealedAndTheNextOneTakesOver) {
  TestArchive archive;
  shrinkPacks(archive, 4000);
  std::vector<Bytes> mails;
  for (int i = 0; i < 6; ++i) {
    mails.push_back(plainMail(i, "x", base64Encode(noise(1500, static_cast<std::uint32_t>(i)))));
  }
  archive.ingest(mails);
  const auto packs = archive->catalog().packs();
  ASSERT_GE(packs.size(), 3U);
  for (std::size_t i = 0; i + 1 < packs.size(); ++i) {
    EXPECT_EQ(packs[i].sha256, archive->packs().digest(packs[i].id));
    EXPECT_EQ(packs[i].bytes,
              static_cast<std::int64_t>(fs::file_size(archive->packs().packURL(packs[i].id))));
    EXPECT_EQ(packs[i].immutable, isImmutable(archive->packs().packURL(packs[i].id)));
  }
  EXPECT_FALSE(packs.back().sha256);
  EXPECT_EQ(archive.entries(AuditAction::packSealed).size(), packs.size() - 1);
  archive.reopen();
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(i + 1)),
              mails[static_cast<std::size_t>(i)]);
  }
}

TEST(MailArchive, aRolloverThatTheCatalogForgotIsFinished) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  // What is on disk when the process dies between sealing a pack and the catalog's commit.
  archive->packs().seal(1, true);
  archive.drop();
  archive.reopen();
  EXPECT_EQ(archive->catalog().currentPackID(), 2);
  EXPECT_TRUE(archive->catalog().packs().front().sha256);
  EXPECT_EQ(archive.ingest({plainMail(2)}).added, 1);
  EXPECT_EQ(rawMessage(*archive, *archive->catalog().message(1)), plainMail(1));
}

}  // namespace
}  // namespace ambervane
