#include "cli/verification_progress.h"

#include <fmt/format.h>

#include "base/text.h"
#include "cli/interrupt.h"

namespace ambervane {
namespace {

constexpr std::size_t kListedMessages = 20;
/// Seconds between two drawings of the progress line.
constexpr double kRedraw = 0.1;

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
  if (!line_.isShown()) return;
  const Date now = archive_.now();
  if (progress.phase == phase_ && now.seconds - drawnAt_.seconds < kRedraw) return;
  phase_ = progress.phase;
  drawnAt_ = now;
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
