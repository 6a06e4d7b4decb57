#include "evidence/compliance_report.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/calendar.h"
#include "base/text.h"

namespace ambervane {
namespace {

constexpr double kBytesPerMegabyte = 1024.0 * 1024.0;
constexpr std::size_t kLabelWidth = 16;

// The words, each the key to its translations.
constexpr const char* kLabels[] = {
    "Archive:",     "Generated:",   "Regimes:",     "Messages:",     "Attachments:",
    "Stored size:", "Latest seal:", "Signing key:", "Active holds:", "Expiring ≤90d:"};
enum Label { archive, generated, regimes, messages, attachments, size, seal, key, holds, expiring };
constexpr const char* kSize = "%1$@ MB of %2$@ MB original (%3$@%)";
constexpr const char* kNothingStored = "nothing stored yet";
constexpr const char* kSeal = "#%1$@ at %2$@, %3$@ entries";
constexpr const char* kNone = "none";
constexpr const char* kChecks = "Checks";
constexpr const char* kSaid = "%1$@: %2$@";
constexpr const char* kFailed = "RESULT: at least one check failed — see above.";
constexpr const char* kPassed = "RESULT: all checks passed.";
constexpr const char* kPassedOneOpen =
    "RESULT: all checks passed; %@ requirement outstanding — see OPEN above.";
constexpr const char* kPassedSomeOpen =
    "RESULT: all checks passed; %@ requirements outstanding — see OPEN above.";

/// Sets one report in one language.
class Typesetter {
 public:
  Typesetter(const ComplianceReport& report, ReportLanguage language)
      : report_(report), language_(language) {
    for (const char* label : kLabels) {
      width_ = std::max(width_, characterCount(words(label)) + 1);
    }
  }

  std::string set() {
    head();
    text_ += "\n" + words(kChecks) + "\n" + setChecks() + "\n" + verdict() + "\n";
    return std::move(text_);
  }

  std::string setChecks() const {
    std::string lines;
    for (const ComplianceCheck& check : report_.checks) lines += linesOf(check);
    return lines;
  }

 private:
  std::string words(const char* english) const { return localized(english, language_); }
  std::string words(const char* format, std::vector<std::string> arguments) const {
    return localized({format, std::move(arguments)}, language_);
  }

  void line(Label label, const std::string& value) {
    const std::string word = words(kLabels[label]);
    text_ += word + std::string(width_ - characterCount(word), ' ') + value + "\n";
  }

  void head() {
    line(archive, printable(report_.archiveName) + " [" + printable(report_.archiveID) + "]");
    line(generated, timeText(report_.generatedAt));
    line(regimes, regimesText(report_, language_));
    line(messages, std::to_string(report_.messageCount));
    line(attachments, std::to_string(report_.attachmentCount));
    line(size, storedSizeText(report_, language_));
    line(seal, sealText(report_, language_));
    line(key,
         report_.publicKeyFingerprint ? "SHA-256 " + *report_.publicKeyFingerprint : words(kNone));
    line(holds, std::to_string(report_.activeHolds.size()));
    line(expiring, std::to_string(report_.expiringWithin90Days));
  }

  std::string linesOf(const ComplianceCheck& check) const {
    std::string said = localized(check.name, language_);
    if (check.finding) said = words(kSaid, {said, check.finding->text(language_)});
    std::string lines = fmt::format("  [{}] {}\n", marker(check.outcome), printable(said));
    if (check.authority) lines += "         " + localized(*check.authority, language_) + "\n";
    if (check.remedy) {
      lines += "         → " + printable(localized(*check.remedy, language_)) + "\n";
    }
    return lines;
  }

  std::string verdict() const {
    if (!report_.allPassed()) return words(kFailed);
    const std::size_t open = report_.count(Outcome::outstanding);
    if (open == 0) return words(kPassed);
    return words(open == 1 ? kPassedOneOpen : kPassedSomeOpen, {std::to_string(open)});
  }

  const ComplianceReport& report_;
  const ReportLanguage language_;
  std::size_t width_ = kLabelWidth;
  std::string text_;
};

}  // namespace

std::string_view rawValue(Outcome outcome) noexcept {
  switch (outcome) {
    case Outcome::passed:
      return "passed";
    case Outcome::failed:
      return "failed";
    case Outcome::outstanding:
      break;
  }
  return "outstanding";
}

std::string_view marker(Outcome outcome) noexcept {
  switch (outcome) {
    case Outcome::passed:
      return "PASS";
    case Outcome::failed:
      return "FAIL";
    case Outcome::outstanding:
      break;
  }
  return "OPEN";
}

std::size_t ComplianceReport::count(Outcome outcome) const noexcept {
  return static_cast<std::size_t>(std::ranges::count(checks, outcome, &ComplianceCheck::outcome));
}

std::string ComplianceReport::plainText(ReportLanguage language) const {
  return Typesetter(*this, language).set();
}

std::string ComplianceReport::checkLines(ReportLanguage language) const {
  return Typesetter(*this, language).setChecks();
}

std::string timeText(Date date) { return formatDate(date, "yyyy-MM-dd HH:mm:ss") + " UTC"; }

std::string regimesText(const ComplianceReport& report, ReportLanguage language) {
  std::vector<std::string> labels;
  for (const ComplianceRegime regime : report.regimes) {
    labels.push_back(localized(facts(regime).label, language));
  }
  return labels.empty() ? localized(kNone, language) : join(labels, ", ");
}

std::string storedSizeText(const ComplianceReport& report, ReportLanguage language) {
  if (report.originalBytes <= 0) return localized(kNothingStored, language);
  const auto stored = static_cast<double>(report.storedBytes);
  const auto original = static_cast<double>(report.originalBytes);
  return localized({kSize,
                    {fmt::format("{:.1f}", stored / kBytesPerMegabyte),
                     fmt::format("{:.1f}", original / kBytesPerMegabyte),
                     fmt::format("{:.1f}", 100.0 * stored / original)}},
                   language);
}

std::string sealText(const ComplianceReport& report, ReportLanguage language) {
  if (!report.latestSeal) return localized(kNone, language);
  return localized(
      {kSeal,
       {std::to_string(report.latestSeal->sealNumber), timeText(report.latestSeal->createdAt),
        std::to_string(report.latestSeal->entryCount)}},
      language);
}

std::vector<std::string> reportWords() {
  std::vector<std::string> words(std::begin(kLabels), std::end(kLabels));
  for (const char* text : {kSize, kNothingStored, kSeal, kNone, kChecks, kSaid, kFailed, kPassed,
                           kPassedOneOpen, kPassedSomeOpen}) {
    words.emplace_back(text);
  }
  return words;
}

}  // namespace ambervane
