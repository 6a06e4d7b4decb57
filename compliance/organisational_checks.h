#ifndef AMBERVANE_COMPLIANCE_ORGANISATIONAL_CHECKS_H_
#define AMBERVANE_COMPLIANCE_ORGANISATIONAL_CHECKS_H_

#include <string>
#include <string_view>
#include <vector>

#include "evidence/compliance_report.h"
#include "platform/code_signature.h"
#include "store/mail_archive.h"

namespace ambervane {

/// The catalog's settings that hold what people have recorded. Times are ISO 8601.
namespace settings {
inline constexpr std::string_view kSecondCopy = "second_copy_location";
inline constexpr std::string_view kProcedure = "verfahrensdokumentation";
inline constexpr std::string_view kLastControlAt = "last_control_at";
inline constexpr std::string_view kLastControlBy = "last_control_by";
inline constexpr std::string_view kDuplicateCopy = "duplicate_copy_path";
inline constexpr std::string_view kSyncSchedule = "sync-schedule";
inline constexpr std::string_view kLastScheduledSuccess = "last_scheduled_success";
inline constexpr std::string_view kLastScheduledFailure = "last_scheduled_failure";
}  // namespace settings

/// What Swiss law asks for beyond unchanged records: duties of people, which can only be recorded.
/// None of them fails; what has not been done is outstanding. `signature` is of this program.
/// Throws SQLiteError.
std::vector<ComplianceCheck> swissOrganisationalChecks(
    MailArchive& archive, const CodeSignature& signature = currentCodeSignature());

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_ORGANISATIONAL_CHECKS_H_
