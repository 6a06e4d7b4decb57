#include "evidence/retention_policy.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/calendar.h"
#include "base/text.h"

namespace ambervane {
namespace {

constexpr int kLastYear = 9999;  ///< four digits, as dates are written
constexpr std::string_view kTransient = "transient";

// The texts of law stand in the language of the law.
constexpr std::array kRegimes = {
    RegimeFacts{.identifier = "ch-gebuev",
                .minimumYears = 10,
                .requiresWORM = true,
                .requiresErasure = false,
                .requiresDuplicateCopy = false,
                .requiresMachineReadableExport = true,
                .label = "Switzerland — GeBüV / OR 957–958f",
                .notes = "Unveränderbarkeit, Integritätsnachweis und Lesbarkeit über 10 Jahre; "
                         "Aufbewahrung auf unveränderbaren Datenträgern oder mit gleichwertigem "
                         "technischem Schutz (GeBüV Art. 9)."},
    RegimeFacts{.identifier = "de-gobd",
                .minimumYears = 10,
                .requiresWORM = true,
                .requiresErasure = false,
                .requiresDuplicateCopy = false,
                .requiresMachineReadableExport = true,
                .label = "Germany — GoBD / HGB §257 / AO §147",
                .notes = "Nachvollziehbarkeit, Vollständigkeit, Unveränderbarkeit und maschinelle "
                         "Auswertbarkeit; Verfahrensdokumentation erforderlich."},
    RegimeFacts{.identifier = "eu-gdpr",
                .minimumYears = 0,
                .requiresWORM = false,
                .requiresErasure = true,
                .requiresDuplicateCopy = false,
                .requiresMachineReadableExport = false,
                .label = "EU — GDPR (Art. 17 erasure)",
                .notes = "Selective erasure of personal data must remain possible without "
                         "destroying the integrity of the remaining record set."},
    RegimeFacts{.identifier = "us-sec-17a4",
                .minimumYears = 6,
                .requiresWORM = true,
                .requiresErasure = false,
                .requiresDuplicateCopy = true,
                .requiresMachineReadableExport = true,
                .label = "USA — SEC Rule 17a-4 / FINRA 4511",
                .notes = "WORM storage, duplicate copy stored separately, downloadable index, and "
                         "access for the designated examining authority."},
};

constexpr std::array kDisposals = {
    DisposalFacts{.identifier = "reportOnly",
                  .label = "Report only — never delete anything",
                  .explanation = "Expired messages are listed so you can see what is past its "
                                 "period. Nothing is ever deleted, by this app or on a schedule."},
    DisposalFacts{.identifier = "manualApproval",
                  .label = "Allow manual disposal after review",
                  .explanation = "Expired messages can be disposed of, but only by a person who "
                                 "reviews the list and types a confirmation. There is no scheduled "
                                 "or automatic disposal in any configuration."},
};

constexpr std::array kMonths = {"January",   "February", "March",    "April",
                                "May",       "June",     "July",     "August",
                                "September", "October",  "November", "December"};

constexpr const char* kOr = "or";
constexpr const char* kMailbox = "mailbox contains %@";
constexpr const char* kAnyone = "anyone matching %@";
constexpr const char* kSubject = "subject contains %@";
constexpr const char* kAttachment = "has an attachment";
constexpr const char* kNoCriteria = "no criteria — matches nothing";
constexpr const char* kCalendarYear = "counted from the end of the calendar year";
constexpr const char* kBothInDecember =
    "counted from the end of the year (financial and calendar year both end in December)";
constexpr const char* kFinancialYear = "counted from the end of the financial year (ends in %@)";
constexpr const char* kWhicheverIsLater =
    "counted from the end of the financial year (ends in %@) or of the calendar year, whichever is "
    "later";

template <typename Enumeration, typename Table>
std::optional<Enumeration> fromIdentifier(const Table& table, std::string_view identifier) {
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (table[i].identifier == identifier) return static_cast<Enumeration>(i);
  }
  return std::nullopt;
}

/// Whether any of `parts` stands in `text`. An empty part stands in nothing: a criterion left blank
/// must not sweep everything in.
bool containsAny(std::string_view text, const std::vector<std::string>& parts) {
  return std::ranges::any_of(parts, [&](const std::string& part) {
    return !part.empty() && containsIgnoringCase(text, part);
  });
}

bool holds(const RetentionRule& rule, std::string_view participants, std::string_view folder,
           std::string_view subject, bool hasAttachment) {
  if (!rule.enabled || rule.isEmpty()) return false;
  if (rule.requiresAttachment && !hasAttachment) return false;
  return (rule.folders.empty() || containsAny(folder, rule.folders)) &&
         (rule.participants.empty() || containsAny(participants, rule.participants)) &&
         (rule.subjectContains.empty() || containsAny(subject, rule.subjectContains));
}

/// Under Swiss law a period counts from the end of the financial year, elsewhere from that of the
/// calendar year.
bool countsFinancialYear(const RetentionPolicy& policy) {
  return policy.regimes.contains(ComplianceRegime::swissGeBueV);
}

bool alsoCountsCalendarYear(const RetentionPolicy& policy) {
  return policy.regimes.contains(ComplianceRegime::germanGoBD) ||
         policy.regimes.contains(ComplianceRegime::secRule17a4);
}

int financialMonth(const RetentionPolicy& policy) {
  const int month = policy.financialYearEndMonth;
  return month >= 1 && month <= 12 ? month : 12;
}

}  // namespace

const RegimeFacts& facts(ComplianceRegime regime) noexcept {
  return kRegimes[static_cast<std::size_t>(regime)];
}

std::optional<ComplianceRegime> regimeFromIdentifier(std::string_view identifier) noexcept {
  return fromIdentifier<ComplianceRegime>(kRegimes, identifier);
}

std::set<ComplianceRegime> regimesFromList(std::string_view list) {
  std::set<ComplianceRegime> regimes;
  for (const std::string_view item : split(list, ',')) {
    if (const auto regime = regimeFromIdentifier(trim(item))) regimes.insert(*regime);
  }
  return regimes;
}

std::string listOf(const std::set<ComplianceRegime>& regimes) {
  std::vector<std::string> identifiers;
  for (const ComplianceRegime regime : regimes) {
    identifiers.emplace_back(facts(regime).identifier);
  }
  return join(identifiers, ",");
}

const DisposalFacts& facts(DisposalPolicy policy) noexcept {
  return kDisposals[static_cast<std::size_t>(policy)];
}

std::optional<DisposalPolicy> disposalPolicyFromIdentifier(std::string_view identifier) noexcept {
  return fromIdentifier<DisposalPolicy>(kDisposals, identifier);
}

RetentionClass RetentionClass::businessCorrespondence() {
  return {"business", "Business correspondence", 10, true};
}
RetentionClass RetentionClass::accountingRecord() {
  return {"accounting", "Accounting voucher", 10, true};
}
RetentionClass RetentionClass::contract() { return {"contract", "Contract", 10, true}; }
RetentionClass RetentionClass::personnel() { return {"personnel", "Personnel record", 10, true}; }
RetentionClass RetentionClass::transient() {
  return {std::string(kTransient), "Transient / no statutory duty", 1, false};
}
std::vector<RetentionClass> RetentionClass::builtIn() {
  return {businessCorrespondence(), accountingRecord(), contract(), personnel(), transient()};
}

bool RetentionRule::isEmpty() const noexcept {
  return participants.empty() && folders.empty() && subjectContains.empty() && !requiresAttachment;
}

std::string RetentionRule::summary(ReportLanguage language) const {
  std::vector<std::string> parts;
  const auto add = [&](const char* words, const std::vector<std::string>& list) {
    if (!list.empty()) {
      parts.push_back(
          localized({words, {join(list, " " + localized(kOr, language) + " ")}}, language));
    }
  };
  add(kMailbox, folders);
  add(kAnyone, participants);
  add(kSubject, subjectContains);
  if (requiresAttachment) parts.push_back(localized(kAttachment, language));
  return parts.empty() ? localized(kNoCriteria, language) : join(parts, ", ");
}

RetentionPolicy::RetentionPolicy(std::set<ComplianceRegime> ofRegimes)
    : regimes(std::move(ofRegimes)),
      cryptoShreddingEnabled(std::ranges::any_of(
          regimes, [](ComplianceRegime regime) { return facts(regime).requiresErasure; })),
      wormEnforcement(std::ranges::any_of(
          regimes, [](ComplianceRegime regime) { return facts(regime).requiresWORM; })) {}

RetentionClass RetentionPolicy::classify(std::string_view participants, std::string_view folder,
                                         std::string_view subject, bool hasAttachment) const {
  for (const RetentionRule& rule : rules) {
    if (!holds(rule, participants, folder, subject, hasAttachment)) continue;
    if (auto found = retentionClass(rule.classIdentifier)) return *std::move(found);
  }
  return defaultClass;
}

std::optional<RetentionClass> RetentionPolicy::retentionClass(std::string_view identifier) const {
  const auto found = std::ranges::find(classes, identifier, &RetentionClass::identifier);
  if (found == classes.end()) return std::nullopt;
  return *found;
}

int RetentionPolicy::minimumYears() const noexcept {
  int years = defaultClass.years;
  for (const ComplianceRegime regime : regimes) {
    years = std::max(years, facts(regime).minimumYears);
  }
  return years;
}

int RetentionPolicy::years(const std::optional<RetentionClass>& ofClass) const {
  if (!ofClass) return years(defaultClass);
  if (ofClass->identifier == kTransient) return ofClass->years;
  return std::max(ofClass->years, minimumYears());
}

PeriodStart RetentionPolicy::periodStart(Date date, const RetentionClass& ofClass) const {
  if (!ofClass.fromEndOfBusinessYear) return {date, PeriodBasis::messageDate};
  const bool swissOrGerman =
      countsFinancialYear(*this) || regimes.contains(ComplianceRegime::germanGoBD);
  const CivilTime local = civilTime(date, swissOrGerman ? Zone::zurich : Zone::utc);
  const Date calendarEnd = endOfMonth(12, local.year);
  if (!countsFinancialYear(*this)) return {calendarEnd, PeriodBasis::calendarYear};
  const int month = financialMonth(*this);
  const Date financialEnd = endOfMonth(month, local.month > month ? local.year + 1 : local.year);
  if (alsoCountsCalendarYear(*this) && financialEnd <= calendarEnd) {
    return {calendarEnd, PeriodBasis::calendarYear};
  }
  return {financialEnd, PeriodBasis::financialYear};
}

std::optional<Date> RetentionPolicy::expiryDate(
    Date messageDate, Date ingestDate, const std::optional<RetentionClass>& ofClass) const {
  // A Date header in the future must not push the date out.
  const Date counted = std::min(messageDate, ingestDate);
  const PeriodStart start = periodStart(counted, ofClass ? *ofClass : defaultClass);
  const CivilTime from = civilTime(start.date);
  // A manifest may hold any number; less than none is none.
  const int kept = std::max(years(ofClass), 0);
  if (kept > kLastYear || from.year > kLastYear - kept) return std::nullopt;
  if (start.basis == PeriodBasis::messageDate) return addYears(start.date, kept);
  // The end of the same month, so that a leap day cannot shift it.
  return endOfMonth(from.month, from.year + kept);
}

bool RetentionPolicy::movesRetentionDates(const RetentionPolicy& old) const {
  return regimes != old.regimes || defaultClass != old.defaultClass || classes != old.classes ||
         financialYearEndMonth != old.financialYearEndMonth;
}

std::string RetentionPolicy::countingDescription(ReportLanguage language) const {
  if (!countsFinancialYear(*this)) return localized(kCalendarYear, language);
  const int month = financialMonth(*this);
  if (alsoCountsCalendarYear(*this) && month == 12) return localized(kBothInDecember, language);
  const std::string name = localized(kMonths[static_cast<std::size_t>(month) - 1], language);
  return localized({alsoCountsCalendarYear(*this) ? kWhicheverIsLater : kFinancialYear, {name}},
                   language);
}

std::vector<std::string> RetentionPolicy::summary() const {
  std::vector<std::string> labels;
  for (const ComplianceRegime regime : regimes) labels.emplace_back(facts(regime).label);
  const int least = minimumYears();
  return {"Regimes: " + (labels.empty() ? "none" : join(labels, ", ")),
          fmt::format("Kept at least {} {}, {}", least, least == 1 ? "year" : "years",
                      countingDescription()),
          "Disposal: " + std::string(facts(disposalPolicy).label),
          "Default class: " + defaultClass.label};
}

std::vector<std::string> retentionWords() {
  std::vector<std::string> words = {
      kOr,         kMailbox,      kAnyone,         kSubject,          kAttachment,
      kNoCriteria, kCalendarYear, kBothInDecember, kWhicheverIsLater, kFinancialYear};
  words.insert(words.end(), kMonths.begin(), kMonths.end());
  for (const RegimeFacts& regime : kRegimes) words.emplace_back(regime.label);
  for (const DisposalFacts& disposal : kDisposals) {
    words.emplace_back(disposal.label);
    words.emplace_back(disposal.explanation);
  }
  for (const RetentionClass& builtIn : RetentionClass::builtIn()) words.push_back(builtIn.label);
  return words;
}

}  // namespace ambervane
