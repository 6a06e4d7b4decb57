// A library of damaged archives: each has one fault, and the table says which check speaks of it.

#include "compliance/verification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/digest.h"
#include "base/text.h"
#include "compliance/check_names.h"
#include "evidence/audit_entry.h"
#include "store/pack_format.h"
#include "store/sqlite_database.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using Regime = ComplianceRegime;

// ---- The archive that is damaged: messages 1 to 4 in packs 1 to 3, of which 1 and 2 are sealed.

constexpr std::int64_t kPackBytes = 9000;
const Bytes& sharedFile() {
  static const Bytes file = noise(6000);
  return file;
}

/// A policy without write protection, so that a sealed pack can be damaged by anybody.
RetentionPolicy policyFor(std::set<Regime> regimes) {
  RetentionPolicy policy(std::move(regimes));
  policy.wormEnforcement = false;
  return policy;
}

void replaceInFile(const fs::path& path, const std::string& from, const std::string& to,
                   bool last = false) {
  Bytes bytes = readFile(path);
  const std::size_t at = last ? bytes.rfind(from) : bytes.find(from);
  ASSERT_NE(at, Bytes::npos) << from;
  bytes.replace(at, from.size(), to);
  clearImmutable(path);
  fs::remove(path);
  writeFileAtomically(path, bytes);
}

void flip(const fs::path& path, std::int64_t offset, char mask = 1) {
  Bytes bytes = readFile(path);
  ASSERT_LT(static_cast<std::size_t>(offset), bytes.size());
  char& c = bytes[static_cast<std::size_t>(offset)];
  c = static_cast<char>(c ^ mask);
  clearImmutable(path);
  fs::remove(path);
  writeFileAtomically(path, bytes);
}

/// Line `number` of a text file, counted from 1, put through `change`; an empty result removes it.
void changeLine(const fs::path& path, std::size_t number,
                const std::function<std::string(std::string)>& change) {
  std::string text;
  std::size_t at = 0;
  for (const std::string_view line : splitOmittingEmpty(readFile(path), "\n")) {
    const std::string changed = ++at == number ? change(std::string(line)) : std::string(line);
    if (!changed.empty()) text += changed + "\n";
  }
  writeFileAtomically(path, text);
}

class Archive : public TestArchive {
 public:
  explicit Archive(const RetentionPolicy& policy,
                   CompressionEffort effort = CompressionEffort::balanced)
      : TestArchive(policy, effort) {
    close();
    replaceInFile(path() / "archive.json", "1073741824", std::to_string(kPackBytes));
    reopen();
    ingest({plainMail(1), mailWithFiles(2, {{"a.bin", sharedFile()}})});
    ingest({mailWithFiles(3, {{"b.bin", noise(6000, 7)}, {"a.bin", sharedFile()}}), plainMail(4)});
  }

  fs::path pack(int number) const { return path() / "packs" / PackStore::packName(number); }
  fs::path journal() const { return path() / "chain/journal.jsonl"; }
  fs::path seal(int number) const {
    return path() / "chain/seals" / ("0000000" + std::to_string(number) + ".seal.json");
  }
  void sql(const std::string& statement) const {
    SQLiteDatabase(path() / "catalog.sqlite", SQLiteDatabase::Mode::readWrite, "test")
        .execute(statement);
  }
  void keySql(const std::string& statement) const {
    SQLiteDatabase(path() / "keys/content-keys.sqlite", SQLiteDatabase::Mode::readWrite, "test")
        .execute(statement);
  }
  /// Flips a bit of the record of message `id`, `offset` bytes behind its start.
  void flipRecord(int id, std::size_t offset) const {
    SQLiteDatabase db(path() / "catalog.sqlite", SQLiteDatabase::Mode::readWrite, "test");
    const Row row = db.query("SELECT pack_id, pack_offset FROM message WHERE id = ?", {id}).front();
    flip(pack(static_cast<int>(row.integer("pack_id"))),
         row.integer("pack_offset") + static_cast<std::int64_t>(offset));
  }

  ComplianceReport verify(bool deep) {
    VerificationOptions options;
    options.deep = deep;
    options.damagedMessage = [this](const DamagedMessage& m) { damaged.push_back(m.reason); };
    return verifyIntegrity(**this, options).value();
  }
  std::vector<std::string> damaged;
};

/// "name: text" of each check with that outcome, but for the duties of people.
std::vector<std::string> said(const ComplianceReport& report, Outcome outcome) {
  std::vector<std::string> texts;
  for (const ComplianceCheck& check : report.checks) {
    if (check.outcome == outcome) texts.push_back(check.name + ": " + check.detail());
  }
  return texts;
}

const std::string kContent = std::string(check_names::kContent) + ": ";
const std::string kHoldings = std::string(check_names::kHoldings) + ": ";
const std::string kDigests = std::string(check_names::kPackDigests) + ": ";
const std::string kChain = std::string(check_names::kChain) + ": ";
const std::string kSeals = std::string(check_names::kSeals) + ": ";
const std::string kCurrency = std::string(check_names::kSealCurrency) + ": ";
const std::string kNoSidecar =
    "some packs have no recovery sidecar; a rebuild would recover their messages but not their "
    "mailbox membership";

struct DamageCase {
  const char* name;
  std::function<void(const Archive&)> damage;
  /// The beginnings of what the failed checks say, in order.
  std::vector<std::string> failed;
  std::string passedSays = "";   ///< part of what some passed check says
  std::string messageSays = "";  ///< part of what is said of a damaged message
};

void expectFaults(const std::vector<DamageCase>& cases, const RetentionPolicy& policy, bool deep) {
  for (const DamageCase& c : cases) {
    SCOPED_TRACE(c.name);
    Archive archive(policy);
    archive.close();
    c.damage(archive);
    archive.reopen();
    const ComplianceReport report = archive.verify(deep);
    const auto failed = said(report, Outcome::failed);
    EXPECT_EQ(failed.size(), c.failed.size()) << join(failed, "\n");
    for (std::size_t i = 0; i < std::min(failed.size(), c.failed.size()); ++i) {
      EXPECT_THAT(failed[i], testing::StartsWith(c.failed[i]));
    }
    EXPECT_EQ(report.allPassed(), c.failed.empty());
    if (!c.passedSays.empty()) {
      EXPECT_THAT(said(report, Outcome::passed), testing::Contains(HasSubstr(c.passedSays)));
    }
    if (!c.messageSays.empty()) {
      EXPECT_THAT(archive.damaged, testing::Contains(HasSubstr(c.messageSays)));
    }
    const auto entry = archive->journal().recent(1).at(0);
    EXPECT_EQ(entry.action,
              c.failed.empty() ? AuditAction::integrityVerified : AuditAction::integrityFailed);
    EXPECT_EQ(entry.details.at("failed_checks"), std::to_string(c.failed.size()));
  }
}

TEST(Damage, packs) {
  const std::string one = kContent + "1 of 4 messages no longer match their stored digest";
  const std::string sealed = kDigests + "00000001.pack: digest changed";
  expectFaults(
      {
          {"nothing",
           [](const Archive&) {},
           {},
           "4 messages reassembled from storage and re-hashed"
           " byte-for-byte against the digest taken at ingest, including 1 deduplicated"},
          {"sealedFileHeader", [](const Archive& a) { flip(a.pack(1), 9); }, {sealed}},
          {"sealedPayload",
           [](const Archive& a) { a.flipRecord(1, kRecordHeaderBytes + 30); },
           {sealed, one},
           "",
           "Checksum mismatch in pack 1 at offset "},
          {"sealedBlob",
           [](const Archive& a) { flip(a.pack(1), 4000); },
           {sealed, kContent + "2 of 4 messages"},
           "",
           "Checksum mismatch in pack 1 at offset "},
          {"sealedPackGone",
           [](const Archive& a) { fs::remove(a.pack(2)); },
           {kDigests + "00000002.pack: Pack file 00000002.pack is missing", kContent}},
          {"sealedPackLonger",
           [](const Archive& a) { replaceInFile(a.pack(2), "AVPACK", "AVPACKx"); },
           {kDigests + "00000002.pack: digest changed", kContent}},
          // Of the pack being written only re-reading the messages can tell.
          {"recordMagic",
           [](const Archive& a) { a.flipRecord(4, 0); },
           {one},
           "",
           "bad record magic in pack 3 at "},
          {"recordFlags", [](const Archive& a) { a.flipRecord(4, kRecordFlagsOffset); }, {one}},
          {"recordEncryptedFlag",
           [](const Archive& a) { a.flipRecord(4, kRecordFlagsOffset + 1); },
           {},  // a bit without a meaning: the message comes back as it was
           "4 messages reassembled"},
          {"recordDictionary",
           [](const Archive& a) { a.flipRecord(4, kRecordDictionaryOffset); },
           {one},
           "",
           "decompression failed for message 4"},
          {"recordOriginalLength",
           [](const Archive& a) { a.flipRecord(4, kRecordOriginalLengthOffset); },
           {},  // a hint to the decoder: the message comes back as it was
           "4 messages reassembled"},
          {"recordStoredLength",
           [](const Archive& a) { a.flipRecord(4, kRecordStoredLengthOffset + 1); },
           {one},
           "",
           "record runs past end of pack 3"},
          {"recordChecksum",
           [](const Archive& a) { a.flipRecord(4, kRecordChecksumOffset); },
           {one},
           "",
           "Checksum mismatch in pack 3 at offset "},
          {"recordPayload",
           [](const Archive& a) { a.flipRecord(4, kRecordHeaderBytes); },
           {one},
           "",
           "Checksum mismatch in pack 3 at offset "},
          {"catalogPointsElsewhere",
           [](const Archive& a) {
             a.sql(
                 "UPDATE message SET pack_id = (SELECT pack_id FROM message WHERE id = 1), "
                 "pack_offset = (SELECT pack_offset FROM message WHERE id = 1) WHERE id = 4");
           },
           {one},
           kNoSidecar,
           "message 4 does not match its SHA-256"},
      },
      policyFor({Regime::germanGoBD}), true);
}

TEST(Damage, sidecars) {
  const auto line = [](const Archive& a, const std::function<std::string(std::string)>& change) {
    changeLine(a.path() / "packs/00000001.idx", 1, change);
  };
  std::vector<DamageCase> cases = {
      {"gone",
       [](const Archive& a) { fs::remove(a.path() / "packs/00000002.idx"); },
       {},
       kNoSidecar},
      {"flagsAreNotProved",
       [&](const Archive& a) {
         line(a, [](std::string l) { return l.replace(l.find("INBOX"), 5, "inbox"); });
       },
       {},
       "every pack has a recovery sidecar"},
  };
  static constexpr struct {
    const char* name;
    std::size_t field;
  } kFields[] = {{"kind", 0}, {"offset", 2}, {"digest", 6}};
  for (const auto& field : kFields) {
    cases.push_back({field.name,
                     [&line, at = field.field](const Archive& a) {
                       line(a, [at](std::string l) {
                         l[at] = l[at] == '1' ? '2' : '1';
                         return l;
                       });
                     },
                     {},
                     kNoSidecar});
  }
  cases.push_back(
      {"lineCutShort",
       [&](const Archive& a) { line(a, [](const std::string& l) { return l.substr(0, 40); }); },
       {},
       kNoSidecar});
  expectFaults(cases, policyFor({Regime::germanGoBD}), false);
}

TEST(Damage, journal) {
  // Lines 1 and 2 are the creation and its seal, 3 an import's start, 4 the first message.
  const auto edit = [](std::size_t number, const std::string& from, const std::string& to) {
    return [=](const Archive& a) {
      changeLine(a.journal(), number, [&](std::string l) {
        const std::size_t at = l.find(from);
        EXPECT_NE(at, std::string::npos) << l;
        return l.replace(at, from.size(), to);
      });
    };
  };
  const auto invertDigit = [](std::size_t number, const std::string& key) {
    return [=](const Archive& a) {
      changeLine(a.journal(), number, [&](std::string l) {
        char& digit = l[l.find(key) + key.size()];
        digit = digit == '0' ? '1' : '0';
        return l;
      });
    };
  };
  const std::string unrecorded =
      kHoldings + "1 messages in the catalog have no entry in the journal";
  expectFaults(
      {
          {"action",
           edit(4, "message.ingested", "message.ingestet"),
           {kChain + "Malformed journal entry at position 4", unrecorded}},
          {"otherAction",
           edit(4, "message.ingested", "message.exported"),
           {kChain + "Entry 4 has been modified", unrecorded}},
          {"brace",
           edit(4, "{", "("),
           {kChain + "Malformed journal entry at position 4", unrecorded}},
          {"lineFeed",
           [](const Archive& a) { replaceInFile(a.journal(), "}\n", "} "); },
           {kChain + "Malformed journal entry at position 1", kHoldings + "1 seals recorded"}},
          {"seq",
           edit(4, "\"seq\":4", "\"seq\":5"),
           {kChain + "Sequence gap: expected 4, found 5"}},
          {"previousHash",
           invertDigit(4, "\"previousHash\":\""),
           {kChain + "Chain break at entry 4"}},
          {"entryHash", invertDigit(4, "\"entryHash\":\""), {kChain + "Entry 4 has been modified"}},
          {"timestamp",
           edit(4, "\"timestamp\":1772360130", "\"timestamp\":1772360131"),
           {kChain + "Entry 4 has been modified"}},
          {"actor",
           edit(4, "\"actor\":\"", "\"actor\":\"x"),
           {kChain + "Entry 4 has been modified"}},
          {"subject",
           invertDigit(4, "\"subject\":\""),
           {kChain + "Entry 4 has been modified",
            kHoldings + "1 messages recorded in the journal are not in the catalog"}},
          {"detail",
           edit(4, "\"class\":\"business\"", "\"class\":\"contract\""),
           {kChain + "Entry 4 has been modified",
            kHoldings + "1 messages differ from their journal "
                        "entry in size, class, number of attachments or time of archiving"}},
          {"lineTakenOut",
           [](const Archive& a) { changeLine(a.journal(), 4, [](auto&&) { return ""; }); },
           {kChain + "Sequence gap: expected 4, found 5", unrecorded}},
          {"tornLastLine",
           [](const Archive& a) { fs::resize_file(a.journal(), fs::file_size(a.journal()) - 9); },
           {kChain + "Malformed journal entry at position "}},
          {"cutBackToTheFirstSeal",
           [](const Archive& a) {
             const Bytes text = readFile(a.journal());
             std::size_t end = 0;
             for (int i = 0; i < 2; ++i) end = text.find('\n', end) + 1;
             fs::resize_file(a.journal(), end);
           },
           {kCurrency + "The latest seal's head does not match journal entry ",
            kHoldings + "4 messages in the catalog have no entry in the journal ("}},
          {"gone",
           [](const Archive& a) { fs::remove(a.journal()); },
           {kChain + "Chain intact across 0", kHoldings}},
      },
      policyFor({Regime::germanGoBD}), false);
}

TEST(Damage, sealsAndKeys) {
  const auto edit = [](const std::string& from, const std::string& to) {
    return [=](const Archive& a) { replaceInFile(a.seal(2), from, to); };
  };
  const std::string fails = kSeals + "1 of 3 seals fail signature verification";
  const std::string missing =
      kHoldings + "1 seals recorded in the journal are missing or say something else (2)";
  expectFaults(
      {
          {"signature",
           [](const Archive& a) {
             const Bytes text = readFile(a.seal(2));
             const std::size_t at = text.find("\"signature\" : \"") == Bytes::npos
                                        ? text.find("\"signature\": \"") + 14
                                        : text.find("\"signature\" : \"") + 15;
             replaceInFile(a.seal(2), text.substr(at, 8),
                           text.substr(at, 7) + (text[at + 7] == 'A' ? "B" : "A"));
           },
           {fails}},
          {"entryCount", edit("\"entryCount\": ", "\"entryCount\": 1"), {fails, missing}},
          {"createdAt", edit("10:15:30Z", "10:15:31Z"), {fails}},
          {"notJson", edit("{", "x"), {missing}, "2 seals verify against the archive key"},
          {"gone",
           [](const Archive& a) {
             clearImmutable(a.seal(2));
             fs::remove(a.seal(2));
           },
           {missing}},
          {"latestGone",
           [](const Archive& a) {
             clearImmutable(a.seal(3));
             fs::remove(a.seal(3));
           },
           {kHoldings + "1 seals recorded in the journal are missing or say something else (3)"}},
          // A key is only a key: what tells is that no seal was made with it.
          {"sealKey",
           [](const Archive& a) { flip(a.path() / "keys/seal.key", 5); },
           {},
           "Signing key continuity: 1 signing key(s) across 3 seals; each seal verifies"},
          {"masterKey",
           [](const Archive& a) { flip(a.path() / "keys/master.key", 5); },
           {kContent + "4 of 4 messages",
            "Content keys: The master key does not match the stored "
            "content keys — restore keys/master.key from backup"}},
          {"oneKey",
           [](const Archive& a) {
             a.keySql(
                 "UPDATE content_key SET wrapped = (SELECT wrapped FROM content_key WHERE "
                 "message_id = 3) WHERE message_id = 2");
           },
           {kContent + "1 of 4 messages"}},
          {"keyOfABlob",
           [](const Archive& a) { a.keySql("DELETE FROM blob_key WHERE rowid = 1"); },
           {kContent}},
      },
      policyFor({Regime::euGDPR}), true);
}

TEST(Damage, catalog) {
  const auto sql = [](const std::string& statement) {
    return [statement](const Archive& a) { a.sql(statement); };
  };
  const std::string altered = kHoldings +
                              "1 messages differ from their journal entry in size, "
                              "class, number of attachments or time of archiving (";
  const std::string filing = kHoldings +
                             "1 messages lie in no mailbox or carry another date than "
                             "there or in their header (";
  const std::string expiry = kHoldings +
                             "1 keep-until dates are not what the retention policy "
                             "gives (";
  const std::string references = kHoldings + "1 references to attachments do not add up (";
  expectFaults(
      {
          {"messageDeleted",
           sql("DELETE FROM attachment WHERE message_id = 1; DELETE FROM message WHERE id = 1"),
           {kHoldings + "1 messages recorded in the journal are not in the catalog (" +
            sha256Hex(plainMail(1)).substr(0, 12) + "…)"}},
          {"messageAdded",
           sql("INSERT INTO message(sha256, ingested_at, size, pack_id, pack_offset) SELECT "
               "replace(sha256, 'a', 'b'), ingested_at, size, pack_id, pack_offset FROM message "
               "WHERE id = 1"),
           {kHoldings + "1 messages in the catalog have no entry in the journal ("}},
          {"digest",
           sql("UPDATE message SET sha256 = replace(sha256, 'a', 'b') WHERE id = 1"),
           {kHoldings + "1 messages recorded in the journal are not in the catalog ("}},
          {"expiry",
           sql("UPDATE message SET expires_at = expires_at - 31536000 WHERE id = 1"),
           {expiry}},
          {"noExpiry", sql("UPDATE message SET expires_at = NULL WHERE id = 1"), {expiry}},
          {"sentAt", sql("UPDATE message SET sent_at = sent_at - 86400 WHERE id = 1"), {filing}},
          {"sentAtIntoAnotherYear",
           sql("UPDATE message SET sent_at = sent_at - 31536000, expires_at = expires_at - "
               "31622400 WHERE id = 1"),
           {filing}},
          {"ingestedAt",
           sql("UPDATE message SET ingested_at = ingested_at - 86400 WHERE id = 1"),
           {altered}},
          {"class", sql("UPDATE message SET retention_class = 'contract' WHERE id = 1"), {altered}},
          {"size", sql("UPDATE message SET size = size + 1 WHERE id = 1"), {altered}},
          {"erased",
           sql("UPDATE message SET erased = 1 WHERE id = 1"),
           {kHoldings + "1 messages are marked as erased without an erasure in the journal ("}},
          {"mailbox", sql("DELETE FROM message_folder WHERE message_id = 1"), {filing}},
          {"attachment", sql("DELETE FROM attachment WHERE id = 1"), {kHoldings + "2 references"}},
          {"attachmentAndItsCounts",
           sql("UPDATE blob SET refcount = refcount - 1 WHERE id = (SELECT blob_id FROM attachment "
               "WHERE id = 1); DELETE FROM attachment WHERE id = 1; UPDATE message SET "
               "attachment_count = 0 WHERE id = 2"),
           {altered}},
          {"refcount", sql("UPDATE blob SET refcount = refcount + 1 WHERE id = 1"), {references}},
          {"blob", sql("PRAGMA foreign_keys = OFF; DELETE FROM blob WHERE id = 2"), {references}},
          {"packDigest",
           sql("UPDATE pack SET sha256 = replace(sha256, 'a', 'b') WHERE id = 1"),
           {kDigests + "00000001.pack: digest changed",
            kHoldings + "1 sealed packs are not as the journal recorded them (00000001.pack)"}},
          {"packDigestAndPack",
           [](const Archive& a) {
             flip(a.pack(1), 9);
             a.sql("UPDATE pack SET sha256 = '" + sha256Hex(readFile(a.pack(1))) +
                   "' WHERE id = 1");
           },
           {kHoldings + "1 sealed packs are not as the journal recorded them (00000001.pack)"}},
          {"packForgotten", sql("UPDATE pack SET sha256 = NULL WHERE id = 1"), {}},
          {"packForgottenAndChanged",
           [](const Archive& a) {
             flip(a.pack(1), 9);
             a.sql("DELETE FROM pack WHERE id = 1");
           },
           {kHoldings + "1 sealed packs are not as the journal recorded them (00000001.pack)"}},
      },
      policyFor({Regime::germanGoBD}), false);
}

TEST(Damage, datesEditedEverywhereInTheCatalogShowInADeepRun) {
  expectFaults({{"sentAt",
                 [](const Archive& a) {
                   a.sql(
                       "UPDATE message SET sent_at = sent_at - 8640000 WHERE id = 1; UPDATE "
                       "message_folder SET sent_at = (SELECT sent_at FROM message m WHERE m.id = "
                       "message_id); UPDATE message SET expires_at = expires_at - 31622400 WHERE "
                       "id = 1");
                 },
                 {kHoldings + "1 messages lie in no mailbox or carry another date than there or in "
                              "their header ("}}},
               policyFor({Regime::germanGoBD}), true);
}

TEST(Damage, aSolidBlockTakesAllItsMessagesAlong) {
  RetentionPolicy policy = policyFor({Regime::germanGoBD});
  Archive archive(policy, CompressionEffort::smallest);
  EXPECT_TRUE(archive.verify(true).allPassed());
  archive.close();
  archive.flipRecord(4, kRecordHeaderBytes + 60);
  archive.reopen();
  EXPECT_THAT(said(archive.verify(true), Outcome::failed),
              testing::Contains(kContent + "2 of 4 messages no longer match their stored digest"));
}

// ---- What the journal explains.

TEST(Holdings, aLaterEntryExplainsWhatIsMissing) {
  const std::string digest(64, 'a');
  const std::string other(64, 'b');
  using Details = std::map<std::string, std::string>;
  struct Step {
    AuditAction action;
    std::string subject;
    Details details;
  };
  const Step ingested{AuditAction::messageIngested, digest, {{"size", "1"}}};
  const Step lost{AuditAction::integrityVerified,
                  "startup",
                  {{"lost_in_crash", "2"}, {"digests", other + "," + digest}}};
  static const std::string kNote =
      " belong to a batch that was not kept; its messages are not in the archive";
  const struct {
    const char* name;
    std::vector<Step> steps;
    bool passes;
  } kCases[] = {
      {"unexplained", {ingested}, false},
      {"lostInACrash", {ingested, lost}, true},
      {"lostAndTakenInAgain", {ingested, lost, ingested}, false},
      {"anotherStartup",
       {ingested, {AuditAction::integrityVerified, "startup", {{"swept_incomplete_rows", "1"}}}},
       false},
      {"brokenBatch",
       {ingested, {AuditAction::integrityFailed, "import", {{"note", "entries 3 to 3" + kNote}}}},
       true},
      {"anotherBatch",
       {ingested, {AuditAction::integrityFailed, "import", {{"note", "entries 4 to 9" + kNote}}}},
       false},
      {"erasedBeforeARebuild",
       {ingested,
        {AuditAction::messageErased, digest, {}},
        {AuditAction::policyChanged, "catalog", {{"action", "rebuild finished"}}}},
       true},
      {"erasedWithoutARebuild", {ingested, {AuditAction::messageErased, digest, {}}}, false},
      {"holdWithoutARow", {{AuditAction::legalHoldPlaced, "H1", {}}}, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TestArchive archive(policyFor({Regime::germanGoBD}));
    for (const Step& step : c.steps)
      archive->journal().append(step.action, step.subject, step.details);
    EXPECT_EQ(verifyIntegrity(*archive, {})->allPassed(), c.passes);
  }
}

TEST(Holdings, erasedRowsAndChangedClassesNeedTheirEntries) {
  const std::string digest = sha256Hex(plainMail(1));
  struct Entry {
    AuditAction action;
    std::string subject;
    std::map<std::string, std::string> details;
  };
  const std::string erase = "UPDATE message SET erased = 1 WHERE id = 1";
  const Entry approved{AuditAction::retentionApplied,
                       "2026",
                       {{"action", "disposal approved"}, {"approved_count", "1"}}};
  const struct {
    const char* name;
    std::string sql;
    std::vector<Entry> entries;
    bool passes;
  } kCases[] = {
      {"erasedByName", erase, {{AuditAction::messageErased, digest, {}}}, true},
      {"erasedByAnApprovedList",
       erase,
       {approved,
        {AuditAction::retentionApplied,
         "2026",
         {{"action", "disposal finished"}, {"erased", "1"}}}},
       true},
      {"listBrokenOff", erase, {approved}, true},
      {"listThatErasedNone",
       erase,
       {approved,
        {AuditAction::retentionApplied,
         "2026",
         {{"action", "disposal finished"}, {"erased", "0"}}}},
       false},
      {"anotherErased", erase, {{AuditAction::messageErased, std::string(64, 'a'), {}}}, false},
      {"reclassified",
       "UPDATE message SET retention_class = 'contract' WHERE id = 1",
       {{AuditAction::retentionApplied, "reclassify", {}}},
       true},
      {"hold",
       "INSERT INTO hold VALUES('H1', '{}', 0, NULL)",
       {{AuditAction::legalHoldPlaced, "H1", {}}},
       true},
      {"holdReleasedUnseen",
       "INSERT INTO hold VALUES('H1', '{}', 0, 1)",
       {{AuditAction::legalHoldPlaced, "H1", {}}},
       false},
      {"holdReleased",
       "INSERT INTO hold VALUES('H1', '{}', 0, 1)",
       {{AuditAction::legalHoldPlaced, "H1", {}}, {AuditAction::legalHoldReleased, "H1", {}}},
       true},
      {"holdCarriedOver",
       "INSERT INTO hold VALUES('H1', '{}', 0, 1)",
       {{AuditAction::legalHoldPlaced, "H1", {{"note", "carried over with the merge from X"}}}},
       true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TestArchive archive(policyFor({Regime::germanGoBD}));
    archive.ingest({plainMail(1), plainMail(2)});
    archive->catalog().database().execute(c.sql);
    for (const Entry& entry : c.entries)
      archive->journal().append(entry.action, entry.subject, entry.details);
    EXPECT_EQ(verifyIntegrity(*archive, {})->allPassed(), c.passes);
  }
}

// ---- The run itself.

std::vector<std::string> names(const ComplianceReport& report) {
  std::vector<std::string> all;
  for (const ComplianceCheck& check : report.checks) all.push_back(check.name);
  return all;
}

TEST(Verification, checksStandInTheirOrder) {
  RetentionPolicy policy({Regime::swissGeBueV, Regime::euGDPR, Regime::secRule17a4});
  TestArchive archive(policy);
  archive->catalog().setMeta("duplicate_copy_path", "/mnt/copy");
  const ComplianceReport report = verifyIntegrity(*archive, {.deep = true}).value();
  using namespace check_names;
  EXPECT_THAT(names(report),
              ElementsAre(kProvenance, kChain, kSeals, kSealCurrency, kPackDigests,
                          kWriteProtection, kTimestamps, kCapture, kPublisher, kSecondCopy,
                          kProcedure, kControl, check_names::kContent, kContentKeys, kErasure,
                          kDuplicateCopy, kCatalog, kIndex, check_names::kHoldings));
  EXPECT_EQ(report.count(Outcome::failed), 0U) << join(said(report, Outcome::failed), "\n");
  EXPECT_EQ(report.count(Outcome::outstanding), 6U);
  EXPECT_EQ(report.checks[5].authority, "GeBüV Art. 9 Abs. 1 lit. a");
  EXPECT_THAT(said(report, Outcome::passed),
              testing::IsSupersetOf(
                  {"Audit chain: Chain intact across 2 entries",
                   "Seal currency: The latest seal anchors entry 1; 1 entries added since",
                   "Sealed pack digests: No pack has been sealed yet — the active pack "
                   "stays writable by design",
                   "Duplicate copy (SEC 17a-4(f)(3)(iii)): Mirror configured at /mnt/copy",
                   "Erasure capability: Per-message keys in place; 0 messages erased so far"}));
  const AuditEntry entry = archive->journal().recent(1).at(0);
  EXPECT_EQ(entry.action, AuditAction::integrityVerified);
  EXPECT_EQ(entry.subject, std::nullopt);
  EXPECT_EQ(entry.details,
            (std::map<std::string, std::string>{
                {"deep", "yes"}, {"failed_checks", "0"}, {"outstanding_requirements", "6"}}));
}

TEST(Verification, regimesDecideWhatIsAsked) {
  RetentionPolicy policy({Regime::euGDPR, Regime::secRule17a4});
  policy.cryptoShreddingEnabled = false;
  policy.wormEnforcement = false;
  TestArchive archive(policy);
  const ComplianceReport report = verifyIntegrity(*archive, {}).value();
  EXPECT_THAT(said(report, Outcome::failed),
              ElementsAre("Erasure capability: Crypto-shredding is off, so GDPR Art. 17 erasure is "
                          "not possible on WORM media",
                          "Duplicate copy (SEC 17a-4(f)(3)(iii)): No duplicate copy configured — "
                          "configure a mirror target"));
  EXPECT_EQ(report.count(Outcome::outstanding), 0U);
}

TEST(Verification, figuresAndProvenance) {
  Archive archive(policyFor({Regime::germanGoBD}));
  archive->catalog().database().execute(
      "UPDATE message SET origin = 'reconstructed', origin_source = 'pst' WHERE id = 1; UPDATE "
      "message SET erased = 1 WHERE id = 2; UPDATE message SET expires_at = 1772360130 + 86400 "
      "WHERE id = 3; INSERT INTO hold VALUES('h', '{\"id\":\"h\"}', 1, NULL), ('r', '{}', 2, 3)");
  const ComplianceReport report = archive.verify(true);
  EXPECT_EQ(report.messageCount, 4);
  EXPECT_EQ(report.attachmentCount, 3);
  EXPECT_GT(report.originalBytes, report.storedBytes);
  EXPECT_EQ(report.expiringWithin90Days, 1);
  EXPECT_THAT(report.activeHolds, ElementsAre("{\"id\":\"h\"}"));
  EXPECT_EQ(report.latestSeal->sealNumber, 3);
  EXPECT_EQ(report.publicKeyFingerprint, archive->sealer().publicKeyFingerprint());
  EXPECT_THAT(
      said(report, Outcome::passed),
      testing::IsSupersetOf(
          {testing::StartsWith("Message provenance: 1 of 4 messages were rebuilt from fields "
                               "rather than received as messages (from: pst)."),
           testing::StartsWith("Message content hashes: 3 messages reassembled"),
           testing::StrEq("Searchable index: FTS5 index covers 3 messages")}));
}

TEST(Verification, twoKeysAreToldAndPass) {
  TestArchive archive(policyFor({Regime::germanGoBD}));
  archive.close();
  fs::remove(archive.path() / "keys/seal.key");
  archive.reopen();
  archive->sealNow();
  const ComplianceReport report = verifyIntegrity(*archive, {}).value();
  EXPECT_TRUE(report.allPassed());
  EXPECT_EQ(report.checks[3].name, check_names::kKeyContinuity);
  EXPECT_THAT(report.checks[3].detail(),
              testing::StartsWith("2 signing key(s) across 2 seals; each"));
}

TEST(Verification, writeProtectionIsReportedAsItIs) {
  RetentionPolicy policy({Regime::germanGoBD});
  Archive archive(policy);
  const bool isPossible = isImmutable(archive.pack(1));
  const std::string texts[] = {"2 sealed packs are writable",
                               "2 sealed packs carry the immutable flag."};
  const ComplianceReport report = archive.verify(false);
  EXPECT_EQ(report.allPassed(), isPossible);
  EXPECT_THAT(said(report, isPossible ? Outcome::passed : Outcome::failed),
              testing::Contains(HasSubstr(texts[isPossible ? 1 : 0])));
}

TEST(Verification, aReadOnlyArchiveIsReportedOnAndLeftAlone) {
  TestArchive archive(policyFor({Regime::germanGoBD}));
  archive.ingest({plainMail(1)});
  archive.reopen(OpenMode::readOnly);
  fs::remove(archive.path() / "keys/seal.key");
  const ComplianceReport report = verifyIntegrity(*archive, {.deep = true}).value();
  EXPECT_TRUE(report.allPassed());
  EXPECT_EQ(report.publicKeyFingerprint, std::nullopt);
  EXPECT_FALSE(fs::exists(archive.path() / "keys/seal.key"));
}

TEST(Verification, canBeBrokenOffAndRecordsNothingThen) {
  Archive archive(policyFor({Regime::germanGoBD}));
  const std::int64_t before = archive->journal().count();
  for (int stopAt = 0; stopAt < 12; ++stopAt) {
    SCOPED_TRACE(stopAt);
    int asked = 0;
    VerificationOptions options;
    options.deep = true;
    options.shouldCancel = [&] { return asked++ >= stopAt; };
    EXPECT_EQ(verifyIntegrity(*archive, options).has_value(), false);
  }
  EXPECT_EQ(archive->journal().count(), before);
}

TEST(Verification, tellsItsProgress) {
  Archive archive(policyFor({Regime::germanGoBD}));
  std::vector<std::string> phases;
  IntegrityProgress last;
  VerificationOptions options;
  options.deep = true;
  options.progress = [&](const IntegrityProgress& progress) {
    if (phases.empty() || phases.back() != progress.phase) phases.push_back(progress.phase);
    if (progress.phase == "Re-reading and re-hashing every message") last = progress;
  };
  verifyIntegrity(*archive, options);
  EXPECT_THAT(phases, testing::IsSupersetOf({"Verifying the audit chain", "Checking the seals",
                                             "Re-hashing pack files",
                                             "Re-hashing pack files — 00000002.pack"}));
  EXPECT_EQ(last.checked, 4);
  EXPECT_EQ(last.total, 4);
  EXPECT_FALSE(last.indeterminate);
}

}  // namespace
}  // namespace ambervane
