#include "mailformats/eml_reader.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/maildir_reader.h"
#include "mailformats/mbox_reader.h"
#include "mailformats/message_file.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

bool isFile(const FolderEntry& entry) { return entry.kind == FolderEntry::Kind::file; }

/// Whether a folder is one of MH: it has the file MH keeps its sequences in, or nothing but
/// numbered files.
bool isMhFolder(const std::vector<FolderEntry>& entries) {
  bool numbered = false;
  for (const FolderEntry& entry : entries) {
    if (entry.name == ".mh_sequences") return true;
    if (isFile(entry) && isNumber(entry.name)) numbered = true;
  }
  return numbered && std::all_of(entries.begin(), entries.end(), [](const FolderEntry& entry) {
           return !isFile(entry) || isNumber(entry.name) || entry.name.starts_with('.');
         });
}

/// Whether an entry holds mail this reader does not take.
bool isMailOfOtherFormat(const WalkedFolder& folder, const FolderEntry& entry) {
  if (entry.kind == FolderEntry::Kind::folder) {
    return MaildirReader::isMaildir(folder.path / entry.name);
  }
  return isFile(entry) && (isOtherStoreName(entry.name) || entry.name == "mbox" ||
                           lowercaseExtension(entry.name) == "mbox");
}

/// Tells which folders are not walked down into.
void reportFolders(const WalkedFolder& folder, const MessageImporter::Unreadable& unreadable) {
  for (const FolderEntry& entry : folder.entries) {
    if (entry.kind != FolderEntry::Kind::folder || !unreadable) continue;
    unreadable(unreadableItem(folder.path / entry.name,
                              "a folder inside of an MH folder was passed over, import it "
                              "separately"));
  }
}

}  // namespace

const std::set<std::string, std::less<>>& EMLReader::messageExtensions() {
  static const std::set<std::string, std::less<>> extensions = {"eml",  "email", "mail", "rfc822",
                                                                "mime", "txt",   "msg"};
  return extensions;
}

EMLReader::EMLReader(fs::path root, bool recursive, std::set<std::string, std::less<>> extensions)
    : root_(std::move(root)), recursive_(recursive), extensions_(std::move(extensions)) {}

bool EMLReader::takes(std::string_view fileName, bool numbered) const {
  return extensions_.contains(lowercaseExtension(fileName)) || (numbered && isNumber(fileName));
}

void EMLReader::forEachFile(const VisitFile& visit, const Unreadable& unreadable) const {
  const std::string rootName = ownName(root_);
  bool anyFile = false;
  bool stopped = false;
  const auto visitFolder = [&](WalkedFolder& folder) {
    const bool numbered = extensions_.empty() || isMhFolder(folder.entries);
    const std::string& mailFolder = folder.name.empty() ? rootName : folder.name;
    PassedOver passedOver;
    for (FolderEntry& entry : folder.entries) {
      if (isFile(entry) && takes(entry.name, numbered)) {
        anyFile = true;
        stopped = !visit(folder.path / entry.name, mailFolder);
        if (stopped) return false;
      } else if (isMailOfOtherFormat(folder, entry)) {
        passedOver.add(entry.name);
        entry.kind = FolderEntry::Kind::other;  // a Maildir's folders are not walked
      }
    }
    passedOver.report(folder.path, unreadable);
    if (!recursive_) {
      reportFolders(folder, unreadable);
      folder.entries.clear();
    }
    return true;
  };
  walkFolders(root_, visitFolder, unreadable);
  if (!anyFile && !stopped && unreadable) {
    unreadable(unreadableItem(root_, "no file in it has the name of a message"));
  }
}

bool EMLReader::read(const fs::path& file, const std::string& folder, const Body& body,
                     const Unreadable& unreadable) {
  auto opened = MailFile::open(file, unreadable);
  if (!opened) return true;
  if (looksLikeMSG(opened->start())) {
    if (unreadable) {
      unreadable(unreadableItem(file, "an Outlook message, which this version cannot import yet"));
    }
    return true;
  }
  if (looksLikeMbox(opened->start())) return MboxReader::read(file, folder, body, unreadable);
  std::optional<Bytes> raw = std::move(*opened).readWhole(unreadable);
  if (!raw) return true;
  SourceMessage message;
  message.raw = std::move(*raw);
  message.folderPath = folder;
  message.sourceIdentifier = pathText(file.filename());
  message.originPath = pathText(file);
  return body(std::move(message));
}

std::string EMLReader::displayName() const { return ownName(root_); }

std::optional<std::int64_t> EMLReader::estimatedCount() const {
  std::error_code ignored;
  if (!fs::is_directory(root_, ignored)) return 1;
  std::int64_t count = 0;
  try {
    forEachFile([&](const fs::path&, const std::string&) { return ++count > 0; }, {});
  } catch (const ImportError&) {
    return std::nullopt;  // reading will tell why
  }
  return count;
}

void EMLReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  std::error_code ignored;
  if (fs::is_directory(root_, ignored)) {
    forEachFile([&](const fs::path& file,
                    const std::string& folder) { return read(file, folder, body, unreadable); },
                unreadable);
    return;
  }
  // There are no other messages that a damaged one could hold up.
  read(root_, pathText(root_.stem()), body,
       [](const std::string& item) { throw ImportError(ImportError::Unreadable{item}); });
}

}  // namespace ambervane
