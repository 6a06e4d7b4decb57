#ifndef AMBERVANE_CLI_VERIFICATION_PROGRESS_H_
#define AMBERVANE_CLI_VERIFICATION_PROGRESS_H_

#include <cstddef>
#include <string>

#include "base/date.h"
#include "cli/console.h"
#include "compliance/verification.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Shows how far a verification is, and names the messages that it finds damaged. Stands where the
/// verification runs; an `InterruptGuard` must be alive as long.
class VerificationProgress {
 public:
  VerificationProgress(Console& console, const MailArchive& archive)
      : console_(console), archive_(archive), line_(console) {}
  /// Options that report to this object, which must outlive their use.
  VerificationOptions options(bool deep);
  /// Clears the line and says how many damaged messages were not named.
  void finish();

 private:
  void show(const IntegrityProgress& progress);
  void add(const DamagedMessage& message);

  Console& console_;
  const MailArchive& archive_;
  ProgressLine line_;
  std::string phase_;
  Date drawnAt_;
  std::size_t damaged_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_CLI_VERIFICATION_PROGRESS_H_
