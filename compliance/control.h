#ifndef AMBERVANE_COMPLIANCE_CONTROL_H_
#define AMBERVANE_COMPLIANCE_CONTROL_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/localized_message.h"
#include "compliance/control_report.h"
#include "compliance/verification.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Why a control was not recorded, or is without its report.
class ControlError final : public TranslatableError {
 public:
  enum class Reason { notAttributed, notRendered };
  explicit ControlError(Reason reason) : reason_(reason) {}
  Reason reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// `name` without blanks around it. Throws ControlError for one that names nobody.
std::string attributedName(std::string_view name);

/// Verifies the archive in depth and records that as a control by a person, with its date, whatever
/// came out; the report shows this control as the last. `options` say how to report progress and
/// when to stop. Absent when they stopped it: then nothing is recorded. Throws ControlError and
/// ArchiveError (ReadOnly) before anything is done, then what `verifyIntegrity` throws.
std::optional<ComplianceReport> recordControl(MailArchive& archive, std::string_view by,
                                              const std::optional<std::string>& note,
                                              VerificationOptions options);

struct WrittenReport {
  std::filesystem::path path;
  std::string sha256;
  std::int64_t unknownCharacters = 0;  ///< which no font of this system has
};

/// Refuses a place to which no report could be written, before hours are spent on a control. Throws
/// PdfError, FileError.
void checkReportDestination(const std::filesystem::path& to);

/// Sets the report of a control and writes it to `to`, in the place of a file that is there, or
/// into the folder `to` under a name of its date that is not taken. Its digest goes into the
/// journal, so that a signed print can be tied to the archive. Throws ControlError, FileError.
WrittenReport writeControlReport(MailArchive& archive, const ComplianceReport& report,
                                 const std::filesystem::path& to, const Signatory& performedBy,
                                 const std::optional<std::string>& note, ReportLanguage language);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_CONTROL_H_
