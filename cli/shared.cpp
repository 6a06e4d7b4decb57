#include <algorithm>
#include <cstdlib>

#include "base/text.h"
#include "cli/commands.h"
#include "doctext/document_helper.h"

namespace ambervane {

namespace fs = std::filesystem;

namespace {

/// Opens the archive; when its databases stand in the way, tells what helps.
std::unique_ptr<MailArchive> opened(const fs::path& path, OpenMode mode, Console& console) {
  try {
    return std::make_unique<MailArchive>(path, mode);
  } catch (const SQLiteError& error) {
    if (error.isDamage() && mode != OpenMode::rebuild) {
      console.err << "Note: a damaged catalog can be made anew from the pack files: ambervane "
                     "rebuild-catalog "
                  << printable(path.filename().native()) << "\n";
    }
    throw;
  }
}

}  // namespace

fs::path standardizedPath(const std::string& text) {
  if (text.empty()) throw CLIError::usage("a path is empty");
  fs::path path = text;
  if (text == "~" || text.starts_with("~/")) {
    // The process has one thread while it reads its arguments.
    if (const char* home = std::getenv("HOME")) {  // NOLINT(concurrency-mt-unsafe)
      path = fs::path(home) / text.substr(std::min<std::size_t>(2, text.size()));
    }
  }
  path = fs::absolute(path).lexically_normal();
  return path.has_filename() ? path : path.parent_path();
}

std::unique_ptr<MailArchive> openArchive(const Arguments& arguments, Console& console,
                                         OpenMode mode) {
  if (arguments.positional.empty() || arguments.positional[0].empty()) {
    throw CLIError::usage("missing archive path");
  }
  const fs::path path = standardizedPath(arguments.positional[0]);
  auto archive = opened(path, mode, console);
  if (archive->storage() != StorageAccess::writable) {
    console.err << "Note: " << printable(path.filename().native())
                << " is kept where nothing can be written, so it is open read-only and nothing "
                   "done here is recorded in its journal.\n";
  }
  for (const std::string& notice : archive->notices()) console.err << "Note: " << notice << "\n";
  if (archive->newerFormatNotice())
    console.err << "Note: " << *archive->newerFormatNotice() << "\n";
  if (archive->lockingUnsupported()) {
    console.err << "Note: the archive could not be locked ("
                << archive->lockingUnsupportedReason().value_or("unknown reason")
                << "); make sure that nothing else writes to it.\n";
  }
  return archive;
}

MessageRow findMessage(MailArchive& archive, const std::string& word) {
  const bool isNumber = !word.empty() && std::all_of(word.begin(), word.end(), isAsciiDigit);
  std::optional<MessageRow> row;
  if (!isNumber) {
    row = archive.catalog().message(std::string_view(asciiLowercase(word)));
  } else if (const auto id = parseInteger(word)) {
    row = archive.catalog().message(*id);
  }
  // A digest of digits alone is rare, and still a digest.
  if (!row && word.size() == 64) {
    row = archive.catalog().message(std::string_view(asciiLowercase(word)));
  }
  if (!row) throw CLIError::usage("no such message: " + printable(word));
  return *row;
}

void noteMissingDocumentHelper(const MailArchive& archive, Console& console) {
  if (!archive.policy().indexAttachmentText || findDocumentHelper()) return;
  console.err << "Note: the program ambervane-doctext is not beside ambervane nor in "
                 "../libexec/ambervane, so PDF and office attachments will not be found by their "
                 "text. Install it and run: ambervane reindex <archive>\n";
}

}  // namespace ambervane
