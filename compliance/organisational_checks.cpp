#include "compliance/organisational_checks.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "base/calendar.h"
#include "base/text.h"
#include "compliance/check_names.h"
#include "evidence/sync_schedule.h"

namespace ambervane {
namespace {

constexpr double kControlYear = 31'536'000;  ///< seconds
constexpr std::string_view kNamedPublisher = "Developer ID Application";

/// A setting that says something.
std::optional<std::string> recorded(MailArchive& archive, std::string_view key) {
  auto value = archive.catalog().meta(key);
  if (value && trim(*value).empty()) value.reset();
  return value;
}

std::optional<Date> recordedDate(MailArchive& archive, std::string_view key) {
  const auto value = recorded(archive, key);
  return value ? parseIso8601(*value) : std::nullopt;
}

ComplianceCheck passed(const char* name, Finding::Value finding) {
  ComplianceCheck check;
  check.name = name;
  check.finding = Finding(std::move(finding));
  return check;
}

ComplianceCheck outstanding(const char* name, Finding::Value finding,
                            std::optional<LocalizedMessage> remedy) {
  ComplianceCheck check = passed(name, std::move(finding));
  check.outcome = Outcome::outstanding;
  check.remedy = std::move(remedy);
  return check;
}

/// Why the newest of the attempts to get a timestamp gave none.
std::optional<std::string> lastFailure(const std::vector<ChainSeal>& seals) {
  for (auto seal = seals.rbegin(); seal != seals.rend(); ++seal) {
    if (seal->timestampToken) return std::nullopt;
    if (seal->timestampFailure) return seal->timestampFailure;
  }
  return std::nullopt;
}

std::optional<LocalizedMessage> timestampRemedy(MailArchive& archive,
                                                const std::optional<std::string>& failure) {
  if (archive.sealer().timestampAuthorities().empty()) {
    return LocalizedMessage{
        "Name a time-stamping authority so each seal carries an RFC 3161 token: ambervane policy "
        "<archive> --timestamp-authority <url>",
        {}};
  }
  if (!failure) return std::nullopt;
  // A failure begins with the host that was asked.
  return LocalizedMessage{
      "The authority at %@ could not be reached when these seals were written. Seal again once it "
      "is: ambervane seal <archive>",
      {failure->substr(0, failure->find(": "))}};
}

ComplianceCheck timestamps(MailArchive& archive) {
  const auto seals = archive.sealer().allSeals();
  const auto count = static_cast<std::int64_t>(seals.size());
  const auto missing = static_cast<std::int64_t>(std::ranges::count_if(
      seals, [](const ChainSeal& seal) { return !seal.timestampToken.has_value(); }));
  if (count > 0 && missing == 0) {
    std::vector<std::string> issuers;
    for (const ChainSeal& seal : seals) {
      const std::string issuer = seal.timestampAuthority.value_or("");
      if (std::ranges::find(issuers, issuer) == issuers.end()) issuers.push_back(issuer);
    }
    return passed(check_names::kTimestamps,
                  Finding::TimestampsOnAllSeals{count, join(issuers, ", ")});
  }
  const auto failure = lastFailure(seals);
  auto remedy = timestampRemedy(archive, failure);
  if (count == 0)
    return outstanding(check_names::kTimestamps, Finding::Fixed::noSealYet, std::move(remedy));
  return outstanding(check_names::kTimestamps, Finding::TimestampsMissing{missing, count, failure},
                     std::move(remedy));
}

ComplianceCheck capture(MailArchive& archive) {
  const auto setting = recorded(archive, settings::kSyncSchedule);
  const auto schedule = setting ? SyncSchedule::fromJson(*setting) : std::nullopt;
  if (!schedule || !schedule->enabled) {
    return outstanding(check_names::kCapture, Finding::Fixed::captureManualOnly,
                       LocalizedMessage{"Switch on automatic collection: ambervane schedule "
                                        "<archive> --every daily --at 03:00",
                                        {}});
  }
  const auto success = recordedDate(archive, settings::kLastScheduledSuccess);
  const auto when = [&] { return formatDate(*success, "yyyy-MM-dd HH:mm") + " UTC"; };
  if (success && archive.now().seconds - success->seconds < schedule->staleAfter()) {
    return passed(check_names::kCapture, Finding::CaptureScheduled{schedule->summary(), when()});
  }
  return outstanding(
      check_names::kCapture,
      Finding::CaptureScheduledButStale{schedule->summary(),
                                        success ? std::optional(when()) : std::nullopt,
                                        recorded(archive, settings::kLastScheduledFailure)},
      LocalizedMessage{"Check why the run is failing: ambervane schedule <archive> --status", {}});
}

ComplianceCheck publisher(const CodeSignature& signature) {
  const bool isNamed = signature.isValid && !signature.isAdHoc && signature.authority &&
                       signature.authority->starts_with(kNamedPublisher);
  if (isNamed)
    return passed(check_names::kPublisher, Finding::PublisherIdentified{signature.summary(), true});
  const std::string why =
      signature.isValid ? signature.summary() : "unsigned or the signature does not verify";
  return outstanding(
      check_names::kPublisher, Finding::PublisherAnonymous{why},
      LocalizedMessage{"Use a build signed with a Developer ID certificate and notarised by Apple. "
                       "A development or ad-hoc build is fine for testing and is not something to "
                       "hand an auditor.",
                       {}});
}

ComplianceCheck secondCopy(MailArchive& archive) {
  if (auto location = recorded(archive, settings::kSecondCopy)) {
    return passed(check_names::kSecondCopy, Finding::SecondCopyRecorded{*std::move(location)});
  }
  return outstanding(
      check_names::kSecondCopy, Finding::Fixed::secondCopyMissing,
      LocalizedMessage{"Keep a copy on separate media or off site, test restoring it, and record "
                       "where it lives: ambervane policy <archive> --second-copy <description>",
                       {}});
}

ComplianceCheck procedure(MailArchive& archive) {
  if (auto reference = recorded(archive, settings::kProcedure)) {
    return passed(check_names::kProcedure, Finding::ProcedureRecorded{*std::move(reference)});
  }
  return outstanding(
      check_names::kProcedure, Finding::Fixed::procedureMissing,
      LocalizedMessage{"Save the template (Retention Policy ▸ Organisation, or ambervane "
                       "procedure-template <file>), fill it in, keep it with the archive, and "
                       "record where it is: ambervane policy <archive> --procedure <path or "
                       "reference>",
                       {}});
}

ComplianceCheck control(MailArchive& archive) {
  const auto at = recordedDate(archive, settings::kLastControlAt);
  std::string by = recorded(archive, settings::kLastControlBy).value_or("?");
  const std::string when = at ? formatDate(*at, "yyyy-MM-dd") : std::string();
  if (at && archive.now().seconds - at->seconds < kControlYear) {
    return passed(check_names::kControl, Finding::LastControl{when, std::move(by)});
  }
  const LocalizedMessage remedy{"Run and record one: ambervane control <archive> --by <name>", {}};
  if (!at) return outstanding(check_names::kControl, Finding::Fixed::neverControlled, remedy);
  return outstanding(check_names::kControl, Finding::ControlOverdue{when, std::move(by)}, remedy);
}

ComplianceCheck underArticle(const char* authority, ComplianceCheck check) {
  check.authority = authority;
  return check;
}

}  // namespace

std::vector<ComplianceCheck> swissOrganisationalChecks(MailArchive& archive,
                                                       const CodeSignature& signature) {
  return {underArticle("GeBüV Art. 9 Abs. 1 lit. b Ziff. 2", timestamps(archive)),
          underArticle("OR Art. 957a Abs. 2 Ziff. 1", capture(archive)),
          publisher(signature),
          underArticle("GeBüV Art. 5", secondCopy(archive)),
          underArticle("GeBüV Art. 4", procedure(archive)),
          underArticle("GeBüV Art. 10 Abs. 1", control(archive))};
}

}  // namespace ambervane
