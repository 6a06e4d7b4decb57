#include <fmt/format.h>

#include <cerrno>
#include <system_error>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/volume_report.h"
#include "mailformats/import_error.h"
#include "mailformats/source_detector.h"
#include "store/ingest.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kListedErrors = 5;
constexpr std::size_t kFolderWidth = 40;

void report(const IngestSummary& summary, Date now, Console& console) {
  std::ostream& out = console.out;
  out << "Stored     : " << summary.added << "\n"
      << "Duplicates : " << summary.duplicates << "\n"
      << "Failed     : " << summary.failed << "\n";
  if (summary.notMail > 0) {
    out << "Not mail   : " << summary.notMail << " (use --archive-non-mail to archive these too)\n";
  }
  reportVolume(summary.bytesIn, summary.bytesOut, summary.throughput, now, out);
  for (std::size_t i = 0; i < std::min(summary.errors.size(), kListedErrors); ++i) {
    out << "  ! " << printable(summary.errors[i]) << "\n";
  }
}

/// What the reader of a kind takes, for somebody who wonders why it took nothing.
std::string lookedFor(MailSourceKind kind) {
  switch (kind) {
    case MailSourceKind::mbox:
    case MailSourceKind::appleMailPackage:
      return "messages behind lines that begin with \"From \"";
    case MailSourceKind::maildir:
      return "message files in folders \"cur\" and \"new\"";
    case MailSourceKind::mhFolder:
      return "files whose names are numbers";
    case MailSourceKind::mboxFolder:
      return "mbox files and Maildir folders";
    case MailSourceKind::appleMail:
      return "files ending in .emlx";
    case MailSourceKind::thunderbirdProfile:
      return "mbox files below \"Mail\" and \"ImapMail\"";
    case MailSourceKind::portableExport:
      return "the files that reimport-manifest.json lists";
    case MailSourceKind::emlFile:
      return "one message with header fields such as From and Date";
    default:
      return "mail in files ending in .eml, .email, .mail, .rfc822, .mime or .txt";
  }
}

IngestOptions optionsFrom(const Arguments& arguments, const fs::path& source, MailSourceKind kind) {
  IngestOptions options;
  options.accountName = repairedUtf8(arguments.option("account").value_or(source.stem().native()));
  options.accountKind = kindName(kind);
  options.sourcePath = pathText(source);
  options.archivesFilesThatAreNotMail = arguments.has("archive-non-mail");
  for (const RetentionClass& known : RetentionClass::builtIn()) {
    if (known.identifier == arguments.option("class")) options.retentionClass = known;
  }
  return options;
}

/// Refuses what cannot be read before the archive is touched.
void requireReadableSource(const fs::path& source) {
  std::error_code error;
  if (const auto status = fs::status(source, error); status.type() == fs::file_type::not_found) {
    throw ImportError(ImportError::Unreadable{printable(source.native()) + ": " +
                                              std::generic_category().message(ENOENT)});
  }
  if (const auto problem = SourceDetector::accessProblem(source)) {
    throw CLIError::access(problem->explanation().text());
  }
}

}  // namespace

int importSource(const Arguments& arguments, Console& console) {
  if (arguments.positional.size() < 2) {
    throw CLIError::usage("usage: ambervane import <archive> <source>");
  }
  const fs::path source = standardizedPath(arguments.positional[1]);
  requireReadableSource(source);

  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  requireRoomToAdd(*archive, source, "Importing mail");
  const MailSourceKind kind = SourceDetector::detect(source);
  const auto importer = SourceDetector::importer(source, kind);
  console.out << "Source: " << kindLabel(kind) << " — " << printable(importer->displayName())
              << "\n"
              << std::flush;

  noteMissingDocumentHelper(*archive, console);
  const InterruptGuard guard;
  IngestSummary summary;
  {
    ProgressLine line(console);
    const auto progress = [&](const IngestSummary& state, const std::string& folder) {
      if (!line.isDue()) return;
      line.show(fmt::format("{} → {}  [{} stored, {} dup, {} failed — {}]", state.examined(),
                            prefixCharacters(printable(folder), kFolderWidth), state.added,
                            state.duplicates, state.failed, rateText(state.throughput)));
    };
    try {
      summary = ingestAll(*archive, *importer, optionsFrom(arguments, source, kind),
                          InterruptGuard::interrupted, progress);
    } catch (const std::exception&) {
      line.clear();
      console.err << "Note: the import was broken off. What was stored before is in the archive; "
                     "once the cause is removed, import the same source again for the rest.\n";
      throw;
    }
  }
  report(summary, archive->now(), console);
  if (summary.cancelled) {
    console.err << "Interrupted: what was read so far is in the archive. Run the same import again "
                   "for the rest.\n";
  } else if (summary.added == 0 && summary.duplicates == 0) {
    console.err << "Note: nothing was taken from " << printable(source.native()) << ", looked for "
                << lookedFor(kind) << ".\n";
  }
  archive->close();
  return summary.cancelled ? kExitInterrupted : kExitSuccess;
}

int detect(const Arguments& arguments, Console& console) {
  if (arguments.positional.empty()) throw CLIError::usage("usage: ambervane detect <path>");
  const fs::path path = standardizedPath(arguments.positional[0]);
  const MailSourceKind kind = SourceDetector::detect(path);
  console.out << printable(path.native()) << ": " << kindLabel(kind) << " [" << kindName(kind)
              << "]\n";
  if (const auto problem = SourceDetector::accessProblem(path)) {
    console.out << "Access: refused — " << problem->explanation().text() << "\n";
  }
  if (kind == MailSourceKind::unknown) return kExitSuccess;
  const auto importer = SourceDetector::importer(path, kind);
  const auto count = importer->estimatedCount();
  console.out << "Importer: " << printable(importer->displayName()) << ", estimated "
              << (count ? std::to_string(*count) : "unknown") << " messages\n";
  return kExitSuccess;
}

}  // namespace ambervane
