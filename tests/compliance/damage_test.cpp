// A library of damaged archives: each has one fault, and the tables say which check speaks of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "base/digest.h"
#include "store/pack_format.h"
#include "tests/compliance/damaged_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using Damage = std::function<void(const DamagedArchive&)>;
using Texts = std::vector<std::string>;

const std::string kContent = "Message content hashes: ";
const std::string kOneMessage = kContent + "1 of 4 messages no longer match their stored digest";
const std::string kHoldings = "Holdings against the journal: ";
const std::string kMissing =
    kHoldings + "1 messages recorded in the journal are not in the catalog (";
const std::string kUnrecorded =
    kHoldings + "1 messages in the catalog have no entry in the journal (";
const std::string kAltered =
    kHoldings +
    "1 messages differ from their journal entry in size, class, number of attachments or time of "
    "archiving (";
const std::string kExpiry =
    kHoldings + "1 keep-until dates are not what the retention policy gives (";
const std::string kFiling =
    kHoldings +
    "1 messages lie in no mailbox or carry another date than there or in their header (";
const std::string kReferences = kHoldings + "1 references to attachments do not add up (";
const std::string kPack =
    kHoldings + "1 sealed packs are not as the journal recorded them (00000001.pack)";
const std::string kSeal =
    kHoldings + "1 seals recorded in the journal are missing or say something else (";
const std::string kDigest = "Sealed pack digests: 0000000";
const std::string kRecoverable = "every pack has a recovery sidecar, so the catalog can be rebuilt";
const std::string kUnrecoverable =
    "some packs have no recovery sidecar; a rebuild would recover their messages but not their "
    "mailbox membership";

/// The archive that is copied and damaged, closed.
const DamagedArchive& original(ComplianceRegime regime) {
  static std::map<ComplianceRegime, std::unique_ptr<DamagedArchive>> made;
  auto& archive = made[regime];
  if (!archive) {
    archive = std::make_unique<DamagedArchive>(DamagedArchive::policyFor({regime}));
    archive->close();
  }
  return *archive;
}

/// Damages an archive and looks that the failed checks begin with `failed`, in this order.
/// `passed` is part of what some passed check says, `reason` of what is said of a message.
void expectFaults(const char* name, ComplianceRegime regime, bool deep, const Damage& damage,
                  const Texts& failed, const std::string& passed = "",
                  const std::string& reason = "") {
  SCOPED_TRACE(name);
  DamagedArchive archive(TestArchive::CopyOf{original(regime)});
  damage(archive);
  archive.reopen();
  const ComplianceReport report = archive.verify(deep);
  const Texts found = said(report, Outcome::failed);
  EXPECT_EQ(found.size(), failed.size()) << join(found, "\n");
  for (std::size_t i = 0; i < std::min(found.size(), failed.size()); ++i) {
    EXPECT_THAT(found[i], testing::StartsWith(failed[i]));
  }
  EXPECT_EQ(report.allPassed(), failed.empty());
  EXPECT_THAT(said(report, Outcome::passed), Contains(HasSubstr(passed)));
  if (!reason.empty()) {
    EXPECT_THAT(archive.reasons, Contains(HasSubstr(reason)));
  }
  const AuditEntry entry = archive->journal().recent(1).at(0);
  EXPECT_EQ(entry.action,
            failed.empty() ? AuditAction::integrityVerified : AuditAction::integrityFailed);
  EXPECT_EQ(entry.details.at("failed_checks"), std::to_string(failed.size()));
}

TEST(DamageLibrary, sealedPacks) {
  const struct {
    const char* name;
    Damage damage;
    Texts failed;
    std::string reason;
  } kCases[] = {
      {"nothing", [](auto&) {}, {}, ""},
      {"fileHeader", [](auto& a) { flip(a.pack(1), 9); }, {kDigest + "1.pack: digest changed"}, ""},
      {"payload",
       [](auto& a) { a.flipRecord(1, kRecordHeaderBytes + 30); },
       {kDigest + "1.pack: digest changed", kOneMessage},
       "Checksum mismatch in pack 1 at offset "},
      {"sharedBlob",
       [](auto& a) { flip(a.pack(1), 4000); },
       {kDigest + "1.pack: digest changed", kContent + "2 of 4 messages"},
       "Checksum mismatch in pack 1 at offset "},
      {"gone",
       [](auto& a) { fs::remove(a.pack(1)); },
       {kDigest + "1.pack: Pack file 00000001.pack is missing", kContent + "3 of 4 messages"},
       "Pack file 00000001.pack is missing"},
      {"longer",
       [](auto& a) { rewrite(a.pack(1), [](Bytes& b) { b += '\0'; }); },
       {kDigest + "1.pack: digest changed"},
       ""},
      {"headerOfTheOneNotSealed",
       [](auto& a) { flip(a.pack(2), 9); },
       {kDigest + "2.pack: not a pack file"},
       ""},
      {"dictionary",
       [](auto& a) { flip(a.path() / "dict" / "00001.dict", 100); },
       {"Catalog database: Dictionaries in the folder \"dict\" are missing or not those that mail "
        "was stored with (00001.dict)"},
       ""},
  };
  for (const auto& c : kCases) {
    expectFaults(c.name, ComplianceRegime::germanGoBD, true, c.damage, c.failed, kRecoverable,
                 c.reason);
  }
}

TEST(DamageLibrary, recordsOfThePackBeingWritten) {
  const struct {
    const char* name;
    std::size_t offset;
    const char* reason;  ///< null: no harm to the message, which comes back as it was
  } kCases[] = {
      {"magic", 0, "bad record magic in pack 2 at "},
      {"flags", kRecordFlagsOffset, "unsupported message record version"},
      {"flagsWithoutMeaning", kRecordFlagsOffset + 1, nullptr},
      {"dictionary", kRecordDictionaryOffset, "decompression failed for message 4"},
      {"originalLength", kRecordOriginalLengthOffset, nullptr},  // a hint to the decoder
      {"storedLength", kRecordStoredLengthOffset + 1, "record runs past end of pack 2"},
      {"checksum", kRecordChecksumOffset, "Checksum mismatch in pack 2 at offset "},
      {"payload", kRecordHeaderBytes, "Checksum mismatch in pack 2 at offset "},
  };
  for (const auto& c : kCases) {
    expectFaults(
        c.name, ComplianceRegime::germanGoBD, true,
        [&c](const DamagedArchive& a) { a.flipRecord(4, c.offset); },
        c.reason == nullptr ? Texts{} : Texts{kOneMessage}, kRecoverable,
        c.reason == nullptr ? "" : c.reason);
  }
}

TEST(DamageLibrary, aSolidBlockTakesAllItsMessagesAlong) {
  DamagedArchive archive(DamagedArchive::policyFor({ComplianceRegime::germanGoBD}),
                         CompressionEffort::smallest);
  EXPECT_TRUE(archive.verify(true).allPassed());
  archive.close();
  archive.flipRecord(4, kRecordHeaderBytes + 60);
  archive.reopen();
  EXPECT_THAT(said(archive.verify(true), Outcome::failed),
              Contains(kContent + "2 of 4 messages no longer match their stored digest"));
}

/// A lost sidecar is no damage to what is held; the catalog's check says what it would mean.
TEST(DamageLibrary, sidecars) {
  const struct {
    const char* name;
    std::function<void(Bytes&)> change;  ///< of the first line: a message's
    std::string says;
  } kCases[] = {
      {"kind", [](Bytes& l) { l[0] = 'x'; }, kUnrecoverable},
      {"offset", [](Bytes& l) { edit(l, "\t", ""); }, kUnrecoverable},
      {"digest", [](Bytes& l) { l[10] = l[10] == '1' ? '2' : '1'; }, kUnrecoverable},
      {"cutShort", [](Bytes& l) { l.resize(40); }, kUnrecoverable},
      {"removed", [](Bytes& l) { l.clear(); }, kUnrecoverable},
      {"folder", [](Bytes& l) { edit(l, "INBOX", "inbox"); }, kRecoverable},  // may be renamed
  };
  for (const auto& c : kCases) {
    expectFaults(
        c.name, ComplianceRegime::germanGoBD, false,
        [&c](const DamagedArchive& a) {
          rewriteLine(a.path() / "packs/00000001.idx", 1, c.change);
        },
        {}, c.says);
  }
}

TEST(DamageLibrary, journalLines) {
  const std::string chain = "Audit chain: ";
  const std::string modified = chain + "Entry 4 has been modified";
  // Entry 4 is that of the first message.
  const struct {
    const char* name;
    std::string from, to;
    Texts failed;
  } kCases[] = {
      {"brace", "{", "(", {chain + "Malformed journal entry at position 4", kUnrecorded}},
      {"noSuchAction",
       "ingested",
       "ingestet",
       {chain + "Malformed journal entry at position 4", kUnrecorded}},
      {"otherAction", "ingested", "exported", {modified, kUnrecorded}},
      {"seq", "\"seq\":4", "\"seq\":5", {chain + "Sequence gap: expected 4, found 5"}},
      {"previousHash", "\"previousHash\":\"", "", {chain + "Chain break at entry 4"}},
      {"entryHash", "\"entryHash\":\"", "", {modified}},
      {"timestamp", "\"timestamp\":177236013", "", {modified}},
      {"actor", "\"actor\":\"", "\"actor\":\"x", {modified}},
      {"subject", "\"subject\":\"", "", {modified, kMissing}},
      {"detail", "\"class\":\"business\"", "\"class\":\"contract\"", {modified, kAltered}},
  };
  for (const auto& c : kCases) {
    expectFaults(
        c.name, ComplianceRegime::germanGoBD, false,
        [&c](const DamagedArchive& a) {
          rewriteLine(a.journal(), 4, [&c](Bytes& line) { edit(line, c.from, c.to); });
        },
        c.failed);
  }
}

TEST(DamageLibrary, journalFile) {
  const struct {
    const char* name;
    Damage damage;
    Texts failed;
  } kCases[] = {
      {"lineTakenOut",
       [](auto& a) { rewriteLine(a.journal(), 4, [](Bytes& l) { l.clear(); }); },
       {"Audit chain: Sequence gap: expected 4, found 5", kUnrecorded}},
      {"lineFeedLost",
       [](auto& a) { rewrite(a.journal(), [](Bytes& b) { edit(b, "}\n", "} "); }); },
       {"Audit chain: Malformed journal entry at position 1"}},
      {"lastLineTorn",
       [](auto& a) { rewrite(a.journal(), [](Bytes& b) { b.resize(b.size() - 9); }); },
       {"Audit chain: Malformed journal entry at position "}},
      {"cutBackToItsBeginning",
       [](auto& a) {
         rewrite(a.journal(), [](Bytes& b) { b.resize(b.find('\n', b.find('\n') + 1) + 1); });
       },
       {"Seal currency: The latest seal's head does not match journal entry ",
        kHoldings + "4 messages in the catalog have no entry in the journal ("}},
      {"gone",
       [](auto& a) { fs::remove(a.journal()); },
       {"Seal currency: The latest seal's head does not match journal entry ", kHoldings}},
  };
  for (const auto& c : kCases) {
    expectFaults(c.name, ComplianceRegime::germanGoBD, false, c.damage, c.failed);
  }
}

TEST(DamageLibrary, seals) {
  const std::string fails = "Chain seals: 1 of 3 seals fail signature verification";
  const struct {
    const char* name;
    std::string from, to;  ///< in the second seal's file
    Texts failed;
  } kCases[] = {
      {"number", "\"sealNumber\": 2", "\"sealNumber\": 5", {fails, kSeal + "2)"}},
      {"createdAt", "10:15:30Z", "10:15:31Z", {fails}},
      {"chainHead", "\"chainHead\": \"", "", {fails, kSeal + "2)"}},
      {"entryCount", "\"entryCount\": ", "", {fails, kSeal + "2)"}},
      {"messageCount", "\"messageCount\": 2", "\"messageCount\": 3", {fails, kSeal + "2)"}},
      {"publicKey", "\"publicKey\": \"", "", {fails, "Signing key continuity: 2 signing key(s)"}},
      {"signature", "\"signature\": \"", "", {fails}},
      {"notJson", "{", "x", {kSeal + "2)"}},
  };
  for (const auto& c : kCases) {
    expectFaults(
        c.name, ComplianceRegime::germanGoBD, false,
        [&c](const DamagedArchive& a) {
          rewrite(a.seal(2), [&c](Bytes& bytes) { edit(bytes, c.from, c.to); });
        },
        c.failed);
  }
  expectFaults(
      "latestGone", ComplianceRegime::germanGoBD, false,
      [](const DamagedArchive& a) {
        clearImmutable(a.seal(3));
        fs::remove(a.seal(3));
      },
      {kSeal + "3)"}, "2 seals verify against the archive key");
}

TEST(DamageLibrary, keys) {
  const char* const keys = "keys/content-keys.sqlite";
  const struct {
    const char* name;
    Damage damage;
    Texts failed;
    std::string passed;
  } kCases[] = {
      // A key is only a key: what tells is that no seal was made with it.
      {"sealKey",
       [](auto& a) { flip(a.path() / "keys/seal.key", 5); },
       {},
       "Signing key continuity: 1 signing key(s) across 3 seals; each seal verifies against the "
       "key it embeds."},
      {"masterKey",
       [](auto& a) { flip(a.path() / "keys/master.key", 5); },
       {kContent + "4 of 4 messages",
        "Content keys: The master key does not match the stored content keys — restore "
        "keys/master.key from backup"},
       ""},
      {"keyOfOneMessage",
       [keys](auto& a) {
         a.sql(
             "UPDATE content_key SET wrapped = (SELECT wrapped FROM content_key WHERE message_id "
             "= 3) WHERE message_id = 2",
             keys);
       },
       {kOneMessage},
       "The archive's master key opens the stored content keys"},
      {"keysOfAttachments",
       [keys](auto& a) { a.sql("DELETE FROM blob_key", keys); },
       {kContent + "2 of 4 messages"},
       "The archive's master key opens the stored content keys"},
  };
  for (const auto& c : kCases) {
    expectFaults(c.name, ComplianceRegime::euGDPR, true, c.damage, c.failed, c.passed);
  }
}

TEST(DamageLibrary, catalogRows) {
  const std::string first = sha256Hex(plainMail(1)).substr(0, 12) + "…)";
  const struct {
    const char* name;
    std::string sql;
    Texts failed;
    bool deep = false;
  } kCases[] = {
      {"messageDeleted", "DELETE FROM message WHERE id = 1", {kMissing + first}},
      {"messageAdded",
       "INSERT INTO message(sha256, ingested_at, size, pack_id) SELECT replace(sha256, 'a', 'b'), "
       "ingested_at, size, 1 FROM message WHERE id = 1",
       {kUnrecorded}},
      {"digest",
       "UPDATE message SET sha256 = replace(sha256, 'a', 'b') WHERE id = 1",
       {kMissing + first + "; 1 messages in the catalog have no entry in the journal ("}},
      {"expiry",
       "UPDATE message SET expires_at = expires_at - 86400 WHERE id = 1",
       {kExpiry + first}},
      {"noExpiry", "UPDATE message SET expires_at = NULL WHERE id = 1", {kExpiry}},
      {"sentAt", "UPDATE message SET sent_at = sent_at - 86400 WHERE id = 1", {kFiling + first}},
      {"sentAtAndExpiry",
       "UPDATE message SET sent_at = sent_at - 31536000, expires_at = expires_at - 31536000 WHERE "
       "id = 1",
       {kFiling}},
      {"sentAtWhereverTheCatalogHasIt",
       "UPDATE message SET sent_at = sent_at + 864000 WHERE id = 1; UPDATE message_folder SET "
       "sent_at = sent_at + 864000 WHERE message_id = 1",
       {kFiling},
       true},
      {"noSentAtWhereverTheCatalogHasIt",
       "UPDATE message SET sent_at = NULL, internal_at = sent_at WHERE id = 1; UPDATE "
       "message_folder SET sent_at = NULL WHERE message_id = 1",
       {kFiling},
       true},
      {"ingestedAt",
       "UPDATE message SET ingested_at = ingested_at - 86400 WHERE id = 1",
       {kAltered}},
      {"class", "UPDATE message SET retention_class = 'contract' WHERE id = 1", {kAltered}},
      {"size", "UPDATE message SET size = size + 1 WHERE id = 1", {kAltered}},
      {"place",
       "UPDATE message SET pack_offset = pack_offset + 1 WHERE id = 1",
       {kOneMessage},
       true},
      {"otherMessagesPlace",
       "UPDATE message SET (pack_id, pack_offset) = (SELECT pack_id, pack_offset FROM message "
       "WHERE "
       "id = 1) WHERE id = 4",
       {kOneMessage},
       true},
      {"erased",
       "UPDATE message SET erased = 1 WHERE id = 1",
       {kHoldings + "1 messages are marked as erased without an erasure in the journal ("}},
      {"mailbox", "DELETE FROM message_folder WHERE message_id = 1", {kFiling}},
      {"attachment",
       "DELETE FROM attachment WHERE id = 1",
       {kHoldings + "2 references to attachments do not add up ("}},
      {"attachmentAndItsCounts",
       "UPDATE blob SET refcount = refcount - 1 WHERE id = (SELECT blob_id FROM attachment WHERE "
       "id "
       "= 1); DELETE FROM attachment WHERE id = 1; UPDATE message SET attachment_count = 0 WHERE "
       "id "
       "= 2",
       {kAltered}},
      {"refcount", "UPDATE blob SET refcount = refcount + 1 WHERE id = 1", {kReferences}},
      {"blob", "PRAGMA foreign_keys = OFF; DELETE FROM blob WHERE id = 2", {kReferences}},
      {"packDigest",
       "UPDATE pack SET sha256 = replace(sha256, 'a', 'b') WHERE id = 1",
       {kDigest + "1.pack: digest changed", kPack}},
      {"packForgotten", "UPDATE pack SET sha256 = NULL WHERE id = 1", {}},  // the file is proof
  };
  for (const auto& c : kCases) {
    expectFaults(
        c.name, ComplianceRegime::germanGoBD, c.deep,
        [&c](const DamagedArchive& a) { a.sql(c.sql); }, c.failed);
  }
}

/// Who changes a pack and all the catalog knows of it meets the journal.
TEST(DamageLibrary, packsTogetherWithTheCatalog) {
  for (const char* sql :
       {"UPDATE pack SET sha256 = '%' WHERE id = 1", "DELETE FROM pack WHERE id = 1"}) {
    expectFaults(sql, ComplianceRegime::germanGoBD, false,
                 [sql](const DamagedArchive& a) {
                   flip(a.pack(1), 9);
                   std::string statement = sql;
                   if (const auto at = statement.find('%'); at != std::string::npos) {
                     statement.replace(at, 1, sha256Hex(readFile(a.pack(1))));
                   }
                   a.sql(statement);
                 },
                 {kPack});
  }
}

}  // namespace
}  // namespace ambervane
