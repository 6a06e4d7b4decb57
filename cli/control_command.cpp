#include "base/text.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/verification_progress.h"
#include "compliance/control.h"
#include "store/archive_error.h"

namespace ambervane {
namespace {

/// An option that says something.
std::optional<std::string> given(const Arguments& arguments, const std::string& name) {
  const auto text = arguments.option(name);
  if (!text || trim(*text).empty()) return std::nullopt;
  return std::string(trim(*text));
}

std::optional<std::filesystem::path> pdfDestination(const Arguments& arguments) {
  if (!arguments.has("pdf")) return std::nullopt;
  const auto text = given(arguments, "pdf");
  if (!text) throw CLIError::usage("--pdf expects a file or folder");
  const std::filesystem::path path = standardizedPath(*text);
  checkReportDestination(path);
  return path;
}

void printReport(const WrittenReport& report, Console& console) {
  console.out << "Control report written to " << printable(report.path.native()) << "\n"
              << "  SHA-256 " << report.sha256 << "\n"
              << "Sign the printed copy; its digest is in the audit chain.\n";
  if (report.unknownCharacters > 0) {
    console.err << "Note: no font of this system has " << report.unknownCharacters
                << " characters of the report; they are printed as boxes. A package such as "
                   "fonts-noto-core or fonts-noto-cjk may have them.\n";
  }
}

}  // namespace

int control(const Arguments& arguments, Console& console) {
  const auto by = arguments.option("by");
  if (!by) throw CLIError::usage("--by <name> is required: a control is attributed to a person");
  const Signatory signatory{attributedName(*by), given(arguments, "role")};
  const auto note = given(arguments, "note");
  const auto destination = pdfDestination(arguments);
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  if (archive->readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  const InterruptGuard guard;
  console.out << "Running a deep verification. This re-reads and re-hashes every message.\n"
              << std::flush;
  VerificationProgress progress(console);
  const auto report = recordControl(*archive, signatory.name, note, progress.options(true));
  progress.finish();
  if (!report) {
    console.err << "Interrupted: the verification was not finished, so no control is recorded. "
                   "Nothing was changed.\n";
    archive->close();
    return kExitInterrupted;
  }
  console.out << report->checkLines();
  if (destination) {
    const ReportLanguage language = matchingLanguage(arguments.option("language").value_or("en"));
    printReport(writeControlReport(*archive, *report, *destination, signatory, note, language),
                console);
  }
  if (const std::size_t open = report->count(Outcome::outstanding)) {
    console.out << open << " requirement(s) remain outstanding — see OPEN above.\n"
                << "These cannot be satisfied by this program; they need a person.\n";
  }
  archive->close();
  return report->allPassed() ? kExitSuccess : kExitFailure;
}

}  // namespace ambervane
