#include "mailformats/portable_export_reader.h"

#include <algorithm>
#include <map>
#include <string>
#include <system_error>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/message_file.h"
#include "mailformats/portable_manifest.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

bool isBelow(const fs::path& path, const fs::path& root) {
  const std::string& text = path.native();
  std::string prefix = root.native();
  if (!prefix.ends_with('/')) prefix += '/';
  return text.size() > prefix.size() && text.starts_with(prefix);
}

/// Finds the files a manifest names, those inside of the export.
class EntryPaths {
 public:
  explicit EntryPaths(const fs::path& root) {
    std::error_code ignored;
    root_ = fs::absolute(root, ignored).lexically_normal();
    if (!root_.has_filename()) root_ = root_.parent_path();
    realRoot_ = fs::canonical(root_, ignored);
  }

  /// Absent for what leads out of the export, by its own words or through a link.
  std::optional<fs::path> find(std::string file) {
    if (file.find('\0') != std::string::npos) return std::nullopt;
    std::replace(file.begin(), file.end(), '\\', '/');
    fs::path path = (root_ / file).lexically_normal();
    if (!isBelow(path, root_) || !isInside(path.parent_path())) return std::nullopt;
    return path;
  }

 private:
  /// Asked once of each folder; nearly all messages lie in the same one.
  bool isInside(const fs::path& folder) {
    const auto known = folders_.find(folder);
    if (known != folders_.end()) return known->second;
    std::error_code error;
    const fs::path real = fs::canonical(folder, error);
    // Of a folder that is missing, opening the file will tell.
    const bool inside = static_cast<bool>(error) || real == realRoot_ || isBelow(real, realRoot_);
    return folders_.emplace(folder, inside).first->second;
  }

  fs::path root_;
  fs::path realRoot_;
  std::map<fs::path, bool> folders_;
};

std::shared_ptr<const MappedFile> openManifest(const fs::path& root) {
  return MappedFile::open(root / PortableManifest::kFileName);
}

PortableManifest readManifest(const fs::path& root) {
  const fs::path file = root / PortableManifest::kFileName;
  std::string problem;
  try {
    if (auto manifest = PortableManifest::decode(openManifest(root)->bytes())) {
      return *std::move(manifest);
    }
    problem = unreadableItem(file, "not a manifest of exported messages");
  } catch (const FileError& error) {
    problem = unreadableItem(file, error.error());
  }
  throw ImportError(ImportError::Unreadable{problem});
}

SourceMessage messageOf(const PortableManifest::Entry& entry, const fs::path& file, Bytes raw) {
  SourceMessage message;
  message.raw = std::move(raw);
  message.folderPath = entry.folder;
  if (entry.flags) {
    for (const std::string& name : *entry.flags) {
      if (const auto flag = messageFlagFromImap(name)) message.flags.insert(*flag);
    }
  }
  if (entry.internalDate) message.internalDate = dateFromSeconds(*entry.internalDate);
  message.sourceIdentifier = pathText(file.filename());
  message.originPath = pathText(file);
  return message;
}

}  // namespace

PortableExportReader::PortableExportReader(fs::path root) : root_(std::move(root)) {}

std::string PortableExportReader::displayName() const { return ownName(root_); }

std::optional<std::int64_t> PortableExportReader::estimatedCount() const {
  std::int64_t count = 0;
  try {
    const auto countEntry = [&](PortableManifest::Entry&&) { ++count; };
    if (!PortableManifest::read(openManifest(root_)->bytes(), countEntry)) return std::nullopt;
  } catch (const FileError&) {
    return std::nullopt;  // reading will tell why
  }
  return count;
}

void PortableExportReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  EntryPaths paths(root_);
  for (const PortableManifest::Entry& entry : readManifest(root_).messages) {
    const auto path = paths.find(entry.file);
    if (!path) {
      if (unreadable) {
        unreadable(unreadableItem(root_ / PortableManifest::kFileName,
                                  "the entry \"" + entry.file + "\" leads out of the export"));
      }
      continue;
    }
    auto opened = MailFile::open(*path, unreadable, MailFile::Links::refuse);
    auto raw = opened ? std::move(*opened).readWhole(unreadable) : std::nullopt;
    if (raw && !body(messageOf(entry, *path, *std::move(raw)))) return;
  }
}

}  // namespace ambervane
