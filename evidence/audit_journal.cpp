#include "evidence/audit_journal.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "base/text.h"
#include "platform/host.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr int kFileMode = 0600;
constexpr std::size_t kMostRecentLines = 200'000;  ///< that `recent` looks at
/// Pages already walked are given back in steps of this many bytes.
constexpr std::size_t kForgetBytes = std::size_t{16} << 20;

/// Holds the file lock where there is one to be had. An archive on a file system without locks must
/// still be recordable, so a refusal is no failure.
class FileLockGuard {
 public:
  FileLockGuard(const LockFunction& lockFile, int descriptor)
      : lockFile_(lockFile), descriptor_(descriptor) {
    int status = 0;
    do {
      status = lockFile_(descriptor_, LOCK_EX);
    } while (status != 0 && errno == EINTR);
    held_ = status == 0;
  }
  ~FileLockGuard() {
    if (held_) lockFile_(descriptor_, LOCK_UN);
  }
  FileLockGuard(const FileLockGuard&) = delete;
  FileLockGuard& operator=(const FileLockGuard&) = delete;

 private:
  const LockFunction& lockFile_;
  const int descriptor_;
  bool held_ = false;
};

/// The last line that is not empty before `end`, which moves to that line's start.
std::optional<std::string_view> previousLine(std::string_view bytes, std::size_t& end) {
  const std::size_t last = bytes.substr(0, end).find_last_not_of('\n');
  if (last == std::string_view::npos) return std::nullopt;
  const std::size_t feed = bytes.rfind('\n', last);
  end = feed == std::string_view::npos ? 0 : feed + 1;
  return bytes.substr(end, last + 1 - end);
}

/// Calls `body` for each line that is not empty until it returns false.
template <typename Body>
void forEachLine(const MappedFile& file, Body body) {
  const std::string_view bytes = file.bytes();
  std::size_t forgotten = 0;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
    if (end > at && !body(bytes.substr(at, end - at))) return;
    at = end + 1;
    if (at - forgotten >= kForgetBytes) file.forgetBefore(forgotten = at);
  }
}

/// The journal for reading; absent when it is missing or cannot be read.
std::shared_ptr<const MappedFile> mapIfPossible(const fs::path& url) {
  try {
    return MappedFile::open(url);
  } catch (const FileError&) {
    return nullptr;
  }
}

AppendFile openForAppending(const fs::path& url) {
  const fs::path folder = url.parent_path();
  if (!folder.empty()) createFolders(folder);
  std::error_code ignored;
  const bool isNew = !fs::exists(url, ignored);
  AppendFile file = AppendFile::open(url, kFileMode);
  // The flush of an entry is worth nothing while the name of its file can still be lost.
  if (isNew && !folder.empty()) {
    syncFolder(folder);
    if (folder.has_parent_path()) syncFolder(folder.parent_path());
  }
  return file;
}

/// What is wrong with `entry` as the one that follows `expected` - 1 entries and `head`.
std::optional<Finding> faultOf(const std::optional<AuditEntry>& entry, std::int64_t expected,
                               const std::string& head) {
  if (!entry) return Finding(Finding::ChainMalformed{expected});
  if (entry->seq != expected) return Finding(Finding::ChainSequenceGap{expected, entry->seq});
  if (entry->previousHash != head) return Finding(Finding::ChainBreak{entry->seq});
  if (computeEntryHash(*entry) != entry->entryHash) {
    return Finding(Finding::ChainEntryModified{entry->seq});
  }
  return std::nullopt;
}

}  // namespace

LocalizedMessage JournalError::message() const {
  switch (reason_) {
    case Reason::notWritable:
      break;
  }
  return {
      "This archive is kept where nothing can be written, so nothing can be recorded in its "
      "journal",
      {}};
}

AuditJournal::AuditJournal(fs::path url, ActorProvider actorProvider, bool writable,
                           LockFunction lockFile, Clock clock)
    : url_(std::move(url)),
      actorProvider_(std::move(actorProvider)),
      lockFile_(std::move(lockFile)),
      clock_(std::move(clock)) {
  if (writable) {
    file_ = openForAppending(url_);
    // A journal that is there but cannot be read must not be carried on as if it were empty.
    tail_ = scan(MappedFile::open(url_)->bytes());
  } else {
    const auto file = mapIfPossible(url_);
    tail_ = scan(file ? file->bytes() : std::string_view());
  }
}

bool AuditJournal::isWritable() const {
  const std::lock_guard guard(mutex_);
  return file_.has_value();
}

std::string AuditJournal::head() const {
  const std::lock_guard guard(mutex_);
  return tail_.head;
}

std::int64_t AuditJournal::count() const {
  const std::lock_guard guard(mutex_);
  return tail_.count;
}

/// Goes back over lines torn by a crash to the last one that reads as an entry. They stay in the
/// file as evidence; the chain carries on from the entry before them.
AuditJournal::Tail AuditJournal::scan(std::string_view bytes) {
  Tail tail{genesisHash(), 0, bytes.size(), bytes.empty() || bytes.back() == '\n'};
  std::size_t end = bytes.size();
  while (const auto line = previousLine(bytes, end)) {
    if (auto entry = decodeAuditEntry(*line)) {
      tail.head = std::move(entry->entryHash);
      tail.count = entry->seq;
      break;
    }
  }
  return tail;
}

AuditEntry AuditJournal::makeEntry(AuditAction action, const std::optional<std::string>& subject,
                                   const std::map<std::string, std::string>& details,
                                   const std::optional<std::string>& actor) const {
  AuditEntry entry;
  // Unsigned, because a damaged line may have left the highest number there is.
  entry.seq = static_cast<std::int64_t>(static_cast<std::uint64_t>(tail_.count) + 1);
  entry.timestamp = clock_();
  entry.action = action;
  // Repaired before they are hashed: what is hashed must be what the line gives back.
  entry.actor = repairedUtf8(actor ? *actor : actorProvider_());
  if (subject) entry.subject = repairedUtf8(*subject);
  for (const auto& [key, value] : details) {
    entry.details.insert_or_assign(repairedUtf8(key), repairedUtf8(value));
  }
  entry.previousHash = tail_.head;
  entry.entryHash = computeEntryHash(entry);
  return entry;
}

AuditEntry AuditJournal::append(AuditAction action, const std::optional<std::string>& subject,
                                const std::map<std::string, std::string>& details,
                                const std::optional<std::string>& actor) {
  const std::lock_guard guard(mutex_);
  if (!file_) throw JournalError(JournalError::Reason::notWritable);
  const FileLockGuard lock(lockFile_, file_->descriptor());
  catchUp();
  AuditEntry entry = makeEntry(action, subject, details, actor);
  std::string line = encodeAuditEntry(entry) + '\n';
  if (!tail_.endsWithNewline) line.insert(line.begin(), '\n');
  file_->append(line);
  if (!deferSync_) file_->sync();
  tail_ = {entry.entryHash, entry.seq, tail_.length + line.size(), true};
  return entry;
}

/// Looks for what another process, or an append of ours that failed halfway, has left in the file.
void AuditJournal::catchUp() {
  std::uint64_t size = 0;
  try {
    size = file_->size();
  } catch (const FileError&) {
    return;  // what is known is the best there is
  }
  if (size != tail_.length) tail_ = scan(MappedFile::open(url_)->bytes());
}

void AuditJournal::beginBatch() {
  const std::lock_guard guard(mutex_);
  deferSync_ = true;
}

void AuditJournal::endBatch() {
  const std::lock_guard guard(mutex_);
  deferSync_ = false;
  if (file_) file_->sync();
}

void AuditJournal::flush() {
  const std::lock_guard guard(mutex_);
  if (file_) file_->sync();
}

void AuditJournal::synchronize() noexcept {
  try {
    flush();
  } catch (const FileError&) {
    // The caller asked for what can be had; whoever must know ends a batch.
  }
}

VerificationResult AuditJournal::verify() const {
  VerificationResult result;
  result.head = genesisHash();
  if (const auto file = mapIfPossible(url_)) {
    forEachLine(*file, [&](std::string_view line) {
      auto entry = decodeAuditEntry(line);
      result.finding = faultOf(entry, result.entriesChecked + 1, result.head);
      if (result.finding) {
        result.firstBadSeq = entry ? entry->seq : result.entriesChecked + 1;
        return false;
      }
      result.head = std::move(entry->entryHash);
      ++result.entriesChecked;
      return true;
    });
    result.ok = !result.finding;
    if (result.ok) result.finding = Finding(Finding::ChainIntact{result.entriesChecked});
  } else {
    result.finding = Finding(Finding::Verbatim{"Journal missing or unreadable"});
  }
  result.message = result.finding->message().text();
  return result;
}

std::vector<AuditEntry> AuditJournal::recent(std::size_t limit,
                                             std::optional<AuditAction> matching) const {
  std::vector<AuditEntry> entries;
  const auto file = mapIfPossible(url_);
  if (!file) return entries;
  std::size_t end = file->bytes().size();
  for (std::size_t seen = 0; seen < kMostRecentLines && entries.size() < limit; ++seen) {
    const auto line = previousLine(file->bytes(), end);
    if (!line) break;
    auto entry = decodeAuditEntry(*line);
    if (entry && (!matching || entry->action == *matching)) entries.push_back(std::move(*entry));
  }
  return entries;
}

void AuditJournal::forEachEntry(const std::function<bool(const AuditEntry&)>& body) const {
  const auto file = mapIfPossible(url_);
  if (!file) return;
  forEachLine(*file, [&](std::string_view line) {
    const auto entry = decodeAuditEntry(line);
    return !entry || body(*entry);
  });
}

void AuditJournal::forEachEntryNewestFirst(
    const std::function<bool(const AuditEntry&)>& body) const {
  const auto file = mapIfPossible(url_);
  if (!file) return;
  std::size_t end = file->bytes().size();
  while (const auto line = previousLine(file->bytes(), end)) {
    const auto entry = decodeAuditEntry(*line);
    if (entry && !body(*entry)) return;
  }
}

std::vector<AuditEntry> AuditJournal::allEntries(std::size_t limit) const {
  std::vector<AuditEntry> entries;
  if (limit == 0) return entries;
  forEachEntry([&](const AuditEntry& entry) {
    entries.push_back(entry);
    return entries.size() < limit;
  });
  return entries;
}

std::string AuditJournal::defaultActor() {
  std::string actor = loginUserName() + "@" + localHostName();
  std::erase_if(actor, isAsciiSpace);
  return actor;
}

}  // namespace ambervane
