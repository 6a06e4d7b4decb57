#ifndef AMBERVANE_PLATFORM_IMMUTABLE_FLAG_H_
#define AMBERVANE_PLATFORM_IMMUTABLE_FLAG_H_

#include <filesystem>

namespace ambervane {

// The file system's immutable flag: a file that carries it can be neither changed, renamed nor
// removed, by root included, until the flag is cleared. Linux keeps it for privileged processes and
// for file systems that store it. None of these throws; false is an answer callers can live with.

/// Sets the flag; false when the system or the file system refuses.
bool setImmutable(const std::filesystem::path& path);
/// Clears the flag; true also when it was not set.
bool clearImmutable(const std::filesystem::path& path);
/// Whether the flag is set; false also when that cannot be found out.
bool isImmutable(const std::filesystem::path& path);

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_IMMUTABLE_FLAG_H_
