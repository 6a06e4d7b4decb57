#ifndef AMBERVANE_COMPLIANCE_CONTROL_REPORT_H_
#define AMBERVANE_COMPLIANCE_CONTROL_REPORT_H_

#include <filesystem>
#include <optional>
#include <string>

#include "base/report_language.h"
#include "evidence/compliance_report.h"
#include "pdf/pdf_document.h"

namespace ambervane {

/// Who answers for a control.
struct Signatory {
  std::string name;
  std::optional<std::string> role;
};

/// A compliance report as a document to be printed and signed.
struct ControlReport {
  /// Sets it in `language`. `producer` names the program. Throws PdfError.
  static PdfDocument pdf(const ComplianceReport& report, const std::filesystem::path& archiveURL,
                         const Signatory& performedBy, const std::optional<std::string>& note,
                         ReportLanguage language, const std::string& producer);
};

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_CONTROL_REPORT_H_
