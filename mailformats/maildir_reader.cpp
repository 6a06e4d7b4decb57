#include "mailformats/maildir_reader.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/folder_listing.h"
#include "mailformats/message_file.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kLastSecond = 253402300799;  // of the year 9999

bool isMessageFolderName(std::string_view name) {
  return name == "cur" || name == "new" || name == "tmp";
}

bool holdsFolder(const std::vector<FolderEntry>& entries, std::string_view name) {
  return std::any_of(entries.begin(), entries.end(), [&](const FolderEntry& entry) {
    return entry.name == name &&
           (entry.kind == FolderEntry::Kind::folder || entry.kind == FolderEntry::Kind::folderLink);
  });
}

/// The mail folder of a path below the root: "work/.Archive.2023" is "work/Archive/2023".
std::string mailFolderName(std::string_view path) {
  if (path.empty()) return "INBOX";
  std::vector<std::string> names;
  for (const std::string_view part : splitOmittingEmpty(path, "/")) {
    if (!part.starts_with('.')) {
      names.emplace_back(part);
      continue;
    }
    for (const std::string_view name : splitOmittingEmpty(part, ".")) names.emplace_back(name);
  }
  return join(names, "/");
}

bool isHidden(std::string_view path) { return path.substr(path.rfind('/') + 1).starts_with('.'); }

/// The message files of "cur" or "new", sorted; nothing is asked about them but their names.
std::vector<FolderEntry> messageFiles(const fs::path& folder,
                                      const MessageImporter::Unreadable& unreadable) {
  std::vector<FolderEntry> files;
  try {
    files = listFolder(folder);
  } catch (const FileError& error) {
    if (unreadable) unreadable(unreadableItem(folder, error.error()));
  }
  std::erase_if(files, [](const FolderEntry& entry) {
    return entry.kind != FolderEntry::Kind::file || entry.name.starts_with('.');
  });
  return files;
}

}  // namespace

MaildirReader::MaildirReader(fs::path root, bool recursive)
    : root_(std::move(root)), recursive_(recursive) {}

bool MaildirReader::isMaildir(const fs::path& folder) {
  std::error_code ignored;
  return fs::is_directory(folder / "cur", ignored) && fs::is_directory(folder / "new", ignored);
}

std::vector<MaildirReader::Entry> MaildirReader::maildirs(const Unreadable& unreadable) const {
  std::vector<Entry> found;
  walkFolders(
      root_,
      [&](WalkedFolder& folder) {
        const bool isOne = holdsFolder(folder.entries, "cur") && holdsFolder(folder.entries, "new");
        if (isOne) found.push_back({folder.path, mailFolderName(folder.name)});
        const bool isEnd =
            (!isOne && isHidden(folder.name)) || (!recursive_ && !folder.name.empty());
        std::erase_if(folder.entries, [&](const FolderEntry& entry) {
          return isEnd || isMessageFolderName(entry.name);
        });
        return true;
      },
      unreadable);
  return found;
}

bool MaildirReader::read(const Entry& entry, const Body& body, const Unreadable& unreadable) {
  struct MessageFolder {
    fs::path path;
    bool isNew;
    std::vector<FolderEntry> files;
  };
  // A mail program moves messages from "new" to "cur" at any time. With "new" listed first such a
  // message is met twice, and missing once, instead of being missed altogether.
  MessageFolder fresh{entry.path / "new", true, messageFiles(entry.path / "new", unreadable)};
  MessageFolder current{entry.path / "cur", false, messageFiles(entry.path / "cur", unreadable)};
  for (const MessageFolder* folder : {&current, &fresh}) {
    for (const FolderEntry& file : folder->files) {
      const fs::path path = folder->path / file.name;
      std::optional<Bytes> raw = readMessageFile(path, unreadable);
      if (!raw) continue;
      SourceMessage message;
      message.raw = std::move(*raw);
      message.folderPath = entry.folder;
      message.flags = flags(file.name, folder->isNew);
      message.internalDate = timestamp(file.name);
      message.sourceIdentifier = repairedUtf8(file.name);
      message.originPath = pathText(path);
      if (!body(std::move(message))) return false;
    }
  }
  return true;
}

std::set<MessageFlag> MaildirReader::flags(std::string_view fileName, bool isNew) {
  std::set<MessageFlag> flags;
  if (isNew) flags.insert(MessageFlag::recent);
  for (const std::string_view mark : {":2,", "!2,", ";2,"}) {
    const std::size_t at = fileName.rfind(mark);
    if (at == std::string_view::npos) continue;
    for (const char letter : fileName.substr(at + mark.size())) {
      switch (letter) {
        case 'S':
          flags.insert(MessageFlag::seen);
          break;
        case 'R':
          flags.insert(MessageFlag::answered);
          break;
        case 'F':
          flags.insert(MessageFlag::flagged);
          break;
        case 'T':
          flags.insert(MessageFlag::deleted);
          break;
        case 'D':
          flags.insert(MessageFlag::draft);
          break;
        default:
          break;
      }
    }
    break;
  }
  return flags;
}

std::optional<Date> MaildirReader::timestamp(std::string_view fileName) noexcept {
  const auto seconds = parseInteger(fileName.substr(0, fileName.find('.')));
  if (!seconds || *seconds < 0 || *seconds > kLastSecond) return std::nullopt;
  return Date{static_cast<double>(*seconds)};
}

std::string MaildirReader::displayName() const { return ownName(root_); }

std::optional<std::int64_t> MaildirReader::estimatedCount() const {
  std::int64_t count = 0;
  for (const Entry& entry : maildirs({})) {
    for (const char* const name : {"cur", "new"}) {
      std::error_code error;
      for (fs::directory_iterator at(entry.path / name, error);
           !error && at != fs::directory_iterator(); at.increment(error)) {
        if (!at->path().filename().native().starts_with('.')) ++count;
      }
    }
  }
  return count;
}

void MaildirReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  for (const Entry& entry : maildirs(unreadable)) {
    if (!read(entry, body, unreadable)) return;
  }
}

}  // namespace ambervane
