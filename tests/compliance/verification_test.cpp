#include "compliance/verification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/digest.h"
#include "compliance/check_names.h"
#include "tests/compliance/damaged_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::StartsWith;
using Regime = ComplianceRegime;
using Details = std::map<std::string, std::string>;

RetentionPolicy german() { return DamagedArchive::policyFor({Regime::germanGoBD}); }

struct Entry {
  AuditAction action;
  std::string subject;
  Details details;
};

TEST(Holdings, whatTheJournalExplains) {
  const std::string gone(64, 'a');
  const std::string here = sha256Hex(plainMail(1));
  const std::string erase = "UPDATE message SET erased = 1 WHERE id = 1";
  const std::string hold = "INSERT INTO hold VALUES('H', '{}', 0, ";
  const std::string note =
      " belong to a batch that was not kept; its messages are not in the archive";
  using enum AuditAction;
  const Entry ingested{messageIngested, gone, {{"size", "1"}}};
  const Entry lost{
      integrityVerified, "startup", {{"lost_in_crash", "2"}, {"digests", here + "," + gone}}};
  const Entry approved{
      retentionApplied, "2026", {{"action", "disposal approved"}, {"approved_count", "1"}}};
  const auto finished = [](const char* erased) {
    return Entry{retentionApplied, "2026", {{"action", "disposal finished"}, {"erased", erased}}};
  };
  const Entry placed{legalHoldPlaced, "H", {{"messages", "1"}}};
  const std::string link = "; INSERT INTO message_hold VALUES(1, 'H')";
  const std::string contract = "UPDATE message SET retention_class = 'contract'";
  const std::string transient =
      "UPDATE message SET retention_class = 'transient', expires_at = sent_at + 366 * 86400 WHERE "
      "id = 1";
  const auto reclassified = [](const char* classes) {
    return Entry{retentionApplied, "reclassify", {{"messages", "2"}, {"classes", classes}}};
  };
  const Entry changed{policyChanged, "retention", {{"regimes", "de-gobd"}, {"to_years", "12"}}};
  const Entry applied{retentionApplied, "retention dates", {{"action", "dates recomputed"}}};
  const std::string twelve = "UPDATE message SET expires_at = 2114380799";  // the end of 2036
  const auto crash = [&](const char* count) {
    return Entry{integrityVerified,
                 "startup",
                 {{"lost_in_crash", count}, {"digests", std::string(64, 'b')}}};
  };
  const Entry before{messageIngested, std::string(64, 'b'), {}};
  const struct {
    const char* name;
    std::string sql;
    std::vector<Entry> entries;
    bool passes;
    int years = 10;  ///< of the default class
  } kCases[] = {
      {"missing", "", {ingested}, false},
      {"lostInACrash", "", {ingested, lost}, true},
      {"lostAndTakenInAgain", "", {ingested, lost, ingested}, false},
      {"lostAmongMoreThanAreNamed", "", {before, ingested, crash("2")}, true},
      {"notAmongThem", "", {before, ingested, crash("1")}, false},
      {"sweptWithoutANameGiven",
       "",
       {ingested, {integrityVerified, "startup", {{"swept_incomplete_rows", "1"}}}},
       false},
      {"brokenBatch",
       "",
       {ingested, {integrityFailed, "import", {{"note", "entries 8 to 8" + note}}}},
       true},
      {"anotherBatch",
       "",
       {ingested, {integrityFailed, "import", {{"note", "entries 9 to 12" + note}}}},
       false},
      {"erasedBeforeARebuild",
       "",
       {ingested,
        {messageErased, gone, {}},
        {policyChanged, "catalog", {{"action", "rebuild finished"}}}},
       true},
      {"erasedWithoutARebuild", "", {ingested, {messageErased, gone, {}}}, false},
      {"erasedByName", erase, {{messageErased, here, {}}}, true},
      {"erasedByAList", erase, {approved, finished("1")}, true},
      {"listBrokenOff", erase, {approved}, true},
      {"listThatErasedNone", erase, {approved, finished("0")}, false},
      {"anotherErased", erase, {{messageErased, gone, {}}}, false},
      {"erasureUndone", "", {{messageErased, here, {}}}, false},
      {"reclassified", contract + " WHERE id = 1", {reclassified("business=1,contract=1")}, true},
      {"moreThanReclassified", contract, {reclassified("business=1,contract=1")}, false},
      {"shorterByARule", transient, {reclassified("business=1,transient=1")}, true},
      {"shorterByHand", transient, {}, false},
      {"policyByHand", twelve, {}, false, 12},
      {"policyAppliedToAll", twelve, {changed, applied}, true, 12},
      {"policyOnlyForWhatIsToCome", "", {changed}, true, 12},
      {"datesPutBack", "", {changed, applied}, false, 12},
      {"dateOfNoPolicy",
       "UPDATE message SET expires_at = expires_at - 31536000 WHERE id = 1",
       {changed},
       false,
       12},
      {"hold", hold + "NULL)" + link, {placed}, true},
      {"holdThatCouldNotBeKept",
       "",
       {placed,
        {integrityFailed,
         "catalog",
         {{"note", "entries 8 to 8 tell of a change that was not kept"}}}},
       true},
      {"holdWithoutItsMessage", hold + "NULL)", {placed}, false},
      {"holdWithoutARow", "", {placed}, false},
      {"holdReleasedUnseen", hold + "1)", {placed}, false},
      {"holdReleased", hold + "1)", {placed, {legalHoldReleased, "H", {}}}, true},
      {"holdCarriedOver",
       hold + "1)",
       {{legalHoldPlaced, "H", {{"note", "carried over with the merge from X"}}}},
       true},
  };
  TestArchive original(german());
  original.ingest({plainMail(1), plainMail(2)});
  ASSERT_EQ(original->journal().count(), 7);
  original.close();
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TestArchive archive(TestArchive::CopyOf{original});
    const fs::path manifestPath = archive.path() / "archive.json";
    auto manifest = ArchiveManifest::load(manifestPath, kTestTime);
    manifest.policy.defaultClass.years = c.years;
    manifest.save(manifestPath);
    archive.reopen();
    archive->catalog().database().execute(c.sql);
    for (const Entry& e : c.entries) archive->journal().append(e.action, e.subject, e.details);
    const ComplianceReport report = verifyIntegrity(*archive, {}).value();
    EXPECT_EQ(report.allPassed(), c.passes) << join(said(report, Outcome::failed), "\n");
  }
}

TEST(Verification, checksStandInTheirOrder) {
  TestArchive archive(RetentionPolicy({Regime::swissGeBueV, Regime::euGDPR, Regime::secRule17a4}));
  archive->catalog().setMeta("duplicate_copy_path", "/mnt/copy");
  VerificationOptions options;
  options.deep = true;
  const ComplianceReport report = verifyIntegrity(*archive, options).value();
  std::vector<std::string> names;
  for (const ComplianceCheck& check : report.checks) names.push_back(check.name);
  using namespace check_names;
  EXPECT_THAT(names, ElementsAre(kProvenance, kChain, kSeals, kSealCurrency, kPackDigests,
                                 kWriteProtection, kTimestamps, kCapture, kPublisher, kSecondCopy,
                                 kProcedure, kControl, kContent, kContentKeys, kErasure,
                                 kDuplicateCopy, kCatalog, kIndex, kHoldings));
  EXPECT_EQ(report.count(Outcome::failed), 0U) << join(said(report, Outcome::failed), "\n");
  EXPECT_EQ(report.checks[5].authority, "GeBüV Art. 9 Abs. 1 lit. a");
  EXPECT_THAT(
      said(report, Outcome::passed),
      IsSupersetOf({"Audit chain: Chain intact across 2 entries",
                    "Seal currency: The latest seal anchors entry 1; 1 entries added since",
                    "Sealed pack digests: No pack has been sealed yet — the active pack stays "
                    "writable by design",
                    "Duplicate copy (SEC 17a-4(f)(3)(iii)): Mirror configured at /mnt/copy",
                    "Erasure capability: Per-message keys in place; 0 messages erased so far"}));
  const AuditEntry entry = archive->journal().recent(1).at(0);
  EXPECT_EQ(entry.action, AuditAction::integrityVerified);
  EXPECT_EQ(entry.subject, std::nullopt);
  EXPECT_EQ(entry.details,
            (Details{{"deep", "yes"}, {"failed_checks", "0"}, {"outstanding_requirements", "6"}}));
}

TEST(Verification, regimesDecideWhatIsAsked) {
  RetentionPolicy policy = DamagedArchive::policyFor({Regime::euGDPR, Regime::secRule17a4});
  policy.cryptoShreddingEnabled = false;
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
  DamagedArchive archive(german());
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
  const auto passed = said(report, Outcome::passed);
  EXPECT_THAT(passed, Contains(StartsWith("Message provenance: 1 of 4 messages were rebuilt from "
                                          "fields rather than received as messages (from: pst).")));
  EXPECT_THAT(passed, Contains(StartsWith("Message content hashes: 3 messages reassembled")));
  EXPECT_THAT(passed, Contains("Searchable index: FTS5 index covers 3 messages"));
}

TEST(Verification, twoKeysAreToldAndPass) {
  TestArchive archive(german());
  archive.close();
  fs::remove(archive.path() / "keys/seal.key");
  archive.reopen();
  archive->sealNow();
  const ComplianceReport report = verifyIntegrity(*archive, {}).value();
  EXPECT_TRUE(report.allPassed());
  EXPECT_EQ(report.checks[3].name, check_names::kKeyContinuity);
  EXPECT_THAT(report.checks[3].detail(), StartsWith("2 signing key(s) across 2 seals; each seal"));
}

TEST(Verification, writeProtectionIsReportedAsItIs) {
  DamagedArchive archive(RetentionPolicy({Regime::germanGoBD}));
  const bool isPossible = isImmutable(archive.pack(1));
  const ComplianceReport report = archive.verify(false);
  EXPECT_EQ(report.allPassed(), isPossible);
  EXPECT_THAT(said(report, isPossible ? Outcome::passed : Outcome::failed),
              Contains(HasSubstr(isPossible ? "1 sealed packs carry the immutable flag."
                                            : "1 sealed packs are writable")));
}

TEST(Verification, aReadOnlyArchiveIsReportedOnAndLeftAlone) {
  TestArchive archive(german());
  archive.ingest({plainMail(1)});
  archive.reopen(OpenMode::readOnly);
  fs::remove(archive.path() / "keys/seal.key");
  const ComplianceReport report = verifyIntegrity(*archive, {}).value();
  EXPECT_TRUE(report.allPassed());
  EXPECT_EQ(report.publicKeyFingerprint, std::nullopt);
  EXPECT_FALSE(fs::exists(archive.path() / "keys/seal.key"));
}

TEST(Verification, anArchiveWithoutItsMasterKeyIsReportedOn) {
  TestArchive archive(RetentionPolicy({Regime::euGDPR}));
  archive.ingest({plainMail(1)});
  fs::remove(archive.path() / "keys/master.key");
  archive.reopen(OpenMode::readOnly);
  VerificationOptions options;
  options.deep = true;
  const std::string broken =
      ": The master key does not match the stored content keys — restore keys/master.key from "
      "backup";
  EXPECT_THAT(said(verifyIntegrity(*archive, options).value(), Outcome::failed),
              ElementsAre("Message content hashes: 1 of 1 messages no longer match their stored "
                          "digest",
                          "Content keys" + broken, "Erasure capability" + broken));
}

TEST(Verification, tellsItsProgressAndCanBeBrokenOff) {
  DamagedArchive archive(german());
  std::vector<std::string> phases;
  IntegrityProgress last;
  int asked = 0;
  int stopAt = 1000;
  VerificationOptions options;
  options.deep = true;
  options.progress = [&](const IntegrityProgress& progress) {
    phases.push_back(progress.phase);
    if (progress.phase == "Re-reading and re-hashing every message") last = progress;
  };
  options.shouldCancel = [&] { return asked++ >= stopAt; };
  EXPECT_TRUE(verifyIntegrity(*archive, options)->allPassed());
  EXPECT_THAT(phases,
              IsSupersetOf({"Verifying the audit chain", "Checking the seals",
                            "Re-hashing pack files", "Re-hashing pack files — 00000001.pack"}));
  EXPECT_EQ(last.checked, 4);
  EXPECT_EQ(last.total, 4);
  EXPECT_FALSE(last.indeterminate);
  const std::int64_t before = archive->journal().count();
  for (int steps = asked; steps > 0; --steps) {
    SCOPED_TRACE(steps);
    asked = 0;
    stopAt = steps - 1;
    EXPECT_EQ(verifyIntegrity(*archive, options).has_value(), false);
  }
  EXPECT_EQ(archive->journal().count(), before);
}

}  // namespace
}  // namespace ambervane
