#ifndef AMBERVANE_STORE_ARCHIVE_LOCK_H_
#define AMBERVANE_STORE_ARCHIVE_LOCK_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "base/date.h"
#include "base/file.h"
#include "platform/file_lock.h"

namespace ambervane {

/// The right to write to an archive, held from construction to destruction through the file `lock`.
/// The kernel's lock decides; the holder written into the file only tells people who has it, so one
/// left by a crash blocks nobody.
class ArchiveLock {
 public:
  struct Holder {
    std::int32_t processID = 0;
    std::string hostName;
    std::string userName;
    Date acquiredAt;  ///< whole seconds
    std::string application;
    /// "ambervane (process 12) on host, as user"
    std::string description() const;
    friend bool operator==(const Holder&, const Holder&) = default;
  };

  /// Throws ArchiveError: LockedByAnother when someone holds it, LockUnavailable when the file
  /// cannot be opened. On a volume that cannot lock there is no throw but `unsupported`. `now` goes
  /// into the holder record.
  ArchiveLock(const std::filesystem::path& archive, Date now, LockFunction lock = systemFileLock);
  ~ArchiveLock();
  ArchiveLock(const ArchiveLock&) = delete;
  ArchiveLock& operator=(const ArchiveLock&) = delete;

  /// Why the volume gave no lock; absent when the lock is held.
  const std::optional<std::string>& unsupportedReason() const noexcept {
    return unsupportedReason_;
  }
  bool unsupported() const noexcept { return unsupportedReason_.has_value(); }

  /// Who says it holds the archive's lock; absent without a readable record.
  static std::optional<Holder> readHolder(const std::filesystem::path& archive);

 private:
  AppendFile file_;
  LockFunction lock_;
  std::optional<std::string> unsupportedReason_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_ARCHIVE_LOCK_H_
