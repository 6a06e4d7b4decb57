#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "base/digest.h"
#include "base/text.h"
#include "cli/attachment_files.h"
#include "cli/commands.h"
#include "store/message_reader.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kListedDuplicates = 100000;

}  // namespace

int attachments(const Arguments& arguments, Console& console) {
  if (arguments.positional.size() < 2) {
    throw CLIError::usage("usage: ambervane attachments <archive> <id> [--extract <dir>]");
  }
  std::optional<fs::path> folder;
  if (const auto text = arguments.option("extract")) folder = standardizedPath(*text);

  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const MessageRow row = findMessage(*archive, arguments.positional[1]);
  if (archive->catalog().attachments(row.id).empty()) {
    console.out << "No attachments on message " << row.id << "\n";
    archive->close();
    return kExitSuccess;
  }
  if (folder) createFolders(*folder);
  UniqueNames names;
  int status = kExitSuccess;
  forEachAttachment(*archive, row, [&](const AttachmentRow& attachment, Bytes&& data) {
    const std::string digest = sha256Hex(data);
    console.out << printable(displayName(attachment)) << " ... sha256=" << digest;
    if (digest != attachment.contentHash) {
      console.out << " MISMATCH";
      status = kExitFailure;
    }
    console.out << "\n";
    if (folder) {
      // What lies in the folder already is not ours to replace.
      fs::path path;
      do {
        path = *folder / names.claim(safeFileName(displayName(attachment)));
      } while (fs::exists(fs::symlink_status(path)));
      writeFileAtomically(path, data);
    }
  });
  if (folder) console.out << "Extracted to " << printable(folder->native()) << "\n";
  archive->close();
  return status;
}

int duplicates(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readOnly);
  const std::int64_t minimum =
      std::max<std::int64_t>(parseInteger(arguments.option("min").value_or("2")).value_or(2), 2);
  const auto files = archive->catalog().duplicateAttachments(minimum, kListedDuplicates);
  if (files.empty()) {
    console.out << "No attachment appears in more than " << minimum - 1 << " message(s).\n";
    archive->close();
    return kExitSuccess;
  }
  std::int64_t saved = 0;
  console.out << "copies  size        saved       file\n";
  for (const DuplicateAttachment& file : files) {
    const std::int64_t saving = file.size * (file.copies - 1);
    saved += saving;
    console.out << fmt::format("{:<7} {:<11} {:<11} {}\n", file.copies, humanBytes(file.size),
                               humanBytes(saving),
                               file.filename ? printable(*file.filename) : "(unnamed)");
  }
  console.out << files.size() << " files appear more than once; storing each once saves "
              << humanBytes(saved) << ".\n";
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
