#include <fmt/format.h>

#include <cstddef>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "compliance/verification.h"

namespace ambervane {
namespace {

constexpr std::size_t kListedMessages = 20;

std::string progressText(const IntegrityProgress& progress) {
  if (progress.indeterminate) return progress.phase;
  std::string text = fmt::format("{}  {}/{}", progress.phase, progress.checked, progress.total);
  if (progress.failures > 0) text += fmt::format(", {} failed", progress.failures);
  return text;
}

/// Names the messages that can no longer be rebuilt, the first of them at least.
class DamageList {
 public:
  DamageList(Console& console, ProgressLine& line) : console_(console), line_(line) {}
  void add(const DamagedMessage& message) {
    if (++count_ > kListedMessages) return;
    line_.clear();
    console_.err << "  ! message " << message.id << " (" << printable(message.sha256)
                 << "): " << printable(message.reason) << "\n";
  }
  void close() {
    if (count_ > kListedMessages) {
      console_.err << "  … and " << count_ - kListedMessages << " more\n";
    }
  }

 private:
  Console& console_;
  ProgressLine& line_;
  std::size_t count_ = 0;
};

}  // namespace

int verify(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const InterruptGuard guard;
  std::optional<ComplianceReport> report;
  {
    ProgressLine line(console);
    DamageList damage(console, line);
    VerificationOptions options;
    options.deep = arguments.has("deep");
    options.shouldCancel = InterruptGuard::interrupted;
    std::string phase;
    options.progress = [&](const IntegrityProgress& progress) {
      const bool isDue = line.isDue();
      if (!line.isShown() || (!isDue && progress.phase == phase)) return;
      phase = progress.phase;
      line.show(progressText(progress));
    };
    options.damagedMessage = [&](const DamagedMessage& message) { damage.add(message); };
    report = verifyIntegrity(*archive, options);
    damage.close();
  }
  if (!report) {
    console.err << "Interrupted: the verification was not finished, so nothing is recorded of it. "
                   "Nothing was changed.\n";
    archive->close();
    return kExitInterrupted;
  }
  console.out << report->plainText(matchingLanguage(arguments.option("language").value_or("en")));
  if (!archive->journal().isWritable()) {
    console.out << "Note : not recorded in the archive's journal — it is kept where nothing can be "
                   "written\n";
  }
  archive->close();
  return report->allPassed() ? kExitSuccess : kExitFailure;
}

}  // namespace ambervane
