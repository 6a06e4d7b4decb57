#include "compliance/disposal.h"

#include <gtest/gtest.h>

#include <functional>

#include "base/calendar.h"
#include "compliance/holds.h"
#include "compliance/retention.h"
#include "compliance/verification.h"
#include "store/archive_error.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

const Date kDue = parseIso8601("2035-01-01T00:00:00Z").value();  // of what is dated 2024

RetentionPolicy disposing() {
  RetentionPolicy policy({ComplianceRegime::swissGeBueV, ComplianceRegime::euGDPR});
  policy.disposalPolicy = DisposalPolicy::manualApproval;
  return policy;
}

DisposalApproval approval(std::vector<std::int64_t> ids) {
  return {std::move(ids), " Eva\n", "period over", " DISPOSE "};
}

TEST(Disposal, refusals) {
  using Refusal = DisposalRefusal;
  RetentionPolicy reportOnly = disposing();
  reportOnly.disposalPolicy = DisposalPolicy::reportOnly;
  RetentionPolicy unencrypted = disposing();
  unencrypted.cryptoShreddingEnabled = false;
  // Each case has all the faults of those behind it too.
  const struct {
    const char* name;
    RetentionPolicy policy;
    DisposalApproval approval;
    std::function<bool(const Refusal&)> isIt;
  } kCases[] = {
      {"notPermitted", reportOnly, {{}, "", "", "dispose"}, &Refusal::is<Refusal::NotPermitted>},
      {"list", unencrypted, {{}, "Eva", "r", "DISPOSE"}, &Refusal::is<Refusal::NothingApproved>},
      {"keys", unencrypted, approval({1}), &Refusal::is<Refusal::ShreddingUnavailable>},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TestArchive archive(c.policy);
    archive.ingest({plainMail(1)});
    const std::int64_t entries = archive->journal().count();
    try {
      disposeApproved(*archive, c.approval, kDue);
      ADD_FAILURE() << "not refused";
    } catch (const Refusal& refusal) {
      EXPECT_TRUE(c.isIt(refusal)) << refusal.what();
    }
    EXPECT_EQ(archive->journal().count(), entries);
    archive.close();
    archive.reopen(OpenMode::readOnly);
    EXPECT_THROW(disposeApproved(*archive, c.approval, kDue), ArchiveError);
    EXPECT_THROW(reclassify(*archive, {}), ArchiveError);
    EXPECT_THROW(releaseHold(*archive, "1", "x"), ArchiveError);
  }
}

TEST(Disposal, erasesOnlyWhatMayGo) {
  TestArchive archive(disposing());
  archive.ingest({plainMail(1), plainMail(2), plainMail(3), plainMail(4), plainMail(5)});
  SQLiteDatabase& db = archive->catalog().database();
  const RetentionOutcome review = reviewRetention(*archive, kDue, true);
  ASSERT_EQ(review.expiredCount, 5);
  // What happens between review and approval:
  placeHold(*archive,
            {"1", "M", "", "", kTestTime, std::nullopt, {.searchTerms = {"Lieferung 2"}}});
  db.run("UPDATE message SET retention_class = 'gone' WHERE id = 3");
  db.run("UPDATE message SET expires_at = ? WHERE id = 4", {kDue.seconds + 1});
  db.run("UPDATE message SET expires_at = ? WHERE id = 5", {kDue});
  std::vector<std::int64_t> ids = review.eligibleIDs;
  ids.insert(ids.end(), {1, 77});
  const DisposalResult result = disposeApproved(*archive, approval(ids), kDue);
  EXPECT_EQ(result, (DisposalResult{2, 1, 2, 2, true})) << "one named twice, and one not there";
  EXPECT_EQ(archive->catalog().message(1)->erasureReason,
            "retention disposal approved by Eva: period over");
  EXPECT_FALSE(archive->catalog().message(2)->erased);

  const auto entries = archive.entries(AuditAction::retentionApplied);
  EXPECT_EQ(entries[entries.size() - 2].details.at("approved_count"), "7");
  EXPECT_EQ(entries.back().details.at("action"), "disposal finished");
  EXPECT_EQ(entries.back().details.at("erased"), "2");
  EXPECT_EQ(archive.entries(AuditAction::chainSealed).back().seq, archive->journal().count());
}

TEST(Disposal, aLongerPolicyProtects) {
  TestArchive archive(disposing());
  archive.ingest({plainMail(1)});
  RetentionPolicy longer = archive->policy();
  longer.financialYearEndMonth = 1;  // its year ends in January 2025
  updatePolicy(*archive, longer, "x");
  const auto dispose = [&](const char* asOf) {
    return disposeApproved(*archive, approval({1}), parseIso8601(asOf).value());
  };
  EXPECT_EQ(dispose("2035-01-31T23:59:58Z").skippedNoLongerExpired, 1);
  EXPECT_EQ(dispose("2035-01-31T23:59:59Z").erased, 1);
}

TEST(Disposal, interruptedLeavesAnApprovalWithoutAnOutcome) {
  TestArchive archive(disposing());
  archive.ingest({plainMail(1), plainMail(2)});
  const auto onKeys = [&archive](const char* sql) {
    SQLiteDatabase(archive.path() / "keys/content-keys.sqlite", SQLiteDatabase::Mode::readWrite,
                   "t")
        .execute(sql);
  };
  onKeys(
      "CREATE TRIGGER stop BEFORE DELETE ON content_key WHEN OLD.message_id = 2 BEGIN SELECT "
      "RAISE(ABORT, 'disk'); END");
  EXPECT_THROW(disposeApproved(*archive, approval({1, 2}), kDue), SQLiteError);
  EXPECT_EQ(archive.entries(AuditAction::retentionApplied).back().details.at("action"),
            "disposal approved");
  EXPECT_FALSE(archive->catalog().message(2)->erased) << "its key is there";
  onKeys("DROP TRIGGER stop");

  archive.close();
  archive.reopen();
  const DisposalResult result = disposeApproved(*archive, approval({1, 2}), kDue);
  EXPECT_EQ(result.erased + result.skippedAlreadyErased, 2);
  EXPECT_TRUE(archive->catalog().message(1)->erased && archive->catalog().message(2)->erased);
  VerificationOptions deep;
  deep.deep = true;
  EXPECT_EQ(verifyIntegrity(*archive, deep)->count(Outcome::failed), 0);
}

}  // namespace
}  // namespace ambervane
