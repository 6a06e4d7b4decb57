#include "store/archive_merge.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/digest.h"
#include "base/text.h"
#include "platform/immutable_flag.h"
#include "store/archive_conversion.h"
#include "store/archive_error.h"
#include "store/catalog_annotations.h"
#include "store/catalog_holds.h"
#include "store/message_reader.h"
#include "store/restore_annotations.h"
#include "store/tagging.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const RetentionPolicy kPlain;
const RetentionPolicy kEncrypted({ComplianceRegime::euGDPR});

/// All that belongs to the messages that can be read, a line each.
Lines inventory(MailArchive& archive) {
  SQLiteDatabase& db = archive.catalog().database();
  const auto list = [&db](const std::string& sql, std::int64_t id) {
    std::string text;
    for (const Row& row : db.query(sql, {id})) text += " " + row.string("t");
    return text;
  };
  Lines lines;
  for (const Row& columns : db.query("SELECT * FROM message WHERE erased = 0")) {
    const MessageRow row(columns);
    EXPECT_EQ(sha256Hex(rawMessage(archive, row)), row.sha256);
    lines.push_back(
        row.sha256 + " " + row.retentionClass + " " + row.origin.value_or("") +
        row.originSource.value_or("") + std::to_string(row.internalAt.value_or(Date{}).seconds) +
        list("SELECT a.name || '/' || f.path || f.delimiter || ifnull(uid, '-') || flags || "
             "ifnull(removed_at, '') AS t FROM message_folder mf JOIN folder f ON f.id = "
             "folder_id JOIN account a ON a.id = f.account_id WHERE message_id = ? ORDER BY t",
             row.id) +
        list("SELECT name || colour AS t FROM tag JOIN message_tag ON tag_id = id WHERE "
             "message_id = ? ORDER BY t",
             row.id) +
        list("SELECT body || author || created_at || updated_at AS t FROM message_note WHERE "
             "message_id = ? ORDER BY t",
             row.id) +
        list("SELECT hold_id AS t FROM message_hold WHERE message_id = ? ORDER BY t", row.id));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

LegalHold hold(const std::string& id, HoldCriteria criteria = {}) {
  return {id, "Matter " + id, "Klage", "Eva", kTestTime, std::nullopt, std::move(criteria)};
}

/// Mail in several mailboxes with all that can hang on it; message 3 is erased.
void fill(TestArchive& archive) {
  MemoryImporter importer({plainMail(1), plainMail(2), plainMail(3)}, "INBOX");
  importer.messages[0].flags = {MessageFlag::seen, MessageFlag::flagged};
  importer.messages[0].internalDate = Date{1700000000};
  importer.messages[1].origin = MessageOrigin::reconstructed;
  importer.messages[1].reconstructedFrom = "olm";
  archive.ingest(importer);
  archive.ingest({mailWithFiles(4, {{"a.pdf", noise(9000)}})}, "Projekte/Ost", "bert");
  archive.ingest({plainMail(2)}, "Alt");
  SQLiteDatabase& db = archive->catalog().database();
  db.run("UPDATE message_folder SET removed_at = 5 WHERE message_id IN (1, 2)");
  db.run("UPDATE message SET retention_class = 'personnel' WHERE id = 2");
  archive->catalog().markErased(3, "Wunsch");
  applyTag(*archive, "Wichtig", "red", {1, 2}, "eva");
  CatalogAnnotations(archive->catalog())
      .insertNote({0, 1, "Rückruf", "eva", Date{1700000001.25}, Date{1700000002.5}});
  CatalogHolds holds(archive->catalog());
  holds.save(hold("active"));
  holds.link(2, "active");
  LegalHold released = hold("released", {.folders = {"INBOX"}});
  released.releasedAt = kTestTime;
  holds.save(released);
}

Lines evidenceFolders(const TestArchive& archive) {
  Lines names;
  for (const auto& entry : fs::directory_iterator(archive.path() / "chain/imported")) {
    names.push_back(entry.path().filename().native());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string detail(const AuditEntry& entry, const std::string& key) {
  return entry.details.at(key);
}

TEST(MergeArchive, everythingTravelsOnce) {
  const struct {
    const char* name;
    RetentionPolicy from, into;
    CompressionEffort fromEffort, intoEffort;
  } kCases[] = {
      {"plainToKeys", kPlain, kEncrypted, CompressionEffort::balanced, CompressionEffort::balanced},
      {"keysToBlocks", kEncrypted, kPlain, CompressionEffort::fast, CompressionEffort::smallest},
      {"blocksToKeys", kPlain, kEncrypted, CompressionEffort::smallest,
       CompressionEffort::smallest},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TestArchive source(c.from, c.fromEffort);
    fill(source);
    source.reopen(OpenMode::readOnly);
    const Lines wanted = inventory(*source);
    ASSERT_EQ(wanted.size(), 3U);
    TestArchive target(c.into, c.intoEffort);

    const MergeOutcome first = mergeArchive(*target, *source, "eva");
    EXPECT_EQ(std::vector({first.messages, first.duplicates, first.failed, first.accounts}),
              (std::vector<std::int64_t>{3, 0, 0, 2}));
    EXPECT_EQ(std::vector({first.tags, first.notes, first.holds, first.heldMessages}),
              (std::vector<std::int64_t>{2, 1, 2, 1}));
    EXPECT_EQ(inventory(*target), wanted);
    EXPECT_EQ(CatalogHolds(target->catalog()).holds(false),
              CatalogHolds(source->catalog()).holds(false));
    const auto note = target.entries(AuditAction::noteAdded).front();
    target->catalog().database().run("DELETE FROM message_note");
    restoreNotes(target->journal(), target->catalog());
    EXPECT_EQ(inventory(*target), wanted) << "the journal alone brings a note back with its dates";

    const AuditJournal copy(*first.evidencePath / "chain/journal.jsonl", nullptr, false);
    EXPECT_TRUE(copy.verify().ok);
    EXPECT_EQ(copy.verify().head, first.sourceChainHead);
    const Sealer seals("", *first.evidencePath / "chain/seals", systemNow, false);
    ASSERT_EQ(seals.allSeals(), source->sealer().allSeals());
    EXPECT_TRUE(Sealer::verify(seals.allSeals().back(), source->sealer().publicKeyBase64()));
    EXPECT_EQ(readFile(*first.evidencePath / "chain-head.txt"), first.sourceChainHead + "\n");

    for (int again = 0; again < 2; ++again) {
      const MergeOutcome second = mergeArchive(*target, *source, "eva");
      EXPECT_EQ(std::vector({second.messages, second.duplicates, second.failed}),
                (std::vector<std::int64_t>{0, 3, 0}));
      EXPECT_EQ(second.tags + second.notes + second.holds + second.heldMessages, 0);
      EXPECT_EQ(inventory(*target), wanted);
      target.close();
      target.reopen();
    }
    EXPECT_EQ(evidenceFolders(target), Lines{source->manifest().archiveID});
    EXPECT_TRUE(target->journal().verify().ok);
    EXPECT_EQ(target->catalog().accounts().size(), 2U);
  }
}

TEST(MergeArchive, recordsWhatCameFromWhere) {
  TestArchive source;
  fill(source);
  TestArchive target;
  mergeArchive(*target, *source, "eva");
  Lines actions;
  for (const AuditEntry& entry : target.entries(AuditAction::policyChanged)) {
    if (entry.subject == "merge") actions.push_back(detail(entry, "action"));
  }
  EXPECT_EQ(actions, (Lines{"started", "finished"}));
  const AuditEntry started = target.entries(AuditAction::policyChanged).front();
  EXPECT_EQ(detail(started, "source"), source->manifest().archiveID);
  EXPECT_EQ(detail(started, "source_head"), source->journal().head());
  EXPECT_EQ(detail(started, "source_messages"), "3");
  EXPECT_EQ(detail(started, "evidence"), "chain/imported/" + source->manifest().archiveID);
  const auto placed = target.entries(AuditAction::legalHoldPlaced);
  ASSERT_EQ(placed.size(), 2U);
  EXPECT_EQ(detail(placed[0], "note"), "carried over with the merge from Test");
  EXPECT_EQ(detail(placed[1], "definition"), holdCriteriaJson({.folders = {"INBOX"}}));
  EXPECT_EQ(target.entries(AuditAction::legalHoldReleased).front().subject, "released");
  EXPECT_EQ(target->sealer().latestSeal()->entryCount, target->journal().count() - 1);
}

TEST(MergeArchive, refusals) {
  TestArchive source;
  fill(source);
  const std::int64_t entries = source->journal().count();
  source.close();
  const TestArchive copy(TestArchive::CopyOf{source});
  const ScratchFolder folder;
  fs::create_directory_symlink(source.path(), folder / "link");
  source.reopen();
  for (const fs::path& path : {source.path(), copy.path(), folder / "link"}) {
    MailArchive same(path, OpenMode::readOnly, TestArchive::environment());
    EXPECT_THROW(mergeArchive(*source, same, "eva"), MergeError);
  }
  EXPECT_EQ(source->journal().count(), entries);

  TestArchive target;
  const std::int64_t before = target->journal().count();
  source->catalog().database().run("UPDATE hold SET payload = '{' WHERE id = 'active'");
  EXPECT_THROW(mergeArchive(*target, *source, "eva"), TranslatableError) << "a hold is unknown";
  target.reopen(OpenMode::readOnly);
  EXPECT_THROW(mergeArchive(*target, *source, "eva"), ArchiveError);
  EXPECT_EQ(target->journal().count(), before);
  EXPECT_FALSE(fs::exists(target.path() / "chain/imported"));
}

TEST(MergeArchive, eachHeadHasItsEvidence) {
  TestArchive source;
  source.ingest({plainMail(1)});
  TestArchive target;
  const fs::path first = *mergeArchive(*target, *source, "eva").evidencePath;
  const std::string id = source->manifest().archiveID;
  source.ingest({plainMail(2)});
  EXPECT_EQ(mergeArchive(*target, *source, "eva").messages, 1);
  EXPECT_EQ(mergeArchive(*target, *source, "eva").messages, 0);
  EXPECT_EQ(evidenceFolders(target), (Lines{id, id + "-2"}));
  // A copy that a crash cut short is not taken for evidence, and is made whole.
  fs::remove(first / "chain-head.txt");
  writeFileAtomically(first / "chain/journal.jsonl", "{");
  mergeArchive(*target, *source, "eva");
  EXPECT_EQ(readFile(first / "chain/journal.jsonl"),
            readFile(source.path() / "chain/journal.jsonl"));
  // What the source has of others goes along; no key does.
  TestArchive last;
  const fs::path path = *mergeArchive(*last, *target, "eva").evidencePath;
  EXPECT_EQ(readFile(path / "chain/imported" / id / "archive.json"),
            readFile(source.path() / "archive.json"));
  EXPECT_FALSE(fs::exists(path / "keys"));

  source.close();
  Bytes manifest = readFile(source.path() / "archive.json");
  manifest.replace(manifest.find(id), id.size(), "../../../../outside");
  writeFileAtomically(source.path() / "archive.json", manifest);
  source.reopen(OpenMode::readOnly);
  EXPECT_EQ(mergeArchive(*target, *source, "eva").evidencePath->parent_path(),
            target.path() / "chain/imported");
}

TEST(MergeArchive, accountsKeepApart) {
  TestArchive target;
  target.ingest({plainMail(1)});
  TestArchive source;
  TestArchive other;
  source.ingest({plainMail(1), plainMail(2)});
  other.ingest({plainMail(3)});
  other->catalog().database().run("DELETE FROM message_folder");
  for (int again = 0; again < 2; ++again) {
    mergeArchive(*target, *source, "eva");
    mergeArchive(*target, *other, "eva");
  }
  Lines names;
  for (const FolderCount& folder : target->catalog().folderCounts()) {
    names.push_back(folder.account + ": " + folder.path + " " + std::to_string(folder.messages));
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (Lines{"Test: Imported/Test 1", "anna (Test) 2: INBOX 0", "anna (Test): INBOX 2",
                          "anna: INBOX 1"}));
}

TEST(MergeArchive, whatCannotBeReadIsCounted) {
  TestArchive source(kEncrypted);
  fill(source);
  SQLiteDatabase& db = source->catalog().database();
  db.run("UPDATE message SET pack_offset = pack_offset + 1 WHERE id = 1");
  TestArchive target;
  MergeOutcome outcome = mergeArchive(*target, *source, "eva");
  EXPECT_EQ(outcome.failed, 1);
  EXPECT_EQ(outcome.messages, 2);
  ASSERT_EQ(outcome.failures.size(), 1U);
  EXPECT_TRUE(outcome.failures[0].starts_with("message 1: ")) << outcome.failures[0];

  db.run("UPDATE message SET pack_offset = pack_offset - 1 WHERE id = 1");
  db.run("UPDATE message SET sha256 = replace(sha256, 'a', 'b') WHERE id = 1");
  source.close();
  source.reopen(OpenMode::readOnly);
  EXPECT_EQ(mergeArchive(*target, *source, "eva").failed, 1) << "a digest that is another's";
  source.close();
  fs::remove(source.path() / "keys/master.key");
  source.reopen(OpenMode::readOnly);
  outcome = mergeArchive(*target, *source, "eva");
  EXPECT_EQ(outcome.failed, 3);
}

/// What has been decided in the target stands, whatever the source says.
TEST(MergeArchive, leavesTheTargetsOwn) {
  TestArchive source;
  fill(source);
  TestArchive target;
  mergeArchive(*target, *source, "eva");
  const auto idOf = [&](const Bytes& mail) {
    return *target->catalog().messageID(sha256Hex(mail));
  };
  SQLiteDatabase& db = target->catalog().database();
  LegalHold released = hold("active");
  released.releasedAt = kTestTime;
  CatalogHolds(target->catalog()).save(released);
  CatalogHolds(target->catalog()).unlinkAll("active");
  db.run("UPDATE tag SET colour = 'green'");
  db.run("DELETE FROM message_tag");
  db.run("UPDATE message_folder SET removed_at = NULL, uid = 77 WHERE message_id = ?",
         {idOf(plainMail(1))});
  target->catalog().markErased(idOf(plainMail(2)), "Wunsch");

  const MergeOutcome outcome = mergeArchive(*target, *source, "eva");
  EXPECT_EQ(outcome.duplicates, 3);
  EXPECT_EQ(outcome.tags, 1) << "nothing is put on what was erased";
  EXPECT_EQ(outcome.heldMessages, 0);
  EXPECT_EQ(CatalogHolds(target->catalog()).hold("active"), released);
  EXPECT_EQ(CatalogAnnotations(target->catalog()).tag("wichtig")->colour, "green");
  const auto filed = target->catalog().memberships(idOf(plainMail(1)));
  ASSERT_EQ(filed.size(), 1U);
  EXPECT_EQ(filed[0].uid, 77);
  EXPECT_FALSE(filed[0].removed);
}

TEST(MergeArchive, activeHoldsReachWhatIsHereAndWhatComes) {
  TestArchive source;
  source.ingest({plainMail(1, "Angebot")});
  CatalogHolds(source->catalog()).save(hold("1", {.searchTerms = {"angebot"}}));
  TestArchive target;
  target.ingest({plainMail(2, "Angebot"), plainMail(3)});
  EXPECT_EQ(mergeArchive(*target, *source, "eva").heldMessages, 2);
}

TEST(MergeArchive, whatIsInterruptedIsCompletedByTheNext) {
  TestArchive source;
  std::vector<Bytes> mails;
  for (int i = 0; i < 300; ++i) mails.push_back(plainMail(i));
  source.ingest(std::move(mails));
  TestArchive target(RetentionPolicy(), CompressionEffort::smallest);
  int asked = 0;
  const MergeOutcome part =
      mergeArchive(*target, *source, "eva", nullptr, [&asked] { return ++asked > 100; });
  EXPECT_TRUE(part.cancelled);
  EXPECT_GT(part.messages, 0);
  EXPECT_EQ(detail(target.entries(AuditAction::policyChanged).back(), "action"), "interrupted");
  EXPECT_EQ(inventory(*target).size(), static_cast<std::size_t>(part.messages));
  std::int64_t last = 0;
  const MergeOutcome rest =
      mergeArchive(*target, *source, "eva", [&last](std::int64_t done, std::int64_t total) {
        EXPECT_EQ(total, 300);
        EXPECT_EQ(done, ++last);
      });
  EXPECT_EQ(last, 300);
  EXPECT_EQ(rest.messages + part.messages, 300);
  EXPECT_EQ(inventory(*target), inventory(*source));
}

TEST(ConvertArchive, storesTheSameMailDifferently) {
  TestArchive source;
  fill(source);
  const ScratchFolder folder;
  const ConversionOutcome outcome =
      convertArchive(*source, folder / "new.ambervane", CompressionEffort::smallest, "Neu", "eva",
                     nullptr, nullptr, TestArchive::environment());
  EXPECT_EQ(std::vector({outcome.messages, outcome.failed, outcome.notes, outcome.holds}),
            (std::vector<std::int64_t>{3, 0, 1, 2}));
  MailArchive made(folder / "new.ambervane", OpenMode::readOnly, TestArchive::environment());
  EXPECT_EQ(inventory(made), inventory(*source));
  EXPECT_EQ(made.manifest().name, "Neu");
  EXPECT_EQ(made.policy(), source->policy());
  EXPECT_TRUE(made.writesSolidBlocks());
  const AuditEntry exported = source.entries(AuditAction::messageExported).back();
  EXPECT_EQ(detail(exported, "to_archive"), made.manifest().archiveID);
  EXPECT_EQ(detail(exported, "to_compression"), "smallest");
  const AuditEntry converted = made.journal().recent(1, AuditAction::policyChanged).front();
  EXPECT_EQ(detail(converted, "action"), "converted");
  EXPECT_EQ(detail(converted, "from_compression"), "balanced");
  EXPECT_EQ(detail(converted, "messages"), "3");
  EXPECT_EQ(made.sealer().latestSeal()->entryCount, made.journal().count() - 1);
}

TEST(ConvertArchive, neverWritesIntoWhatIsThere) {
  TestArchive source;
  const ScratchFolder folder;
  writeFileAtomically(folder / "file", "x");
  fs::create_directory(folder / "folder");
  fs::create_symlink("nowhere", folder / "link");
  for (const char* name : {"file", "folder", "link"}) {
    SCOPED_TRACE(name);
    EXPECT_THROW(
        convertArchive(*source, folder / name, CompressionEffort::fast, std::nullopt, "eva"),
        ConversionError);
  }
  EXPECT_EQ(readFile(folder / "file"), "x");
  EXPECT_TRUE(fs::is_empty(folder / "folder"));
}

}  // namespace
}  // namespace ambervane
