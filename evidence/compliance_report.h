#ifndef AMBERVANE_EVIDENCE_COMPLIANCE_REPORT_H_
#define AMBERVANE_EVIDENCE_COMPLIANCE_REPORT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date.h"
#include "base/report_language.h"
#include "evidence/chain_seal.h"
#include "evidence/finding.h"
#include "evidence/retention_policy.h"

namespace ambervane {

/// How a check came out. Failed: something is wrong with the records. Outstanding: a duty lies with
/// a person and has not been met, which no program can do.
enum class Outcome { passed, failed, outstanding };
std::string_view rawValue(Outcome outcome) noexcept;

/// One thing that was looked at.
struct ComplianceCheck {
  std::string name;  ///< English, and the key to translations, as are `authority` and `remedy`
  Outcome outcome = Outcome::passed;
  std::optional<Finding> finding;
  std::optional<std::string> authority;  ///< the legal citation
  std::optional<LocalizedMessage> remedy;

  bool passed() const noexcept { return outcome == Outcome::passed; }
  /// The finding in English.
  std::string detail() const { return finding ? finding->text() : std::string(); }
};

/// The form in which an archive states its condition.
struct ComplianceReport {
  std::vector<ComplianceRegime> regimes;  ///< in the order of listing
  std::string archiveName;
  std::string archiveID;
  Date generatedAt;
  std::int64_t messageCount = 0;
  std::int64_t attachmentCount = 0;
  std::int64_t originalBytes = 0;
  std::int64_t storedBytes = 0;
  std::vector<ComplianceCheck> checks;  ///< in the order in which they were made
  std::string chainHead;
  std::optional<ChainSeal> latestSeal;
  std::optional<std::string> publicKeyFingerprint;
  std::vector<std::string> activeHolds;  ///< JSON of each, as the catalog holds it
  std::int64_t expiringWithin90Days = 0;

  bool allPassed() const noexcept { return count(Outcome::failed) == 0; }
  std::size_t count(Outcome outcome) const noexcept;
  /// The report for people, ending in a line feed. The marks of checks, "FAIL" and "OPEN", are the
  /// same in every language.
  std::string plainText(ReportLanguage language = ReportLanguage::english) const;
  /// Of that text only the lines on the checks.
  std::string checkLines(ReportLanguage language = ReportLanguage::english) const;
};

/// "PASS", "FAIL" or "OPEN".
std::string_view marker(Outcome outcome) noexcept;

// Values of a report in words, as more than one form of it shows them.

/// With the second, in UTC.
std::string timeText(Date date);
std::string regimesText(const ComplianceReport& report, ReportLanguage language);
std::string storedSizeText(const ComplianceReport& report, ReportLanguage language);
/// Of the latest seal.
std::string sealText(const ComplianceReport& report, ReportLanguage language);

/// Every fixed text that `plainText` may say, names of checks, citations and remedies excepted.
std::vector<std::string> reportWords();

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_COMPLIANCE_REPORT_H_
