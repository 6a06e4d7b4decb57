#include "mailformats/apple_mail_reader.h"

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/access_problem.h"
#include "mailformats/eml_reader.h"
#include "mailformats/emlx.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/message_file.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kMailboxEnding = ".mbox";

bool isPartial(std::string_view fileName) { return fileName.ends_with(".partial.emlx"); }

/// Whether files lie in a folder where Apple Mail keeps attachments; mail in another format among
/// them is none of the mailbox.
bool isForAttachments(std::string_view path) {
  const auto names = splitOmittingEmpty(path, "/");
  return std::find(names.begin(), names.end(), "Attachments") != names.end();
}

/// Whether a file's name is that of mail in another format than this store's.
bool isMailOfOtherFormat(std::string_view fileName) {
  const std::string extension = lowercaseExtension(fileName);
  return fileName == "mbox" || extension == "mbox" || isOtherStoreName(fileName) ||
         (extension != "txt" && EMLReader::messageExtensions().contains(extension));
}

}  // namespace

bool AppleMailReader::isStoreName(std::string_view name) noexcept {
  return name.starts_with('V') && isNumber(name.substr(1));
}

AppleMailReader::MailStoreStatus AppleMailReader::locateMailStore(const fs::path& home) {
  using Kind = MailStoreStatus::Kind;
  const fs::path mail = home / "Library/Mail";
  std::vector<FolderEntry> entries;
  try {
    entries = listFolder(mail);
  } catch (const FileError& error) {
    const bool denied = isPermissionDenied(error.error());
    return denied ? MailStoreStatus{Kind::accessDenied, mail} : MailStoreStatus{};
  }
  MailStoreStatus newest;
  std::int64_t newestVersion = -1;
  for (const FolderEntry& entry : entries) {
    if (entry.kind != FolderEntry::Kind::folder || !isStoreName(entry.name)) continue;
    const auto version = parseInteger(std::string_view(entry.name).substr(1));
    if (!version || *version <= newestVersion) continue;
    newestVersion = *version;
    newest = {Kind::found, mail / entry.name};
  }
  return newest;
}

AppleMailReader::AppleMailReader(fs::path root, bool includePartial)
    : root_(std::move(root)), includePartial_(includePartial) {}

std::string AppleMailReader::folderPath(std::string_view path, const std::string& ownName) {
  std::vector<std::string> names;
  for (const std::string_view name : splitOmittingEmpty(path, "/")) {
    if (name.size() > kMailboxEnding.size() && name.ends_with(kMailboxEnding)) {
      names.emplace_back(name.substr(0, name.size() - kMailboxEnding.size()));
    }
  }
  return names.empty() ? ownName : join(names, "/");
}

void AppleMailReader::forEachFile(const VisitFile& visit, const Unreadable& unreadable) const {
  const auto visitFolder = [&](WalkedFolder& folder) {
    const std::string mailFolder = folderPath(folder.name, ownName(folder.path));
    const bool forAttachments = isForAttachments(folder.name);
    PassedOver passedOver;
    for (const FolderEntry& entry : folder.entries) {
      if (entry.kind != FolderEntry::Kind::file) continue;
      if (isPartial(entry.name) && !includePartial_) {
        if (unreadable) {
          unreadable(unreadableItem(folder.path / entry.name,
                                    "not a whole message, its attachments lie apart from it"));
        }
      } else if (entry.name.ends_with(".emlx")) {
        if (!visit(folder.path / entry.name, mailFolder)) return false;
      } else if (!forAttachments && isMailOfOtherFormat(entry.name)) {
        passedOver.add(entry.name);
      }
    }
    passedOver.report(folder.path, unreadable);
    return true;
  };
  walkFolders(root_, visitFolder, unreadable);
}

bool AppleMailReader::read(const fs::path& file, const std::string& folder, const Body& body,
                           const Unreadable& unreadable) {
  std::optional<Bytes> bytes = readMessageFile(file, unreadable);
  if (!bytes) return true;
  auto parsed = EMLX::parse(*bytes);
  if (!parsed) {
    if (unreadable) unreadable(unreadableItem(file, "not a message Apple Mail wrote"));
    return true;
  }
  // In place: a second copy of a large message would be one too many.
  bytes->resize(parsed->message.end);
  bytes->erase(0, parsed->message.begin);
  SourceMessage message;
  message.raw = *std::move(bytes);
  message.folderPath = folder;
  message.flags = std::move(parsed->flags);
  message.internalDate = parsed->dateReceived;
  message.sourceIdentifier = pathText(file.stem());
  message.originPath = pathText(file);
  return body(std::move(message));
}

std::string AppleMailReader::displayName() const { return ownName(root_); }

std::optional<std::int64_t> AppleMailReader::estimatedCount() const {
  std::int64_t count = 0;
  try {
    forEachFile([&](const fs::path&, const std::string&) { return ++count > 0; }, {});
  } catch (const ImportError&) {
    return std::nullopt;  // reading will tell why
  }
  return count;
}

void AppleMailReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  forEachFile([&](const fs::path& file,
                  const std::string& folder) { return read(file, folder, body, unreadable); },
              unreadable);
}

}  // namespace ambervane
