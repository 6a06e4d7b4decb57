#include "store/storage_access.h"

#include <unistd.h>

#include <cerrno>
#include <set>
#include <system_error>

#include "platform/volume.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

std::int64_t fileBytes(const fs::path& path) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  return error ? 0 : static_cast<std::int64_t>(size);
}

std::int64_t treeBytes(const fs::path& folder) {
  std::int64_t total = 0;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored) && !it->is_symlink(ignored)) total += fileBytes(it->path());
  }
  return total;
}

}  // namespace

std::int64_t sizeOnDisk(const fs::path& path) {
  std::error_code error;
  return fs::is_directory(path, error) ? treeBytes(path) : fileBytes(path);
}

StorageAccess storageAccess(const fs::path& archive) {
  if (volumeIsReadOnly(archive)) return StorageAccess::readOnlyMedium;
  for (const char* name : {"", "catalog.sqlite", "chain", "chain/journal.jsonl", "packs", "keys",
                           "keys/content-keys.sqlite"}) {
    const fs::path path = *name == '\0' ? archive : archive / name;
    std::error_code error;
    if (!fs::exists(path, error)) continue;
    if (::access(path.c_str(), W_OK) != 0) {
      return errno == EROFS ? StorageAccess::readOnlyMedium : StorageAccess::notWritable;
    }
  }
  return StorageAccess::writable;
}

std::int64_t DiskUsage::total() const noexcept {
  std::int64_t sum = 0;
  for (const Part& part : parts) sum += part.bytes;
  return sum;
}

std::int64_t DiskUsage::records() const noexcept { return parts.empty() ? 0 : parts.front().bytes; }

std::int64_t DiskUsage::overhead() const noexcept { return total() - records(); }

DiskUsage diskUsage(const fs::path& archive) {
  static const std::set<std::string> kCatalogFiles = {"catalog.sqlite", "catalog.sqlite-wal",
                                                      "catalog.sqlite-shm"};
  std::int64_t catalog = 0;
  for (const std::string& name : kCatalogFiles) catalog += fileBytes(archive / name);
  std::int64_t other = 0;
  std::error_code error;
  for (fs::directory_iterator it(archive, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().native();
    if (name == "packs" || name == "chain" || name == "keys" || kCatalogFiles.contains(name)) {
      continue;
    }
    other += sizeOnDisk(it->path());
  }
  return {{
      {"packs", treeBytes(archive / "packs"),
       "The messages and attachments themselves, compressed and content-addressed. This is the "
       "archive; everything else can be rebuilt from it.",
       false},
      {"catalog", catalog,
       "The database and the full-text index that make search instant. Rebuildable from the pack "
       "files.",
       true},
      {"chain", treeBytes(archive / "chain"),
       "The audit journal and the signed seals — the evidence that nothing has been altered. Not "
       "rebuildable, and the thing an auditor asks for.",
       false},
      {"keys", treeBytes(archive / "keys"),
       "The per-message content keys. Losing these loses the messages, whatever else survives.",
       false},
      {"other", other,
       "The manifest, dictionaries and anything else at the top level of the archive.", false},
  }};
}

}  // namespace ambervane
