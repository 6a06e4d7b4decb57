#ifndef AMBERVANE_COMPLIANCE_SIDECAR_COVERAGE_H_
#define AMBERVANE_COMPLIANCE_SIDECAR_COVERAGE_H_

#include <string>
#include <vector>

#include "store/mail_archive.h"

namespace ambervane {

/// Said of what `damagedDictionaries` finds.
inline constexpr const char* kDamagedDictionaries =
    "Dictionaries in the folder \"dict\" are missing or not those that mail was stored with (%@); "
    "without them a lost catalog could not be rebuilt whole from the pack files";

/// Whether a lost catalog could be rebuilt with everything in it: every message that is not erased
/// and every attachment in use has its line in its pack's sidecar. Throws SQLiteError.
bool recoveryIndexCoverage(MailArchive& archive);
/// The files of dictionaries that are missing or not what the catalog holds; records compressed
/// with one of these could not be read once the catalog is lost. Throws SQLiteError.
std::vector<std::string> damagedDictionaries(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_SIDECAR_COVERAGE_H_
