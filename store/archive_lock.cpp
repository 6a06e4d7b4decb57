#include "store/archive_lock.h"

#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "base/calendar.h"
#include "base/json.h"
#include "platform/host.h"
#include "store/archive_error.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFileName = "lock";

AppendFile openLockFile(const fs::path& path) {
  try {
    return AppendFile::open(path);
  } catch (const FileError& error) {
    throw ArchiveError(
        ArchiveError::LockUnavailable{std::generic_category().message(error.error())});
  }
}

/// 0, or the errno value of the refusal.
int tryLock(const LockFunction& lock, int descriptor) {
  for (;;) {
    if (lock(descriptor, LOCK_EX | LOCK_NB) == 0) return 0;
    if (errno != EINTR) return errno;
  }
}

std::string toJson(const ArchiveLock::Holder& holder) {
  return prettyJson({{"processID", holder.processID},
                     {"hostName", holder.hostName},
                     {"userName", holder.userName},
                     {"acquiredAt", iso8601(holder.acquiredAt)},
                     {"application", holder.application}});
}

}  // namespace

std::string ArchiveLock::Holder::description() const {
  return fmt::format("{} (process {}) on {}, as {}", application, processID, hostName, userName);
}

ArchiveLock::ArchiveLock(const fs::path& archive, Date now, LockFunction lock)
    : file_(openLockFile(archive / kFileName)), lock_(std::move(lock)) {
  const int refusal = tryLock(lock_, file_.descriptor());
  if (refusal == EWOULDBLOCK || refusal == EAGAIN) {
    const std::optional<Holder> holder = readHolder(archive);
    throw ArchiveError(ArchiveError::LockedByAnother{holder ? std::optional(holder->description())
                                                            : std::nullopt});
  }
  if (refusal != 0) unsupportedReason_ = std::generic_category().message(refusal);
  try {
    file_.truncate(0);
    file_.append(toJson({static_cast<std::int32_t>(::getpid()), localHostName(), loginUserName(),
                         now, processName()}));
  } catch (const FileError&) {
    // The record only tells people who holds the lock; the lock is held without it.
  }
}

ArchiveLock::~ArchiveLock() {
  // Emptied while the lock is still held: afterwards the record may be the next holder's.
  try {
    file_.truncate(0);
  } catch (const FileError&) {
    // An old record misleads nobody: the kernel's lock decides.
  }
  lock_(file_.descriptor(), LOCK_UN);
}

std::optional<ArchiveLock::Holder> ArchiveLock::readHolder(const fs::path& archive) {
  const std::optional<Bytes> text = readFileIfPossible(archive / kFileName);
  if (!text || text->empty()) return std::nullopt;
  try {
    const nlohmann::json json = tryParseJson(*text);
    const std::optional<Date> acquiredAt = parseIso8601(json.at("acquiredAt").get<std::string>());
    if (!acquiredAt) return std::nullopt;
    return Holder{json.at("processID").get<std::int32_t>(), json.at("hostName").get<std::string>(),
                  json.at("userName").get<std::string>(), *acquiredAt,
                  json.at("application").get<std::string>()};
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

}  // namespace ambervane
