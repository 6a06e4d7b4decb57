#include <fmt/format.h>

#include <algorithm>

#include "base/calendar.h"
#include "base/text.h"
#include "cli/commands.h"

namespace ambervane {
namespace {

constexpr std::size_t kHistogramWidth = 40;
constexpr std::size_t kHeadDigits = 16;

void printTotals(const CatalogStats& totals, const ArchiveManifest& manifest, std::ostream& out) {
  out << "Messages   : " << totals.messages;
  if (totals.erased > 0) out << " (" << totals.erased << " erased)";
  out << "\nAttachments: " << totals.attachments << " in " << totals.blobs
      << " deduplicated blobs\n";
  const std::int64_t stored = totals.storedBytes + totals.blobStoredBytes;
  if (totals.originalBytes == 0) {
    out << "Stored     : nothing stored yet\n";
  } else {
    out << fmt::format(
        "Stored     : {}  →  {}  ({:.1f}% of original, saving {})\n",
        humanBytes(totals.originalBytes), humanBytes(stored),
        100.0 * static_cast<double>(stored) / static_cast<double>(totals.originalBytes),
        humanBytes(std::max<std::int64_t>(totals.originalBytes - stored, 0)));
  }
  out << "Built by   : " << printable(manifest.createdBy) << "\n"
      << "Format     : version " << manifest.formatVersion << " (readable by builds understanding "
      << manifest.minimumReaderVersion << " and up)\n";
}

void printFileTypes(Catalog& catalog, std::ostream& out) {
  const auto types = catalog.attachmentExtensions();
  out << "File types :";
  if (types.empty()) out << " none";
  out << "\n";
  for (const AttachmentExtension& type : types) {
    out << fmt::format("  {:<10} {:>8}  {}\n",
                       type.extension.empty() ? "(none)" : printable(type.extension), type.count,
                       humanBytes(type.bytes));
  }
}

void printHistogram(Catalog& catalog, std::ostream& out) {
  const auto months = catalog.messagesPerMonth();
  std::int64_t highest = 1;
  for (const auto& [month, count] : months) highest = std::max(highest, count);
  for (const auto& [month, count] : months) {
    const auto width = static_cast<std::size_t>(
        std::max<std::int64_t>(1, count * static_cast<std::int64_t>(kHistogramWidth) / highest));
    std::string bar;
    for (std::size_t i = 0; i < width; ++i) bar += "█";
    out << "  " << month << "  " << bar << " " << count << "\n";
  }
}

void printFolders(Catalog& catalog, std::ostream& out) {
  const auto folders = catalog.folderCounts();
  if (folders.empty()) {
    out << "Folders    : none yet\n";
    return;
  }
  out << "Folders    :\n";
  for (const FolderCount& folder : folders) {
    out << "  " << printable(folder.account) << "/" << printable(folder.path) << "  "
        << folder.messages << "\n";
  }
}

}  // namespace

int stats(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readOnly);
  std::ostream& out = console.out;
  Catalog& catalog = archive->catalog();
  const CatalogStats totals = catalog.stats();
  printTotals(totals, archive->manifest(), out);
  for (const DiskUsage::Part& part : diskUsage(archive->url()).parts) {
    out << fmt::format("  {:<9}: {}{}\n", part.id, humanBytes(part.bytes),
                       part.rebuildable ? "  rebuildable" : "");
  }
  printFileTypes(catalog, out);
  const auto day = [](const std::optional<Date>& date) {
    return date ? formatDate(*date, "yyyy-MM-dd") : std::string("(none)");
  };
  out << "Date range : " << day(totals.oldest) << " … " << day(totals.newest) << "\n";
  printHistogram(catalog, out);
  out << "Journal    : " << archive->journal().count() << " entries, head "
      << archive->journal().head().substr(0, kHeadDigits) << "…\n";
  printFolders(catalog, out);
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
