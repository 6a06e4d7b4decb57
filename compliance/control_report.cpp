#include "compliance/control_report.h"

#include <utility>
#include <vector>

#include "base/file.h"
#include "compliance/control_words.h"

namespace ambervane {
namespace {

struct Verdict {
  const char* word;
  PdfTone tone;
};

Verdict verdictOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::passed:
      return {control_words::kPassed, PdfTone::good};
    case Outcome::failed:
      return {control_words::kFailed, PdfTone::bad};
    case Outcome::outstanding:
      break;
  }
  return {control_words::kOpen, PdfTone::warning};
}

/// Puts one report on pages.
class ReportPages {
 public:
  ReportPages(const ComplianceReport& report, const std::filesystem::path& archiveURL,
              const Signatory& performedBy, const std::optional<std::string>& note,
              ReportLanguage language)
      : report_(report),
        archiveURL_(archiveURL),
        performedBy_(performedBy),
        note_(note),
        language_(language) {}

  void fill(PageFlow& flow) const {
    flow.heading(words(control_words::kTitle), PdfStyle::title);
    addOccasion(flow);
    addResult(flow);
    addHoldings(flow);
    addEvidence(flow);
    addChecks(flow);
    addSignature(flow);
  }

  std::string words(const char* english) const { return localized(english, language_); }
  std::string words(const char* format, std::vector<std::string> arguments) const {
    return localized({format, std::move(arguments)}, language_);
  }

 private:
  using Facts = std::vector<std::pair<std::string, PdfText>>;

  std::string count(Outcome outcome) const { return std::to_string(report_.count(outcome)); }

  void addOccasion(PageFlow& flow) const {
    std::string performer = performedBy_.name;
    if (performedBy_.role) {
      performer = words(control_words::kNameAndRole, {performer, *performedBy_.role});
    }
    Facts facts = {{words("Archive:"), {report_.archiveName, PdfStyle::strong}},
                   {words(control_words::kIdentifier), {report_.archiveID}},
                   {words(control_words::kLocation), {pathText(archiveURL_)}},
                   {words("Regimes:"), {regimesText(report_, language_)}},
                   {words(control_words::kControlledOn), {timeText(report_.generatedAt)}},
                   {words(control_words::kPerformedBy), {performer, PdfStyle::strong}}};
    if (note_) facts.push_back({words(control_words::kNote), {*note_}});
    flow.facts(facts);
  }

  void addResult(PageFlow& flow) const {
    flow.heading(words(control_words::kResult));
    const bool passed = report_.allPassed();
    flow.paragraph({words(passed ? control_words::kAllPassed : control_words::kSomeFailed),
                    PdfStyle::strong, passed ? PdfTone::good : PdfTone::bad});
    flow.paragraph({words(control_words::kCounts,
                          {std::to_string(report_.checks.size()), count(Outcome::passed),
                           count(Outcome::failed), count(Outcome::outstanding)})});
    const std::size_t open = report_.count(Outcome::outstanding);
    if (open == 0) return;
    flow.paragraph({words(open == 1 ? control_words::kOneOpen : control_words::kSomeOpen,
                          {std::to_string(open)})});
  }

  void addHoldings(PageFlow& flow) const {
    flow.heading(words(control_words::kHoldings));
    flow.facts({{words("Messages:"), {std::to_string(report_.messageCount)}},
                {words("Attachments:"), {std::to_string(report_.attachmentCount)}},
                {words("Stored size:"), {storedSizeText(report_, language_)}},
                {words("Active holds:"), {std::to_string(report_.activeHolds.size())}},
                {words("Expiring ≤90d:"), {std::to_string(report_.expiringWithin90Days)}}});
  }

  void addEvidence(PageFlow& flow) const {
    flow.heading(words(control_words::kEvidence));
    Facts facts = {{words(control_words::kChainHead), {report_.chainHead, PdfStyle::fixed}},
                   {words("Latest seal:"), {sealText(report_, language_)}}};
    if (report_.latestSeal) {
      facts.push_back(
          {words(control_words::kSealedHead), {report_.latestSeal->chainHead, PdfStyle::fixed}});
      facts.push_back({words(control_words::kTimestamp), {timestampText(*report_.latestSeal)}});
    }
    if (report_.publicKeyFingerprint) {
      facts.push_back({words("Signing key:"), {*report_.publicKeyFingerprint, PdfStyle::fixed}});
    }
    flow.facts(facts);
    std::string statement = words(control_words::kOtherArchive);
    // Who signs must not be made to say so where a check says otherwise.
    if (report_.allPassed()) statement = words(control_words::kUnchanged) + " " + statement;
    flow.paragraph({statement});
  }

  std::string timestampText(const ChainSeal& seal) const {
    if (!seal.timestampToken) return words(control_words::kNoTimestamp);
    return words(control_words::kTimestamped,
                 {seal.timestampAuthority.value_or("?"),
                  seal.timestampedAt ? timeText(*seal.timestampedAt) : "?"});
  }

  void addChecks(PageFlow& flow) const {
    flow.heading(words("Checks"));
    PdfTable table;
    table.columns = {{.share = 0.14}, {.share = 0.86}};
    table.header = {words(control_words::kResult), words(control_words::kCheck)};
    for (const ComplianceCheck& check : report_.checks) {
      const Verdict verdict = verdictOf(check.outcome);
      PdfCell said = {{localized(check.name, language_), PdfStyle::strong}};
      if (check.finding) said.push_back({check.finding->text(language_)});
      if (check.authority) {
        said.push_back({localized(*check.authority, language_), PdfStyle::small, PdfTone::muted});
      }
      if (check.remedy) {
        said.push_back({"→ " + localized(*check.remedy, language_), PdfStyle::small});
      }
      table.rows.push_back(
          {{{words(verdict.word), PdfStyle::strong, verdict.tone}}, std::move(said)});
    }
    flow.table(table);
  }

  void addSignature(PageFlow& flow) const {
    flow.keepTogether([this](PageFlow& block) {
      block.heading(words(control_words::kSignature));
      block.paragraph({words(control_words::kDeclaration)});
      PdfCell signatory = {{words(control_words::kSignature), PdfStyle::small, PdfTone::muted},
                           {performedBy_.name, PdfStyle::strong}};
      if (performedBy_.role) signatory.push_back({*performedBy_.role});
      block.signatureLines(
          {{{words(control_words::kPlaceAndDate), PdfStyle::small, PdfTone::muted}}, signatory});
      block.signatureLines({{{words(control_words::kDigest), PdfStyle::small, PdfTone::muted}}});
    });
  }

  const ComplianceReport& report_;
  const std::filesystem::path& archiveURL_;
  const Signatory& performedBy_;
  const std::optional<std::string>& note_;
  const ReportLanguage language_;
};

}  // namespace

PdfDocument ControlReport::pdf(const ComplianceReport& report,
                               const std::filesystem::path& archiveURL,
                               const Signatory& performedBy, const std::optional<std::string>& note,
                               ReportLanguage language, const std::string& producer) {
  const ReportPages pages(report, archiveURL, performedBy, note, language);
  PdfSetup setup;
  setup.title = pages.words(control_words::kTitle);
  setup.author = performedBy.name;
  setup.producer = producer;
  setup.language = languageCode(language);
  setup.date = report.generatedAt;
  setup.headerLeft = report.archiveName;
  setup.headerRight = report.archiveID;
  setup.footerLeft = producer;
  setup.pageLabel = [&pages](int page, int count) {
    return "Ambervane · " +
           pages.words(control_words::kPage, {std::to_string(page), std::to_string(count)});
  };
  return setPdf(setup, [&pages](PageFlow& flow) { pages.fill(flow); });
}

}  // namespace ambervane
