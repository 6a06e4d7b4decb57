#include "mailformats/folder_listing.h"

#include <algorithm>
#include <array>
#include <system_error>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/import_error.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

/// Asks the file system only about links; the kind of all else usually comes with the name.
FolderEntry::Kind kindOf(const fs::directory_entry& entry) {
  using Kind = FolderEntry::Kind;
  std::error_code ignored;
  if (entry.is_symlink(ignored)) {
    const fs::file_status target = fs::status(entry.path(), ignored);
    if (fs::is_directory(target)) return Kind::folderLink;
    // A link that leads nowhere counts as a file, so that reading it tells the reason.
    return fs::is_other(target) ? Kind::other : Kind::file;
  }
  if (entry.is_directory(ignored)) return Kind::folder;
  return entry.is_other(ignored) ? Kind::other : Kind::file;
}

/// Whether the target of a link lies in the tree that is walked, so that it is met anyway.
bool leadsIntoTree(const fs::path& link, const fs::path& realRoot) {
  std::error_code error;
  const fs::path target = fs::canonical(link, error);
  if (error) return false;
  const auto end = std::mismatch(realRoot.begin(), realRoot.end(), target.begin(), target.end());
  return end.first == realRoot.end();
}

}  // namespace

std::vector<FolderEntry> listFolder(const fs::path& folder) {
  std::error_code error;
  std::vector<FolderEntry> entries;
  fs::directory_iterator at(folder, error);
  while (!error && at != fs::directory_iterator()) {
    entries.push_back({at->path().filename().native(), kindOf(*at)});
    at.increment(error);
  }
  if (error) throw FileError(FileError::Action::list, folder, error.value());
  // Told apart once: there may be a million names, each of them compared twenty times.
  const auto names = std::partition(entries.begin(), entries.end(),
                                    [](const FolderEntry& entry) { return isNumber(entry.name); });
  std::sort(entries.begin(), names, [](const FolderEntry& a, const FolderEntry& b) {
    return a.name.size() != b.name.size() ? a.name.size() < b.name.size() : a.name < b.name;
  });
  std::sort(names, entries.end(),
            [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
  return entries;
}

void walkFolders(const fs::path& root, const std::function<bool(WalkedFolder&)>& visit,
                 const MessageImporter::Unreadable& unreadable) {
  struct Pending {
    fs::path path;
    std::string name;
  };
  std::error_code ignored;
  const fs::path realRoot = fs::canonical(root, ignored);
  std::vector<Pending> pending{{root, {}}};
  while (!pending.empty()) {
    WalkedFolder folder{std::move(pending.back().path), std::move(pending.back().name), {}};
    pending.pop_back();
    try {
      folder.entries = listFolder(folder.path);
    } catch (const FileError& error) {
      std::string item = unreadableItem(folder.path, error.error());
      if (folder.name.empty()) throw ImportError(ImportError::Unreadable{std::move(item)});
      if (unreadable) unreadable(item);
      continue;
    }
    if (!visit(folder)) return;
    // The last one put is the next one taken: backwards, so that siblings come in order.
    for (auto entry = folder.entries.rbegin(); entry != folder.entries.rend(); ++entry) {
      const fs::path path = folder.path / entry->name;
      if (entry->kind == FolderEntry::Kind::folder) {
        std::string name = repairedUtf8(entry->name);
        pending.push_back({path, folder.name.empty() ? name : folder.name + "/" + name});
      } else if (entry->kind == FolderEntry::Kind::folderLink && unreadable &&
                 !leadsIntoTree(path, realRoot)) {
        unreadable(unreadableItem(path, "a link to a folder outside of the source, not followed"));
      }
    }
  }
}

void PassedOver::add(std::string_view fileName) {
  if (count_++ == 0) example_ = repairedUtf8(fileName);
}

void PassedOver::report(const fs::path& folder,
                        const MessageImporter::Unreadable& unreadable) const {
  if (count_ == 0 || !unreadable) return;
  unreadable(unreadableItem(folder, "mail of another format in " + std::to_string(count_) +
                                        " of its entries (" + example_ +
                                        ") was passed over, import it separately"));
}

bool isOtherStoreName(std::string_view fileName) {
  static constexpr std::array<std::string_view, 4> kExtensions = {"emlx", "olm", "ost", "pst"};
  const std::string extension = lowercaseExtension(fileName);
  return std::find(kExtensions.begin(), kExtensions.end(), extension) != kExtensions.end();
}

bool isNumber(std::string_view name) noexcept {
  return !name.empty() && std::all_of(name.begin(), name.end(), isAsciiDigit);
}

std::string lowercaseExtension(std::string_view fileName) {
  const std::size_t dot = fileName.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return asciiLowercase(fileName.substr(dot + 1));
}

std::string_view withoutMboxExtension(std::string_view name) noexcept {
  static constexpr std::string_view kExtension = ".mbox";
  if (name.size() > kExtension.size() &&
      asciiEqualIgnoringCase(name.substr(name.size() - kExtension.size()), kExtension)) {
    name.remove_suffix(kExtension.size());
  }
  return name;
}

std::string ownName(const fs::path& path) {
  std::error_code error;
  fs::path whole = fs::absolute(path, error).lexically_normal();
  if (!whole.has_filename()) whole = whole.parent_path();
  return pathText(whole.filename());
}

std::string unreadableItem(const fs::path& path, std::string_view reason) {
  return pathText(path) + ": " + std::string(reason);
}

std::string unreadableItem(const fs::path& path, int error) {
  return unreadableItem(path, std::generic_category().message(error));
}

}  // namespace ambervane
