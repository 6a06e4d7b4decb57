#include <fmt/format.h>

#include <algorithm>

#include "base/calendar.h"
#include "base/text.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/server_options.h"
#include "cli/volume_report.h"
#include "store/ingest.h"
#include "syncengine/imap_archive_sync.h"

namespace ambervane {
namespace {

constexpr std::size_t kListedFailures = 5;
constexpr std::size_t kListedRemarks = 50;
constexpr std::size_t kFolderWidth = 40;

std::optional<Date> day(const Arguments& arguments, const std::string& name) {
  if (!arguments.has(name)) return std::nullopt;
  const auto date = parseDate(arguments.option(name).value_or(""), "yyyy-MM-dd");
  if (!date) throw CLIError::usage("--" + name + " takes a day such as 2024-01-31");
  return date;
}

/// The values of an option that may be given several times, each with commas in between.
std::vector<std::string> list(const Arguments& arguments, const std::string& name) {
  std::vector<std::string> values;
  const auto given = arguments.multiOptions.find(name);
  if (given == arguments.multiOptions.end()) return values;
  for (const std::string& text : given->second) {
    for (const std::string_view value : splitOmittingEmpty(text, ",")) {
      if (!trim(value).empty()) values.push_back(repairedUtf8(trim(value)));
    }
  }
  return values;
}

SyncScope scopeFrom(const Arguments& arguments) {
  SyncScope scope;
  scope.includeFolders = list(arguments, "folders");
  if (arguments.has("folders") && scope.includeFolders.empty()) {
    throw CLIError::usage("--folders takes the names of folders, with commas in between");
  }
  scope.includesMayBePaths = true;
  scope.excludeFolders = list(arguments, "exclude");
  scope.since = day(arguments, "since");
  scope.before = day(arguments, "before");
  return scope;
}

/// What a run shows while it goes on: remarks as they come, on a line of their own, and on a
/// terminal how far it is.
class SyncDisplay {
 public:
  explicit SyncDisplay(Console& console) : console_(console), line_(console) {}

  void show(const SyncProgress& state) {
    for (; shownRemarks_ < state.remarks.size(); ++shownRemarks_) {
      if (shownRemarks_ >= kListedRemarks) continue;
      line_.clear();
      console_.err << "Note: " << printable(state.remarks[shownRemarks_]) << "\n" << std::flush;
    }
    if (!line_.isDue()) return;
    line_.show(fmt::format("folder {} of {}, {}: {} of {}  [{} stored, {} dup, {} failed — {}]",
                           std::min(state.foldersDone + 1, state.foldersTotal), state.foldersTotal,
                           prefixCharacters(printable(state.folder), kFolderWidth),
                           state.messagesInFolder, state.messagesTotalInFolder, state.stored,
                           state.duplicates, state.failed, rateText(state.throughput)));
  }

  void finish() {
    line_.clear();
    if (shownRemarks_ > kListedRemarks) {
      console_.err << "Note: and " << shownRemarks_ - kListedRemarks << " more\n";
    }
  }

 private:
  Console& console_;
  ProgressLine line_;
  std::size_t shownRemarks_ = 0;
};

void report(const SyncProgress& result, Date now, std::ostream& out) {
  out << "Folders    : " << result.foldersDone;
  if (result.foldersDone != result.foldersTotal) out << " of " << result.foldersTotal;
  out << "\n"
      << "Stored     : " << result.stored << "\n"
      << "Duplicates : " << result.duplicates << "\n"
      << "Failed     : " << result.failed << "\n";
  if (result.missing > 0) out << "Not sent   : " << result.missing << "\n";
  out << "Departed   : " << result.departed << "\n"
      << "Returned   : " << result.returned << "\n";
  reportVolume(result.bytesIn, result.bytesOut, result.throughput, now, out);
  for (std::size_t i = 0; i < std::min(result.failures.size(), kListedFailures); ++i) {
    out << "  ! " << printable(result.failures[i]) << "\n";
  }
}

}  // namespace

int syncIMAP(const Arguments& arguments, Console& console) {
  if (arguments.has("scheduled")) {
    throw CLIError::usage("ambervane sync --scheduled is not part of this version yet");
  }
  if (arguments.positional.empty()) throw CLIError::usage("missing archive path");
  const SyncScope scope = scopeFrom(arguments);
  ServerLogin login = serverFrom(arguments);
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  requireRoomToAdd(*archive, "Collecting mail");
  console.out << "Source: " << printable(login.credentials.username) << " at "
              << printable(login.server.text()) << "\n"
              << std::flush;

  const std::string account =
      repairedUtf8(arguments.option("account").value_or(login.credentials.username));
  IMAPArchiveSync collection(*archive, login.server, std::move(login.credentials), account);
  const InterruptGuard guard;
  SyncProgress result;
  {
    SyncDisplay display(console);
    result = collection.run(scope, InterruptGuard::interrupted,
                            [&](const SyncProgress& state) { display.show(state); });
    display.finish();
  }
  report(result, archive->now(), console.out);
  if (result.cancelled) {
    console.err << "Interrupted: what was collected so far is in the archive. Run the same command "
                   "again for the rest.\n";
  }
  archive->close();
  if (result.cancelled) return kExitInterrupted;
  return result.failed > 0 ? kExitFailure : kExitSuccess;
}

}  // namespace ambervane
