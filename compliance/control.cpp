#include "compliance/control.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "base/calendar.h"
#include "base/digest.h"
#include "base/file.h"
#include "base/text.h"
#include "compliance/check_names.h"
#include "compliance/organisational_checks.h"
#include "pdf/pdf_error.h"
#include "platform/code_signature.h"
#include "store/archive_error.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr const char* kProducer = "Ambervane " AMBERVANE_VERSION;

/// Lets the report say that the control it came from is the last one.
void refreshLastControl(MailArchive& archive, ComplianceReport& report) {
  const auto isControl = [](const ComplianceCheck& check) {
    return check.name == check_names::kControl;
  };
  const auto shown = std::ranges::find_if(report.checks, isControl);
  if (shown == report.checks.end()) return;
  const auto checks = swissOrganisationalChecks(archive);
  const auto fresh = std::ranges::find_if(checks, isControl);
  if (fresh != checks.end()) *shown = *fresh;
}

void saveControl(MailArchive& archive, const std::string& by, ComplianceReport& report) {
  try {
    Catalog& catalog = archive.catalog();
    catalog.database().transaction([&] {
      catalog.setMeta(settings::kLastControlAt, iso8601(archive.now()));
      catalog.setMeta(settings::kLastControlBy, by);
    });
    refreshLastControl(archive, report);
  } catch (const SQLiteError& error) {
    // A control that finds the catalog damaged is one still: the journal has it.
    if (!error.isMediumFailure()) throw;
  }
}

fs::path reportPath(const fs::path& folder, Date date, int attempt) {
  std::string name = "control-" + formatDate(date, "yyyy-MM-dd");
  if (attempt > 1) name += "-" + std::to_string(attempt);
  return folder / (name + ".pdf");
}

fs::path writeInto(const fs::path& folder, Date date, BytesView bytes) {
  for (int attempt = 1;; ++attempt) {
    const fs::path path = reportPath(folder, date, attempt);
    try {
      writeNewFile(path, bytes);
      return path;
    } catch (const FileError& error) {
      if (error.error() != EEXIST) throw;
    }
  }
}

}  // namespace

LocalizedMessage ControlError::message() const {
  switch (reason_) {
    case Reason::notAttributed:
      return {"A control has to be attributed to somebody — that is what makes it a control.", {}};
    case Reason::notRendered:
      break;
  }
  return {"The control report could not be rendered.", {}};
}

std::string attributedName(std::string_view name) {
  const std::string trimmed(trim(name));
  if (trimmed.empty()) throw ControlError(ControlError::Reason::notAttributed);
  return trimmed;
}

std::optional<ComplianceReport> recordControl(MailArchive& archive, std::string_view by,
                                              const std::optional<std::string>& note,
                                              VerificationOptions options) {
  const std::string name = attributedName(by);
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  options.deep = true;
  auto report = verifyIntegrity(archive, options);
  if (!report) return std::nullopt;
  saveControl(archive, name, *report);
  std::map<std::string, std::string> details = {
      {"control", "GeBüV Art. 10 Abs. 1"},
      {"by", name},
      {"checks", std::to_string(report->checks.size())},
      {"failed", std::to_string(report->count(Outcome::failed))},
      {"outstanding", std::to_string(report->count(Outcome::outstanding))},
      {"signed_by", currentCodeSignature().summary()},
      {"messages", std::to_string(report->messageCount)}};
  if (note) details["note"] = *note;
  archive.journal().append(AuditAction::integrityVerified, "periodic-control", details);
  return report;
}

void checkReportDestination(const fs::path& to) {
  requireFonts();
  const auto refuse = [&to](int error) { throw FileError(FileError::Action::create, to, error); };
  std::error_code ignored;
  const fs::file_status status = fs::status(to, ignored);
  if (fs::exists(status) && !fs::is_directory(status) && !fs::is_regular_file(status)) {
    refuse(EEXIST);
  }
  const fs::path folder = fs::is_directory(status) ? to : to.parent_path();
  if (!fs::is_directory(folder, ignored)) refuse(ENOENT);
  if (::access(folder.c_str(), W_OK | X_OK) != 0) refuse(errno);
}

WrittenReport writeControlReport(MailArchive& archive, const ComplianceReport& report,
                                 const fs::path& to, const Signatory& performedBy,
                                 const std::optional<std::string>& note, ReportLanguage language) {
  PdfDocument document;
  try {
    document = ControlReport::pdf(report, archive.url(), performedBy, note, language, kProducer);
  } catch (const PdfError&) {
    throw ControlError(ControlError::Reason::notRendered);
  }
  WrittenReport written{to, sha256Hex(document.bytes), document.unknownCharacters};
  std::error_code ignored;
  if (fs::is_directory(to, ignored)) {
    written.path = writeInto(to, report.generatedAt, document.bytes);
  } else {
    writeFileAtomically(to, document.bytes);
  }
  archive.journal().append(AuditAction::integrityVerified, std::nullopt,
                           {{"by", performedBy.name},
                            {"language", std::string(rawValue(language))},
                            {"sha256", written.sha256},
                            {"note", "the signed copy of this report should carry this digest"}});
  return written;
}

}  // namespace ambervane
