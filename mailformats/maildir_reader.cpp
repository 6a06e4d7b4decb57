#include "mailformats/maildir_reader.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/message_file.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFlagsMarkBytes = 3;  // ":2,"

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

/// Where the flags begin that a file's name ends with; npos without any.
std::size_t flagsBegin(std::string_view fileName) noexcept {
  for (const std::string_view mark : {":2,", "!2,", ";2,"}) {
    const std::size_t at = fileName.rfind(mark);
    if (at != std::string_view::npos) return at;
  }
  return std::string_view::npos;
}

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

bool isGone(const fs::path& path) {
  std::error_code ignored;
  return fs::symlink_status(path, ignored).type() == fs::file_type::not_found;
}

/// Finds messages again that a mail program has given another name in "cur" since they were listed,
/// as it does for every change of a flag.
class RenamedFiles {
 public:
  explicit RenamedFiles(fs::path current) : current_(std::move(current)) {}

  /// The file that `name` has become; absent when there is none.
  std::optional<FolderEntry> find(std::string_view name) {
    const std::string_view stem = name.substr(0, flagsBegin(name));
    if (auto known = knownAs(stem)) return known;
    if (listings_ == kMaxListings) return std::nullopt;
    ++listings_;
    files_.clear();
    for (FolderEntry& file : messageFiles(current_, {})) {
      files_.emplace(file.name.substr(0, flagsBegin(file.name)), std::move(file));
    }
    return knownAs(stem);
  }

 private:
  // Listing once more for each of a million deleted messages would never end.
  static constexpr int kMaxListings = 100;

  std::optional<FolderEntry> knownAs(std::string_view stem) const {
    const auto found = files_.find(stem);
    if (found == files_.end() || isGone(current_ / found->second.name)) return std::nullopt;
    return found->second;
  }

  fs::path current_;
  int listings_ = 0;
  std::map<std::string, FolderEntry, std::less<>> files_;  // by the name without flags
};

}  // namespace

MaildirReader::MaildirReader(fs::path root, bool recursive)
    : root_(std::move(root)), recursive_(recursive) {}

bool MaildirReader::isMaildir(const fs::path& folder) {
  std::error_code ignored;
  return fs::is_directory(folder / "cur", ignored) && fs::is_directory(folder / "new", ignored);
}

bool MaildirReader::isMessageFolderName(std::string_view name) noexcept {
  return name == "cur" || name == "new" || name == "tmp";
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
  // message may be met twice, but is not missed.
  MessageFolder fresh{entry.path / "new", true, messageFiles(entry.path / "new", unreadable)};
  MessageFolder current{entry.path / "cur", false, messageFiles(entry.path / "cur", unreadable)};
  RenamedFiles renamed(current.path);
  for (const MessageFolder* folder : {&current, &fresh}) {
    for (FolderEntry file : folder->files) {
      fs::path path = folder->path / file.name;
      bool isNew = folder->isNew;
      std::string problem;
      std::optional<Bytes> raw =
          readMessageFile(path, [&](const std::string& item) { problem = item; });
      if (!raw && isGone(path)) {
        if (auto now = renamed.find(file.name)) {
          file = *std::move(now);
          path = current.path / file.name;
          isNew = false;
          raw = readMessageFile(path, [&](const std::string& item) { problem = item; });
        }
      }
      if (!raw) {
        if (unreadable) unreadable(problem);
        continue;
      }
      SourceMessage message;
      message.raw = std::move(*raw);
      message.folderPath = entry.folder;
      message.flags = flags(file.name, isNew);
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
  const std::size_t begin = flagsBegin(fileName);
  if (begin == std::string_view::npos) return flags;
  for (const char letter : fileName.substr(begin + kFlagsMarkBytes)) {
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
  return flags;
}

std::optional<Date> MaildirReader::timestamp(std::string_view fileName) noexcept {
  const auto seconds = parseInteger(fileName.substr(0, fileName.find('.')));
  if (!seconds || *seconds < 0) return std::nullopt;
  return dateFromSeconds(static_cast<double>(*seconds));
}

std::string MaildirReader::displayName() const { return ownName(root_); }

std::optional<std::int64_t> MaildirReader::estimatedCount() const {
  std::vector<Entry> entries;
  try {
    entries = maildirs({});
  } catch (const ImportError&) {
    return std::nullopt;  // reading will tell why
  }
  std::int64_t count = 0;
  for (const Entry& entry : entries) {
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
