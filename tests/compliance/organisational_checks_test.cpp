#include "compliance/organisational_checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/calendar.h"
#include "base/message_table.h"
#include "base/text.h"
#include "compliance/check_names.h"
#include "compliance/control_words.h"
#include "compliance/disposal_approval.h"
#include "compliance/holdings.h"
#include "compliance/holds.h"
#include "compliance/sidecar_coverage.h"
#include "evidence/sync_schedule.h"
#include "store/archive_error.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string daysAgo(double days) { return iso8601({kTestTime.seconds - days * kSecondsPerDay}); }

TEST(OrganisationalChecks, whatIsRecordedDecides) {
  const std::string schedule = R"({"enabled":true,"interval":"daily","hour":3,"minute":0})";
  using Settings = std::map<std::string_view, std::string>;
  const struct {
    const char* name;
    Settings settings;
    const char* check;
    Outcome outcome;
    std::string detail;
  } kCases[] = {
      {"neverControlled",
       {},
       check_names::kControl,
       Outcome::outstanding,
       "No control has ever been recorded for this archive."},
      {"controlled",
       {{settings::kLastControlAt, daysAgo(364)}, {settings::kLastControlBy, "Zoë"}},
       check_names::kControl,
       Outcome::passed,
       "Last recorded control 2025-03-02 by Zoë."},
      {"controlOverdue",
       {{settings::kLastControlAt, daysAgo(366)}, {settings::kLastControlBy, "Zoë"}},
       check_names::kControl,
       Outcome::outstanding,
       "The last recorded control was 2025-02-28 by Zoë, more than a year ago."},
      {"secondCopy",
       {{settings::kSecondCopy, "the bank"}},
       check_names::kSecondCopy,
       Outcome::passed,
       "A copy is kept at the bank. The archive records the location; it cannot check that the "
       "copy "
       "is current."},
      {"blankIsNothing",
       {{settings::kSecondCopy, " "}},
       check_names::kSecondCopy,
       Outcome::outstanding,
       "No second copy is recorded."},
      {"procedure",
       {{settings::kProcedure, "DMS 12"}},
       check_names::kProcedure,
       Outcome::passed,
       "Recorded as DMS 12."},
      {"manual", {}, check_names::kCapture, Outcome::outstanding, "Mail is collected only when"},
      {"switchedOff",
       {{settings::kSyncSchedule, "{}"}},
       check_names::kCapture,
       Outcome::outstanding,
       "Mail is collected only when"},
      {"scheduled",
       {{settings::kSyncSchedule, schedule}, {settings::kLastScheduledSuccess, daysAgo(2.9)}},
       check_names::kCapture,
       Outcome::passed,
       "Mail is collected automatically (every day at 03:00)"},
      {"stale",
       {{settings::kSyncSchedule, schedule},
        {settings::kLastScheduledSuccess, daysAgo(3)},
        {settings::kLastScheduledFailure, "no route"}},
       check_names::kCapture,
       Outcome::outstanding,
       "Automatic collection is configured (every day at 03:00) but has not succeeded since "
       "2026-02-26 10:15 UTC. An archive that appears to be tended and is not is worse than one "
       "nobody claims to tend. The last attempt reported: no route"},
      {"timestamps",
       {},
       check_names::kTimestamps,
       Outcome::outstanding,
       "1 of 1 seals are signed with this machine's clock"},
  };
  TestArchive archive;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    archive->catalog().database().execute("DELETE FROM meta WHERE key <> 'schema_version'");
    for (const auto& [key, value] : c.settings) archive->catalog().setMeta(key, value);
    const auto checks = swissOrganisationalChecks(*archive);
    const auto check = std::ranges::find(checks, c.check, &ComplianceCheck::name);
    EXPECT_EQ(check->outcome, c.outcome);
    EXPECT_THAT(check->detail(), StartsWith(c.detail));
    EXPECT_EQ(check->remedy.has_value(), c.outcome == Outcome::outstanding);
  }
}

TEST(OrganisationalChecks, onlyADeveloperIdNamesAPublisher) {
  TestArchive archive;
  CodeSignature signature;
  const auto detail = [&] { return swissOrganisationalChecks(*archive, signature)[2].detail(); };
  EXPECT_THAT(detail(), HasSubstr("(unsigned or the signature does not verify)"));
  signature = {.authority = "Apple Development: Zoë",
               .teamIdentifier = {},
               .identifier = {},
               .isAdHoc = false,
               .isValid = true};
  EXPECT_THAT(detail(), HasSubstr("(Apple Development certificate)"));
  signature.authority = "Developer ID Application: Example AG";
  signature.teamIdentifier = "T1";
  EXPECT_THAT(detail(), HasSubstr("is signed by Example AG (T1). A third party"));
}

// ---- The tables of translations.

/// One finding of every kind, and of each the forms its words take.
std::vector<Finding> allFindings() {
  using F = Finding;
  const LocalizedMessage hourly{"every hour", {}};
  std::vector<F::Value> values = {F::ChainIntact{},
                                  F::ChainMalformed{},
                                  F::ChainSequenceGap{},
                                  F::ChainBreak{},
                                  F::ChainEntryModified{},
                                  F::AllMessagesAsReceived{},
                                  F::SomeMessagesReconstructed{},
                                  F::SealsVerify{},
                                  F::SealsFailVerification{},
                                  F::SigningKeys{},
                                  F::SealAnchored{},
                                  F::SealNotAnchored{},
                                  F::PackDigestFailures{""},
                                  F::PacksImmutable{},
                                  F::PacksWritable{},
                                  F::MessagesRehashed{1, 0},
                                  F::MessagesRehashed{1, 1},
                                  F::MessagesFailedRehash{},
                                  F::ErasurePossible{},
                                  F::DuplicateCopyConfigured{},
                                  F::CatalogDatabase{"", "", true},
                                  F::CatalogDatabase{"", "", false},
                                  F::NetworkVolume{},
                                  F::IndexCovers{1, false},
                                  F::IndexCovers{1, true},
                                  F::TimestampsOnAllSeals{},
                                  F::TimestampsMissing{},
                                  F::TimestampsMissing{1, 1, "x"},
                                  F::SecondCopyRecorded{},
                                  F::ProcedureRecorded{},
                                  F::LastControl{},
                                  F::ControlOverdue{},
                                  F::CaptureScheduled{hourly, ""},
                                  F::CaptureScheduledButStale{hourly, {}, {}},
                                  F::CaptureScheduledButStale{hourly, "x", {}},
                                  F::CaptureScheduledButStale{hourly, {}, "x"},
                                  F::CaptureScheduledButStale{hourly, "x", "x"},
                                  F::PublisherIdentified{},
                                  F::PublisherAnonymous{},
                                  F::Verbatim("")};
  for (int i = 0; i <= static_cast<int>(F::Fixed::captureManualOnly); ++i) {
    values.emplace_back(static_cast<F::Fixed>(i));
  }
  std::set<std::size_t> kinds;
  for (const F::Value& value : values) kinds.insert(value.index());
  EXPECT_EQ(kinds.size(), std::variant_size_v<F::Value>) << "a kind of finding is missing here";
  return {values.begin(), values.end()};
}

/// Every English text that a report can say.
std::set<std::string> allTexts() {
  std::set<std::string> texts = {std::string(Finding::databaseConsistent),
                                 "another mail store",
                                 "Journal missing or unreadable",
                                 "unsigned or the signature does not verify",
                                 "ad-hoc signature — no identity behind it",
                                 "signed, authority unavailable",
                                 "Apple Development certificate",
                                 kDamagedDictionaries};
  for (const Finding& finding : allFindings()) texts.insert(finding.message().format);
  for (const auto& list : {reportWords(), holdingsWords(), retentionWords()})
    texts.insert(list.begin(), list.end());
  texts.insert(check_names::kAll.begin(), check_names::kAll.end());
  texts.insert(control_words::kAll.begin(), control_words::kAll.end());
  for (const RetentionClass& one : RetentionClass::builtIn()) texts.insert(one.label);
  for (int regime = 0; regime < 4; ++regime) {
    texts.insert(std::string(facts(static_cast<ComplianceRegime>(regime)).label));
  }
  const auto addRefusal = [&](const TranslatableError& e) { texts.insert(e.message().format); };
  using Refusal = DisposalRefusal;
  addRefusal(Refusal(Refusal::NotPermitted{}));
  addRefusal(Refusal(Refusal::ConfirmationMismatch{}));
  addRefusal(Refusal(Refusal::NothingApproved{}));
  addRefusal(Refusal(Refusal::NoApprover{}));
  addRefusal(Refusal(Refusal::NoReason{}));
  addRefusal(Refusal(Refusal::ShreddingUnavailable{}));
  addRefusal(ArchiveError(ArchiveError::OnLegalHold{1}));
  addRefusal(HoldError(HoldError::Unknown{"1"}));
  addRefusal(HoldError(HoldError::AlreadyReleased{"1"}));
  texts.insert(SyncSchedule{}.summary().format);
  for (int interval = 0; interval < 3; ++interval) {
    for (int weekday = 1; weekday <= 7; ++weekday) {
      const LocalizedMessage summary =
          SyncSchedule{.enabled = true,
                       .interval = static_cast<SyncSchedule::Interval>(interval),
                       .hour = 1,
                       .minute = 1,
                       .weekday = weekday}
              .summary();
      texts.insert(summary.format);
      if (summary.arguments.size() == 2) texts.insert(summary.arguments[0]);
    }
  }
  TestArchive archive;
  const auto add = [&] {
    for (const ComplianceCheck& check : swissOrganisationalChecks(*archive)) {
      if (check.authority) texts.insert(*check.authority);
      if (check.remedy) texts.insert(check.remedy->format);
    }
  };
  add();
  archive->catalog().setMeta(settings::kSyncSchedule, R"({"enabled":true})");
  archive->sealer().setTimestampAuthorities({"http://127.0.0.1:1/"});
  archive->sealNow();
  add();
  texts.insert("GeBüV Art. 9 Abs. 1 lit. a");
  texts.erase("");
  return texts;
}

std::multiset<std::string> placeholders(std::string_view text) {
  std::multiset<std::string> found;
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 1)) {
    if (text.substr(at, 2) == "%@") found.emplace("%@");
    if (text.substr(at + 2, 2) == "$@") found.emplace(text.substr(at, 4));
  }
  return found;
}

TEST(Translations, noTableHasAHoleOrASurplus) {
  const std::set<std::string> texts = allTexts();
  for (const ReportLanguage language : kReportLanguages) {
    if (language == ReportLanguage::english) continue;
    SCOPED_TRACE(rawValue(language));
    std::set<std::string> known;
    for (const auto& [english, translated] : messageTable(language)) {
      SCOPED_TRACE(english);
      known.emplace(english);
      EXPECT_EQ(placeholders(english), placeholders(translated));
      EXPECT_EQ(trim(translated), translated);
    }
    EXPECT_EQ(known, texts);
  }
}

}  // namespace
}  // namespace ambervane
