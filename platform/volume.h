#ifndef AMBERVANE_PLATFORM_VOLUME_H_
#define AMBERVANE_PLATFORM_VOLUME_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace ambervane {

// Facts about the volume that holds `path`, which must exist. None of these throws.

/// Whether the volume is mounted read-only; a question that fails counts as no.
bool volumeIsReadOnly(const std::filesystem::path& path);

/// Bytes this user may still write, quotas not counted; absent when the system does not say.
std::optional<std::uint64_t> freeBytes(const std::filesystem::path& path);

/// "ext4", "nfs", "tmpfs" and so on; "unknown" for a type without an entry in the table. Linux
/// gives ext2, ext3 and ext4 one number: all three are "ext4".
std::string fileSystemName(const std::filesystem::path& path);

/// Whether the volume lies on another machine, as far as its type tells. A FUSE mount may be either
/// and counts as local.
bool isNetworkVolume(const std::filesystem::path& path);

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_VOLUME_H_
