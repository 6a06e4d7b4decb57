#ifndef AMBERVANE_EVIDENCE_RETENTION_POLICY_H_
#define AMBERVANE_EVIDENCE_RETENTION_POLICY_H_

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/date.h"
#include "base/report_language.h"

namespace ambervane {

/// A body of law an archive is kept under. Declared in the order of listing.
enum class ComplianceRegime { swissGeBueV, germanGoBD, euGDPR, secRule17a4 };

/// What a regime demands.
struct RegimeFacts {
  std::string_view identifier;  ///< as stored, such as "ch-gebuev"
  int minimumYears;
  bool requiresWORM;
  bool requiresErasure;
  bool requiresDuplicateCopy;
  bool requiresMachineReadableExport;
  std::string_view label;  ///< in English
  std::string_view notes;  ///< in the language of the law
};
const RegimeFacts& facts(ComplianceRegime regime) noexcept;
std::optional<ComplianceRegime> regimeFromIdentifier(std::string_view identifier) noexcept;
/// Reads identifiers with commas in between, blanks around them allowed; unknown ones drop out.
std::set<ComplianceRegime> regimesFromList(std::string_view list);
/// The reverse, in the declared order.
std::string listOf(const std::set<ComplianceRegime>& regimes);

/// Whether anything past its period may be deleted at all.
enum class DisposalPolicy { reportOnly, manualApproval };

struct DisposalFacts {
  std::string_view identifier;  ///< as stored
  std::string_view label;
  std::string_view explanation;
};
const DisposalFacts& facts(DisposalPolicy policy) noexcept;
std::optional<DisposalPolicy> disposalPolicyFromIdentifier(std::string_view identifier) noexcept;

/// A kind of record and how long it is kept.
struct RetentionClass {
  std::string identifier;
  std::string label;
  int years = 0;
  bool fromEndOfBusinessYear = true;  ///< false: counted from the message date
  friend bool operator==(const RetentionClass&, const RetentionClass&) = default;

  static RetentionClass businessCorrespondence();
  static RetentionClass accountingRecord();
  static RetentionClass contract();
  static RetentionClass personnel();
  /// The one class that may stand below the legal minimum.
  static RetentionClass transient();
  /// The five above, in that order.
  static std::vector<RetentionClass> builtIn();
};

/// What a rule looks at. The lists are texts looked for, without regard to case.
struct RetentionRule {
  std::string id;
  std::string name;
  std::string classIdentifier;
  bool enabled = true;
  std::vector<std::string> participants;
  std::vector<std::string> folders;
  std::vector<std::string> subjectContains;
  bool requiresAttachment = false;
  friend bool operator==(const RetentionRule&, const RetentionRule&) = default;

  bool isEmpty() const noexcept;  ///< no criteria: matches nothing
  std::string summary(ReportLanguage language = ReportLanguage::english) const;
};

enum class PeriodBasis { financialYear, calendarYear, messageDate };

/// From when a period counts, and by what.
struct PeriodStart {
  Date date;
  PeriodBasis basis;
  friend bool operator==(const PeriodStart&, const PeriodStart&) = default;
};

/// The rules that give each message its class and its keep-until date. Pure arithmetic: the years
/// are those of Europe/Zurich under Swiss or German law and of UTC otherwise, never the machine's.
struct RetentionPolicy {
  std::set<ComplianceRegime> regimes;
  RetentionClass defaultClass = RetentionClass::businessCorrespondence();
  std::vector<RetentionClass> classes = RetentionClass::builtIn();
  bool cryptoShreddingEnabled;  ///< messages get content keys at ingest
  bool indexAttachmentText = true;
  bool wormEnforcement;         ///< sealed packs get the immutable flag
  int sealEveryEntries = 1000;  ///< messages between two seals
  DisposalPolicy disposalPolicy = DisposalPolicy::reportOnly;
  std::vector<RetentionRule> rules;  ///< the first that matches decides
  int financialYearEndMonth = 12;    ///< 1 to 12; any other value counts as 12
  friend bool operator==(const RetentionPolicy&, const RetentionPolicy&) = default;

  /// Content keys and write protection as `regimes` demand them, all else as above.
  explicit RetentionPolicy(std::set<ComplianceRegime> regimes = {ComplianceRegime::swissGeBueV});

  /// The class of the first rule that holds, else `defaultClass`. `participants` is all addresses
  /// and names in one text, `folder` the path of the folder.
  RetentionClass classify(std::string_view participants, std::string_view folder,
                          std::string_view subject, bool hasAttachment) const;
  std::optional<RetentionClass> retentionClass(std::string_view identifier) const;

  /// The least number of years anything but a transient message is kept.
  int minimumYears() const noexcept;
  /// Years a message of this class (without one, of `defaultClass`) is kept: never less than the
  /// law's minimum, but for the class "transient".
  int years(const std::optional<RetentionClass>& ofClass = std::nullopt) const;

  PeriodStart periodStart(Date date, const RetentionClass& ofClass) const;
  /// The last second a message is kept, counted from the earlier of the two dates. Absent when that
  /// lies beyond the year 9999: the message is kept without end.
  std::optional<Date> expiryDate(Date messageDate, Date ingestDate,
                                 const std::optional<RetentionClass>& ofClass) const;

  /// Whether going over from `old` to this policy can change keep-until dates.
  bool movesRetentionDates(const RetentionPolicy& old) const;
  /// From when periods count, such as "counted from the end of the calendar year".
  std::string countingDescription(ReportLanguage language = ReportLanguage::english) const;
  /// The policy in a few lines for people.
  std::vector<std::string> summary() const;
};

/// Every text a policy may say, in English; each is the key to its translations.
std::vector<std::string> retentionWords();

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_RETENTION_POLICY_H_
