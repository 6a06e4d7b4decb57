#include <fmt/format.h>

#include "base/calendar.h"
#include "base/digest.h"
#include "base/text.h"
#include "cli/attachment_files.h"
#include "cli/commands.h"
#include "mailcore/parsed_message.h"
#include "store/archive_error.h"
#include "store/message_reader.h"
#include "store/pack_error.h"

namespace ambervane {
namespace {

/// Text for a terminal: its tabs stay, its other control characters do not.
std::string printableLine(std::string_view line) {
  std::vector<std::string> cells;
  for (const std::string_view cell : split(line, '\t')) cells.push_back(printable(cell));
  return join(cells, "\t");
}

void printBody(const std::string& text, std::ostream& out) {
  for (std::string_view line : split(text, '\n')) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    out << printableLine(line) << "\n";
  }
}

/// The message, proved by its digest: what is shown must be what was taken in.
Bytes provenMessage(MailArchive& archive, const MessageRow& row) {
  Bytes raw = rawMessage(archive, row);
  if (sha256Hex(raw) != row.sha256) {
    throw PackError(PackError::CorruptRecord{"message " + std::to_string(row.id) +
                                             " does not match its SHA-256"});
  }
  return raw;
}

/// The message, or what can still be shown of it when an attachment is lost.
Bytes messageForDisplay(MailArchive& archive, const MessageRow& row, Console& console,
                        int& status) {
  try {
    return provenMessage(archive, row);
  } catch (const ArchiveError& error) {
    if (!error.is<ArchiveError::BlobMissing>() && !error.is<ArchiveError::BlobErased>()) throw;
    console.err << "error: " << error.what() << "; the message is shown without it\n";
    status = kExitFailure;
    return rawMessageForDisplay(archive, row);
  }
}

std::string senderText(const MessageRow& row) {
  std::string address = row.fromAddress.value_or("");
  if (!row.fromName) return address;
  return *row.fromName + " <" + address + ">";
}

void printSummary(MailArchive& archive, const MessageRow& row, std::ostream& out) {
  out << "SHA-256 " << row.sha256 << "\n"
      << "Date    "
      << (row.sentAt ? formatDate(*row.sentAt, "yyyy-MM-dd HH:mm:ss 'UTC'") : "(none)") << "\n"
      << "From    " << printable(senderText(row)) << "\n"
      << "To      " << printable(row.toAddresses.value_or("")) << "\n";
  if (row.ccAddresses && !row.ccAddresses->empty()) {
    out << "Cc      " << printable(*row.ccAddresses) << "\n";
  }
  out << "Subject " << printable(row.subject) << "\n"
      << "Size    " << humanBytes(row.size) << " stored as " << humanBytes(row.storedSize) << "\n"
      << "Retention" << printable(row.retentionClass) << ", expires "
      << (row.expiresAt ? formatDate(*row.expiresAt, "yyyy-MM-dd") : "never") << "\n";
  std::vector<std::string> folders;
  for (const Membership& membership : archive.catalog().memberships(row.id)) {
    folders.push_back(printable(membership.account) + "/" + printable(membership.folder));
  }
  out << "Folders " << join(folders, ", ") << "\n";
  const auto attachments = archive.catalog().attachments(row.id);
  if (attachments.empty()) return;
  out << "Attachments:\n";
  for (const AttachmentRow& attachment : attachments) {
    out << "  " << printable(displayName(attachment)) << " (" << printable(attachment.mimeType)
        << ", " << humanBytes(attachment.sizeDecoded) << ")\n";
  }
}

}  // namespace

int show(const Arguments& arguments, Console& console) {
  if (arguments.positional.size() < 2) {
    throw CLIError::usage("usage: ambervane show <archive> <id|sha256>");
  }
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const MessageRow row = findMessage(*archive, arguments.positional[1]);
  if (arguments.has("raw")) {
    console.out << provenMessage(*archive, row);
    archive->close();
    return kExitSuccess;
  }
  printSummary(*archive, row, console.out);
  console.out << std::flush;
  int status = kExitSuccess;
  const Bytes raw = messageForDisplay(*archive, row, console, status);
  const ParsedMessage parsed(raw);
  console.out << "\n";
  if (arguments.has("headers")) {
    for (const HeaderField& field : parsed.headers().fields()) {
      console.out << printable(field.name) << ": " << printableLine(trim(field.rawValue)) << "\n";
    }
    console.out << "\n";
  }
  printBody(parsed.plainTextBody(), console.out);
  archive->close();
  return status;
}

}  // namespace ambervane
