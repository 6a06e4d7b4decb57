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
  std::uint32_t magic;
  const char* name;
  bool isNetwork = false;
};

// Numbers from <linux/magic.h> and, for file systems outside it, from their own sources.
constexpr FileSystem kFileSystems[] = {
    {0x0000ef53, "ext4"},       {0x58465342, "xfs"},        {0x9123683e, "btrfs"},
    {0x2fc12fc1, "zfs"},        {0xf2f52010, "f2fs"},       {0xca451a4e, "bcachefs"},
    {0x52654973, "reiserfs"},   {0x3153464a, "jfs"},        {0x00004d44, "vfat"},
    {0x2011bab0, "exfat"},      {0x5346544e, "ntfs"},       {0x7366746e, "ntfs3"},
    {0x0000482b, "hfsplus"},    {0x00009660, "iso9660"},    {0x15013346, "udf"},
    {0x73717368, "squashfs"},   {0xe0f5e1e2, "erofs"},      {0x01021994, "tmpfs"},
    {0x858458f6, "ramfs"},      {0x794c7630, "overlay"},    {0x0000f15f, "ecryptfs"},
    {0x65735546, "fuse"},       {0x786f4256, "vboxsf"},     {0x00009fa0, "proc"},
    {0x62656572, "sysfs"},      {0x01021997, "9p", true},   {0x00006969, "nfs", true},
    {0x0000517b, "smb", true},  {0xfe534d42, "smb", true},  {0xff534d42, "cifs", true},
    {0x00c36400, "ceph", true}, {0x5346414f, "afs", true},  {0x6b414653, "afs", true},
    {0x73757245, "coda", true}, {0x0000564c, "ncpfs", true}};

FileSystem fileSystem(const std::filesystem::path& path) {
  static constexpr FileSystem kUnknown{0, "unknown"};
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
