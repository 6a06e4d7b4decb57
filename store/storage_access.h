#ifndef AMBERVANE_STORE_STORAGE_ACCESS_H_
#define AMBERVANE_STORE_STORAGE_ACCESS_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace ambervane {

/// Whether an archive's place can be written.
enum class StorageAccess { writable, readOnlyMedium, notWritable };

/// Asks the volume, and each of the archive's files and folders that must be writable.
StorageAccess storageAccess(const std::filesystem::path& archive);

/// An archive's size by kind of file.
struct DiskUsage {
  struct Part {
    std::string id;
    std::int64_t bytes = 0;
    std::string purpose;  ///< one sentence, English
    bool rebuildable = false;
  };
  std::vector<Part> parts;

  std::int64_t total() const noexcept;
  std::int64_t records() const noexcept;   ///< the pack files
  std::int64_t overhead() const noexcept;  ///< all that is not pack files
};

/// Bytes of a file, or of all files below a folder. What cannot be read counts as nothing.
std::int64_t sizeOnDisk(const std::filesystem::path& path);

/// Adds up the files of an archive. What cannot be read counts as nothing.
DiskUsage diskUsage(const std::filesystem::path& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_STORAGE_ACCESS_H_
