#include "mailformats/thunderbird_reader.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/folder_listing.h"
#include "mailformats/maildir_reader.h"
#include "mailformats/mbox_reader.h"
#include "mailformats/message_file.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSubfoldersEnding = ".sbd";

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> list) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

bool isNoMailbox(std::string_view fileName) {
  return fileName.starts_with('.') || fileName.ends_with(".msf") || fileName.ends_with(".dat");
}

/// Whether the program keeps notes of its own under names like this one, beside the mailboxes.
bool mayBeNotes(std::string_view fileName) {
  return isOneOf(lowercaseExtension(fileName), {"html", "json", "log", "sqlite"});
}

/// The mail folder of a path below the profile: without "Mail" or "ImapMail", and each name without
/// ".sbd".
std::string mailFolderName(std::string_view path) {
  std::vector<std::string> names;
  for (std::string_view name : splitOmittingEmpty(path, "/")) {
    if (name.size() > kSubfoldersEnding.size() && name.ends_with(kSubfoldersEnding)) {
      name.remove_suffix(kSubfoldersEnding.size());
    }
    names.emplace_back(name);
  }
  names.erase(names.begin());
  return join(names, "/");
}

/// Leaves of a profile's entries those with mail. Either may be a link to where there was more
/// room, and is followed then, but not both to the same place.
void keepMailFolders(WalkedFolder& profile) {
  std::set<fs::path> real;
  std::erase_if(profile.entries, [&](FolderEntry& entry) {
    if (!isOneOf(entry.name, {"Mail", "ImapMail"})) return true;
    if (entry.kind == FolderEntry::Kind::folderLink) entry.kind = FolderEntry::Kind::folder;
    std::error_code ignored;
    return !real.insert(fs::canonical(profile.path / entry.name, ignored)).second;
  });
}

}  // namespace

ThunderbirdReader::ThunderbirdReader(fs::path profile) : profile_(std::move(profile)) {}

void ThunderbirdReader::forEachMboxFile(const VisitFile& visit,
                                        const Unreadable& unreadable) const {
  const auto visitFolder = [&](WalkedFolder& folder) {
    if (folder.name.empty()) {
      keepMailFolders(folder);
      return true;
    }
    const std::string parent = mailFolderName(folder.name);
    for (const FolderEntry& entry : folder.entries) {
      if (entry.kind == FolderEntry::Kind::folder && entry.name == "cur") {
        if (unreadable) {
          unreadable(
              unreadableItem(folder.path,
                             "a mailbox with a file for each message was passed over, import it "
                             "separately"));
        }
      } else if (entry.kind == FolderEntry::Kind::file && !isNoMailbox(entry.name)) {
        const std::string name = repairedUtf8(entry.name);
        if (!visit(folder.path / entry.name, parent.empty() ? name : parent + "/" + name)) {
          return false;
        }
      }
    }
    std::erase_if(folder.entries, [](const FolderEntry& entry) {
      return MaildirReader::isMessageFolderName(entry.name);
    });
    return true;
  };
  walkFolders(profile_, visitFolder, unreadable);
}

std::string ThunderbirdReader::displayName() const { return ownName(profile_); }

void ThunderbirdReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  forEachMboxFile(
      [&](const fs::path& file, const std::string& folder) {
        if (mayBeNotes(pathText(file.filename()))) {
          const auto opened = MailFile::open(file, unreadable);
          if (!opened || !looksLikeMbox(opened->start())) return true;
        }
        return MboxReader::read(file, folder, body, unreadable);
      },
      unreadable);
}

}  // namespace ambervane
