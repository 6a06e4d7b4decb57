#include "cli/verification_progress.h"

#include <fmt/format.h>

#include "base/text.h"
#include "cli/interrupt.h"

namespace ambervane {
namespace {

constexpr std::size_t kListedMessages = 20;

std::string progressText(const IntegrityProgress& progress) {
  if (progress.indeterminate) return progress.phase;
  std::string text = fmt::format("{}  {}/{}", progress.phase, progress.checked, progress.total);
  if (progress.failures > 0) text += fmt::format(", {} failed", progress.failures);
  return text;
}

}  // namespace

VerificationOptions VerificationProgress::options(bool deep) {
  VerificationOptions options;
  options.deep = deep;
  options.shouldCancel = InterruptGuard::interrupted;
  options.progress = [this](const IntegrityProgress& progress) { show(progress); };
  options.damagedMessage = [this](const DamagedMessage& message) { add(message); };
  return options;
}

void VerificationProgress::show(const IntegrityProgress& progress) {
  const bool isDue = line_.isDue();
  if (!line_.isShown() || (!isDue && progress.phase == phase_)) return;
  phase_ = progress.phase;
  line_.show(progressText(progress));
}

void VerificationProgress::add(const DamagedMessage& message) {
  if (++damaged_ > kListedMessages) return;
  line_.clear();
  console_.err << "  ! message " << message.id << " (" << printable(message.sha256)
               << "): " << printable(message.reason) << "\n";
}

void VerificationProgress::finish() {
  line_.clear();
  if (damaged_ > kListedMessages) {
    console_.err << "  … and " << damaged_ - kListedMessages << " more\n";
  }
}

}  // namespace ambervane
