#include "compliance/control.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/digest.h"
#include "compliance/check_names.h"
#include "compliance/organisational_checks.h"
#include "pdf/pdf_error.h"
#include "store/archive_error.h"
#include "tests/compliance/damaged_archive.h"
#include "tests/pdf/pdf_reader.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using Details = std::map<std::string, std::string>;

/// Entries that only a control writes.
std::vector<AuditEntry> controls(TestArchive& archive) {
  std::vector<AuditEntry> found = archive.entries(AuditAction::integrityVerified);
  std::erase_if(found, [](const AuditEntry& entry) { return entry.details.contains("deep"); });
  return found;
}

const ComplianceCheck* find(const ComplianceReport& report, const char* name) {
  const auto check = std::ranges::find(report.checks, name, &ComplianceCheck::name);
  return check == report.checks.end() ? nullptr : &*check;
}

TEST(Control, isRecordedWithDateAndName) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2)});
  const auto seals = archive->sealer().allSeals().size();
  const auto report = recordControl(*archive, " Zoë Küng\n", "after the move", {});
  ASSERT_TRUE(report);
  ASSERT_NE(find(*report, check_names::kContent), nullptr) << "not in depth";
  const ComplianceCheck* last = find(*report, check_names::kControl);
  EXPECT_TRUE(last->passed());
  EXPECT_EQ(last->detail(), "Last recorded control 2026-03-01 by Zoë Küng.");
  EXPECT_EQ(archive->catalog().meta(settings::kLastControlAt), "2026-03-01T10:15:30Z");
  ASSERT_EQ(controls(archive).size(), 1U);
  const AuditEntry entry = controls(archive)[0];
  EXPECT_EQ(entry.subject, "periodic-control");
  EXPECT_EQ(entry.details, (Details{{"control", "GeBüV Art. 10 Abs. 1"},
                                    {"by", "Zoë Küng"},
                                    {"checks", std::to_string(report->checks.size())},
                                    {"failed", "0"},
                                    {"outstanding", "5"},
                                    {"signed_by", "none"},
                                    {"messages", "2"},
                                    {"note", "after the move"}}));
  EXPECT_EQ(archive->sealer().allSeals().size(), seals);
}

TEST(Control, underOtherLawsHasNoDutiesOfPeople) {
  TestArchive archive(RetentionPolicy({ComplianceRegime::euGDPR}));
  const auto report = recordControl(*archive, "Zoë", std::nullopt, {});
  EXPECT_EQ(find(*report, check_names::kControl), nullptr);
  EXPECT_EQ(report->count(Outcome::outstanding), 0U);
  EXPECT_FALSE(controls(archive).at(0).details.contains("note"));
}

TEST(Control, thatFindsAFaultIsOneStill) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  archive.close();
  flip(archive.path() / "packs/00000001.pack", 40);
  archive.reopen();
  const auto report = recordControl(*archive, "Zoë", std::nullopt, {});
  EXPECT_FALSE(report->allPassed());
  EXPECT_THAT(controls(archive).at(0).details,
              Contains(Pair("failed", std::to_string(report->count(Outcome::failed)))));
  EXPECT_TRUE(archive->catalog().meta(settings::kLastControlAt));
}

TEST(Control, refusalsLeaveNothing) {
  TestArchive archive;
  const auto before = archive->journal().count();
  for (const char* nobody : {"", " \t\n", "\xe2\x80\x83"}) {
    EXPECT_THROW(recordControl(*archive, nobody, std::nullopt, {}), ControlError);
  }
  VerificationOptions stopped;
  stopped.shouldCancel = [] { return true; };
  EXPECT_FALSE(recordControl(*archive, "Zoë", std::nullopt, stopped));
  archive.close();
  archive.reopen(OpenMode::readOnly);
  try {
    recordControl(*archive, "Zoë", std::nullopt, {});
    FAIL() << "recorded in an archive that is only read";
  } catch (const ArchiveError& error) {
    EXPECT_STREQ(error.what(), "The archive is open read-only");
  }
  EXPECT_EQ(archive->journal().count(), before);
  EXPECT_FALSE(archive->catalog().meta(settings::kLastControlAt));
}

TEST(Control, reportsAreTiedToTheJournal) {
  TestArchive archive;
  const ScratchFolder folder;
  const auto report = recordControl(*archive, "Zoë", std::nullopt, {});
  const Signatory zoe{"Zoë", std::nullopt};
  const auto write = [&](const fs::path& to) {
    return writeControlReport(*archive, *report, to, zoe, std::nullopt, ReportLanguage::french);
  };
  writeFileAtomically(folder / "mine.pdf", "an old one");
  for (const auto& [to, name] : {std::pair{folder.path(), "control-2026-03-01.pdf"},
                                 {folder.path(), "control-2026-03-01-2.pdf"},
                                 {folder / "mine.pdf", "mine.pdf"}}) {
    SCOPED_TRACE(name);
    const WrittenReport written = write(to);
    EXPECT_EQ(written.path, folder / name);
    EXPECT_EQ(written.sha256, sha256Hex(readFile(folder / name)));
    EXPECT_EQ(written.unknownCharacters, 0);
    const AuditEntry entry = controls(archive).back();
    EXPECT_EQ(entry.subject, std::nullopt);
    EXPECT_EQ(entry.details,
              (Details{{"by", "Zoë"},
                       {"language", "french"},
                       {"sha256", written.sha256},
                       {"note", "the signed copy of this report should carry this digest"}}));
  }
  EXPECT_THROW(write(folder / "none/x.pdf"), FileError);
  EXPECT_THROW(checkReportDestination(folder / "none/x.pdf"), FileError);
  EXPECT_THROW(checkReportDestination("/dev/null"), FileError);
  checkReportDestination(folder / "mine.pdf");
  checkReportDestination(folder.path());
}

class PrintedReport : public testing::Test {
 protected:
  PrintedReport() {
    archive_.ingest({plainMail(1)});
    report_ = *recordControl(*archive_, "Zoë", std::nullopt, {});
    report_.archiveName = "Bärenhöhle " + std::string(300, 'n');
    report_.latestSeal->timestampToken = "token";
    report_.latestSeal->timestampAuthority = "tsa.example";
    report_.latestSeal->timestampedAt = Date{1772360130};
  }
  PdfReader printed(ReportLanguage language) const {
    return PdfReader(ControlReport::pdf(report_, "/srv/" + std::string(200, 'x'),
                                        {"Dr. Zoë Ägerter-Öchslin", "Revisorin"}, "Nach dem Umzug",
                                        language, "Ambervane 1")
                         .bytes);
  }

  TestArchive archive_;
  ComplianceReport report_;
};

/// Without blanks and line ends, which lie where the lines were broken.
std::string solid(std::string text) {
  std::erase_if(text, isAsciiSpace);
  for (std::size_t at; (at = text.find("\u00a0")) != std::string::npos;) text.erase(at, 2);
  return text;
}

TEST_F(PrintedReport, saysAllInEachLanguage) {
  for (const ReportLanguage language : kReportLanguages) {
    SCOPED_TRACE(rawValue(language));
    const PdfReader reader = printed(language);
    ASSERT_TRUE(reader.isReadable());
    EXPECT_GE(reader.pages(), 2);
    const std::string text = solid(reader.text());
    const auto say = [&](const LocalizedMessage& message) {
      EXPECT_THAT(text, HasSubstr(solid(localized(message, language))));
    };
    say({"Periodic control of integrity and readability (GeBüV Art. 10 Abs. 1)", {}});
    say(
        {"The hash chain and the seals show that the holdings are unchanged since the last "
         "control.",
         {}});
    say({"RFC 3161, issued by %1$@ on %2$@. This time is the authority's, not this machine's.",
         {"tsa.example", "2026-03-01 10:15:30 UTC"}});
    for (const ComplianceCheck& check : report_.checks) {
      say({check.name, {}});
      EXPECT_THAT(text, HasSubstr(solid(check.finding->text(language))));
      if (check.authority) say({*check.authority, {}});
    }
    for (const std::string& said :
         {report_.archiveName, report_.archiveID, report_.chainHead,
          std::string("Dr. Zoë Ägerter-Öchslin"), std::string("Revisorin"),
          std::string("Nach dem Umzug"), std::string("Ambervane · ")}) {
      EXPECT_THAT(text, HasSubstr(solid(said)));
    }
  }
}

TEST_F(PrintedReport, claimsNothingThatACheckDenies) {
  report_.checks[0].outcome = Outcome::failed;
  report_.latestSeal.reset();
  const std::string text = solid(printed(ReportLanguage::english).text());
  EXPECT_THAT(text, HasSubstr("Failed"));
  EXPECT_THAT(text, HasSubstr(solid("A signed report naming a different chain head")));
  EXPECT_THAT(text, Not(HasSubstr(solid("The hash chain and the seals show"))));
}

}  // namespace
}  // namespace ambervane
