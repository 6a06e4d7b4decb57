#ifndef AMBERVANE_CLI_VERIFICATION_PROGRESS_H_
#define AMBERVANE_CLI_VERIFICATION_PROGRESS_H_

#include <cstddef>
#include <string>

#include "cli/console.h"
#include "compliance/verification.h"

namespace ambervane {

/// Shows how far a verification is, and names the messages that it finds damaged. Stands where the
/// verification runs; an `InterruptGuard` must be alive as long.
class VerificationProgress {
 public:
  explicit VerificationProgress(Console& console) : console_(console), line_(console) {}
  /// Options that report to this object, which must outlive their use.
  VerificationOptions options(bool deep);
  /// Clears the line and says how many damaged messages were not named.
  void finish();

 private:
  void show(const IntegrityProgress& progress);
  void add(const DamagedMessage& message);

  Console& console_;
  ProgressLine line_;
  std::string phase_;
  std::size_t damaged_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_CLI_VERIFICATION_PROGRESS_H_
