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

/// Runs `work` under a line that shows how far it is; says `broken` when it fails on its way.
template <typename Work>
auto runShown(Console& console, const std::string& broken, Work work) {
  ProgressLine line(console);
  bool hasBegun = false;
  try {
    return work([&](std::int64_t done, std::int64_t total) {
      hasBegun = true;
      if (line.isDue()) line.show(fmt::format("{}/{} messages", done, total));
    });
  } catch (const std::exception&) {
    line.clear();
    if (hasBegun) console.err << "Note: " << broken << "\n";
    throw;
  }
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
  const MergeOutcome outcome = runShown(
      console,
      "the merge was broken off. What was taken in before is in the archive; once the cause is "
      "removed, run the same merge again for the rest.",
      [&](const MergeProgress& progress) {
        return mergeArchive(*target, *source, AuditJournal::defaultActor(), progress,
                            InterruptGuard::interrupted);
      });
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
  const std::string completion =
      "the new archive lacks mail. Take the rest in with ambervane merge " + lastName(destination) +
      " " + lastName(original) + ", or remove it and convert again.";
  const ConversionOutcome outcome = runShown(
      console, "the conversion was broken off: " + completion, [&](const MergeProgress& progress) {
        return convertArchive(*source, destination, effort, arguments.option("name"),
                              AuditJournal::defaultActor(), progress, InterruptGuard::interrupted);
      });
  source->close();
  report(outcome, diskUsage(original).total(), diskUsage(destination).total(), console.out);
  list(outcome.failures, console);
  if (outcome.cancelled) {
    console.err << "Interrupted: " << completion << "\n";
  }
  return statusOf(outcome.cancelled, outcome.failed);
}

}  // namespace ambervane
