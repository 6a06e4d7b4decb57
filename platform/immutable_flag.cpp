#include "platform/immutable_flag.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

#include <optional>

#include "base/file.h"

namespace ambervane {
namespace {

#ifdef __linux__

using Flags = int;  // what the kernel reads and writes, whatever width the request's macro names
constexpr Flags kImmutable = FS_IMMUTABLE_FL;

FileHandle openQuietly(const std::filesystem::path& path) {
  // Without O_NONBLOCK a named pipe would hold the caller up.
  return FileHandle(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

std::optional<Flags> readFlags(const FileHandle& file) {
  Flags flags = 0;
  if (!file || ::ioctl(file.descriptor(), FS_IOC_GETFLAGS, &flags) != 0) return std::nullopt;
  return flags;
}

bool changeFlag(const std::filesystem::path& path, bool on) {
  const FileHandle file = openQuietly(path);
  const auto flags = readFlags(file);
  if (!flags) return false;
  const Flags wanted = on ? *flags | kImmutable : *flags & ~kImmutable;
  return wanted == *flags || ::ioctl(file.descriptor(), FS_IOC_SETFLAGS, &wanted) == 0;
}

bool hasFlag(const std::filesystem::path& path) {
  return (readFlags(openQuietly(path)).value_or(0) & kImmutable) != 0;
}

#else  // the flags of 4.4BSD, macOS among them

bool changeFlag(const std::filesystem::path& path, bool on) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return false;
  const auto wanted = on ? info.st_flags | UF_IMMUTABLE : info.st_flags & ~unsigned{UF_IMMUTABLE};
  return wanted == info.st_flags || ::chflags(path.c_str(), wanted) == 0;
}

bool hasFlag(const std::filesystem::path& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && (info.st_flags & UF_IMMUTABLE) != 0;
}

#endif

}  // namespace

bool setImmutable(const std::filesystem::path& path) { return changeFlag(path, true); }
bool clearImmutable(const std::filesystem::path& path) { return changeFlag(path, false); }
bool isImmutable(const std::filesystem::path& path) { return hasFlag(path); }

}  // namespace ambervane
