#ifndef AMBERVANE_COMPLIANCE_VERIFICATION_H_
#define AMBERVANE_COMPLIANCE_VERIFICATION_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "compliance/message_rehash.h"
#include "evidence/compliance_report.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Where a verification is.
struct IntegrityProgress {
  std::int64_t checked = 0;
  std::int64_t total = 0;
  std::int64_t failures = 0;
  std::string phase;          ///< English
  bool indeterminate = true;  ///< how much there is to do is not known
};

struct VerificationOptions {
  /// Also rebuild every message from storage, and check the whole of the database.
  bool deep = false;
  std::function<bool()> shouldCancel;                              ///< may be empty
  std::function<void(const IntegrityProgress&)> progress;          ///< may be empty
  std::function<void(const DamagedMessage&)> damagedMessage = {};  ///< may be empty
};

/// Whether what the archive holds still stands as it says: walks the evidence in a fixed order. A
/// failed check is a result; the run goes on behind it. What came of it is recorded in the journal
/// where that can be written. Absent when `shouldCancel` ended it: then nothing is recorded. Throws
/// SQLiteError for failures other than those of a damaged database, and FileError when the result
/// cannot be recorded.
std::optional<ComplianceReport> verifyIntegrity(MailArchive& archive,
                                                const VerificationOptions& options);

/// Messages whose keep-until date lies within the next `days` days.
std::int64_t expiringSoon(MailArchive& archive, int days);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_VERIFICATION_H_
