#include <fmt/format.h>

#include "base/calendar.h"
#include "base/digest.h"
#include "base/text.h"
#include "cli/attachment_files.h"
#include "cli/commands.h"
#include "mailcore/parsed_message.h"
#include "store/message_reader.h"

namespace ambervane {
namespace {

/// Body text for a terminal: its lines stay, its control characters do not.
void printBody(const std::string& text, std::ostream& out) {
  for (const std::string_view line : split(text, '\n')) {
    std::string_view rest = line;
    if (rest.ends_with('\r')) rest.remove_suffix(1);
    bool first = true;
    for (const std::string_view cell : split(rest, '\t')) {
      if (!std::exchange(first, false)) out << '\t';
      out << printable(cell);
    }
    out << "\n";
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
    console.out << rawMessage(*archive, row);
    archive->close();
    return kExitSuccess;
  }
  printSummary(*archive, row, console.out);
  const Bytes raw = rawMessageForDisplay(*archive, row);
  const ParsedMessage parsed(raw);
  console.out << "\n";
  if (arguments.has("headers")) {
    for (const HeaderField& field : parsed.headers().fields()) {
      console.out << printable(field.name) << ": " << printable(trim(field.rawValue)) << "\n";
    }
    console.out << "\n";
  }
  printBody(parsed.plainTextBody(), console.out);
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
