#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/verification_progress.h"
#include "compliance/verification.h"

namespace ambervane {

int verify(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const InterruptGuard guard;
  VerificationProgress progress(console);
  const auto report = verifyIntegrity(*archive, progress.options(arguments.has("deep")));
  progress.finish();
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
