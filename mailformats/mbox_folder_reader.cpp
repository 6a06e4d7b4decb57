#include "mailformats/mbox_folder_reader.h"

#include <algorithm>
#include <set>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/eml_reader.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/maildir_reader.h"
#include "mailformats/mbox_reader.h"
#include "mailformats/message_file.h"

namespace ambervane {
namespace fs = std::filesystem;

MboxFolderReader::MboxFolderReader(fs::path root) : root_(std::move(root)) {}

bool MboxFolderReader::isMailbox(const fs::path& file) {
  const std::string extension = lowercaseExtension(file.filename().native());
  if (extension == "mbox") return true;
  if (EMLReader::messageExtensions().contains(extension)) return false;
  return looksLikeMbox(fileStart(file, 5));
}

bool MboxFolderReader::passesOver(std::string_view name, bool inMaildir) noexcept {
  return name.starts_with('.') || (inMaildir && MaildirReader::isMessageFolderName(name));
}

std::string MboxFolderReader::folderName(std::string_view parent, std::string_view fileName) {
  std::vector<std::string> names;
  for (const std::string_view part : splitOmittingEmpty(parent, "/")) {
    names.emplace_back(withoutMboxExtension(part));
  }
  const bool inPackage = fileName == "mbox" && lowercaseExtension(parent) == "mbox";
  if (!inPackage) names.push_back(repairedUtf8(withoutMboxExtension(fileName)));
  return join(names, "/");
}

std::vector<MboxFolderReader::File> MboxFolderReader::files(const fs::path& root,
                                                            const Unreadable& unreadable) {
  std::vector<File> found;
  const auto visit = [&](WalkedFolder& folder) {
    const bool inMaildir = MaildirReader::isMaildir(folder.path);
    std::erase_if(folder.entries,
                  [&](const FolderEntry& entry) { return passesOver(entry.name, inMaildir); });
    PassedOver passedOver;
    for (const FolderEntry& entry : folder.entries) {
      if (entry.kind != FolderEntry::Kind::file) continue;
      const fs::path path = folder.path / entry.name;
      const std::string extension = lowercaseExtension(entry.name);
      bool taken = false;
      try {
        taken = isMailbox(path);
      } catch (const FileError& error) {
        if (unreadable) unreadable(unreadableItem(path, error.error()));
        continue;
      }
      if (taken) {
        found.push_back({path, folderName(folder.name, entry.name)});
      } else if (isOtherStoreName(entry.name) ||
                 (extension != "txt" && EMLReader::messageExtensions().contains(extension))) {
        passedOver.add(entry.name);
      }
    }
    passedOver.report(folder.path, unreadable);
    return true;
  };
  walkFolders(root, visit, unreadable);
  std::stable_sort(found.begin(), found.end(),
                   [](const File& a, const File& b) { return a.folder < b.folder; });
  return found;
}

std::string MboxFolderReader::displayName() const { return ownName(root_); }

void MboxFolderReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  // Both walks meet the same folders, and are over before the first message.
  std::set<std::string> reported;
  const Unreadable once = [&](const std::string& item) {
    if (unreadable && reported.insert(item).second) unreadable(item);
  };
  const std::vector<File> mailboxes = files(root_, once);
  const std::vector<MaildirReader::Entry> maildirs = MaildirReader(root_).maildirs(once);
  for (const File& file : mailboxes) {
    if (!MboxReader::read(file.path, file.folder, body, unreadable)) return;
  }
  for (const MaildirReader::Entry& entry : maildirs) {
    if (!MaildirReader::read(entry, body, unreadable)) return;
  }
}

}  // namespace ambervane
