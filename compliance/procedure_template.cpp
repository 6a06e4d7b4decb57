#include "compliance/procedure_template.h"

#include <fmt/format.h>

#include <cerrno>
#include <map>

#include "base/calendar.h"
#include "base/file.h"
#include "base/report_language.h"
#include "base/text.h"
#include "compliance/control_words.h"
#include "evidence/retention_policy.h"
#include "resources/procedure_template.h"
#include "store/archive_manifest.h"

namespace ambervane {
namespace {

constexpr std::string_view kOpening = "{{";
constexpr std::string_view kClosing = "}}";
/// The laws that ask for this document are written in it.
constexpr ReportLanguage kLanguage = ReportLanguage::german;

std::string classRows() {
  std::string rows;
  for (const RetentionClass& one : RetentionClass::builtIn()) {
    rows += fmt::format("| `{}` | {} | {} | {} |\n", one.identifier,
                        localized(one.label, kLanguage), one.years,
                        localized(one.fromEndOfBusinessYear ? control_words::kFromEndOfYear
                                                            : control_words::kFromMessageDate,
                                  kLanguage));
  }
  return std::string(trim(rows));
}

std::string regimeRows() {
  std::string rows;
  for (const ComplianceRegime regime : {ComplianceRegime::swissGeBueV, ComplianceRegime::germanGoBD,
                                        ComplianceRegime::euGDPR, ComplianceRegime::secRule17a4}) {
    const RegimeFacts& law = facts(regime);
    rows += fmt::format("| {} | `{}` | {} |\n", localized(law.label, kLanguage), law.identifier,
                        law.minimumYears);
  }
  return std::string(trim(rows));
}

/// `text` with each "{{name}}" replaced by what `facts` has under the name.
std::string filled(std::string_view text, const std::map<std::string_view, std::string>& known) {
  std::string out;
  for (;;) {
    const std::size_t opening = text.find(kOpening);
    const std::size_t closing = text.find(kClosing, opening);
    if (opening == std::string_view::npos || closing == std::string_view::npos) break;
    out += text.substr(0, opening);
    const std::size_t begin = opening + kOpening.size();
    out += known.at(text.substr(begin, closing - begin));
    text.remove_prefix(closing + kClosing.size());
  }
  return out += text;
}

}  // namespace

LocalizedMessage TemplateError::message() const {
  struct Words {
    LocalizedMessage operator()(const Exists& r) const {
      return {
          "There is already a file at %@. Choose another name; the template never replaces a file.",
          {printable(r.path)}};
    }
    LocalizedMessage operator()(const Unavailable&) const {
      return {"This copy of Ambervane does not contain the template.", {}};
    }
  };
  return std::visit(Words{}, reason_);
}

std::string procedureTemplateText(Date today, std::string_view host) {
  if (resources::procedureTemplate().empty()) throw TemplateError(TemplateError::Unavailable{});
  return filled(resources::procedureTemplate(),
                {{"date", formatDate(today, "dd.MM.yyyy")},
                 {"version", AMBERVANE_VERSION},
                 {"host", printable(host)},
                 {"format", std::to_string(ArchiveManifest::kFormatVersion)},
                 {"seal_interval", std::to_string(RetentionPolicy().sealEveryEntries)},
                 {"classes", classRows()},
                 {"regimes", regimeRows()}});
}

void writeProcedureTemplate(const std::filesystem::path& path, std::string_view text) {
  try {
    writeNewFile(path, text);
  } catch (const FileError& error) {
    if (error.error() != EEXIST) throw;
    throw TemplateError(TemplateError::Exists{path.native()});
  }
}

}  // namespace ambervane
