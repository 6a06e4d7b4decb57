#include <fmt/format.h>

#include <algorithm>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "store/archive_conversion.h"
#include "store/archive_merge.h"
#include "store/storage_access.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kListedFailures = 5;
constexpr std::size_t kHeadDigits = 16;

std::string lastName(const fs::path& path) { return printable(path.filename().native()); }

std::string firstDigits(const std::string& head) { return head.substr(0, kHeadDigits) + "…"; }

MergeProgress progressOn(ProgressLine& line) {
  return [&line](std::int64_t done, std::int64_t total) {
    if (line.isDue()) line.show(fmt::format("{}/{} messages", done, total));
  };
}

void list(const std::vector<std::string>& failures, Console& console) {
  for (std::size_t i = 0; i < std::min(failures.size(), kListedFailures); ++i) {
    console.err << "  ! " << printable(failures[i]) << "\n";
  }
}

/// A script that removes the source when the command succeeds must not lose mail.
int statusOf(bool cancelled, std::int64_t failed) {
  if (cancelled) return kExitInterrupted;
  return failed > 0 ? kExitFailure : kExitSuccess;
}

void report(const MergeOutcome& outcome, std::ostream& out) {
  out << "Stored     : " << outcome.messages << "\n"
      << "Already held: " << outcome.duplicates << "\n";
  if (outcome.failed > 0) out << "Failed     : " << outcome.failed << "\n";
  out << "Source head: " << firstDigits(outcome.sourceChainHead) << "\n";
  if (outcome.evidencePath) {
    out << "Its journal and seals are kept whole at:\n"
        << printable(outcome.evidencePath->native()) << "\n"
        << "The two chains are not merged — they cannot be. The source's chain\n"
           "verifies on its own terms, and this archive's chain records that it\n"
           "was taken in, from which archive and at which head.\n";
  }
}

void report(const ConversionOutcome& outcome, std::int64_t before, std::int64_t after,
            std::ostream& out) {
  const double percent =
      before > 0 ? 100.0 * static_cast<double>(after) / static_cast<double>(before) : 100.0;
  out << "New archive : " << printable(outcome.destination.value_or("").native()) << "\n"
      << outcome.messages << " stored, " << outcome.duplicates << " already held, "
      << outcome.failed << " failed\n"
      << outcome.tags << " tags, " << outcome.notes << " notes, " << outcome.holds
      << " legal holds\n"
      << humanBytes(before) << " → " << humanBytes(after)
      << fmt::format("  ({:.1f}% of the original archive)\n", percent)
      << "Source head : " << firstDigits(outcome.sourceChainHead) << "\n";
  if (outcome.evidencePath) {
    out << "The original's journal and seals are kept whole in the new archive at:\n"
        << printable(outcome.evidencePath->native()) << "\n";
  }
}

}  // namespace

int mergeCommand(const Arguments& arguments, Console& console) {
  if (arguments.positional.size() < 2) {
    throw CLIError::usage("merge needs the target archive and then the source archive");
  }
  Arguments ofSource = arguments;
  ofSource.positional.erase(ofSource.positional.begin());
  // First, so that a wrong name is told before the target is touched.
  const auto source = openArchive(ofSource, console, OpenMode::readOnly);
  const auto target = openArchive(arguments, console, OpenMode::readWrite);
  console.out << "Merging " << lastName(source->url()) << " into " << lastName(target->url())
              << " …\n"
              << std::flush;
  noteMissingDocumentHelper(*target, console);
  const InterruptGuard guard;
  MergeOutcome outcome;
  {
    ProgressLine line(console);
    outcome = mergeArchive(*target, *source, AuditJournal::defaultActor(), progressOn(line),
                           InterruptGuard::interrupted);
  }
  report(outcome, console.out);
  list(outcome.failures, console);
  if (outcome.cancelled) {
    console.err << "Interrupted: what was read so far is in the archive. Run the same merge again "
                   "for the rest.\n";
  }
  source->close();
  target->close();
  return statusOf(outcome.cancelled, outcome.failed);
}

int convertCommand(const Arguments& arguments, Console& console) {
  if (arguments.positional.size() < 2) {
    throw CLIError::usage("convert needs the archive and then where the new one goes");
  }
  const fs::path destination = standardizedPath(arguments.positional[1]);
  const CompressionEffort effort =
      compressionEffortFromRawValue(arguments.option("compression").value_or("smallest"))
          .value_or(CompressionEffort::smallest);
  const auto source = openArchive(arguments, console, OpenMode::readWrite);
  const fs::path original = source->url();
  if (!destination.lexically_relative(original).native().starts_with("..")) {
    if (destination != original) {
      throw CLIError::usage("the new archive cannot lie inside the one it is made from");
    }
  }
  console.out << "Converting " << lastName(original) << " to " << lastName(destination) << " …\n"
              << "The original is untouched.\n"
              << std::flush;
  noteMissingDocumentHelper(*source, console);
  const InterruptGuard guard;
  ConversionOutcome outcome;
  {
    ProgressLine line(console);
    outcome =
        convertArchive(*source, destination, effort, arguments.option("name"),
                       AuditJournal::defaultActor(), progressOn(line), InterruptGuard::interrupted);
  }
  source->close();
  report(outcome, diskUsage(original).total(), diskUsage(destination).total(), console.out);
  list(outcome.failures, console);
  if (outcome.cancelled) {
    console.err << "Interrupted: the new archive lacks mail. Take the rest in with ambervane merge "
                << lastName(destination) << " " << lastName(original)
                << ", or remove it and convert again.\n";
  }
  return statusOf(outcome.cancelled, outcome.failed);
}

}  // namespace ambervane
