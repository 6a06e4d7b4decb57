#include "evidence/compliance_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ambervane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

ComplianceReport sample() {
  ComplianceReport report;
  report.regimes = {ComplianceRegime::swissGeBueV, ComplianceRegime::euGDPR};
  report.archiveName = "Büro\n";
  report.archiveID = "ID";
  report.generatedAt = {1772360130};
  report.messageCount = 12;
  report.attachmentCount = 3;
  report.originalBytes = 3 << 20;
  report.storedBytes = 1 << 20;
  report.latestSeal = ChainSeal{};
  report.latestSeal->sealNumber = 4;
  report.latestSeal->createdAt = {1772360130};
  report.latestSeal->entryCount = 20;
  report.publicKeyFingerprint = "abcd";
  report.activeHolds = {"{}"};
  report.expiringWithin90Days = 2;
  report.checks.resize(2);
  report.checks[0].name = "Audit chain";
  report.checks[0].finding = Finding(Finding::ChainIntact{20});
  report.checks[1].name = "Second copy recorded";
  report.checks[1].outcome = Outcome::outstanding;
  report.checks[1].finding = Finding(Finding::Fixed::secondCopyMissing);
  report.checks[1].authority = "GeBüV Art. 5";
  report.checks[1].remedy = LocalizedMessage{"Do %@", {"it"}};
  return report;
}

TEST(ComplianceReport, plainText) {
  EXPECT_EQ(sample().plainText(),
            "Archive:        Büro\\n [ID]\n"
            "Generated:      2026-03-01 10:15:30 UTC\n"
            "Regimes:        Switzerland — GeBüV / OR 957–958f, EU — GDPR (Art. 17 erasure)\n"
            "Messages:       12\n"
            "Attachments:    3\n"
            "Stored size:    1.0 MB of 3.0 MB original (33.3%)\n"
            "Latest seal:    #4 at 2026-03-01 10:15:30 UTC, 20 entries\n"
            "Signing key:    SHA-256 abcd\n"
            "Active holds:   1\n"
            "Expiring ≤90d:  2\n"
            "\n"
            "Checks\n"
            "  [PASS] Audit chain: Chain intact across 20 entries\n"
            "  [OPEN] Second copy recorded: No second copy is recorded. An archive on one disk is "
            "one disk failure away from not existing.\n"
            "         GeBüV Art. 5\n"
            "         → Do it\n"
            "\n"
            "RESULT: all checks passed; 1 requirement outstanding — see OPEN above.\n");
}

TEST(ComplianceReport, verdicts) {
  ComplianceReport report = sample();
  EXPECT_TRUE(report.allPassed());
  report.checks.push_back(report.checks[1]);
  EXPECT_THAT(report.plainText(), EndsWith("2 requirements outstanding — see OPEN above.\n"));
  report.checks[0].outcome = Outcome::failed;
  EXPECT_FALSE(report.allPassed());
  EXPECT_THAT(report.plainText(), HasSubstr("  [FAIL] Audit chain: "));
  EXPECT_THAT(report.plainText(), EndsWith("RESULT: at least one check failed — see above.\n"));
  report.checks.clear();
  report.originalBytes = 0;
  report.latestSeal.reset();
  EXPECT_THAT(report.plainText(), EndsWith("\nRESULT: all checks passed.\n"));
  EXPECT_THAT(report.plainText(), HasSubstr("Stored size:    nothing stored yet\n"
                                            "Latest seal:    none\n"));
  EXPECT_THAT(report.plainText(ReportLanguage::french),
              HasSubstr("\nPièces jointes :   3\nTaille :           rien encore enregistré\n"));
}

}  // namespace
}  // namespace ambervane
