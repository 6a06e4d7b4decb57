#include "platform/volume.h"

#include <sys/statvfs.h>
#ifdef __APPLE__
#include <sys/mount.h>
#include <sys/param.h>
#else
#include <sys/vfs.h>
#endif

#include <algorithm>

namespace ambervane {
namespace {

#ifdef __APPLE__

struct FileSystem {
  std::string name = "unknown";
  bool isNetwork = false;
};

FileSystem fileSystem(const std::filesystem::path& path) {
  struct statfs info {};
  if (::statfs(path.c_str(), &info) != 0) return {};
  return {info.f_fstypename, (info.f_flags & MNT_LOCAL) == 0};
}

#else

struct FileSystem {
  const char* name;
  std::uint32_t magic;
  bool isNetwork = false;
};

// Numbers from <linux/magic.h> and, for file systems outside it, from their own sources.
constexpr FileSystem kFileSystems[] = {
    {"ext4", 0x0000ef53},       {"xfs", 0x58465342},        {"btrfs", 0x9123683e},
    {"zfs", 0x2fc12fc1},        {"f2fs", 0xf2f52010},       {"bcachefs", 0xca451a4e},
    {"reiserfs", 0x52654973},   {"jfs", 0x3153464a},        {"vfat", 0x00004d44},
    {"exfat", 0x2011bab0},      {"ntfs", 0x5346544e},       {"ntfs3", 0x7366746e},
    {"hfsplus", 0x0000482b},    {"iso9660", 0x00009660},    {"udf", 0x15013346},
    {"squashfs", 0x73717368},   {"erofs", 0xe0f5e1e2},      {"tmpfs", 0x01021994},
    {"ramfs", 0x858458f6},      {"overlay", 0x794c7630},    {"ecryptfs", 0x0000f15f},
    {"fuse", 0x65735546},       {"vboxsf", 0x786f4256},     {"proc", 0x00009fa0},
    {"sysfs", 0x62656572},      {"9p", 0x01021997, true},   {"nfs", 0x00006969, true},
    {"smb", 0x0000517b, true},  {"smb", 0xfe534d42, true},  {"cifs", 0xff534d42, true},
    {"ceph", 0x00c36400, true}, {"afs", 0x5346414f, true},  {"afs", 0x6b414653, true},
    {"coda", 0x73757245, true}, {"ncpfs", 0x0000564c, true}};

FileSystem fileSystem(const std::filesystem::path& path) {
  static constexpr FileSystem kUnknown{"unknown", 0};
  struct statfs info {};
  if (::statfs(path.c_str(), &info) != 0) return kUnknown;
  // The type is a signed word of the machine, the number one of 32 bits.
  const auto magic = static_cast<std::uint32_t>(info.f_type);
  const auto* const found = std::find_if(std::begin(kFileSystems), std::end(kFileSystems),
                                         [&](const FileSystem& f) { return f.magic == magic; });
  return found == std::end(kFileSystems) ? kUnknown : *found;
}

#endif

}  // namespace

bool volumeIsReadOnly(const std::filesystem::path& path) {
  struct statvfs info {};
  return ::statvfs(path.c_str(), &info) == 0 && (info.f_flag & ST_RDONLY) != 0;
}

std::optional<std::uint64_t> freeBytes(const std::filesystem::path& path) {
  struct statvfs info {};
  if (::statvfs(path.c_str(), &info) != 0) return std::nullopt;
  return std::uint64_t{info.f_bavail} * info.f_frsize;
}

std::string fileSystemName(const std::filesystem::path& path) { return fileSystem(path).name; }

bool isNetworkVolume(const std::filesystem::path& path) { return fileSystem(path).isNetwork; }

}  // namespace ambervane
