#include "store/catalog_rebuild.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "base/digest.h"
#include "base/json.h"
#include "base/text.h"
#include "store/archive_error.h"
#include "store/catalog_annotations.h"
#include "store/catalog_holds.h"
#include "store/content_erasure.h"
#include "store/hold_application.h"
#include "store/message_reader.h"
#include "store/tagging.h"
#include "tests/support/file_faults.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

RetentionPolicy encrypting() {
  RetentionPolicy policy;
  policy.cryptoShreddingEnabled = true;
  return policy;
}

const struct Kind {
  const char* name;
  RetentionPolicy policy;
  CompressionEffort effort;
} kKinds[] = {{"plain", RetentionPolicy(), CompressionEffort::balanced},
              {"encrypted", encrypting(), CompressionEffort::fast},
              {"smallest", RetentionPolicy(), CompressionEffort::smallest}};

/// What the catalog says of everything a rebuild is to bring back, in lines.
std::string contentOf(MailArchive& archive) {
  std::string lines;
  for (const char* sql :
       {"SELECT id || '|' || sha256 || '|' || subject || '|' || size || '|' || stored_size || "
        "'|' || pack_id || '|' || pack_offset || '|' || COALESCE(block_member, '') || '|' || "
        "retention_class || '|' || expires_at || '|' || ingested_at || '|' || "
        "COALESCE(internal_at, '') || '|' || origin || COALESCE(origin_source, '') || '|' || "
        "record_flags || '|' || dictionary_id || '|' || attachment_count FROM message WHERE "
        "erased = 0 ORDER BY id",
        "SELECT m.sha256 || '|' || a.name || '|' || f.path || '|' || COALESCE(mf.uid, '') || "
        "'|' || mf.flags || '|' || mf.sent_at FROM message_folder mf JOIN message m ON m.id = "
        "mf.message_id JOIN folder f ON f.id = mf.folder_id JOIN account a ON a.id = "
        "f.account_id WHERE m.erased = 0 ORDER BY 1",
        "SELECT hash || '|' || content_hash || '|' || pack_id || '|' || pack_offset || '|' || "
        "COALESCE(recipe, '') || '|' || encoded_size || '|' || stored_size || '|' || orig_size "
        "|| '|' || refcount FROM blob WHERE refcount > 0 ORDER BY hash",
        "SELECT a.message_id || '|' || a.filename || '|' || a.section || '|' || b.hash FROM "
        "attachment a JOIN message m ON m.id = a.message_id LEFT JOIN blob b ON b.id = "
        "a.blob_id WHERE m.erased = 0 ORDER BY 1",
        "SELECT message_id || '|' || name || '|' || value FROM message_header ORDER BY 1",
        "SELECT rowid FROM message_fts WHERE message_fts MATCH 'unterwegs'",
        "SELECT h.id || h.payload || '|' || COALESCE((SELECT group_concat(mh.message_id) FROM "
        "message_hold mh JOIN message m ON m.id = mh.message_id WHERE mh.hold_id = h.id AND "
        "m.erased = 0), '') FROM hold h ORDER BY h.id",
        "SELECT mt.message_id || t.name || t.colour || mt.added_by || mt.added_at FROM "
        "message_tag mt JOIN tag t ON t.id = mt.tag_id ORDER BY 1",
        "SELECT message_id || body || author || created_at FROM message_note ORDER BY 1",
        "SELECT payload FROM smart_folder UNION ALL SELECT payload FROM tag_rule",
        "SELECT value FROM meta WHERE key = 'active_dictionary'"}) {
    for (const Row& row : archive.catalog().database().query(sql)) {
      const std::string& column = row.columns().front();
      const std::string text = row.string(column);
      lines += (text.empty() ? std::to_string(row.integer(column)) : text) + "\n";
    }
  }
  return lines;
}

void expectAllReadable(MailArchive& archive) {
  for (const Row& columns : archive.catalog().database().query("SELECT * FROM message")) {
    const MessageRow row(columns);
    if (row.erased) continue;
    EXPECT_EQ(sha256Hex(rawMessage(archive, row)), row.sha256);
  }
}

RebuildProgress rebuild(TestArchive& archive) {
  archive.reopen(OpenMode::rebuild);
  return rebuildCatalog(*archive, nameOfCatalogSetAside(*archive), nullptr);
}

std::vector<std::string> namesBeginning(const fs::path& folder, const std::string& start) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().native();
    if (name.starts_with(start)) names.push_back(name);
  }
  return names;
}

void annotate(MailArchive& archive) {
  applyTag(archive, "Steuer", "blue", {2, 3}, "anna");
  const std::string second = *archive.catalog().messageDigest(2);
  CatalogAnnotations annotations(archive.catalog());
  annotations.addNote(2, "Bitte prüfen", "bert", kTestTime);
  archive.journal().append(AuditAction::noteAdded, second,
                           {{"note", "Bitte prüfen"}, {"author", "bert"}});
  SmartFolder folder;
  folder.id = "s1";
  folder.name = "Viele";
  annotations.saveSmartFolder(folder);
  archive.journal().append(AuditAction::smartFolderSaved, folder.id,
                           {{"definition", smartFolderJson(folder)}});
  TagRule rule;
  rule.id = "r1";
  rule.name = "R";
  rule.tag = "t";
  annotations.saveTagRule(rule);
  archive.journal().append(AuditAction::policyChanged, "tag-rule",
                           {{"action", "saved"}, {"definition", tagRuleJson(rule)}});
  for (const char* id : {"h1", "h2"}) {
    LegalHold hold;
    hold.id = id;
    hold.name = "Fall";
    hold.reason = "Streit";
    hold.createdAt = kTestTime;
    hold.criteria.searchTerms = {"terwegs"};
    CatalogHolds(archive.catalog()).save(hold);
    reapplyHold(archive, hold);
    archive.journal().append(AuditAction::legalHoldPlaced, hold.id,
                             {{"name", hold.name},
                              {"custodian", hold.custodian},
                              {"reason", hold.reason},
                              {"definition", holdCriteriaJson(hold.criteria)}});
    if (hold.id == "h1") continue;
    hold.releasedAt = kTestTime;
    CatalogHolds(archive.catalog()).save(hold);
    CatalogHolds(archive.catalog()).unlinkAll(hold.id);
    archive.journal().append(AuditAction::legalHoldReleased, hold.id, {{"reason", "vorbei"}});
  }
}

/// Six messages, two of them with files, one in two folders; of an encrypted archive the last and
/// one in the middle are erased.
void fillWithMail(TestArchive& archive) {
  const Bytes file = noise(9000, 1);
  MemoryImporter mails({plainMail(1), mailWithFiles(2, {{"a.bin", file}}),
                        mailWithFiles(3, {{"b.bin", file}, {"c.bin", noise(9000, 2)}}),
                        plainMail(4), plainMail(5), plainMail(6)});
  mails.messages[1].flags = {MessageFlag::seen, MessageFlag::flagged};
  mails.messages[1].internalDate = Date{1700000000};
  mails.messages[2].origin = MessageOrigin::reconstructed;
  mails.messages[2].reconstructedFrom = "pst";
  archive.ingest(mails);
  archive.ingest({plainMail(4)}, "a\tb\nc\\d", "zweites Konto");
  annotate(*archive);
  if (!archive->policy().cryptoShreddingEnabled) return;
  const std::int64_t ids[] = {4, 6};
  shredContent(*archive, ids, "Antrag", "Zoë", nullptr);
}

TEST(CatalogRebuild, bringsBackWhatWasThere) {
  static constexpr struct {
    const char* name;
    const char* catalog;  ///< what stands in its place; null: it is missing
  } kDamages[] = {{"missing", nullptr}, {"empty", ""}, {"garbage", "no database, and long ago"}};
  for (const Kind& kind : kKinds) {
    TestArchive original(kind.policy, kind.effort);
    fillWithMail(original);
    const auto before = contentOf(*original);
    original.close();
    for (const auto& damage : kDamages) {
      SCOPED_TRACE(std::string(kind.name) + ", " + damage.name);
      TestArchive archive(TestArchive::CopyOf{original});
      const fs::path catalog = archive.path() / "catalog.sqlite";
      fs::remove(catalog);
      if (damage.catalog != nullptr) writeFileAtomically(catalog, damage.catalog);
      const RebuildProgress result = rebuild(archive);
      const bool isEncrypted = kind.policy.cryptoShreddingEnabled;
      EXPECT_EQ(result.messages, isEncrypted ? 4 : 6);
      EXPECT_EQ(result.skipped, isEncrypted ? 2 : 0);
      EXPECT_THAT(result.problems, IsEmpty());
      EXPECT_EQ(result.blobs, 2);
      EXPECT_EQ(result.holds, 2);
      EXPECT_EQ(result.note, "1 dictionaries restored");
      EXPECT_EQ(contentOf(*archive), before);
      expectAllReadable(*archive);
      archive.close();
      archive.reopen();
      EXPECT_EQ(contentOf(*archive), before);
      EXPECT_THAT(archive->notices(), IsEmpty());
      EXPECT_THAT(namesBeginning(archive.path(), "catalog.sqlite.broken-"),
                  SizeIs(damage.catalog == nullptr ? 0 : 1));
      // The number of an erased message is not given again.
      archive.ingest({plainMail(7)});
      EXPECT_EQ(archive->catalog().messageID(sha256Hex(plainMail(7))), 7);
      EXPECT_TRUE(archive->journal().verify().ok);
    }
  }
}

TEST(CatalogRebuild, completesAnErasureThatACrashHasInterrupted) {
  for (const bool isOtherUnreadable : {false, true}) {
    SCOPED_TRACE(isOtherUnreadable ? "beside a damaged message" : "alone");
    TestArchive archive(encrypting(), CompressionEffort::fast);
    const Bytes erased = noise(9000, 1);
    const Bytes other = noise(9000, 2);
    archive.ingest({mailWithFiles(1, {{"a.bin", erased}}), mailWithFiles(2, {{"b.bin", other}})});
    std::vector<std::string> hashes;
    for (const Row& row : archive->catalog().database().query("SELECT hash FROM blob ORDER BY id"))
      hashes.push_back(row.string("hash"));
    archive->keys().shred(1, "Antrag", "Zoë");
    const std::int64_t offset = archive->catalog().message(2)->packOffset.value();
    archive.close();
    if (isOtherUnreadable) {
      Bytes pack = readFile(archive.path() / "packs/00000001.pack");
      pack[static_cast<std::size_t>(offset) + kRecordHeaderBytes + 3] ^= 1;
      writeFileAtomically(archive.path() / "packs/00000001.pack", pack);
    }
    rebuild(archive);
    // Whose attachment it is cannot be told from the other's then.
    EXPECT_EQ(archive->keys().blobKey(hashes[0], false).has_value(), isOtherUnreadable);
    EXPECT_TRUE(archive->keys().blobKey(hashes[1], false));
  }
}

TEST(CatalogRebuild, numbersWithoutAJournal) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    TestArchive archive(kind.policy, kind.effort);
    archive.ingest({plainMail(1), plainMail(2), plainMail(3)});
    if (kind.policy.cryptoShreddingEnabled) {
      const std::int64_t second = 2;
      shredContent(*archive, {&second, 1}, "r", "w", nullptr);
    }
    archive.close();
    writeFileAtomically(archive.path() / "chain/journal.jsonl", "");
    const RebuildProgress result = rebuild(archive);
    EXPECT_EQ(result.messages, kind.policy.cryptoShreddingEnabled ? 2 : 3);
    EXPECT_EQ(archive->catalog().messageID(sha256Hex(plainMail(3))), 3);
    expectAllReadable(*archive);
  }
}

TEST(CatalogRebuild, aLostSidecarLosesNoMail) {
  for (const Kind& kind : kKinds) {
    TestArchive original(kind.policy, kind.effort);
    fillWithMail(original);
    const auto before = contentOf(*original);
    original.close();
    for (const bool isCut : {false, true}) {
      SCOPED_TRACE(std::string(kind.name) + (isCut ? ", cut" : ", missing"));
      TestArchive archive(TestArchive::CopyOf{original});
      const fs::path sidecar = archive.path() / "packs/00000001.idx";
      const Bytes lines = readFile(sidecar);
      fs::remove(sidecar);
      // The lines of the messages behind the first, whose blobs are then not named either.
      if (isCut) writeFileAtomically(sidecar, lines.substr(0, lines.find("\nm") + 3));
      const RebuildProgress result = rebuild(archive);
      const bool isEncrypted = kind.policy.cryptoShreddingEnabled;
      EXPECT_EQ(result.messages, isEncrypted ? 4 : 6);
      EXPECT_THAT(result.note, HasSubstr(" messages that no sidecar names"));
      expectAllReadable(*archive);
      const auto filed = archive->catalog().memberships(3);
      ASSERT_EQ(filed.size(), 1U);
      EXPECT_EQ(filed[0].account + "/" + filed[0].folder, "recovered/Recovered");
      // Rows, blobs and what was added by hand are the same; only mailboxes are not known.
      const auto after = contentOf(*archive);
      for (const std::string_view line : splitOmittingEmpty(before, "\n")) {
        if (!line.starts_with("3|")) continue;
        EXPECT_THAT(after, HasSubstr(std::string(line)));
      }
      EXPECT_EQ(result.notes, 1);
      EXPECT_EQ(rebuild(archive).messages, result.messages);
    }
  }
}

TEST(CatalogRebuild, sidecarLinesAreTriedUntilOneProves) {
  const std::string first = sha256Hex(plainMail(1));
  static constexpr struct {
    const char* name;
    bool isBefore;
    const char* line;  ///< $ stands for the digest of the first message, # for the hash of the blob
    std::size_t mailboxes;  ///< of the first message
  } kCases[] = {
      {"wrongMessageFirst", true, "m\t18\t$\tA\tanna\t\t\t\tbusiness\t\n", 2},
      {"wrongMessageLast", false, "m\t18\t$\tA\tanna\t\t\t\tbusiness\t\n", 2},
      {"otherRecordFirst", true, "b\t16\t#\t\t12\t\n", 1},
      {"otherRecordLast", false, "b\t16\t#\t\t12\t\n", 1},
      {"cutLine", false, "m\t16\t$\tA", 1},
      {"furtherMailbox", false, "m\t16\t$\tB\tanna\t\t\t\tbusiness", 2},
  };
  TestArchive original;
  original.ingest({plainMail(1), plainMail(2), mailWithFiles(3, {{"a", noise(9000)}})});
  const std::string hash =
      original->catalog().database().query("SELECT hash FROM blob")[0].string("hash");
  original.close();
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TestArchive archive(TestArchive::CopyOf{original});
    std::string line = c.line;
    if (const auto at = line.find('$'); at != std::string::npos) line.replace(at, 1, first);
    if (const auto at = line.find('#'); at != std::string::npos) line.replace(at, 1, hash);
    const fs::path sidecar = archive.path() / "packs/00000001.idx";
    const Bytes lines = readFile(sidecar);
    writeFileAtomically(sidecar, c.isBefore ? line + lines : lines + line);
    const RebuildProgress result = rebuild(archive);
    EXPECT_EQ(result.messages, 3);
    EXPECT_EQ(result.blobs, 1);
    EXPECT_EQ(result.skipped, 0);
    expectAllReadable(*archive);
    EXPECT_EQ(archive->catalog().memberships(1).size(), c.mailboxes);
  }
}

TEST(CatalogRebuild, damageCostsWhatItTouches) {
  TestArchive archive;
  archive.ingest({mailWithFiles(1, {{"a", noise(9000, 1)}}), plainMail(2),
                  mailWithFiles(3, {{"a", noise(9000, 1)}}), plainMail(4)});
  const auto blob = archive->catalog().database().query("SELECT pack_offset FROM blob")[0];
  const auto second = archive->catalog().message(2);
  archive.close();
  const fs::path pack = archive.path() / "packs/00000001.pack";
  Bytes bytes = readFile(pack);
  for (const std::int64_t offset : {blob.integer("pack_offset"), *second->packOffset}) {
    char& c = bytes[static_cast<std::size_t>(offset) + 40];
    c = static_cast<char>(c ^ 1);
  }
  writeFileAtomically(pack, bytes);
  const RebuildProgress result = rebuild(archive);
  EXPECT_EQ(result.messages, 1);
  EXPECT_EQ(result.skipped, 4) << "a blob, the two messages that need it, and a message";
  EXPECT_THAT(result.problems, Contains(HasSubstr("00000001.pack: Checksum mismatch in pack 1")));
  EXPECT_EQ(archive->catalog().messageID(sha256Hex(plainMail(4))), 4);
}

TEST(CatalogRebuild, overSeveralPacks) {
  TestArchive archive;
  archive.close();
  auto manifest = nlohmann::json::parse(readFile(archive.path() / "archive.json"));
  manifest["maxPackBytes"] = 30000;
  writeFileAtomically(archive.path() / "archive.json", manifest.dump());
  archive.reopen();
  const Bytes file = noise(20000, 9);
  std::vector<Bytes> mails;
  for (std::uint32_t i = 0; i < 6; ++i) {
    mails.push_back(
        mailWithFiles(static_cast<int>(i), {{"shared", file}, {"own", noise(9000, i)}}));
  }
  archive.ingest(mails);
  archive.ingest({mails[0]}, "weiterer Ordner");
  const auto before = contentOf(*archive);
  const std::int64_t current = archive->catalog().currentPackID();
  ASSERT_GE(current, 3);
  archive.close();
  fs::remove(archive.path() / "catalog.sqlite");
  EXPECT_EQ(rebuild(archive).packsDone, current);
  EXPECT_EQ(contentOf(*archive), before);
  EXPECT_EQ(archive->catalog().currentPackID(), current);
  // The file that all of them carry lies in the pack whose sidecar is lost.
  fs::remove(archive.path() / "packs/00000001.idx");
  EXPECT_EQ(rebuild(archive).messages, 6);
  expectAllReadable(*archive);
  EXPECT_EQ(archive->catalog().memberships(6).front().folder, "INBOX");
}

TEST(CatalogRebuild, dictionariesStayAndNothingIsLearntAgain) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  archive->dictionaries().store("trained on much mail", 5);
  archive.ingest({plainMail(2)});
  archive.close();
  const Bytes seed = readFile(archive.path() / "dict/00001.dict");
  fs::remove(archive.path() / "catalog.sqlite");
  EXPECT_EQ(rebuild(archive).note, "2 dictionaries restored");
  EXPECT_FALSE(archive->dictionaries().isLearning());
  expectAllReadable(*archive);
  archive.close();
  archive.reopen();
  EXPECT_FALSE(archive->dictionaries().isLearning());
  EXPECT_EQ(archive->dictionaries().active().id, 2);
  EXPECT_EQ(readFile(archive.path() / "dict/00001.dict"), seed);
  EXPECT_EQ(readFile(archive.path() / "dict/00002.dict"), "trained on much mail");
}

TEST(CatalogRebuild, holdsWithoutCriteriaAreTold) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  archive->journal().append(AuditAction::legalHoldPlaced, "h1", {{"name", "Alt"}});
  archive->journal().append(AuditAction::legalHoldPlaced, "h2", {{"name", "Fort"}});
  archive->journal().append(AuditAction::legalHoldReleased, "h2", {});
  rebuild(archive);
  const auto holds = CatalogHolds(archive->catalog()).holds(true);
  ASSERT_EQ(holds.size(), 1U);
  EXPECT_EQ(holds[0].reason, "recovered from the audit journal");
  const auto told = archive.entries(AuditAction::integrityFailed);
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].subject, "legal-holds");
  EXPECT_EQ(told[0].details.at("holds"), "Alt");
}

TEST(CatalogRebuild, interruptedItLeavesTheArchiveAsItWas) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2)});
  archive.close();
  for (int steps = 0;; ++steps) {
    SCOPED_TRACE(steps);
    bool failed = false;
    {
      const FileSteps faults([left = steps](const FileStep& step) mutable -> std::size_t {
        if (step.kind != FileStep::Kind::write && left-- <= 0) {
          throw FileError(FileError::Action::write, step.path, EIO);
        }
        return step.bytes;
      });
      try {
        rebuild(archive);
      } catch (const TranslatableError&) {
        failed = true;
      }
      archive.drop();
    }
    if (!failed) break;
    const bool isMissing = !fs::exists(archive.path() / "catalog.sqlite");
    if (!isMissing) {
      archive.reopen();
      EXPECT_EQ(archive->catalog().stats().messages, 2);
      EXPECT_THAT(namesBeginning(archive.path(), "catalog.sqlite.rebuilding"), IsEmpty());
      archive.close();
    }
  }
  archive.reopen();
  EXPECT_EQ(archive->catalog().stats().messages, 2);
}

TEST(CatalogRebuild, everyRunKeepsWhatItReplaces) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  // An archive that is open need not be opened anew.
  rebuildCatalog(*archive, nameOfCatalogSetAside(*archive), nullptr);
  EXPECT_EQ(archive.ingest({plainMail(2)}).added, 1);
  rebuild(archive);
  EXPECT_EQ(archive->catalog().stats().messages, 2);
  EXPECT_THAT(namesBeginning(archive.path(), "catalog.sqlite.broken-"),
              testing::UnorderedElementsAre("catalog.sqlite.broken-2026-03-01T10-15-30Z",
                                            "catalog.sqlite.broken-2026-03-01T10-15-30Z-2"));
  archive.reopen(OpenMode::readOnly);
  EXPECT_THROW(rebuildCatalog(*archive, "x", nullptr), ArchiveError);
}

TEST(CatalogRebuild, aLostCatalogIsToldUntilItIsRebuilt) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  archive.close();
  fs::remove(archive.path() / "catalog.sqlite");
  for (const OpenMode mode : {OpenMode::readWrite, OpenMode::readWrite, OpenMode::readOnly}) {
    archive.reopen(mode);
    ASSERT_EQ(archive->notices().size(), 1U);
    EXPECT_THAT(archive->notices()[0], HasSubstr("rebuild-catalog"));
  }
  rebuild(archive);
  archive.close();
  archive.reopen();
  EXPECT_THAT(archive->notices(), IsEmpty());
}

}  // namespace
}  // namespace ambervane
