#include "compliance/retention.h"

#include <gtest/gtest.h>

#include "base/calendar.h"
#include "compliance/holds.h"
#include "compliance/verification.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

Date at(const char* text) { return parseIso8601(text).value(); }

Bytes dated(int number, const std::string& date, const std::string& subject = "x") {
  return "Message-ID: <" + std::to_string(number) + "@x>\r\nDate: " + date +
         "\r\nFrom: a@example.com\r\nSubject: " + subject + "\r\n\r\nText.\r\n";
}

std::string kept(TestArchive& archive, std::int64_t id) {
  return iso8601(archive->catalog().message(id)->expiresAt.value());
}

TEST(Retention, reviewIsExactToTheSecond) {
  TestArchive archive;
  archive.ingest({dated(1, "1 Feb 2010 10:00:00 +0000"), dated(2, "1 Feb 2011 10:00:00 +0000"),
                  dated(3, "1 Feb 2012 10:00:00 +0000")});
  placeHold(*archive,
            {"1", "M", "", "", kTestTime, std::nullopt, {.dateTo = at("2010-12-31T00:00:00Z")}});
  const struct {
    const char* asOf;
    std::int64_t expired, heldBack, soon;
    const char* next;
  } kCases[] = {
      {"2020-12-31T23:59:58Z", 0, 0, 1, "2020-12-31T23:59:59Z"},
      {"2020-12-31T23:59:59Z", 0, 1, 0, "2021-12-31T23:59:59Z"},
      {"2021-10-02T23:59:58Z", 0, 1, 0, "2021-12-31T23:59:59Z"},
      {"2021-10-02T23:59:59Z", 0, 1, 1, "2021-12-31T23:59:59Z"},
      {"2021-12-31T23:59:59Z", 1, 1, 0, "2022-12-31T23:59:59Z"},
      {"2022-12-31T23:59:59Z", 2, 1, 0, nullptr},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.asOf);
    const RetentionOutcome outcome = reviewRetention(*archive, at(c.asOf), true);
    EXPECT_EQ(outcome.expiredCount, c.expired);
    EXPECT_EQ(outcome.eligibleIDs.size(), static_cast<std::size_t>(c.expired));
    EXPECT_EQ(outcome.heldBackCount, c.heldBack);
    EXPECT_EQ(outcome.expiringSoonCount, c.soon);
    EXPECT_EQ(outcome.examinedCount, 3);
    EXPECT_EQ(outcome.nextExpiry ? iso8601(*outcome.nextExpiry) : "", c.next ? c.next : "");
  }
  const AuditEntry entry = archive.entries(AuditAction::retentionApplied).back();
  EXPECT_EQ(entry.subject, "2022-12-31T23:59:59Z");
  EXPECT_EQ(entry.details.at("past_retention") + entry.details.at("held_back"), "21");
}

TEST(Retention, reclassifyLooksAtEveryMailbox) {
  TestArchive archive;
  archive.ingest({dated(1, "29 Feb 2024 10:00:00 +0000"), dated(2, "29 Feb 2024 10:00:00 +0000")});
  archive.ingest({dated(2, "29 Feb 2024 10:00:00 +0000")}, "News");
  RetentionPolicy policy = archive->policy();
  policy.rules = {{"1", "News", "transient", true, {}, {"news"}, {}, false}};
  updatePolicy(*archive, policy, "news goes");
  EXPECT_FALSE(areRetentionDatesDue(*archive)) << "rules move no dates by themselves";
  const std::map<std::string, std::int64_t> counts = {{"business", 1}, {"transient", 1}};
  EXPECT_EQ(reclassify(*archive, {}), counts);
  EXPECT_EQ(kept(archive, 1), "2034-12-31T23:59:59Z");
  EXPECT_EQ(kept(archive, 2), "2025-02-28T10:00:00Z");
  const AuditEntry entry = archive.entries(AuditAction::retentionApplied).back();
  EXPECT_EQ(entry.subject, "reclassify");
  EXPECT_EQ(entry.details.at("classes"), "business=1,transient=1");
  EXPECT_EQ(verifyIntegrity(*archive, {})->count(Outcome::failed), 0);
}

TEST(Retention, datesFollowThePolicy) {
  TestArchive archive;
  archive.ingest({dated(1, "15 Aug 2024 10:00:00 +0000"), dated(2, "15 Mar 2024 10:00:00 +0000"),
                  dated(3, "31 Dec 2024 23:30:00 +0000")});
  archive->catalog().database().run("UPDATE message SET retention_class = 'gone' WHERE id = 2");
  RetentionPolicy policy = archive->policy();
  policy.financialYearEndMonth = 6;
  policy.cryptoShreddingEnabled = true;
  policy.wormEnforcement = false;
  updatePolicy(*archive, policy, "new year");
  EXPECT_FALSE(archive->policy().cryptoShreddingEnabled) << "decided when the archive was made";
  EXPECT_TRUE(archive->policy().wormEnforcement);
  EXPECT_EQ(kept(archive, 1), "2034-12-31T23:59:59Z") << "not moved yet";

  archive.close();  // and not finished
  archive.reopen();
  EXPECT_EQ(archive->policy().financialYearEndMonth, 6);
  EXPECT_TRUE(areRetentionDatesDue(*archive));
  EXPECT_EQ(recomputeRetentionDates(*archive, {}), 2);
  EXPECT_FALSE(areRetentionDatesDue(*archive));
  EXPECT_EQ(kept(archive, 1), "2035-06-30T23:59:59Z");
  EXPECT_EQ(kept(archive, 2), "2034-12-31T23:59:59Z") << "of a class the policy does not know";
  EXPECT_EQ(kept(archive, 3), "2035-06-30T23:59:59Z") << "in Zurich the new year had begun";
  EXPECT_EQ(recomputeRetentionDates(*archive, {}), 0);

  const std::map<std::string, std::string> details = {{"reason", "new year"},
                                                      {"regimes", "ch-gebuev"},
                                                      {"from_years", "10"},
                                                      {"to_years", "10"},
                                                      {"from_financial_year_end_month", "12"},
                                                      {"to_financial_year_end_month", "6"}};
  EXPECT_EQ(archive.entries(AuditAction::policyChanged).back().details, details);
}

}  // namespace
}  // namespace ambervane
