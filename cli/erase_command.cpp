#include "base/text.h"
#include "cli/commands.h"
#include "compliance/erasure.h"

namespace ambervane {

void noteRemnants(const MailArchive& archive, bool isForgotten, Console& console) {
  if (!isForgotten) {
    console.err << "Note: another program is reading the archive, so words of what was erased may "
                   "still stand in the catalog's log. The next command that writes removes them.\n";
  }
  std::error_code error;
  for (std::filesystem::directory_iterator it(archive.url(), error), end; !error && it != end;
       it.increment(error)) {
    const std::string name = it->path().filename().native();
    if (!name.starts_with("catalog.sqlite.broken-")) continue;
    console.err << "Note: " << printable(name)
                << " is a catalog from before a rebuild and may still name what was erased. Delete "
                   "it when you do not need it.\n";
  }
}

int erase(const Arguments& arguments, Console& console) {
  const std::string reason(trim(arguments.option("reason").value_or("")));
  const std::string requester(trim(arguments.option("requester").value_or("")));
  const auto id =
      arguments.positional.size() < 2 ? std::nullopt : parseInteger(arguments.positional[1]);
  if (!id || reason.empty() || requester.empty()) {
    throw CLIError::usage("usage: ambervane erase <archive> <id> --reason <r> --requester <who>");
  }
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const ErasedContent erased = eraseMessage(*archive, *id, reason, requester);
  console.out << "Message " << *id
              << " erased by destroying its content key. Pack bytes and audit chain untouched.\n";
  noteRemnants(*archive, erased.isForgotten, console);
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
